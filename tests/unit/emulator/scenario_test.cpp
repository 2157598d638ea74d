// Scenario files: what their lines mean, what is refused, and how an expectation is judged on what is seen.
#include "bench/scenario.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "drawn_picture.h"
#include "text.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

TEST(Scenario, LinesHaveTimesVerbsAndExpectations) {
    const Scenario scenario = ParseScenario(
        "# A comment.\r\n"
        "board --camera1 hd-mjpeg   # plugged at power-on\n"
        "\n"
        "0:05   expect picture 1 fills\n"
        "       console \"<AOUT1 -6>\"\n"
        "+2.5   hdmi-in 0 1280x720p60\n"
        "75:07.25 expect no log \"Kernel issue\" for 3 within 0.5\n"
        "  picture now.png");  // no newline at the end
    ASSERT_THAT(scenario.errors, IsEmpty());
    EXPECT_EQ(scenario.boardLine, 2u);
    EXPECT_THAT(scenario.board, ElementsAre("--camera1", "hd-mjpeg"));
    std::vector<std::string> told;
    for (const ScenarioLine& line : scenario.lines)
        told.push_back(Text("%zu %s%.2f ", line.number, line.behind ? "+" : "", line.seconds) + QuotedWords(line.verb));
    ASSERT_THAT(told, ElementsAre("4 5.00 ", "5 +0.00 console \"<AOUT1 -6>\"", "6 +2.50 hdmi-in 0 1280x720p60",
                                  "7 4507.25 ", "8 +0.00 picture now.png"));
    EXPECT_EQ(scenario.lines[0].expectation->within, kUsualPatience);
    EXPECT_EQ(scenario.lines[3].expectation->within, 0.5);
    EXPECT_EQ(scenario.lines[3].expectation->lasting, 3);
    EXPECT_TRUE(scenario.lines[3].expectation->none);
}

TEST(Scenario, EveryBadLineIsToldWithItsReason) {
    struct Bad {
        const char *line, *reason;
    };
    static constexpr Bad kBad[] = {
        {"cammera 1 plug hd-mjpeg", "no verb \"cammera\""},
        {"trace --follow", "no end"},
        {"board", "above everything else"},
        {"clock 0:10", "stands alone"},
        {"0:5 status", "no time"},
        {"0:30", "nothing to do"},
        {"console \"<S1>", "not closed"},
        {"expect noise", "one of: picture, log"},
        {"expect picture 1 fills running now", "usage"},
        {"expect picture 1 at 0x540+0+0", "a window reads like"},
        {"expect no picture 1 fills running", "do not go together"},
        {"expect picture size big", "a size reads like"},
        {"expect status daemon.starts", "usage"},
        {"expect log ACK within soon", "no number of seconds"},
    };
    std::string text = "0:01 status\n";
    for (const Bad& bad : kBad) text.append(bad.line).append("\n");
    text += "0:00.5 status\n";
    const Scenario scenario = ParseScenario(text);
    ASSERT_EQ(scenario.errors.size(), std::size(kBad) + 1);
    for (size_t i = 0; i < std::size(kBad); ++i) {
        EXPECT_EQ(scenario.errors[i].line, i + 2);
        EXPECT_THAT(scenario.errors[i].reason, HasSubstr(kBad[i].reason)) << kBad[i].line;
    }
    EXPECT_THAT(scenario.errors.back().reason, HasSubstr("earlier"));
}

TEST(Scenario, TimesCountFromTheClock) {
    EXPECT_THAT(ParseScenario("0:05 status\nclock\n0:01 status\n").errors, IsEmpty());
    EXPECT_EQ(ParseScenario("clock\n0:05 status\n0:01 status\n").errors.size(), 1u);
}

TEST(Scenario, WhatIsRecordedIsReadBack) {
    for (const Words& verb : {Words{"console", "two\nlines"},
                              {"console", ""},
                              {"serial", "say \"\\x41\" and \\"},
                              {"kernel-log", "#", "a\tb", "\"", "\\n"},
                              {"console", "expect", "+3", "0:01"}}) {
        const std::string line = ScenarioText(3725.0004, verb);
        EXPECT_EQ(std::ranges::count(line, '\n'), 0);
        const Scenario scenario = ParseScenario(line);
        ASSERT_EQ(scenario.lines.size(), 1u) << line;
        EXPECT_EQ(scenario.lines[0].verb, verb) << line;
        EXPECT_EQ(scenario.lines[0].seconds, 3725) << line;
    }
}

// ---- Judging

static Expectation Expect(const std::string& line) {
    const Scenario scenario = ParseScenario("expect " + line);
    EXPECT_THAT(scenario.errors, IsEmpty()) << line;
    return *scenario.lines.at(0).expectation;
}

static bool Holds(const std::string& line, const Look& look) {
    Motion motion;
    return Judge(Expect(line), look, motion).holds;
}

TEST(Expectations, ValuesOfAnAnswer) {
    const Look look{.answer = Json::parse(R"({"lan": "plugged", "hdmi-in": ["1920x1080p30", null], "held calls": 3,
                                             "daemon": {"state": "running", "level": -20.02}})")};
    for (const char* line : {"status lan plugged", "status hdmi-in.0 1920x1080p30", "status hdmi-in.1 null",
                             "status \"held calls\" 3", "status daemon.level -21..-19", "status daemon.level ..-20",
                             "status daemon.level -20.02", "no status daemon.level -20..", "status none.of.these null",
                             "no status hdmi-in.2 x", "daemon running", "no daemon ended"})
        EXPECT_TRUE(Holds(line, look)) << line;
    for (const char* line : {"status lan plug", "status daemon.level 20", "status daemon.level 1..x",
                             "status daemon.level -19..-21", "no status lan plugged", "status lan.0 plugged"})
        EXPECT_FALSE(Holds(line, look)) << line;
}

TEST(Expectations, NothingHoldsOfABoardThatIsGoneButItsEnd) {
    const Look gone{.answer = {}, .trouble = "No board is running."};
    for (const char* line : {"no log x", "no picture 1", "no status lan plugged", "status lan null", "daemon running"})
        EXPECT_FALSE(Holds(line, gone)) << line;
    EXPECT_TRUE(Holds("daemon ended", gone));
}

TEST(Expectations, TextsBeginAtAWord) {
    const Look look{.text = "one\nNACK\nVIEW => SS1\n", .answer = {}};
    for (const char* line : {"console NACK", "no console ACK", "console VIEW => SS", "no log \"issue within\""})
        EXPECT_TRUE(Holds(line, look)) << line;
    Motion motion;
    EXPECT_EQ(Judge(Expect("log NACK"), look, motion).seen, "NACK\n");
}

TEST(Expectations, AppendedTextIsFoundBehindWhatWasLost) {
    std::string text;
    for (int line = 0; line < 200; ++line) text += "line " + std::to_string(line) + "\n";
    EXPECT_EQ(Appended("", "abc"), "abc");
    EXPECT_EQ(Appended("abc", "abc"), "");
    EXPECT_EQ(Appended("ab", "abab"), "ab");
    EXPECT_EQ(Appended(text, text + "news\n"), "news\n");
    EXPECT_EQ(Appended(text, text.substr(1000) + "news\n"), "news\n") << "its beginning was lost";
    EXPECT_EQ(Appended("gone\n", text), text) << "all of it was lost";
}

static Picture Shot(PictureSource source, uint32_t milliseconds) {
    return DrawnPicture({.source = source, .milliseconds = milliseconds}, 640, 360);
}

TEST(Expectations, PicturesRunOrStand) {
    struct Step {
        double seconds;
        PictureSource source;
        uint32_t milliseconds;  // of its mark
        bool running, standing;
    };
    using enum PictureSource;
    static constexpr Step kSteps[] = {
        {0.0, kCamera2, 10, false, false}, {0.1, kCamera1, 20, false, false}, {0.2, kCamera1, 20, false, false},
        {0.3, kCamera1, 50, true, false},  {1.2, kCamera1, 50, true, false},  {1.4, kCamera1, 50, true, true},
        {2.4, kCamera1, 50, false, true},  {2.5, kCamera1, 90, true, false},  {2.6, kHdmi0, 95, false, false},
        {2.7, kCamera1, 99, false, false},  // it was away: one frame tells nothing
    };
    const Expectation fills = Expect("picture 1 fills"), standing = Expect("picture 1 at 640x360+0+0 standing");
    Motion runningMotion, standingMotion;
    for (const Step& step : kSteps) {
        const Look look{.seconds = step.seconds, .picture = Shot(step.source, step.milliseconds), .answer = {}};
        EXPECT_EQ(Holds("no picture 1 fills", look), step.source != kCamera1) << step.seconds;
        EXPECT_EQ(Judge(fills, look, runningMotion).holds, step.running) << step.seconds;
        EXPECT_EQ(Judge(standing, look, standingMotion).holds, step.standing) << step.seconds;
    }
    const Look look{.picture = Shot(kCamera1, 1), .answer = {}};
    for (const char* line : {"picture 1", "no picture 2", "picture size 640x360", "no picture size 640x36",
                             "no picture black", "no picture 1 at 320x360+0+0"})
        EXPECT_TRUE(Holds(line, look)) << line;
    const Look black{.picture = Picture{640, 360, std::vector<uint8_t>(640 * 360 * 4)}, .answer = {}};
    EXPECT_TRUE(Holds("picture black", black));
}
