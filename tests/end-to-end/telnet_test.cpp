// Commands over telnet: framing, full house, and many clients on all channels at once. Bad ones are the campaign's.
#include <gmock/gmock.h>

#include <chrono>
#include <thread>

#include "tcp_client.h"

using Clock = std::chrono::steady_clock;

static constexpr const char* kAck = "ACK\r\n";
static constexpr const char* kListening = "Telnet - Waiting for connections ...\n";

TEST(Telnet, OneReadIsOneText) {
    const Board board = StartUntil(kListening, {});
    const TcpClient client(TelnetPort(board)), other(TelnetPort(board));
    struct Exchange {
        std::vector<std::string> reads;
        std::string answer;
    };
    for (const Exchange& exchange : {
             Exchange{{"$POLL$"}, kPollAnswer},
             Exchange{{"\xff\xfd\x03 noise $POLL$ noise\r\n"}, kPollAnswer},
             Exchange{{"$SS2$$POLL$$S1$"}, "ACK\r\nACK\r\nSS2\r\nBLACK => disabled\r\nACK\r\n"},  // in table order
             Exchange{{"$S1$$S1$$AIN1_5$"}, "ACK\r\nACK\r\n"},                                    // each row once
             Exchange{{"hello\r\n", "$POLL$"}, kPollAnswer},
             Exchange{{std::string("hello\0$POLL$", 12), "$POLL$"}, kPollAnswer},  // ends at the zero byte
             Exchange{{std::string(5'000, 'x'), "$POLL$"}, kPollAnswer},
         }) {
        for (const std::string& text : exchange.reads) {
            ASSERT_TRUE(Send(client, text));
            if (&text == &exchange.reads.back()) break;
            Pause(0.1);
            EXPECT_EQ(Ask(other, "$POLL$"), kPollAnswer) << "by now it has been read";
        }
        EXPECT_EQ(Receive(client, exchange.answer, 10), exchange.answer) << exchange.reads.front();
    }
    EXPECT_EQ(Receive(client, kAck, 0.3), "") << "nothing comes behind the last answer";
    Send(other, "$POLL$");
    CloseSending(other);
    EXPECT_EQ(ReceiveAll(other, 20), kPollAnswer) << "who has said all still listens";
}

// What a full house costs, and what is left of it, is the campaign's (family clients).
TEST(Telnet, ThirtyFirstClientReplacesThirty) {
    const Board board = StartUntil(kListening, {});
    const int port = TelnetPort(board);
    std::vector<TcpClient> clients;
    for (int i = 0; i < 30; ++i) {
        clients.emplace_back(port);
        ASSERT_EQ(Ask(clients.back(), "$POLL$"), kPollAnswer) << i;
    }
    EXPECT_EQ(Ask(clients.front(), "$POLL$"), kPollAnswer) << "the house is full, and all are served";

    const size_t from = OutputSize(board);
    const TcpClient next(port);
    ASSERT_EQ(Ask(next, "$POLL$"), kPollAnswer);
    EXPECT_TRUE(WaitForOutput(board, "Max number of clients reached. Closing all pipes.\n", 5, from));
    EXPECT_TRUE(WaitForOutput(board, "Adding to list of sockets as 0\n", 5, from));
    for (const TcpClient& client : clients) {
        EXPECT_EQ(ReceiveAll(client, 20), "") << "dropped without a message";
        EXPECT_TRUE(IsClosed(client, 20));
    }
    EXPECT_EQ(Ask(next, "$POLL$"), kPollAnswer) << "and stays";
}

// ---- Many at once

struct Member {
    std::string text, answer;  // none: not answered
};

// What went to the wrong one is missing there, or piles up here in front of the last answer.
static void KeepAsking(const TcpClient& client, const Member& member, Clock::time_point end) {
    while (Clock::now() < end) {
        if (member.answer.empty())
            Send(client, member.text);
        else
            EXPECT_EQ(Ask(client, member.text), member.answer);
        Pause(0.05);
    }
    Pause(1);
    EXPECT_EQ(Ask(client, "$POLL$"), kPollAnswer) << "behind " << member.text;
}

static void KeepBrowsing(int port, Clock::time_point end) {
    while (Clock::now() < end) {
        const TcpClient client(port);
        Send(client, "GET /$POLL$ HTTP/1.1\r\n\r\n");
        EXPECT_EQ(ReceiveAll(client, 20), kPollAnswer);
    }
}

TEST(Telnet, EachOfManyGetsItsOwnAnswers) {
    const Board board = StartUntil(kListening, {});
    const Member members[] = {{"$POLL$\r\n", kPollAnswer}, {"$AIN3_1$", kAck}, {"$POLL hello $FOO$\r\n", ""}, {"", ""}};
    const int port = TelnetPort(board), httpPort = HttpPort(board);
    const auto end = Clock::now() + std::chrono::seconds(15);
    std::string serialAnswers, serialExpected;
    {
        std::vector<std::jthread> threads;
        for (size_t i = 0; i < 20; ++i) {
            TcpClient client(port);
            EXPECT_EQ(Ask(client, "$POLL$"), kPollAnswer) << "served before the next: the backlog holds three";
            threads.emplace_back([&members, i, end, client = std::move(client)] {
                KeepAsking(client, members[i % std::size(members)], end);
            });
        }
        for (int i = 0; i < 2; ++i) threads.emplace_back(KeepBrowsing, httpPort, end);
        while (Clock::now() < end) {
            serialAnswers += Ctl(board, {"serial", "<POLL>"}).out;
            serialExpected += "VIEW => S1\nBLACK => disabled\nACK\r\n";
        }
    }
    serialAnswers += Ctl(board, {"serial", ""}).out;  // what came later than a second
    EXPECT_EQ(serialAnswers, serialExpected);
    EXPECT_EQ(Status(board)["daemon"]["starts"], 1);
}
