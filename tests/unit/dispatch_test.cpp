#include "commands/dispatch.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include "commands/reply_channel.h"
#include "core/log.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"
#include "settings/process_flags.h"

class Dispatch : public testing::Test {
protected:
    void SetUp() override {
        CopySettings(Settings, DefaultSettings);
        DeviceId = 0;
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    }
    void TearDown() override {
        close(sockets[0]);
        close(sockets[1]);
        ReplyChannel = -1;
        DeviceId = 0;
    }

    // What the console answers.
    static std::string Console(std::string line) {
        testing::internal::CaptureStdout();
        DispatchConsoleText(line.data());
        return testing::internal::GetCapturedStdout();
    }

    // What a network client is answered.
    std::string Network(std::string text) {
        const bool matched = DispatchNetworkText(text.data(), sockets[0]);
        const std::string answer = Received();
        EXPECT_EQ(matched, !answer.empty());
        return answer;
    }

    std::string Received() {
        std::array<char, 1000> answer;
        const ssize_t count = recv(sockets[1], answer.data(), answer.size(), MSG_DONTWAIT);
        return {answer.data(), count > 0 ? static_cast<size_t>(count) : 0};
    }

    int sockets[2];
};

TEST_F(Dispatch, LayoutRowsSelectViewAndSwap) {
    EXPECT_EQ(Console("<SS2>\n"), "ACK\r\n");
    EXPECT_EQ(Settings.View, kViewSS);
    EXPECT_EQ(Settings.Swap, 1);
    Console("<TB>");
    EXPECT_EQ(Settings.View, kViewTB);
    EXPECT_EQ(Settings.Swap, 1) << "TB keeps Swap";
    Settings.Reserved9 = 1;
    EXPECT_EQ(Network("$S2$"), "ACK\r\n");
    EXPECT_EQ(Settings.View, kViewS2);
    EXPECT_EQ(Settings.Swap, 0);
    EXPECT_EQ(Settings.S2Count, 1);
    EXPECT_EQ(Settings.Reserved9, 0);
    Settings.S2Count = 255;
    Console("<KEY 2>");
    EXPECT_EQ(Settings.S2Count, 0);
}

TEST_F(Dispatch, VariantsHaveTheirOwnSelection) {
    EXPECT_EQ(Console("<IN3>"), "NACK\r\nCommand not recognized.\n");
    EXPECT_EQ(Network("$IN3$"), "ACK\r\n");
    EXPECT_EQ(Settings.Input, 1);
    DeviceId = 2;
    EXPECT_EQ(Console("<IN3>"), "ACK\r\n");
    EXPECT_EQ(Settings.Input, 3);
    EXPECT_EQ(Console("<SS2>"), "NACK\r\nCommand not recognized.\n");
    EXPECT_EQ(Settings.View, kViewS1);
    EXPECT_EQ(Console("<PP>"), "ACK\r\n") << "a handler runs on every variant";
    EXPECT_EQ(Settings.View, kViewPPTL);
}

TEST_F(Dispatch, SwapAndCornersGoRound) {
    struct Step {
        const char* command;
        uint8_t view, swap;
    };
    const Step steps[] = {
        {"<SW>", kViewS2, 0},    {"<SW>", kViewS1, 0},      {"<SS2>", kViewSS, 1},   {"<SW>", kViewSS, 0},
        {"<SW>", kViewSS, 1},    {"<PP>", kViewPPTL, 1},    {"<PP>", kViewPPTR, 1},  {"<PP>", kViewPPBL, 1},
        {"<PP>", kViewPPBR, 1},  {"<KEY 3>", kViewPPTL, 1}, {"<KEY 1>", kViewS1, 1}, {"<SW>", kViewS1, 0},
        {"<KEY 6>", kViewS1, 1}, {"<KEY 7>", kViewS1, 1},
    };
    for (const Step& step : steps) {
        EXPECT_EQ(Console(step.command), "ACK\r\n");
        EXPECT_EQ(Settings.View, step.view) << step.command;
        EXPECT_EQ(Settings.Swap, step.swap) << step.command;
    }
    EXPECT_EQ(Settings.S2Count, 0) << "SW does not choose S2";
}

TEST_F(Dispatch, KeysSelectInputsOrBlack) {
    Console("<SKEY 4>");
    Console("<SKEY 5>");
    EXPECT_EQ(Settings.Input, 4);
    EXPECT_EQ(Settings.Black, 1);
    DeviceId = 1;
    for (const char* ignored : {"<KEY 0>", "<KEY 6>", "<SKEY -1>", "<KEY 257>"}) EXPECT_EQ(Console(ignored), "ACK\r\n");
    Console("<KEY 2>");
    Console("<KEY 5>");
    EXPECT_EQ(Settings.Input, 2);
    EXPECT_EQ(Settings.Black, 0);
}

TEST_F(Dispatch, ArgumentsAreWordsOfTheChannel) {
    struct Case {
        const char* text;
        bool network;
        int expected;
    };
    const Case cases[] = {
        {"<ENBCAST 5>", false, 5},       {"<ENBCAST 5 >", false, 5},
        {"<ENBCAST >", false, 0},        {"<ENBCAST_5>", false, 255},
        {"<ENBCAST 0x10>", false, 0},    {"<ENBCAST 256>", false, 0},
        {"<ENBCAST -2>", false, 254},    {"<ENBCAST 99999999999>", false, 255},
        {"$ENJPEGPARSE_7$", true, 7},    {"$ENJPEGPARSE 7$", true, 255},
        {"x_y$ENJPEGPARSE_7$", true, 7},
    };
    for (const Case& row : cases) {
        StatusBroadcast = 99;
        Settings.EnJpegParse = 99;
        EXPECT_EQ(row.network ? Network(row.text) : Console(row.text), "ACK\r\n") << row.text;
        EXPECT_EQ(row.network ? Settings.EnJpegParse : StatusBroadcast, row.expected) << row.text;
    }
}

TEST_F(Dispatch, NumbersHaveTheBaseOfTheirRow) {
    EXPECT_EQ(Network("$AIN1_0x10$"), "ACK\r\n");
    EXPECT_EQ(Settings.Ain1, 16);
    EXPECT_EQ(Network("$AIN1_010$"), "ACK\r\n");
    EXPECT_EQ(Settings.Ain1, 8);
    EXPECT_EQ(Console("<AIN1 0x10>"), "ACK\r\n");
    EXPECT_EQ(Settings.Ain1, 0);
    EXPECT_EQ(Console("<AIN1 010>"), "ACK\r\n");
    EXPECT_EQ(Settings.Ain1, 10);
    EXPECT_EQ(Console("<AOUTUSB2 0x80>"), "AOUTUSB2 => 128\nACK\r\n");
}

// Arguments of a network command end with the 99th character of the match; a longer command must not overrun.
TEST_F(Dispatch, LongNetworkCommandIsCutOff) {
    EXPECT_EQ(Network("$ENJPEGPARSE" + std::string(87, '_') + "7$"), "ACK\r\n");
    EXPECT_EQ(Settings.EnJpegParse, 255) << "the argument is the 100th character";
    EXPECT_EQ(Network("$ENJPEGPARSE" + std::string(86, '_') + "7$"), "ACK\r\n");
    EXPECT_EQ(Settings.EnJpegParse, 7);
    EXPECT_EQ(Network("$ENJPEGPARSE_8" + std::string(5000, 'x') + "$"), "ACK\r\n");
    EXPECT_EQ(Settings.EnJpegParse, 8);
}

TEST_F(Dispatch, EveryMatchingRowRunsInTableOrder) {
    EXPECT_EQ(Console("<BLK><S1>"), "ACK\r\nACK\r\n");
    EXPECT_EQ(Settings.Black, 1);
    EXPECT_EQ(Network("$SHW$SS2$"), "ACK\r\nACK\r\n") << "one delimiter may serve two commands";
    EXPECT_EQ(Settings.Black, 0);
    EXPECT_EQ(Settings.View, kViewSS);

    // Splitting cuts the text at its first space, so that the later row is not seen on the local channels.
    StatusBroadcast = 1;
    EXPECT_EQ(Console("<SKEY 2> <ENBCAST 9>"), "ACK\r\n");
    EXPECT_EQ(Settings.Input, 2);
    EXPECT_EQ(StatusBroadcast, 1);
    EXPECT_EQ(Console("<USBSTREAM><SKEY 3> <S2>"), "ACK\r\nACK\r\nReceived USBSTREAM\nACK\r\n");
}

TEST_F(Dispatch, UnknownTextIsRefusedLocallyAndIgnoredFromTheNetwork) {
    const std::string refusal = "NACK\r\nCommands must be between the '<' and '>' characters.\n";
    for (const char* text : {"", "hello\n", "S1", "<s1>", "<S1", "$S1$", "<KEY>"})
        EXPECT_EQ(Console(text), refusal) << text;
    for (const char* text : {"", "hello", "<S1>", "$KEY_1$", "$$$$"}) EXPECT_EQ(Network(text), "") << text;
}

TEST_F(Dispatch, FailureOfAnArgumentRowIsNack) {
    EXPECT_EQ(Console("<OUTPUT 7>"), "Bad timing index.\nNACK\r\n");
    EXPECT_EQ(Console("<OUTPUT -1>"), "Bad timing index.\nNACK\r\n");
    EXPECT_EQ(Console("<OUTPUT 0>"), "Current timing index.\nACK\r\n");
    EXPECT_EQ(Network("$OUTPUT_7$"), "Bad timing index.\rNACK\r\n");
    EXPECT_EQ(PipelineRestart, 1);
    PipelineRestart = 0;
}

TEST_F(Dispatch, ConsoleActivityIsNoted) {
    NoteCommandTime();
    const int64_t before = LastCommandTime();
    EXPECT_GT(before, 0);
    Console("<S1>");
    EXPECT_GE(LastCommandTime(), before);
    EXPECT_EQ(ConsoleCommandActive, 0);
    EXPECT_EQ(SerialCommandActive, 0);
}

TEST_F(Dispatch, NetworkLogFollowsTheClientAndComesBack) {
    testing::internal::CaptureStdout();
    InitLog();  // the captured output is the console here
    std::string on = "$ENLOG_1$", off = "$ENLOG_0$";
    DispatchNetworkText(on.data(), sockets[0]);
    LogInfo("to the client\n");
    DispatchNetworkText(off.data(), sockets[0]);
    LogInfo("to the console\n");
    EXPECT_EQ(Received(), "ACK\r\nto the client\nACK\r\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "STDOUT/STDERR to console.\nto the console\n");
}
