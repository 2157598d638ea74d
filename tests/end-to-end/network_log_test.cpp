// ENLOG: the daemon's log goes to the client that asked for it, and comes back.
#include <gmock/gmock.h>

#include "picture_probe.h"
#include "tcp_client.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

static constexpr const char* kAck = "ACK\r\n";
static constexpr const char* kToConsole = "STDOUT/STDERR to console.\n";
static constexpr const char* kLogLine = "Connection accepted\n";  // each HTTP request makes one

static std::string Ask(const TcpClient& client, std::string_view text) {
    Send(client, text);
    return Receive(client, kAck, 5);
}

// The client's share of the log that a request makes.
static std::string LogOfRequest(const Board& board, const TcpClient& client) {
    EXPECT_THAT(Http(board, "/$POLL$"), EndsWith(kAck));
    const std::string accepted = Receive(client, kLogLine, 2);  // behind the last line of a request before it, perhaps
    return accepted + Receive(client, "Waiting for incoming connections...\n", 2);
}

static bool ReachesConsole(const Board& board) {
    const size_t from = OutputSize(board);
    EXPECT_THAT(Http(board, "/$POLL$"), EndsWith(kAck));
    Pause(1);  // it is written before the answer
    return Output(board).find(kLogLine, from) != std::string::npos;
}

static Board StartListeningBoard() {
    Board board = StartNewBoard({"--camera1", "hd-mjpeg"});
    EXPECT_TRUE(WaitForPicture(board)) << Output(board);
    return board;
}

TEST(NetworkLog, FollowsTheLastTelnetClient) {
    const Board board = StartListeningBoard();
    const int port = TelnetPort(board);
    const size_t from = OutputSize(board);
    const TcpClient first(port);
    EXPECT_TRUE(WaitForOutput(board, kToConsole, 5, from)) << "every connection says where the log goes";
    EXPECT_THAT(Ask(first, "$ENLOG_1$"), StartsWith(kAck)) << "log lines may follow";
    EXPECT_THAT(LogOfRequest(board, first), HasSubstr(kLogLine));
    EXPECT_FALSE(ReachesConsole(board));
    {
        const TcpClient second(port);
        EXPECT_THAT(Receive(first, "Adding to list of sockets as 1\n", 5), HasSubstr("New connection: socket fd is "));
        EXPECT_THAT(LogOfRequest(board, second), HasSubstr(kLogLine));
        EXPECT_THAT(Receive(first, kLogLine, 0.3), Not(HasSubstr(kLogLine))) << "the first has it no longer";
    }
    EXPECT_EQ(Ask(first, "$POLL$").find("S1\r\n"), 0) << "a log client that left took nothing along";
    EXPECT_FALSE(ReachesConsole(board));
    {
        TcpClient third(port);
        EXPECT_THAT(Ask(third, "$POLL$"), HasSubstr(kAck)) << "it is taken for a client now";
        EXPECT_THAT(LogOfRequest(board, third), HasSubstr(kLogLine));
        Reset(third);
    }
    EXPECT_THAT(Ask(first, "$ENLOG_1$"), StartsWith(kAck));
    const size_t before = OutputSize(board);
    EXPECT_THAT(Ask(first, "$ENLOG_0$"), EndsWith(kAck)) << "log lines may stand before it";
    EXPECT_TRUE(WaitForOutput(board, kToConsole, 2, before));
    EXPECT_TRUE(ReachesConsole(board));
    EXPECT_EQ(Receive(first, kLogLine, 0.3), "");
    EXPECT_TRUE(ShowsFull(board, '1')) << Seen(board);
}

// The console has the log of a new start until a telnet client connects.
TEST(NetworkLog, StoredWithTheSettings) {
    const Board board = StartListeningBoard();
    EXPECT_THAT(Telnet(board, "$ENLOG_1$"), StartsWith(kAck));
    const size_t from = OutputSize(board);
    EXPECT_THAT(Telnet(board, "$SAVE$$RESTART$", "ACK\r\nACK\r\n"), EndsWith("ACK\r\nACK\r\n"));
    ASSERT_TRUE(WaitForOutput(board, "Waiting for incoming connections...\n", 20, from)) << Output(board);
    EXPECT_TRUE(ReachesConsole(board));
    const TcpClient client(TelnetPort(board));
    EXPECT_THAT(Ask(client, "$POLL$"), HasSubstr(kAck)) << "it is taken for a client now";
    EXPECT_THAT(LogOfRequest(board, client), HasSubstr(kLogLine));
    EXPECT_FALSE(ReachesConsole(board));
}

TEST(NetworkLog, OverHttp) {
    const Board board = StartListeningBoard();
    const int descriptors = Status(board)["daemon"]["descriptors"];
    const TcpClient client(HttpPort(board));
    Send(client, "GET /$ENLOG_1$ HTTP/1.1\r\n\r\n");
    EXPECT_THAT(Receive(client, "Waiting for incoming connections...\n"), StartsWith(kAck));
    EXPECT_THAT(LogOfRequest(board, client), HasSubstr(kLogLine)) << "it reads on while others are served";
    EXPECT_EQ(Http(board, "/$ENLOG_0$"), kAck);
    EXPECT_TRUE(IsClosed(client, 2));
    EXPECT_TRUE(ReachesConsole(board));
    EXPECT_TRUE(WaitUntil(5, [&] { return Status(board)["daemon"]["descriptors"] <= descriptors; }));
}

// Its connection fills up, here by a tool that writes 10 MB to the standard output it got from the daemon; then lines
// are lost, and neither the daemon nor the tool waits.
TEST(NetworkLog, ClientThatStopsReadingStopsNobody) {
    const Board board = StartListeningBoard();
    const TcpClient deaf(TelnetPort(board));
    EXPECT_THAT(Ask(deaf, "$ENLOG_1$"), StartsWith(kAck));
    ASSERT_EQ(Ctl(board, {"fault", "tool", "ifconfig", "flood"}).status, 0);
    EXPECT_EQ(Http(board, "/$NETMASK_255_255_255_0$"), kAck);
    for (int i = 0; i < 50; ++i) EXPECT_THAT(Http(board, "/$POLL$"), EndsWith(kAck));
    ASSERT_EQ(Ctl(board, {"fault", "tool", "ifconfig", "off"}).status, 0);
    EXPECT_EQ(Ctl(board, {"serial", "<SHW>"}).out, kAck);
    EXPECT_TRUE(ShowsFull(board, '1')) << Seen(board);
    const TcpClient next(TelnetPort(board));
    EXPECT_THAT(Ask(next, "$POLL$"), HasSubstr(kAck)) << "it is taken for a client now";
    EXPECT_THAT(LogOfRequest(board, next), HasSubstr(kLogLine));
}
