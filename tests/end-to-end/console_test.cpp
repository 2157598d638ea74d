// The command language on the console and the serial line: a golden transcript through the real transports.
#include <gmock/gmock.h>

#include <set>
#include <sstream>

#include "board_run.h"

static constexpr const char* kFraming = "Commands must be between the '<' and '>' characters.\n";

struct Exchange {
    std::string sent, answer;
};

// Log lines of other threads share the console; only what the command itself answers is golden.
static std::string AnswersIn(const std::string& output) {
    static const std::set<std::string> kKnown = {"ACK\r\n", "NACK\r\n", kFraming};
    std::string answers, line;
    for (std::istringstream lines(output); std::getline(lines, line);)
        if (kKnown.contains(line + "\n")) answers += line + "\n";
    return answers;
}

static const std::string kNoise200(200, '#');
static const std::string kRefused = std::string("NACK\r\n") + kFraming;

TEST(Console, GoldenTranscript) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg"});
    const size_t start = OutputSize(board);
    std::string expected;
    for (const Exchange& exchange : {
             Exchange{"<SS>\n", "ACK\r\n"},
             {"<S1><BLK>\n", "ACK\r\nACK\r\n"},
             {"hello\n", kRefused},
             {"\n", kRefused},
             {"<SS\n", kRefused},
             {"junk <SHW> junk\n", "ACK\r\n"},
             {kNoise200 + "\n", kRefused + kRefused},
         }) {
        Type(board, exchange.sent);
        expected += exchange.answer;
        EXPECT_TRUE(WaitUntil(5, [&] { return AnswersIn(Output(board).substr(start)).size() >= expected.size(); }));
        ASSERT_EQ(AnswersIn(Output(board).substr(start)), expected) << exchange.sent;
    }

    // The serial line's closing bracket ends the line; what a terminal sends behind it are two lines of their own.
    Ctl(board, {"trace", "--clear"});
    expected.clear();
    for (const Exchange& exchange : {
             Exchange{"<SS>", "ACK\r\n"},
             {"hello>", kRefused},
             {"hello\\n", kRefused},
             {"<S2><SHW>", "ACK\r\nACK\r\n"},
             {"<FIRMWARE>\\r\\n", "ACK\r\n" + kRefused + kRefused},
         }) {
        EXPECT_EQ(Ctl(board, {"serial", exchange.sent}).status, 0);
        expected += exchange.answer;
        EXPECT_TRUE(WaitUntil(5, [&] { return SerialText(board).size() >= expected.size(); }));
        ASSERT_EQ(SerialText(board), expected) << exchange.sent;
    }
    // More than a read takes: the next command is answered.
    Ctl(board, {"serial", kNoise200 + ">"});
    Ctl(board, {"serial", "<SS2>"});
    EXPECT_TRUE(WaitUntil(5, [&] { return SerialText(board).ends_with(kRefused + "ACK\r\n"); }));
}

TEST(Console, EndOfInputEndsTheProcess) {
    const Board board = StartUntil("In main: creating console thread", {"--no-restart"});
    CloseConsole(board);
    EXPECT_EQ(WaitForEnd(board, 10), 0);
    EXPECT_THAT(Output(board), testing::HasSubstr("fgets() returns EOF, need to restart application.\n"));
}
