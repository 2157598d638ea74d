// What takes the picture away or builds it anew by command. Cables that are pulled and plugged are the fault
// campaign's.
#include <gmock/gmock.h>

#include "picture_probe.h"

using testing::HasSubstr;
using testing::Not;

TEST(Recovery, HostStreamingKeepsThePictureWithoutAMonitor) {
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg", "--monitor", "none"});
    ASSERT_TRUE(WaitForOutput(board, "Manage dynamic pipeline\n", 30)) << Output(board);
    Pause(3);
    EXPECT_THAT(Output(board), Not(HasSubstr("Playing video pipeline"))) << "nothing to show it on";
    ASSERT_TRUE(TypeAndWait(board, "<USBSTREAM>\n", "Playing video pipeline...\n")) << Output(board);
    const size_t from = OutputSize(board);
    ASSERT_TRUE(TypeAndWait(board, "<USBNSTREAM>\n", "Pausing video pipeline since we received STOP event...\n"))
        << Output(board);
    ASSERT_TRUE(WaitForOutput(board, "Video pipeline destroyed.\n", 5, from)) << Output(board);
    Pause(4);
    EXPECT_THAT(Output(board).substr(from), Not(HasSubstr("Playing video pipeline")));
}

TEST(Recovery, CommandsThatRebuildThePipeline) {
    const Board board = StartShowing({"--camera1", "fullhd-mjpeg"});
    ASSERT_TRUE(TypeAndWait(board, "<ENJPEGPARSE 1>\n", "Enabling JPEGPARSE on USB1.\n")) << Output(board);
    ASSERT_TRUE(ShowsFull(board, '1')) << Seen(board);
    ASSERT_TRUE(TypeAndWait(board, "<OUTPUT 3>\n", "1280x720, 32bpp\n")) << Output(board);
    ASSERT_TRUE(WaitUntilPicture(board, 8, [](const Picture& picture) {
        return picture.width == 1280 && Shows(picture, {'1', 0, 0, 1280, 720});
    })) << Seen(board);
}
