// Commands over HTTP: the request's text decides, not its form; one connection at a time, and none can hold the others.
#include <gmock/gmock.h>

#include <chrono>

#include "tcp_client.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

static const std::string kAck = "ACK\r\n";
static constexpr const char* kListening = "Waiting for incoming connections...\n";
static constexpr const char* kPageBegin = "HTTP/1.1 200 OK\nContent-Type: text/html\n\n";
static constexpr size_t kPageSize = 18'929;

static std::string Request(const Board& board, std::string_view text) {
    const TcpClient client(HttpPort(board));
    Send(client, text);
    const std::string answer = ReceiveAll(client, 20);
    // What stays unread makes the close a reset, which overtakes the answer on many a client's system.
    EXPECT_TRUE(text.size() > 2'000 || Send(client, "?")) << "closed by a reset: " << text.substr(0, 60);
    return answer;
}

static std::string PaddedTo(std::string text, size_t size) {
    text += std::string(size - text.size(), 'x');
    return text;
}

TEST(Http, TheTextDecides) {
    const Board board = StartUntil(kListening, {});
    const std::string page = Http(board, "/");
    EXPECT_EQ(page.size(), kPageSize);
    EXPECT_THAT(page, StartsWith(kPageBegin));

    struct Exchange {
        std::string request, answer;
    };
    for (const Exchange& exchange : {
             Exchange{"GET /favicon.ico HTTP/1.1\r\n\r\n", page},
             Exchange{"hello", page},
             Exchange{"POST / HTTP/1.1\r\nReferer: http://192.168.0.81/$POLL$\r\n\r\n", kPollAnswer},
             Exchange{"GET /$WEB$ HTTP/1.1\r\n\r\n", page + kAck},
             Exchange{"GET /$AIN1_5$$S1$ HTTP/1.1\r\n\r\n", kAck + kAck},
             // One receive counts, 1,999 bytes; a client that sends more gets its answer all the same.
             Exchange{PaddedTo("GET /$POLL$ ", 1'999), kPollAnswer},
             Exchange{PaddedTo("GET /$POLL$ ", 2'000), kPollAnswer},
             Exchange{PaddedTo("GET /$WEB$ ", 100'000), page + kAck},
             Exchange{PaddedTo("GET / ", 1'993) + "$POLL$", kPollAnswer},
             Exchange{PaddedTo("GET / ", 1'994) + "$POLL$", page},
         })
        EXPECT_EQ(Request(board, exchange.request), exchange.answer) << exchange.request.substr(0, 60);

    const std::string report = Http(board, "/$GET$");
    EXPECT_THAT(report, StartsWith("Tesselvisor => "));
    EXPECT_THAT(report, EndsWith(kAck));
}

TEST(Http, NoneHoldsTheOthers) {
    const Board board = StartUntil(kListening, {});
    {
        // The first byte alone is the text; the answer survives all the others.
        const TcpClient client(HttpPort(board));
        for (const char byte : std::string_view("GET /$POLL$ HTTP/1.1\r\n\r\n")) {
            if (!Send(client, {&byte, 1})) break;  // the server has gone by now, the answer is here
            Pause(0.02);
        }
        EXPECT_EQ(ReceiveAll(client, 20).size(), kPageSize);
    }
    // A silent one holds the server for five seconds.
    const auto start = Clock::now();
    const size_t from = OutputSize(board);
    const TcpClient silent(HttpPort(board));
    ASSERT_TRUE(WaitForOutput(board, "Connection accepted\n", 5, from));
    EXPECT_EQ(Http(board, "/$POLL$", 20), kPollAnswer);
    EXPECT_GT(Seconds(Clock::now() - start).count(), 4.5);
    EXPECT_TRUE(IsClosed(silent, 10));
    EXPECT_THAT(Output(board), HasSubstr("recv() returned -1\nrecv failed: Resource temporarily unavailable\n"));

    { const TcpClient gone(HttpPort(board)); }
    EXPECT_TRUE(WaitForOutput(board, "recv() returned 0\nClient disconnected\n", 5)) << Output(board);
    const size_t last = OutputSize(board);
    EXPECT_EQ(Http(board, "/$POLL$"), kPollAnswer);
    EXPECT_TRUE(WaitForOutput(board, kListening, 5, last));

    // More than the backlog holds: the others' connects are repeated by the network until there is room.
    const int port = HttpPort(board);
    std::vector<TcpClient> clients;
    for (int i = 0; i < 12; ++i) {
        clients.emplace_back(port);
        ASSERT_TRUE(Send(clients.back(), "GET /$POLL$ HTTP/1.1\r\n\r\n"));
    }
    for (const TcpClient& client : clients) EXPECT_EQ(ReceiveAll(client, 60), kPollAnswer);
}
