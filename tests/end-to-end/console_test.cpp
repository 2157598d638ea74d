// The command language on the console and the serial line: golden transcripts through the real transports.
#include <gmock/gmock.h>

#include <fstream>

#include "board_run.h"

static constexpr const char* kFraming = "Commands must be between the '<' and '>' characters.\n";

struct Exchange {
    std::string sent, answer;
};

// Log lines of other threads share the console; only what the command itself answers is golden.
static std::string AnswersIn(const std::string& output) {
    std::string answers;
    size_t from = 0;
    while (from < output.size()) {
        const size_t end = std::min(output.find('\n', from), output.size() - 1) + 1;
        const std::string line = output.substr(from, end - from);
        for (const char* known : {"ACK\r\n", "NACK\r\n", kFraming, "Command not recognized.\n",
                                  "Current timing index.\n", "Bad timing index.\n", "Received USBSTREAM\n",
                                  "Received USBNSTREAM\n", "I2C detected.\n", "Top not detected.\n"})
            if (line == known) answers += line;
        from = end;
    }
    return answers;
}

static const std::string kNoise200(200, '#');

TEST(Console, GoldenTranscript) {
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg"});
    ASSERT_TRUE(WaitForOutput(board, "Playing video pipeline...\n", 30)) << Output(board);
    Pause(2);
    const std::vector<Exchange> transcript = {
        {"<SS>\n", "ACK\r\n"},
        {"<S1><BLK>\n", "ACK\r\nACK\r\n"},
        {"<BLK><S1>\n", "ACK\r\nACK\r\n"},
        {"<IN3>\n", std::string("NACK\r\nCommand not recognized.\n")},
        {"hello\n", std::string("NACK\r\n") + kFraming},
        {"\n", std::string("NACK\r\n") + kFraming},
        {"<ss>\n", std::string("NACK\r\n") + kFraming},
        {"<SS\n", std::string("NACK\r\n") + kFraming},
        {"junk <SHW> junk\n", "ACK\r\n"},
        {kNoise200 + "\n", std::string("NACK\r\n") + kFraming + "NACK\r\n" + kFraming},
        {"<OUTPUT>\n", std::string("NACK\r\n") + kFraming},
        {"<OUTPUT 7>\n", "Bad timing index.\nNACK\r\n"},
        {"<OUTPUT 0>\n", "Current timing index.\nACK\r\n"},
        {"<INV 7 1>\n", "ACK\r\n"},
        {"<INV 1 0><INV 2 0>\n", "ACK\r\n"},
        {"<ENBCAST 0>\n", "ACK\r\n"},
        {"<FIRMWARE>\n", "ACK\r\n"},
        {"<USBSTREAM>\n", "Received USBSTREAM\nACK\r\n"},
        {"<USBSTREAM>\n", "ACK\r\n"},
        {"<USBNSTREAM>\n", "Received USBNSTREAM\nACK\r\n"},
        {"<I2CTEST>\n", "I2C detected.\nACK\r\n"},
        {"<TOPTEST>\n", "Top not detected.\nACK\r\n"},
        {"<SAVE>\n", "ACK\r\n"},
        {"<DEVICEID 0>\n", "ACK\r\n"},
    };
    for (const Exchange& exchange : transcript)
        EXPECT_EQ(AnswersIn(TypeAndRead(board, exchange.sent)), exchange.answer) << exchange.sent;
    EXPECT_EQ(Status(board)["daemon"]["state"], "running");
}

TEST(Serial, GoldenTranscript) {
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg"});
    ASSERT_TRUE(WaitForOutput(board, "In main: creating Gstreamer video thread", 30)) << Output(board);
    Pause(2);
    const std::vector<Exchange> transcript = {
        {"<SS>", "ACK\r\n"},
        {"<IN3>", "ACK\r\n"},
        {"hello>", std::string("NACK\r\n") + kFraming},
        {"hello\\n", std::string("NACK\r\n") + kFraming},
        {"<OUTPUT 7>", "Bad timing index.\nNACK\r\n"},
        {"<S2><SHW>", "ACK\r\nACK\r\n"},
        // The closing bracket ends the line; what a terminal sends behind it are two lines of their own.
        {"<FIRMWARE>\\r\\n", std::string("ACK\r\n") + "NACK\r\n" + kFraming + "NACK\r\n" + kFraming},
        {"<I2CTEST>", "ACK\r\n"},
        {"<SS1>", "ACK\r\n"},
    };
    for (const Exchange& exchange : transcript) {
        const CtlAnswer answer = Ctl(board, {"serial", exchange.sent});
        EXPECT_EQ(answer.status, 0) << answer.err;
        EXPECT_EQ(answer.out, exchange.answer) << exchange.sent;
    }
    // 200 characters without an end: nothing is lost, the next command is answered.
    Ctl(board, {"serial", kNoise200});
    EXPECT_THAT(Ctl(board, {"serial", ">"}).out, testing::HasSubstr("NACK\r\n"));
    EXPECT_EQ(Ctl(board, {"serial", "<SS2>"}).out, "ACK\r\n");
}

TEST(Console, EndOfInputEndsTheProcess) {
    const Board board = StartNewBoard({"--no-restart"});
    ASSERT_TRUE(WaitForOutput(board, "In main: creating console thread", 30));
    CloseConsole(board);
    EXPECT_EQ(WaitForEnd(board, 10), 0);
    EXPECT_THAT(Output(board), testing::HasSubstr("fgets() returns EOF, need to restart application.\n"));
}

TEST(Commands, ShellLinesAndFiles) {
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg"});
    ASSERT_TRUE(WaitForOutput(board, "Playing video pipeline...\n", 30)) << Output(board);
    struct Effect {
        const char* command;
        std::vector<std::string> lines;
    };
    for (const Effect& effect : {Effect{"<BLANK 1>\n", {"echo 1 > /sys/class/graphics/fb0/blank"}},
                                 Effect{"<BLANK 0>\n", {"echo 0 > /sys/class/graphics/fb0/blank"}},
                                 Effect{"<DEVICEID 1>\n", {"echo DEVICEID=1 > /home/root/Tesselvisor.conf"}},
                                 Effect{"<RSTUSB>\n",
                                        {"echo ci_hdrc.0 > /sys/bus/platform/drivers/ci_hdrc/unbind",
                                         "echo ci_hdrc.1 > /sys/bus/platform/drivers/ci_hdrc/unbind",
                                         "echo ci_hdrc.0 > /sys/bus/platform/drivers/ci_hdrc/bind",
                                         "echo ci_hdrc.1 > /sys/bus/platform/drivers/ci_hdrc/bind"}}}) {
        Ctl(board, {"trace", "--clear"});
        EXPECT_THAT(TypeAndRead(board, effect.command, 2), testing::HasSubstr("ACK\r\n"));
        EXPECT_THAT(ShellLines(board), testing::IsSupersetOf(effect.lines)) << effect.command;
    }
    std::ifstream conf(BoardFile(board, "home/root/Tesselvisor.conf"));
    std::string line;
    std::getline(conf, line);
    EXPECT_EQ(line, "DEVICEID=1");

    // RST tells the USB bridge, then reboots.
    Type(board, "<RST>\n");
    ASSERT_TRUE(WaitUntil(15, [&] { return !TraceLines(board, "reset").empty(); }));
    EXPECT_THAT(ShellLines(board),
                testing::IsSupersetOf({std::string("echo \"<RST>\" > /dev/ttymxc0"), std::string("reboot -f")}));
}
