// What takes the picture away or builds it anew by command. Cables that are pulled and plugged are the fault
// campaign's.
#include <gmock/gmock.h>

#include "board_run.h"

using testing::HasSubstr;
using testing::Not;

TEST(Recovery, HostStreamingKeepsThePictureWithoutAMonitor) {
    const Board board = StartUntil("Manage dynamic pipeline\n", {"--camera1", "hd-mjpeg", "--monitor", "none"});
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

// A listing of sound cards whose card is pulled meanwhile: the sound waits for it, and comes.
TEST(Recovery, ToolThatNeverStopsWorkingIsStopped) {
    const Board board = StartUntil("Playing audio pipeline...\n", {"--camera1", "hd-mjpeg"});
    ASSERT_EQ(Ctl(board, {"fault", "tool", "arecord", "spin"}).status, 0);
    const size_t from = OutputSize(board);
    ASSERT_TRUE(TypeAndWait(board, "<ENJPEGPARSE 0>\n", "Audio pipeline destroyed.\n")) << Output(board);
    EXPECT_TRUE(WaitForOutput(board, "Playing audio pipeline...\n", 60, from)) << Output(board);
}
