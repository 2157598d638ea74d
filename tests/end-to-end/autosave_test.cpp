// The settings save themselves after 30 s when a field that counts has changed, and leave the flash alone otherwise.
#include <gmock/gmock.h>

#include "board_run.h"

static constexpr double kOnePeriod = 34;  // seconds: the check's 30 and some passes

TEST(Autosave, OnlyACountedFieldSaves) {
    const Board board = StartShowing({"--camera1", "fullhd-mjpeg"});
    Pause(kOnePeriod);
    const size_t from = OutputSize(board);
    const auto saved = SavedSettings(board);
    Type(board, "<PPTR2><SWHDMI><SS><SW><BLK><USBSTREAM>\n");
    Pause(kOnePeriod);
    EXPECT_THAT(Output(board).substr(from), testing::Not(testing::HasSubstr("Saving configuration.\n")));
    EXPECT_EQ(SavedSettings(board), saved);

    Type(board, "<S2>\n");  // S2Count counts, and stays while USB 2 is absent
    ASSERT_TRUE(WaitForOutput(board, "Saving configuration.\n", kOnePeriod, from)) << Output(board);
    ASSERT_TRUE(WaitUntil(2, [&] { return SavedSettings(board).size() == 136; }));
    EXPECT_EQ(SavedSettings(board)[6], 1) << "View travels with the save";
    EXPECT_EQ(SavedSettings(board)[52], 1);
}
