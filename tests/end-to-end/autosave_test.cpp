// The settings save themselves after 30 s when a field that counts has changed, and leave the flash alone otherwise.
#include <gmock/gmock.h>

#include "board_run.h"

static constexpr double kOnePeriod = 34;  // seconds: the check's 30 and some passes

static int Saves(const Board& board, size_t from) {
    const std::string output = Output(board).substr(from);
    int count = 0;
    for (size_t at = 0; (at = output.find("Saving configuration.\n", at)) != std::string::npos; ++at) ++count;
    return count;
}

TEST(Autosave, OnlyACountedFieldSaves) {
    const Board board = StartShowing({"--camera1", "fullhd-mjpeg"});
    Pause(kOnePeriod);
    const size_t from = OutputSize(board);
    const auto saved = SavedSettings(board);
    Type(board, "<PPTR2><SWHDMI><SS><SW><BLK><USBSTREAM>\n");
    Pause(kOnePeriod);
    EXPECT_EQ(Saves(board, from), 0) << Output(board).substr(from);
    EXPECT_EQ(SavedSettings(board), saved);

    Type(board, "<S2>\n");  // S2Count counts, and stays while USB 2 is absent
    ASSERT_TRUE(WaitForOutput(board, "Saving configuration.\n", kOnePeriod, from)) << Output(board);
    ASSERT_TRUE(WaitUntil(2, [&] { return SavedSettings(board).size() == 136; }));
    EXPECT_EQ(SavedSettings(board)[6], 1) << "View travels with the save";
    EXPECT_EQ(SavedSettings(board)[52], 1);
    Pause(kOnePeriod);
    EXPECT_EQ(Saves(board, from), 1);
}
