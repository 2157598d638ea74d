// Commands over telnet: framing, full house, and a crowd of good and bad clients on all channels at once.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "picture_probe.h"
#include "tcp_client.h"

using Clock = std::chrono::steady_clock;

static constexpr const char* kAck = "ACK\r\n";
static const std::string kPollAnswer = "S1\r\nBLACK => disabled\r\nACK\r\n";
static constexpr const char* kListening = "Telnet - Waiting for connections ...\n";

// What comes back up to the answer's end. A busy board's report takes its time.
static std::string Ask(const TcpClient& client, std::string_view text, std::string_view until = kAck) {
    Send(client, text);
    return Receive(client, until, 20);
}

TEST(Telnet, OneReadIsOneText) {
    const Board board = StartNewBoard({});
    ASSERT_TRUE(WaitForOutput(board, kListening, 20)) << Output(board);
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
             Exchange{{"$PO", "LL$", "$POLL$"}, kPollAnswer},
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

static Json Daemon(const Board& board) { return Status(board)["daemon"]; }

static void ExpectBackTo(const Board& board, const Json& before) {
    EXPECT_TRUE(WaitUntil(20,
                          [&] {
                              const Json now = Daemon(board);
                              return now["descriptors"] <= before["descriptors"] && now["threads"] <= before["threads"];
                          }))
        << before << " -> " << Daemon(board);
}

TEST(Telnet, ThirtyFirstClientReplacesThirty) {
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg"});
    ASSERT_TRUE(WaitForPicture(board) && WaitForSound(board)) << Output(board);
    const int port = TelnetPort(board);
    const Json before = Daemon(board);
    for (int round = 0; round < 2; ++round) {
        std::vector<TcpClient> clients;
        for (int i = 0; i < 30; ++i) {
            clients.emplace_back(port);
            ASSERT_EQ(Ask(clients.back(), "$POLL$"), kPollAnswer) << i;
        }
        EXPECT_EQ(Ask(clients.front(), "$POLL$"), kPollAnswer) << "the house is full, and all are served";

        const size_t from = OutputSize(board);
        const TcpClient next(port);
        ASSERT_EQ(Ask(next, "$POLL$"), kPollAnswer);
        ASSERT_TRUE(WaitForOutput(board, "Max number of clients reached. Closing all pipes.\n", 5, from));
        EXPECT_TRUE(WaitForOutput(board, "Adding to list of sockets as 0\n", 5, from));
        for (const TcpClient& client : clients) {
            EXPECT_EQ(ReceiveAll(client, 20), "") << "dropped without a message";
            EXPECT_TRUE(IsClosed(client, 20));
        }
        EXPECT_EQ(Ask(next, "$POLL$"), kPollAnswer) << "and stays";
    }
    ExpectBackTo(board, before);
}

// ---- The crowd ----

struct Crowd {
    int telnetPort = 0, httpPort = 0;
    Clock::time_point end = {};
    std::atomic<int> answers{0};
    std::mutex door, lock;
    std::vector<std::string> complaints;
};

// One after the other, each served before the next: a burst would overflow the server's backlog of three.
static TcpClient Arrive(Crowd& crowd) {
    const std::lock_guard guard(crowd.door);
    TcpClient client(crowd.telnetPort);
    Ask(client, "$POLL$");
    return client;
}

static bool IsOpen(const Crowd& crowd) { return Clock::now() < crowd.end; }

static void Check(Crowd& crowd, const char* who, bool good, const std::string& answer) {
    ++crowd.answers;
    if (good) return;
    const std::lock_guard guard(crowd.lock);
    crowd.complaints.push_back(std::string(who) + ": " + (answer.empty() ? "no answer" : answer));
}

// Until the house closes: each answer has to be `good`.
static void KeepAsking(Crowd& crowd, const char* who, const std::string& text, bool (*good)(const std::string&)) {
    const TcpClient client = Arrive(crowd);
    while (IsOpen(crowd)) {
        const std::string answer = Ask(client, text);
        Check(crowd, who, good(answer), answer);
        Pause(0.02);
    }
}

static void Poll(Crowd& crowd) {
    KeepAsking(crowd, "poll", "$POLL$\r\n", [](const std::string& answer) { return answer == kPollAnswer; });
}

static void Get(Crowd& crowd) {
    KeepAsking(crowd, "get", "$GET$", [](const std::string& answer) {
        return answer.starts_with("Tesselvisor => ") && answer.find(kAck) == answer.size() - 5;
    });
}

// Answers that belong to others would pile up here.
static void StayUnanswered(Crowd& crowd, const char* who, const char* text) {
    const TcpClient client = Arrive(crowd);
    while (IsOpen(crowd)) {
        Send(client, text);
        Pause(0.1);
    }
    Pause(1);
    const std::string answer = Ask(client, "$POLL$");
    Check(crowd, who, answer == kPollAnswer, answer);
}

static void Mutter(Crowd& crowd) { StayUnanswered(crowd, "mutter", "$POLL hello $FOO$\r\n"); }

static void KeepSilent(Crowd& crowd) { StayUnanswered(crowd, "silent", ""); }

static void Flood(Crowd& crowd) {
    std::string text;
    while (text.size() < 20'000) text += "$AIN3_1$ ";
    KeepAsking(crowd, "flood", text,
               [](const std::string& answer) { return answer.ends_with(kAck) && answer.size() % 5 == 0; });
}

static void Vanish(Crowd& crowd) {
    for (bool asks = false; IsOpen(crowd); asks = !asks) {
        TcpClient client(crowd.telnetPort);
        if (asks) Send(client, "$GET$");
        Pause(0.05);
        Reset(client);
        Pause(0.8);
    }
}

static void NeverRead(Crowd& crowd) {
    while (IsOpen(crowd)) {
        TcpClient client(crowd.telnetPort);
        for (int i = 0; i < 2'000 && Send(client, "$WEB$"); ++i) Pause(0.002);
        Reset(client);
        for (int i = 0; i < 100 && IsOpen(crowd); ++i) Pause(0.1);
    }
}

static void AskOverHttp(Crowd& crowd) {
    while (IsOpen(crowd)) {
        const TcpClient client(crowd.httpPort);
        Send(client, "GET /$POLL$ HTTP/1.1\r\n\r\n");
        const std::string answer = ReceiveAll(client, 20);
        Check(crowd, "http", answer == kPollAnswer, answer);
        Pause(0.01);
    }
}

struct Member {
    void (*act)(Crowd&);
    int count;
};
// 22 stay, the others come and go; one that vanished keeps its slot until its turn comes, so there is room for some.
static constexpr Member kMembers[] = {
    {Poll, 14}, {Get, 2}, {Mutter, 2}, {KeepSilent, 3}, {Flood, 1}, {Vanish, 1}, {NeverRead, 1}, {AskOverHttp, 2},
};

TEST(Telnet, Crowd) {
    static constexpr double kSeconds = 60;
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg"});
    ASSERT_TRUE(ShowsFull(board, '1', 30) && WaitForSound(board)) << Output(board);
    Telnet(board, "$GET$", kAck, 20);
    const Json before = Daemon(board);
    const size_t from = OutputSize(board);
    Crowd crowd;
    crowd.telnetPort = TelnetPort(board);
    crowd.httpPort = HttpPort(board);
    crowd.end = Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(kSeconds));
    std::string serialAnswers, serialExpected;
    {
        std::vector<std::jthread> threads;
        for (const Member& member : kMembers)
            for (int i = 0; i < member.count; ++i) threads.emplace_back([&, act = member.act] { act(crowd); });

        uint16_t counter = 0;
        while (IsOpen(crowd)) {
            EXPECT_TRUE(WaitUntilPicture(board, 5, [&](const Picture& picture) {
                const auto mark = MarkIn(picture, {0, 0, picture.width, picture.height});
                return mark && mark->counter != std::exchange(counter, mark->counter);
            })) << "the picture stands still";
            serialAnswers += Ctl(board, {"serial", "<POLL>"}).out;
            serialExpected += "VIEW => S1\nBLACK => disabled\nACK\r\n";
        }
    }
    serialAnswers += Ctl(board, {"serial", ""}).out;  // what came later than a second
    EXPECT_EQ(serialAnswers, serialExpected);
    EXPECT_EQ(crowd.complaints, std::vector<std::string>());
    EXPECT_GT(crowd.answers, 200);
    EXPECT_EQ(Output(board).find("Max number of clients", from), std::string::npos);
    ExpectBackTo(board, before);
    EXPECT_EQ(Status(board)["daemon"]["starts"], 1);
}
