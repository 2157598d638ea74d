// The HDMI source on display. What an old kernel refuses is told by BoardLights.
#include <gmock/gmock.h>

#include "picture_probe.h"

TEST(HdmiInput, FastAndInterlacedSourcesFillTheFrameUntilTheyAreGone) {
    const Board board = StartShowing({"--hdmi-in", "1920x1080p60", "--camera1", "hd-mjpeg"});
    Type(board, "<S2>\n");
    EXPECT_TRUE(ShowsFull(board, '3')) << Seen(board);
    for (const char* mode : {"1280x720p60", "1920x1080i60"}) {  // one field fills the frame
        const size_t from = OutputSize(board);
        Ctl(board, {"hdmi-in", "0", mode});
        EXPECT_TRUE(WaitForOutput(board, "Playing video pipeline...\n", 8, from)) << mode;
        EXPECT_TRUE(ShowsFull(board, '3')) << mode << Seen(board);
    }
    Ctl(board, {"hdmi-in", "0", "off"});
    EXPECT_TRUE(WaitUntilPicture(board, 4, [](const Picture& seen) { return SourceAt(seen, 480, 900) == '.'; }));
}

// Input switchers only: the receiver turns to the other port, and what flows through the pipeline is that one's.
TEST(HdmiInput, OtherPortOfTheSameSizeNeedsNoNewPipeline) {
    const Board board = StartShowing({"--device-id", "2", "--camera1", "hd-mjpeg", "--hdmi-in", "1280x720p60"});
    Ctl(board, {"hdmi-in", "1", "1280x720p60"});
    Type(board, "<IN3>\n");
    EXPECT_TRUE(ShowsFull(board, '3', 15)) << Seen(board);
    const size_t from = OutputSize(board);
    Type(board, "<IN4>\n");
    EXPECT_TRUE(ShowsFull(board, '4')) << Seen(board);
    Type(board, "<BLK>\n<IN3>\n");
    EXPECT_TRUE(WaitUntilPicture(board, 4, [](const Picture& seen) { return SourceAt(seen, 480, 900) == '.'; }));
    Type(board, "<SHW>\n");
    EXPECT_TRUE(ShowsFull(board, '3')) << Seen(board);
    EXPECT_THAT(Output(board).substr(from), testing::Not(testing::HasSubstr("Playing video pipeline...\n")));
}
