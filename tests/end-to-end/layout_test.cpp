// The picture itself: every layout command puts the right sources into the computed windows.
#include <gmock/gmock.h>

#include "picture_probe.h"

struct LayoutCase {
    const char* command;
    std::vector<Shown> shown;
};

// Both cameras and the HDMI source are 16:9, so each source is shown whole, centred in its window.
static const std::vector<LayoutCase> kLayouts1080 = {
    {"<S1>", {{'1', 0, 0, 1920, 1080}}},
    {"<S2>", {{'2', 0, 0, 1920, 1080}}},
    {"<SS1>", {{'1', 0, 270, 960, 810}, {'2', 960, 270, 1920, 810}}},
    {"<SS2>", {{'2', 0, 270, 960, 810}, {'1', 960, 270, 1920, 810}}},
    {"<BS1>", {{'1', 0, 162, 1344, 918}, {'2', 1344, 378, 1920, 702}}},
    {"<BS2>", {{'2', 0, 162, 1344, 918}, {'1', 1344, 378, 1920, 702}}},
    {"<TB1>", {{'1', 480, 0, 1440, 540}, {'2', 480, 540, 1440, 1080}}},
    {"<TB2>", {{'2', 480, 0, 1440, 540}, {'1', 480, 540, 1440, 1080}}},
    {"<PPTL1>", {{'2', 19, 10, 640, 359}}},
    {"<PPTL2>", {{'1', 19, 10, 640, 359}}},
    {"<PPTR1>", {{'2', 1279, 19, 1901, 369}}},
    {"<PPTR2>", {{'1', 1279, 19, 1901, 369}}},
    {"<PPBL1>", {{'1', 0, 0, 1920, 1080}, {'2', 19, 712, 640, 1061}}},
    {"<PPBL2>", {{'2', 0, 0, 1920, 1080}, {'1', 19, 712, 640, 1061}}},
    {"<PPBR1>", {{'1', 0, 0, 1920, 1080}, {'2', 1279, 711, 1901, 1061}}},
    {"<PPBR2>", {{'2', 0, 0, 1920, 1080}, {'1', 1279, 711, 1901, 1061}}},
};

static const std::vector<LayoutCase> kLayouts768 = {
    {"<S1>", {{'1', 0, 0, 1366, 768}}},
    {"<S2>", {{'2', 0, 0, 1366, 768}}},
    {"<SS1>", {{'1', 0, 192, 683, 576}, {'2', 683, 192, 1366, 576}}},
    {"<SS2>", {{'2', 0, 192, 683, 576}, {'1', 683, 192, 1366, 576}}},
    {"<BS1>", {{'1', 0, 115, 956, 653}, {'2', 956, 269, 1366, 499}}},
    {"<BS2>", {{'2', 0, 115, 956, 653}, {'1', 956, 269, 1366, 499}}},
    {"<TB1>", {{'1', 342, 0, 1024, 384}, {'2', 342, 384, 1024, 768}}},
    {"<TB2>", {{'2', 342, 0, 1024, 384}, {'1', 342, 384, 1024, 768}}},
    {"<PPTL1>", {{'2', 13, 7, 455, 255}}},
    {"<PPTL2>", {{'1', 13, 7, 455, 255}}},
    {"<PPTR1>", {{'2', 910, 13, 1353, 262}}},
    {"<PPTR2>", {{'1', 910, 13, 1353, 262}}},
    {"<PPBL1>", {{'1', 0, 0, 1366, 768}, {'2', 13, 506, 455, 755}}},
    {"<PPBL2>", {{'2', 0, 0, 1366, 768}, {'1', 13, 506, 455, 755}}},
    {"<PPBR1>", {{'1', 0, 0, 1366, 768}, {'2', 910, 506, 1353, 755}}},
    {"<PPBR2>", {{'2', 0, 0, 1366, 768}, {'1', 910, 506, 1353, 755}}},
};

static void ExpectLayouts(const Board& board, const std::vector<LayoutCase>& layouts) {
    for (const LayoutCase& layout : layouts) {
        Type(board, std::string(layout.command) + "\n");
        EXPECT_TRUE(WaitUntilPicture(board, 4, [&](const Picture& picture) { return ShowsAll(picture, layout.shown); }))
            << layout.command << "\n"
            << Map(TakePicture(board).value_or(Picture{}));
    }
}

static const Words kThreeSources = {"--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg", "--hdmi-in", "1920x1080p30"};

TEST(Layout, EveryCommandOnFullHd) {
    const Board board = StartNewBoard(kThreeSources);
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    ExpectLayouts(board, kLayouts1080);

    // USB 2 and HDMI share a place; the switch decides which of them is seen.
    ExpectLayouts(board, {{"<S2><SWHDMI>", {{'3', 0, 0, 1920, 1080}}},
                          {"<SS1>", {{'1', 0, 270, 960, 810}, {'3', 960, 270, 1920, 810}}},
                          {"<PPBR2>", {{'3', 0, 0, 1920, 1080}, {'1', 1279, 711, 1901, 1061}}},
                          {"<SWUSB>", {{'2', 0, 0, 1920, 1080}, {'1', 1279, 711, 1901, 1061}}}});
}

TEST(Layout, EveryCommandOn1366x768) {
    Words words = kThreeSources;
    words.insert(words.end(), {"--monitor", "1366x768"});
    const Board board = StartNewBoard(words);
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    ExpectLayouts(board, kLayouts768);
}

TEST(Layout, BlackFlipAndHiddenInputs) {
    const Board board = StartNewBoard(kThreeSources);
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    ExpectLayouts(board, {{"<S1>", {{'1', 0, 0, 1920, 1080}}}});

    const auto black = [](const Picture& picture) {
        for (size_t x = 5; x < picture.width; x += 37)
            if (picture.At(x, x % picture.height)[1] > 24) return false;
        return true;
    };
    Type(board, "<BLK>\n");
    EXPECT_TRUE(WaitUntilPicture(board, 4, black));
    Type(board, "<SHW>\n");
    EXPECT_TRUE(WaitUntilPicture(board, 4, [&](const Picture& picture) { return !black(picture); }));

    struct Flip {
        const char* command;
        bool mirrored, upsideDown;
    };
    for (const Flip& flip :
         {Flip{"<INV 1 1>\n", false, true}, Flip{"<INV 1 2>\n", true, false}, Flip{"<INV 1 0>\n", false, false}}) {
        Type(board, flip.command);
        EXPECT_TRUE(WaitUntilPicture(board, 4, [&](const Picture& picture) {
            const auto mark = MarkIn(picture, {0, 0, 1920, 1080});
            return mark && mark->mirrored == flip.mirrored && mark->upsideDown == flip.upsideDown;
        })) << flip.command;
    }
}

TEST(Layout, PngIsWhatTheDisplayShows) {
    const Board board = StartNewBoard(kThreeSources);
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    Type(board, "<SS1>\n");
    ASSERT_TRUE(
        WaitUntilPicture(board, 6, [](const Picture& picture) { return ShowsAll(picture, kLayouts1080[2].shown); }));
    const auto saved = SavePicture(board);
    ASSERT_TRUE(saved);
    EXPECT_TRUE(ShowsAll(*saved, kLayouts1080[2].shown)) << Map(*saved);
}

TEST(Layout, PictureRunsAtTheCamerasRate) {
    const Board board = StartNewBoard(kThreeSources);
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    Type(board, "<S1>\n");
    const auto counter = [&]() -> std::optional<PictureMark> {
        const auto picture = TakePicture(board);
        return picture ? MarkIn(*picture, {0, 0, 1920, 1080}) : std::nullopt;
    };
    ASSERT_TRUE(WaitUntil(5, [&] {
        const auto mark = counter();
        return mark && mark->source == PictureSource::kCamera1;
    }));
    const auto first = counter();
    Pause(3);
    const auto last = counter();
    ASSERT_TRUE(first && last);
    const double frames = uint16_t(last->counter - first->counter);
    const double seconds = ((last->milliseconds - first->milliseconds) % kMarkTimeModulo) / 1000.0;
    EXPECT_NEAR(frames / seconds, 30.0, 1.0);
}
