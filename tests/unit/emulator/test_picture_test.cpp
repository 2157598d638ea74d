#include "test_picture.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <vector>

#include "jpeg_frames.h"

static constexpr PictureMark kMark = {.source = PictureSource::kCamera2, .counter = 0xbeef, .milliseconds = 654'321};

// A displayed frame.
struct Screen {
    size_t width, height;
    std::vector<uint8_t> bgrx;
};

static Screen BlackScreen(size_t width, size_t height) {
    return {.width = width, .height = height, .bgrx = std::vector<uint8_t>(width * height * 4)};
}

static std::optional<PictureMark> Read(const Screen& screen, Window window) {
    return ReadPictureMark(screen.bgrx, screen.width, screen.height, screen.width * 4, window);
}

static std::optional<PictureMark> Read(const Screen& screen) {
    return Read(screen, {.x = 0, .y = 0, .width = screen.width, .height = screen.height});
}

static void ExpectMark(const std::optional<PictureMark>& read, bool mirrored, bool upsideDown) {
    ASSERT_TRUE(read);
    EXPECT_EQ(read->source, kMark.source);
    EXPECT_EQ(read->counter, kMark.counter);
    EXPECT_EQ(read->milliseconds, kMark.milliseconds);
    EXPECT_EQ(read->mirrored, mirrored);
    EXPECT_EQ(read->upsideDown, upsideDown);
}

// Luma only: the mark has no colour.
static Screen ScreenOf(size_t width, size_t height) {
    std::vector<uint8_t> yuyv(width * height * 2);
    DrawPictureYuyv(kMark.source, yuyv, width, height, width * 2);
    DrawMarkYuyv(kMark, yuyv, width, height, width * 2);
    Screen screen = BlackScreen(width, height);
    for (size_t pixel = 0; pixel < width * height; ++pixel)
        std::fill_n(screen.bgrx.begin() + static_cast<ptrdiff_t>(4 * pixel), 3, yuyv[2 * pixel]);
    return screen;
}

// Into a place on a screen, each pixel the mean of those it covers (at least the nearest), mirrored on demand.
static void Scale(const Screen& from, Screen& to, Window place, bool mirrored = false, bool upsideDown = false) {
    for (size_t y = 0; y < place.height; ++y) {
        for (size_t x = 0; x < place.width; ++x) {
            const size_t fromX = (mirrored ? place.width - 1 - x : x), fromY = (upsideDown ? place.height - 1 - y : y);
            const size_t left = fromX * from.width / place.width, top = fromY * from.height / place.height;
            const size_t right = std::max((fromX + 1) * from.width / place.width, left + 1);
            const size_t bottom = std::max((fromY + 1) * from.height / place.height, top + 1);
            for (size_t channel = 0; channel < 3; ++channel) {
                size_t sum = 0;
                for (size_t v = top; v < bottom; ++v)
                    for (size_t u = left; u < right; ++u) sum += from.bgrx[4 * (v * from.width + u) + channel];
                to.bgrx[4 * ((place.y + y) * to.width + place.x + x) + channel] =
                    static_cast<uint8_t>(sum / ((right - left) * (bottom - top)));
            }
        }
    }
}

struct Extent {
    size_t width, height;
};
static void PrintTo(const Extent& extent, std::ostream* out) { *out << extent.width << 'x' << extent.height; }

class EverySize : public testing::TestWithParam<Extent> {};

TEST_P(EverySize, MarkIsReadFromItself) {
    ExpectMark(Read(ScreenOf(GetParam().width, GetParam().height)), false, false);
}

TEST_P(EverySize, MarkSurvivesJpegInWindow400PixelsWide) {
    const auto [width, height] = GetParam();
    const auto still = EncodeStill(kMark.source, width, height);
    ASSERT_TRUE(still);
    std::vector<uint8_t> jpeg(width * height * 2 + 65536);
    jpeg.resize(SpliceJpeg(*still, kMark, jpeg));
    ASSERT_FALSE(jpeg.empty());
    Screen decoded = BlackScreen(width, height);
    const tjhandle decoder = tjInitDecompress();
    EXPECT_EQ(tjDecompress2(decoder, jpeg.data(), jpeg.size(), decoded.bgrx.data(), static_cast<int>(width), 0,
                            static_cast<int>(height), TJPF_BGRX, 0),
              0)
        << tjGetErrorStr2(decoder);
    tjDestroy(decoder);
    Screen screen = BlackScreen(1280, 720);
    const Window place = {.x = 301, .y = 77, .width = 400, .height = 225};
    Scale(decoded, screen, place);
    ExpectMark(Read(screen, place), false, false);
}

INSTANTIATE_TEST_SUITE_P(Sizes, EverySize,
                         testing::Values(Extent{1920, 1080}, Extent{1280, 720}, Extent{1024, 576}, Extent{960, 540},
                                         Extent{848, 480}, Extent{640, 480}, Extent{640, 360}, Extent{320, 180},
                                         Extent{160, 90}, Extent{1366, 768}, Extent{853, 481}, Extent{1600, 448},
                                         Extent{1920, 540}),
                         testing::PrintToStringParamName());

TEST(PictureMark, TellsFlippedWindowsApart) {
    const Screen picture = ScreenOf(1280, 720);
    for (const bool mirrored : {false, true}) {
        for (const bool upsideDown : {false, true}) {
            Screen screen = BlackScreen(960, 540);
            Scale(picture, screen, {.x = 0, .y = 0, .width = 960, .height = 540}, mirrored, upsideDown);
            ExpectMark(Read(screen), mirrored, upsideDown);
        }
    }
}

TEST(PictureMark, IsFoundBetweenBlackBars) {
    const Screen picture = ScreenOf(640, 480);
    Screen pillars = BlackScreen(1920, 1080), letterbox = BlackScreen(800, 900);
    Scale(picture, pillars, {.x = 240, .y = 0, .width = 1440, .height = 1080});
    Scale(picture, letterbox, {.x = 0, .y = 150, .width = 800, .height = 600});
    ExpectMark(Read(pillars), false, false);
    ExpectMark(Read(letterbox), false, false);
}

TEST(PictureMark, IsNotSeenWhereThereIsNone) {
    Screen plain = BlackScreen(640, 360);
    EXPECT_FALSE(Read(plain));
    std::ranges::fill(plain.bgrx, uint8_t{255});
    EXPECT_FALSE(Read(plain));
    const Screen picture = ScreenOf(640, 360);
    const size_t below = kMarkRows * MarkRowLines(360);
    EXPECT_FALSE(Read(picture, {.x = 0, .y = below, .width = 640, .height = 360 - below}));
    EXPECT_FALSE(Read(picture, {.x = 0, .y = 0, .width = 641, .height = 360}));
}

// The upper row of one frame and the lower one of the next, as on a display that tears.
TEST(PictureMark, OfTwoFramesIsRefused) {
    constexpr size_t kWidth = 1280, kHeight = 720;
    std::vector<uint8_t> luma(kWidth);
    Screen screen = BlackScreen(kWidth, kHeight);
    const PictureMark next = {
        .source = kMark.source, .counter = kMark.counter + 1, .milliseconds = kMark.milliseconds + 33};
    for (size_t line = 0; line < kMarkRows * MarkRowLines(kHeight); ++line) {
        const size_t row = line / MarkRowLines(kHeight);
        DrawMarkLine(row == 0 ? kMark : next, row, luma);
        for (size_t x = 0; x < kWidth; ++x)
            std::fill_n(screen.bgrx.begin() + static_cast<ptrdiff_t>(4 * (line * kWidth + x)), 3, luma[x]);
    }
    EXPECT_FALSE(Read(screen));
}

TEST(JpegFrames, WeighWhatCamerasSend) {
    const auto still = EncodeStill(PictureSource::kCamera1, 1280, 720);
    std::vector<uint8_t> jpeg(1280 * 720 * 2);
    const size_t size = SpliceJpeg(*still, kMark, jpeg);
    EXPECT_GT(size, 75'000u);
    EXPECT_LT(size, 175'000u);
    EXPECT_EQ(SpliceJpeg(*still, kMark, std::span(jpeg).first(size - 1)), 0u) << "a frame that does not fit";
}
