// The HDMI source on display. What the receiver accepts depends on the kernel.
#include <gmock/gmock.h>

#include "picture_probe.h"

TEST(HdmiInput, FastClockIsRefusedByTheOldKernelAndShownByTheNew) {
    const Words words = {"--hdmi-in", "1920x1080p60", "--camera1", "hd-mjpeg"};
    Words old = words;
    old.push_back("--old-kernel");
    const Board oldBoard = StartShowing(old), newBoard = StartShowing(words);
    for (const Board& board : {oldBoard, newBoard}) Type(board, "<S2>\n");
    EXPECT_TRUE(ShowsFull(newBoard, '3')) << Seen(newBoard);
    EXPECT_TRUE(WaitForOutput(oldBoard, "Activating test pattern as input 3.\n", 5));
    Pause(3);
    const auto picture = TakePicture(oldBoard);
    ASSERT_TRUE(picture);
    EXPECT_NE(SourceAt(*picture, 480, 900), '3') << Seen(oldBoard);

    // Another size builds anew; one field of an interlaced source fills the frame; without a source the test pattern
    // does.
    for (const char* mode : {"1280x720p60", "1920x1080i60"}) {
        const size_t from = OutputSize(newBoard);
        Ctl(newBoard, {"hdmi-in", "0", mode});
        EXPECT_TRUE(WaitForOutput(newBoard, "Playing video pipeline...\n", 8, from)) << mode;
        EXPECT_TRUE(ShowsFull(newBoard, '3')) << mode << Seen(newBoard);
    }
    Ctl(newBoard, {"hdmi-in", "0", "off"});
    EXPECT_TRUE(WaitUntilPicture(newBoard, 4, [](const Picture& seen) { return SourceAt(seen, 480, 900) == '.'; }));
}
