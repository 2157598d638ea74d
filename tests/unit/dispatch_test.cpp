#include "commands/dispatch.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>

#include "commands/reply_channel.h"
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
        std::array<char, 1000> answer;
        const ssize_t count = recv(sockets[1], answer.data(), answer.size(), MSG_DONTWAIT);
        EXPECT_EQ(matched, count > 0);
        return {answer.data(), count > 0 ? static_cast<size_t>(count) : 0};
    }

    int sockets[2];
};

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
    DeviceId = 1;
    for (const char* ignored : {"<KEY 0>", "<KEY 6>", "<SKEY -1>", "<KEY 257>"}) EXPECT_EQ(Console(ignored), "ACK\r\n");
    EXPECT_EQ(Settings.Input, 4);
    EXPECT_EQ(Settings.Black, 1);
    Console("<KEY 5>");
    EXPECT_EQ(Settings.Black, 0);
}

TEST_F(Dispatch, ArgumentsAreWordsOfTheChannelInTheBaseOfTheirRow) {
    struct Case {
        std::string text;
        SharedByte& field;
        int expected;
    };
    const Case cases[] = {
        {"<ENBCAST 5>", StatusBroadcast, 5},
        {"<ENBCAST 5 >", StatusBroadcast, 5},
        {"<ENBCAST >", StatusBroadcast, 0},
        {"<ENBCAST_5>", StatusBroadcast, 255},
        {"<ENBCAST 256>", StatusBroadcast, 0},
        {"<ENBCAST -2>", StatusBroadcast, 254},
        {"<ENBCAST 99999999999>", StatusBroadcast, 255},
        {"<AIN1 0x10>", Settings.Ain1, 0},
        {"<AIN1 010>", Settings.Ain1, 10},
        {"$AIN1_0x10$", Settings.Ain1, 16},
        {"$AIN1_010$", Settings.Ain1, 8},
        {"$ENJPEGPARSE_7$", Settings.EnJpegParse, 7},
        {"$ENJPEGPARSE 7$", Settings.EnJpegParse, 255},
        {"x_y$ENJPEGPARSE_7$", Settings.EnJpegParse, 7},
        // They end with the 99th character of a network command; a longer one must not overrun.
        {"$ENJPEGPARSE" + std::string(86, '_') + "7$", Settings.EnJpegParse, 7},
        {"$ENJPEGPARSE" + std::string(87, '_') + "7$", Settings.EnJpegParse, 255},
        {"$ENJPEGPARSE_8" + std::string(5000, 'x') + "$", Settings.EnJpegParse, 8},
    };
    for (const Case& row : cases) {
        row.field = 99;
        EXPECT_EQ(row.text.ends_with('$') ? Network(row.text) : Console(row.text), "ACK\r\n") << row.text;
        EXPECT_EQ(row.field, row.expected) << row.text;
    }
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

TEST_F(Dispatch, SelectionThatTheBoardDoesNotHaveIsRefusedOnTheConsoleOnly) {
    DeviceId = 1;
    EXPECT_EQ(Console("<SS1>"), "NACK\r\nCommand not recognized.\n");
    EXPECT_EQ(Network("$SS1$"), "ACK\r\n");
    EXPECT_EQ(Settings.View, kViewS1);
}
