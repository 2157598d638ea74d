#include "capture/test_picture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "drawn_picture.h"

static constexpr PictureMark kMark = {.source = PictureSource::kCamera2, .counter = 0xbeef, .milliseconds = 654'321};

// Of any size and through any codec it is read on every board.
TEST(PictureMark, TellsFlippedWindowsApartAndIsFoundBetweenBlackBars) {
    const Picture picture = DrawnPicture(kMark, 960, 540);
    for (const bool mirrored : {false, true})
        for (const bool upsideDown : {false, true}) {
            Picture screen{1280, 900, std::vector<uint8_t>(1280 * 900 * 4)};
            for (size_t y = 0; y < picture.height; ++y)
                for (size_t x = 0; x < picture.width; ++x)
                    std::copy_n(picture.At(mirrored ? 959 - x : x, upsideDown ? 539 - y : y), 4,
                                &screen.bgrx[((180 + y) * 1280 + 160 + x) * 4]);
            const auto read = MarkIn(screen, {.x = 0, .y = 0, .width = 1280, .height = 900});
            ASSERT_TRUE(read);
            EXPECT_EQ(read->source, kMark.source);
            EXPECT_EQ(read->counter, kMark.counter);
            EXPECT_EQ(read->milliseconds, kMark.milliseconds);
            EXPECT_EQ(read->mirrored, mirrored);
            EXPECT_EQ(read->upsideDown, upsideDown);
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
