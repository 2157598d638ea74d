#include "capture/test_picture.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "capture/jpeg_frames.h"
#include "drawn_picture.h"

static constexpr PictureMark kMark = {.source = PictureSource::kCamera2, .counter = 0xbeef, .milliseconds = 654'321};

static Picture Blank(size_t width, size_t height) { return {width, height, std::vector<uint8_t>(width * height * 4)}; }

static void ExpectMark(const Picture& screen, Window window, bool mirrored = false, bool upsideDown = false) {
    const auto read = MarkIn(screen, window);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->source, kMark.source);
    EXPECT_EQ(read->counter, kMark.counter);
    EXPECT_EQ(read->milliseconds, kMark.milliseconds);
    EXPECT_EQ(read->mirrored, mirrored);
    EXPECT_EQ(read->upsideDown, upsideDown);
}

// Into a place on a screen, each pixel the mean of those it covers (at least the nearest), mirrored on demand.
static void Scale(const Picture& from, Picture& to, Window place, bool mirrored = false, bool upsideDown = false) {
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

// Through the decoder of the board.
static Picture ThroughJpeg(size_t width, size_t height) {
    const auto still = EncodeStill(kMark.source, width, height);
    std::vector<uint8_t> jpeg(width * height * 2 + 65536);
    jpeg.resize(SpliceJpeg(still.value(), kMark, jpeg));
    Picture screen = Blank(width, height);
    const tjhandle decoder = tjInitDecompress();
    EXPECT_EQ(tjDecompress2(decoder, jpeg.data(), jpeg.size(), screen.bgrx.data(), static_cast<int>(width), 0,
                            static_cast<int>(height), TJPF_BGRX, 0),
              0)
        << tjGetErrorStr2(decoder);
    tjDestroy(decoder);
    return screen;
}

TEST(PictureMark, SurvivesJpegInWindow400PixelsWideAtEverySize) {
    static constexpr std::pair<size_t, size_t> kSizes[] = {
        {1920, 1080}, {1280, 720}, {1024, 576}, {960, 540}, {848, 480},  {640, 480}, {640, 360},
        {320, 180},   {160, 90},   {1366, 768}, {853, 481}, {1600, 448}, {1920, 540}};
    for (const auto& [width, height] : kSizes) {
        SCOPED_TRACE(testing::Message() << width << "x" << height);
        ExpectMark(DrawnPicture(kMark, width, height), {.x = 0, .y = 0, .width = width, .height = height});
        Picture screen = Blank(1280, 720);
        const Window place = {.x = 301, .y = 77, .width = 400, .height = 225};
        Scale(ThroughJpeg(width, height), screen, place);
        ExpectMark(screen, place);
    }
}

TEST(PictureMark, TellsFlippedWindowsApartAndIsFoundBetweenBlackBars) {
    const Picture picture = DrawnPicture(kMark, 1280, 720);
    for (const bool mirrored : {false, true})
        for (const bool upsideDown : {false, true}) {
            Picture screen = Blank(1280, 900);
            Scale(picture, screen, {.x = 160, .y = 180, .width = 960, .height = 540}, mirrored, upsideDown);
            ExpectMark(screen, {.x = 0, .y = 0, .width = 1280, .height = 900}, mirrored, upsideDown);
        }
}

TEST(PictureMark, IsNotSeenWhereThereIsNone) {
    const Picture picture = DrawnPicture(kMark, 640, 360);
    const size_t below = kMarkRows * MarkRowLines(360);
    EXPECT_FALSE(MarkIn(picture, {.x = 0, .y = below, .width = 640, .height = 360 - below}));
    EXPECT_FALSE(MarkIn(picture, {.x = 0, .y = 0, .width = 641, .height = 360}));
}

// The upper row of one frame and the lower one of the next, as on a display that tears.
TEST(PictureMark, OfTwoFramesIsRefused) {
    constexpr size_t kWidth = 1280, kHeight = 720;
    const Picture before = DrawnPicture(kMark, kWidth, kHeight);
    Picture screen =
        DrawnPicture({.source = kMark.source, .counter = kMark.counter + 1, .milliseconds = kMark.milliseconds + 33},
                     kWidth, kHeight);
    std::copy_n(before.bgrx.begin(), 4 * kWidth * MarkRowLines(kHeight), screen.bgrx.begin());
    EXPECT_FALSE(MarkIn(screen, {.x = 0, .y = 0, .width = kWidth, .height = kHeight}));
}
