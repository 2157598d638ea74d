// Commands over HTTP: the request's text decides, not its form; one connection at a time, and none can hold the others.
#include <gmock/gmock.h>

#include <chrono>
#include <thread>

#include "tcp_client.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

static const std::string kPollAnswer = "S1\r\nBLACK => disabled\r\nACK\r\n";
static const std::string kAck = "ACK\r\n";
static constexpr const char* kListening = "Waiting for incoming connections...\n";
static constexpr const char* kPageBegin = "HTTP/1.1 200 OK\nContent-Type: text/html\n\n";
static constexpr size_t kPageSize = 18'929;

static double SecondsSince(Clock::time_point start) { return Seconds(Clock::now() - start).count(); }

static std::string Request(const Board& board, std::string_view text) {
    const TcpClient client(HttpPort(board));
    Send(client, text);
    return ReceiveAll(client, 20);
}

static std::string PaddedTo(std::string text, size_t size) {
    text += std::string(size - text.size(), 'x');
    return text;
}

TEST(Http, TheTextDecides) {
    const Board board = StartNewBoard({});
    ASSERT_TRUE(WaitForOutput(board, kListening, 20)) << Output(board);
    const std::string page = Http(board, "/");
    EXPECT_EQ(page.size(), kPageSize);
    EXPECT_THAT(page, StartsWith(kPageBegin));

    struct Exchange {
        std::string request, answer;
    };
    for (const Exchange& exchange : {
             Exchange{"GET /favicon.ico HTTP/1.1\r\n\r\n", page},
             Exchange{"hello", page},
             Exchange{"GET /$POLL$ HTTP/1.1\r\n\r\n", kPollAnswer},
             Exchange{"POST / HTTP/1.1\r\nReferer: http://192.168.0.81/$POLL$\r\n\r\n", kPollAnswer},
             Exchange{"GET /$WEB$ HTTP/1.1\r\n\r\n", page + kAck},
             Exchange{"GET /$AIN1_5$$S1$ HTTP/1.1\r\n\r\n", kAck + kAck},
             // One receive counts, 1,999 bytes; a client that sends more gets its answer all the same.
             Exchange{PaddedTo("GET /$POLL$ ", 1'999), kPollAnswer},
             Exchange{PaddedTo("GET /$POLL$ ", 2'000), kPollAnswer},
             Exchange{PaddedTo("GET / ", 2'000), page},
             Exchange{PaddedTo("GET /$WEB$ ", 100'000), page + kAck},
             Exchange{PaddedTo("GET / ", 1'993) + "$POLL$", kPollAnswer},
             Exchange{PaddedTo("GET / ", 1'994) + "$POLL$", page},
         })
        EXPECT_EQ(Request(board, exchange.request), exchange.answer) << exchange.request.substr(0, 60);

    const std::string report = Http(board, "/$GET$");
    EXPECT_THAT(report, StartsWith("Tesselvisor => "));
    EXPECT_THAT(report, EndsWith(kAck));
}

// The first byte alone is the text; the answer survives all the others.
TEST(Http, RequestByteByByte) {
    const Board board = StartNewBoard({});
    ASSERT_TRUE(WaitForOutput(board, kListening, 20)) << Output(board);
    const TcpClient client(HttpPort(board));
    for (const char byte : std::string_view("GET /$POLL$ HTTP/1.1\r\n\r\n")) {
        if (!Send(client, {&byte, 1})) break;  // the server has gone by now, the answer is here
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(ReceiveAll(client, 5).size(), kPageSize);
}

TEST(Http, SilentClientHoldsTheServerForFiveSeconds) {
    const Board board = StartNewBoard({});
    ASSERT_TRUE(WaitForOutput(board, kListening, 20)) << Output(board);
    const auto start = Clock::now();
    const TcpClient silent(HttpPort(board));
    ASSERT_TRUE(WaitForOutput(board, "Connection accepted\n", 5));
    EXPECT_EQ(Http(board, "/$POLL$", 20), kPollAnswer);
    EXPECT_GT(SecondsSince(start), 4.5);
    EXPECT_TRUE(IsClosed(silent, 1));
    EXPECT_THAT(Output(board), HasSubstr("recv() returned -1\nrecv failed: Resource temporarily unavailable\n"));

    { const TcpClient gone(HttpPort(board)); }
    EXPECT_TRUE(WaitForOutput(board, "recv() returned 0\nClient disconnected\n", 5)) << Output(board);
    EXPECT_EQ(Http(board, "/$POLL$"), kPollAnswer);
}

// The commands that may change the very address the client talks to: their tools hang here, the answer does not wait.
TEST(Http, AnswerComesBeforeTheAddressChanges) {
    const Board board = StartNewBoard({});
    ASSERT_TRUE(WaitForOutput(board, kListening, 20)) << Output(board);
    for (const char* command : {"/$IP_192_168_0_90$", "/$NETMASK_255_255_0_0$", "/$DHCP_1$"}) {
        for (const char* tool : {"connmanctl", "ifconfig"})
            ASSERT_EQ(Ctl(board, {"fault", "tool", tool, "slow"}).status, 0);
        const size_t from = OutputSize(board);
        EXPECT_EQ(Http(board, command), kAck) << command;
        EXPECT_THAT(Output(board).substr(from), Not(HasSubstr(kListening))) << "still at work";
        for (const char* tool : {"connmanctl", "ifconfig"}) Ctl(board, {"fault", "tool", tool, "off"});
        EXPECT_TRUE(WaitForOutput(board, kListening, 30, from)) << command;
    }
    EXPECT_THAT(Http(board, "/$GET$"), EndsWith(kAck));
}

// More than the backlog holds: the others' connects are repeated by the network until there is room.
TEST(Http, ThirtyOneAtOnce) {
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg"});
    ASSERT_TRUE(WaitForPicture(board) && WaitForSound(board)) << Output(board);
    const int before = Status(board)["daemon"]["descriptors"];
    const int port = HttpPort(board);
    std::vector<TcpClient> clients;
    for (int i = 0; i < 31; ++i) clients.emplace_back(port);
    for (const TcpClient& client : clients) ASSERT_TRUE(Send(client, "GET /$POLL$ HTTP/1.1\r\n\r\n"));
    for (const TcpClient& client : clients) EXPECT_EQ(ReceiveAll(client, 40), kPollAnswer);
    EXPECT_TRUE(WaitUntil(5, [&] { return Status(board)["daemon"]["descriptors"] <= before; }));
}
