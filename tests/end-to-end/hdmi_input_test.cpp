// The HDMI source on display. Changes of its size are the campaign's; what an old kernel refuses is told by
// BoardLights.
#include <gmock/gmock.h>

#include "picture_probe.h"

TEST(HdmiInput, FastAndInterlacedSourcesFillTheFrameUntilTheyAreGone) {
    const Board board = StartShowing({"--hdmi-in", "1920x1080p60", "--camera1", "hd-mjpeg"});
    Type(board, "<S2>\n");
    EXPECT_TRUE(ShowsFull(board, '3')) << Seen(board);
    const size_t from = OutputSize(board);
    Ctl(board, {"hdmi-in", "0", "1920x1080i60"});
    EXPECT_TRUE(WaitForOutput(board, "Playing video pipeline...\n", 8, from));
    EXPECT_TRUE(ShowsFull(board, '3')) << Seen(board);
    Ctl(board, {"hdmi-in", "0", "off"});
    EXPECT_TRUE(WaitUntilPicture(board, 4, [](const Picture& seen) { return SourceAt(seen, 480, 900) == '.'; }));
}
