// The front panel's devices as the board's own tools find them: a shell, i2c-tools and sysfs, no daemon.
#include <gmock/gmock.h>

#include "board_run.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

static constexpr const char* kShell = "while read line; do eval \"$line\" 2>&1; echo done; done";

// What the board's shell prints for a line.
static std::string Shell(const Board& board, const std::string& line) {
    const size_t from = OutputSize(board);
    Type(board, line + "\n");
    EXPECT_TRUE(WaitForOutput(board, "done\n", 10, from)) << line;
    const std::string output = Output(board).substr(from);
    return output.substr(0, output.find("done\n"));
}

// Reads the keypad as often as a daemon does, and prints what is new.
static constexpr const char* kReader =
    "while sleep 0.02; do r=$(i2ctransfer -y 2 w1@8 0 r25); [ \"$r\" = \"$l\" ] || echo \"report $r\"; l=$r; done";

static Json PanelLeds(const Board& board) { return Json::parse(Ctl(board, {"leds"}).out)["panel"]; }

static std::vector<Json> LedChanges(const Board& board) {
    std::vector<Json> changes;
    for (Json& line : TraceLines(board, "led")) changes.push_back({line["led"], line["value"]});
    return changes;
}

static const std::string kFrame = "i2ctransfer -y 2 w11@8 0 0x09 0xab 0xcd 0 0 0 0 0 0 0";

TEST(PanelDevices, KeypadSendsKeysAndShowsFrames) {
    const Board board = RunScript(kReader);
    ASSERT_TRUE(WaitForOutput(board, "report 0x00 0xeb 0x02 0x04 0x00 ", 10)) << Output(board);
    struct Key {
        Words words;
        const char* report;
    };
    for (const Key& key : {Key{{"2"}, "0x01 0xeb 0x02 0x04 0x02 0x01 0x00"}, Key{{"0x60"}, "0x02 0xeb 0x02 0x04 0x60"},
                           Key{{"swap"}, "0x03 0xee "}, Key{{"view", "14"}, "0x04 0xef 0x0e "},
                           Key{{"repeat", "4"}, "0x04 0xeb 0x02 0x04 0x04 "}, Key{{"garbage"}, "0x05 0x00 "}}) {
        Words words{"key"};
        words.insert(words.end(), key.words.begin(), key.words.end());
        const CtlAnswer answer = Ctl(board, words);
        EXPECT_EQ(answer.status, 0) << answer.err;
        EXPECT_TRUE(WaitForOutput(board, std::string("report ") + key.report, 5)) << Output(board);
    }
    EXPECT_EQ(TraceLines(board, "panel").size(), 6u);
    EXPECT_NE(Ctl(board, {"buttons", "1"}).status, 0);
}

TEST(PanelDevices, WhatPollsDoesNotFloodTheTrace) {
    const Board board = RunScript(kShell, {"--top-board"});
    EXPECT_EQ(Shell(board, "i2ctransfer -y 1 w1@0x53 0 r1"), "0x01\n");
    EXPECT_THAT(Shell(board, "i2ctransfer -y 2 w1@0x21 0 r1"), HasSubstr("No such device or address"));
    EXPECT_THAT(Ctl(board, {"key", "1"}).err, HasSubstr("nobody has fetched it"));
    EXPECT_THAT(Shell(board, "i2ctransfer -y 2 w1@8 0 r5"), StartsWith("0x01 0xeb 0x02 0x04 0x01"));

    Shell(board, "for i in $(seq 20); do " + kFrame + "; done");
    Shell(board, "i2ctransfer -y 2 w11@8 0 0x09 0xab 0xce 0 0 0 0 0 0 0");
    EXPECT_EQ(PanelLeds(board), (Json{{"form", "keypad"}, {"leds", 9}, {"frames", 20}, {"refused", 1}}));
    EXPECT_LT(TraceLines(board, "i2c").size(), 15u);

    // The same for lines: a button's line is turned in and out a thousand times a second.
    EXPECT_EQ(Json::parse(Ctl(board, {"leds"}).out)["input3"], nullptr);
    Shell(board, "g=/sys/class/gpio; echo 106 > $g/export; d=$g/gpio106/direction; v=$g/gpio106/value");
    Shell(board, "echo out > $d; echo 1 > $v");
    EXPECT_EQ(Ctl(board, {"gpio-button", "3", "press"}).status, 0);
    EXPECT_EQ(Shell(board, "for i in $(seq 20); do echo in > $d; cat $v; echo high > $d; done | sort -u"), "0\n");
    EXPECT_EQ(Ctl(board, {"gpio-button", "3", "release"}).status, 0);
    EXPECT_EQ(Shell(board, "cat $v; echo in > $d; cat $v"), "1\n1\n");
    EXPECT_EQ(Json::parse(Ctl(board, {"leds"}).out)["input3"], 1);
    EXPECT_EQ(LedChanges(board), (std::vector<Json>{{"panel", 9}, {"input3", 1}}));

    // A shell is slower than a daemon; a loaded machine may make it no polling at all. Each look is two turns.
    EXPECT_LT(TraceLines(board, "gpio").size(), 30u);
}

TEST(PanelDevices, ExpanderHoldsItsConfigurationUntilItLosesIt) {
    const Board board = MakeBoard();
    StartBoard(board, {"--panel", "expander", "--daemon", "/bin/sh", "--", "-c", kShell});
    EXPECT_EQ(Shell(board, "i2ctransfer -y 2 w1@0x21 6 r1; i2ctransfer -y 2 w1@0x21 1 r1"), "0xff\n0xbf\n");
    EXPECT_EQ(PanelLeds(board), (Json{{"form", "expander"}, {"leds", 0}, {"configured", false}, {"looks", 1}}));
    Shell(board, "i2ctransfer -y 2 w3@0x21 0x40 0 0; i2ctransfer -y 2 w2@0x21 6 0; i2ctransfer -y 2 w2@0x21 2 0x11");
    EXPECT_EQ(PanelLeds(board), (Json{{"form", "expander"}, {"leds", 0x11}, {"configured", true}, {"looks", 1}}));

    const size_t from = OutputSize(board);
    Type(board,
         "l=; for i in $(seq 400); do r=$(i2ctransfer -y 2 w1@0x21 1 r1); "
         "[ \"$r\" = \"$l\" ] || echo $r; l=$r; sleep 0.02; [ $r = 0xbd ] && break; done\n");
    ASSERT_TRUE(WaitForOutput(board, "0xbf\n", 10, from)) << Output(board);
    struct Step {
        Words words;
        std::string seen;  // by the time that the verb has ended, or soon after
    };
    std::string seen = "0xbf\n";
    for (const Step& step :
         {Step{{"buttons", "0x40"}, "0xff\n"}, Step{{"buttons", "0x41", "for", "1000"}, "0xfe\n0xff\n"},
          Step{{"buttons", "0"}, "0xbf\n"}, Step{{"buttons", "2"}, "0xbd\n"}}) {
        EXPECT_EQ(Ctl(board, step.words).status, 0);
        seen += step.seen;
        EXPECT_TRUE(WaitForOutput(board, seen, 10, from)) << Output(board).substr(from);
    }
    EXPECT_TRUE(WaitForOutput(board, "done\n", 10, from)) << Output(board);

    EXPECT_EQ(Ctl(board, {"fault", "expander", "reset"}).status, 0);
    EXPECT_EQ(Shell(board, "i2ctransfer -y 2 w1@0x21 6 r2"), "0xff 0xff\n");
    EXPECT_EQ(Ctl(board, {"fault", "i2c", "21", "nak"}).status, 0);
    EXPECT_THAT(Shell(board, "i2ctransfer -y 2 w1@0x21 6 r1"), HasSubstr("No such device or address"));
    EXPECT_EQ(Ctl(board, {"fault", "i2c", "21", "off"}).status, 0);
    EXPECT_NE(Ctl(board, {"key", "1"}).status, 0);

    Shell(board, "i2ctransfer -y 2 w2@0x21 6 0");
    EXPECT_EQ(PanelLeds(board)["leds"], 0xFF);
    const size_t before = OutputSize(board);
    EXPECT_EQ(Ctl(board, {"power-cycle"}).status, 0);
    EXPECT_TRUE(WaitUntil(10, [&] { return PanelLeds(board)["configured"] == false; }));
    Type(board, "i2ctransfer -y 2 w1@0x21 1 r1\n");
    EXPECT_TRUE(WaitForOutput(board, "0xbd\n", 20, before)) << "fingers know nothing of power";
}

TEST(PanelDevices, NoPanelNoAnswer) {
    const Board board = RunScript("for a in 0x08 0x21; do i2ctransfer -y 2 w1@$a 0 r1; done", {"--panel", "none"});
    ASSERT_TRUE(WaitForOutput(board, "script ended", 10)) << Output(board);
    EXPECT_THAT(Output(board), HasSubstr("No such device or address\nError: Sending messages failed"));
    EXPECT_EQ(PanelLeds(board), nullptr);
    EXPECT_NE(Ctl(board, {"key", "1"}).status, 0);
    EXPECT_NE(Ctl(board, {"buttons", "1"}).status, 0);
}
