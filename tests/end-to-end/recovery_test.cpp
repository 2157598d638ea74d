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
