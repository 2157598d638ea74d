// Variants 1 to 3 show one of four inputs; what the HDMI receiver accepts depends on the kernel.
#include <gmock/gmock.h>

#include "picture_probe.h"

class InputSwitch : public testing::TestWithParam<int> {};

TEST_P(InputSwitch, SelectsEachOfFourInputs) {
    const Board board = MakeBoard();
    StartBoard(board, {"--device-id", std::to_string(GetParam()), "--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg",
                       "--hdmi-in", "1920x1080p30"});
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    ASSERT_EQ(Ctl(board, {"hdmi-in", "1", "1280x720p60"}).status, 0);
    for (const char input : std::string("1234213")) {
        const std::string command = std::string("<IN") + input + ">\n";
        EXPECT_NE(TypeAndRead(board, command).find("ACK\r\n"), std::string::npos);
        EXPECT_TRUE(ShowsFull(board, input, 12)) << command << Seen(board);
    }
}
INSTANTIATE_TEST_SUITE_P(Variants, InputSwitch, testing::Values(1, 2));

TEST(HdmiInput, FastClockIsRefusedByTheOldKernelAndShownByTheNew) {
    const Words words = {"--hdmi-in", "1920x1080p60", "--camera1", "hd-mjpeg"};
    Words old = words;
    old.push_back("--old-kernel");
    const Board oldBoard = StartNewBoard(old), newBoard = StartNewBoard(words);
    ASSERT_TRUE(WaitForPicture(oldBoard) && WaitForPicture(newBoard));
    for (const Board& board : {oldBoard, newBoard}) Type(board, "<S2>\n");
    EXPECT_TRUE(ShowsFull(newBoard, '3')) << Seen(newBoard);
    EXPECT_TRUE(WaitForOutput(oldBoard, "Activating test pattern as input 3.\n", 5));
    Pause(3);
    const auto picture = TakePicture(oldBoard);
    ASSERT_TRUE(picture);
    EXPECT_NE(SourceAt(*picture, 480, 900), '3') << Seen(oldBoard);
}

TEST(HdmiInput, InterlacedFieldFillsTheFrame) {
    const Board board = StartNewBoard({"--hdmi-in", "1920x1080i60", "--camera1", "hd-mjpeg"});
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    Type(board, "<S2>\n");
    EXPECT_TRUE(ShowsFull(board, '3')) << Seen(board);
}
