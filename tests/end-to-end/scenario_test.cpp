// What was done to a board is kept as a scenario, and a scenario that fails tells where and what was seen.
#include <gmock/gmock.h>

#include <fstream>

#include "picture_probe.h"

using testing::HasSubstr;
using testing::Not;

TEST(Playing, WhatIsDoneIsRecordedAndPlayedAgain) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg"});
    Type(board, "<SS1>\n");
    ASSERT_EQ(Ctl(board, {"camera", "2", "plug", "hd-mjpeg"}).status, 0);
    Ctl(board, {"status"});
    Ctl(board, {"camera", "2"});
    EXPECT_EQ(Ctl(board, {"camera", "7", "unplug"}).status, 1);
    const std::string whole = Ctl(board, {"record"}).out;
    EXPECT_THAT(whole, testing::MatchesRegex("board --camera1 hd-mjpeg --monitor 1080p60\n"
                                             "[0-9]+:[0-9.]+  console <SS1>\n"
                                             "[0-9]+:[0-9.]+  camera 2 plug hd-mjpeg\n"));

    // Anew, into a file: the board as it is now, then a layout that can be seen.
    const std::string path = BoardFile(board, "bug.scenario");
    ASSERT_EQ(Ctl(board, {"record", "start", path}).status, 0);
    ASSERT_EQ(Ctl(board, {"hdmi-in", "1", "1280x720p60"}).status, 0);
    ASSERT_EQ(Ctl(board, {"console", "<TB1>"}).status, 0);
    ASSERT_EQ(Ctl(board, {"record", "stop"}).status, 0);
    ASSERT_EQ(Ctl(board, {"console", "<S1>"}).status, 0);
    EXPECT_THAT(FileText(path), HasSubstr("board --camera1 hd-mjpeg --camera2 hd-mjpeg --monitor 1080p60\n"));
    EXPECT_THAT(FileText(path), Not(HasSubstr("<S1>")));
    ASSERT_TRUE(ShowsFull(board, '1')) << Seen(board);

    std::ofstream(path, std::ios::app) << "expect picture 1 at 960x540+480+0\nexpect picture 2 at 960x540+480+540\n"
                                          "expect log Kernel issue! within 0\n";
    const CtlAnswer answer = Play(board, path);
    EXPECT_EQ(answer.status, 1);
    EXPECT_THAT(answer.out, HasSubstr("expect picture 2 at 960x540+480+540   ok")) << answer.err;
    EXPECT_THAT(answer.err, HasSubstr(path + ":8: expect log Kernel issue! within 0\nNot so at "));
}

TEST(Playing, ABadOneStartsNothing) {
    const Board board = MakeBoard();
    const std::string path = BoardFile(board, "bad.scenario");
    std::ofstream(path) << "board --camera1 nonesuch\nexpect picture 9\n";
    const CtlAnswer answer = Play(board, path);
    EXPECT_EQ(answer.status, 2);
    EXPECT_EQ(answer.out, "");
    EXPECT_THAT(answer.err, HasSubstr(path + ":1: --camera1: no camera profile \"nonesuch\""));
    EXPECT_THAT(answer.err, HasSubstr(path + ":2: usage: expect"));
}
