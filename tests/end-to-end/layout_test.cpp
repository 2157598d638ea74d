// The picture itself: every layout command puts the right sources into the computed windows.
#include <gmock/gmock.h>

#include "picture_probe.h"

struct LayoutCase {
    const char* command;
    std::vector<Shown> shown;
};

// Both cameras and the HDMI source are 16:9, so each source is shown whole, centred in its window.
static const std::vector<LayoutCase> kLayouts1080 = {
    {"<S2>", {{'2', 0, 0, 1920, 1080}}},
    {"<SS1>", {{'1', 0, 270, 960, 810}, {'2', 960, 270, 1920, 810}}},
    {"<SS2>", {{'2', 0, 270, 960, 810}, {'1', 960, 270, 1920, 810}}},
    {"<BS2>", {{'2', 0, 162, 1344, 918}, {'1', 1344, 378, 1920, 702}}},
    {"<TB1>", {{'1', 480, 0, 1440, 540}, {'2', 480, 540, 1440, 1080}}},
    {"<PPTL2>", {{'1', 19, 10, 640, 359}}},
    {"<PPTR1>", {{'2', 1279, 19, 1901, 369}}},
    {"<PPBL1>", {{'1', 0, 0, 1920, 1080}, {'2', 19, 712, 640, 1061}}},
    {"<PPBR2>", {{'2', 0, 0, 1920, 1080}, {'1', 1279, 711, 1901, 1061}}},
};

static void ExpectLayouts(const Board& board, const std::vector<LayoutCase>& layouts) {
    for (const LayoutCase& layout : layouts) {
        Type(board, std::string(layout.command) + "\n");
        EXPECT_TRUE(WaitToShow(board, layout.shown, 4)) << layout.command << Seen(board);
    }
}

static const Words kThreeSources = {"--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg", "--hdmi-in", "1920x1080p30"};

static bool IsBlack(const Picture& picture) {
    for (size_t x = 5; x < picture.width; x += 37)
        if (picture.At(x, x % picture.height)[1] > 24) return false;
    return true;
}

TEST(Layout, EveryPlaceOnFullHd) {
    const Board board = StartShowing(kThreeSources);
    ExpectLayouts(board, kLayouts1080);

    // USB 2 and HDMI share a place; the switch decides which of them is seen.
    ExpectLayouts(board, {{"<S2><SWHDMI>", {{'3', 0, 0, 1920, 1080}}},
                          {"<SS1>", {{'1', 0, 270, 960, 810}, {'3', 960, 270, 1920, 810}}},
                          {"<PPBR2>", {{'3', 0, 0, 1920, 1080}, {'1', 1279, 711, 1901, 1061}}},
                          {"<SWUSB>", {{'2', 0, 0, 1920, 1080}, {'1', 1279, 711, 1901, 1061}}}});
    const auto saved = SavePicture(board);
    EXPECT_TRUE(saved && ShowsAll(*saved, {{'2', 0, 0, 1920, 1080}, {'1', 1279, 711, 1901, 1061}}));

    Type(board, "<BLK>\n");
    EXPECT_TRUE(WaitUntilPicture(board, 4, IsBlack));
    Type(board, "<SHW>\n<S1>\n<INV 1 1>\n");  // upside down
    EXPECT_TRUE(WaitUntilPicture(board, 4, [](const Picture& picture) {
        const auto mark = MarkIn(picture, {0, 0, 1920, 1080});
        return mark && mark->upsideDown && !mark->mirrored;
    })) << Seen(board);
}

TEST(Layout, EveryPlaceOn1366x768) {
    Words words = kThreeSources;
    words.insert(words.end(), {"--monitor", "1366x768"});
    const Board board = StartShowing(words);
    ExpectLayouts(board, {{"<SS2>", {{'2', 0, 192, 683, 576}, {'1', 683, 192, 1366, 576}}},
                          {"<BS1>", {{'1', 0, 115, 956, 653}, {'2', 956, 269, 1366, 499}}},
                          {"<PPTR2>", {{'1', 910, 13, 1353, 262}}}});
}
