// ENLOG: the daemon's log goes to the client that asked for it, and comes back.
#include <gmock/gmock.h>

#include "picture_probe.h"
#include "tcp_client.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

static constexpr const char* kAck = "ACK\r\n";
static constexpr const char* kToConsole = "STDOUT/STDERR to console.\n";
static constexpr const char* kWaiting = "Waiting for incoming connections...\n";
static constexpr const char* kLogLine = "Connection accepted\n";  // each HTTP request makes one

// The log of a request goes to that client, and not to the console.
static void ExpectLogAt(const Board& board, const TcpClient& client) {
    const size_t from = OutputSize(board);
    EXPECT_THAT(Http(board, "/$POLL$"), EndsWith(kAck));
    const std::string log = Receive(client, kLogLine, 20);
    const size_t at = log.find(kLogLine);
    EXPECT_NE(at, log.npos) << log;
    if (log.find(kWaiting, at) == log.npos) Receive(client, kWaiting, 20);  // the request's last line
    EXPECT_EQ(Output(board).find(kLogLine, from), std::string::npos);
}

static void ExpectLogOnConsole(const Board& board) {
    const size_t from = OutputSize(board);
    EXPECT_THAT(Http(board, "/$POLL$"), EndsWith(kAck));
    EXPECT_TRUE(WaitForOutput(board, kLogLine, 5, from));
}

TEST(NetworkLog, FollowsTheLastTelnetClient) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg"});
    const int port = TelnetPort(board);
    const size_t from = OutputSize(board);
    const TcpClient first(port);
    EXPECT_TRUE(WaitForOutput(board, kToConsole, 5, from)) << "every connection says where the log goes";
    EXPECT_THAT(Ask(first, "$ENLOG_1$"), StartsWith(kAck)) << "log lines may follow";
    ExpectLogAt(board, first);
    {
        const TcpClient second(port);
        EXPECT_THAT(Receive(first, "Adding to list of sockets as 1\n", 20), HasSubstr("New connection: socket fd is "));
        EXPECT_THAT(Ask(second, "$POLL$"), HasSubstr(kAck)) << "it is taken for a client now";
        ExpectLogAt(board, second);
        EXPECT_EQ(Receive(first, kLogLine, 0.3).find(kLogLine), std::string::npos) << "the first has it no longer";
    }
    EXPECT_EQ(Ask(first, "$POLL$").find("S1\r\n"), 0) << "a log client that left took nothing along";
    EXPECT_THAT(Ask(first, "$ENLOG_1$"), StartsWith(kAck));
    const size_t before = OutputSize(board);
    EXPECT_THAT(Ask(first, "$ENLOG_0$"), EndsWith(kAck)) << "log lines may stand before it";
    EXPECT_TRUE(WaitForOutput(board, kToConsole, 2, before));
    ExpectLogOnConsole(board);
    EXPECT_EQ(Receive(first, kLogLine, 0.3), "");
}

TEST(NetworkLog, OverHttpAndStoredWithTheSettings) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg"});
    const int descriptors = Status(board)["daemon"]["descriptors"];
    {
        const TcpClient client(HttpPort(board));
        Send(client, "GET /$ENLOG_1$ HTTP/1.1\r\n\r\n");
        EXPECT_THAT(Receive(client, kWaiting, 20), StartsWith(kAck));
        ExpectLogAt(board, client);  // it reads on while others are served
        EXPECT_EQ(Http(board, "/$ENLOG_0$"), kAck);
        EXPECT_TRUE(IsClosed(client, 10));
    }
    ExpectLogOnConsole(board);
    EXPECT_TRUE(WaitUntil(5, [&] { return Status(board)["daemon"]["descriptors"] <= descriptors; }));

    // The console has the log of a new start until a telnet client connects.
    EXPECT_THAT(Telnet(board, "$ENLOG_1$"), StartsWith(kAck));
    const size_t from = OutputSize(board);
    EXPECT_THAT(Telnet(board, "$SAVE$$RESTART$", "ACK\r\nACK\r\n"), EndsWith("ACK\r\nACK\r\n"));
    ASSERT_TRUE(WaitForOutput(board, kWaiting, 20, from)) << Output(board);
    ExpectLogOnConsole(board);
    const TcpClient client(TelnetPort(board));
    EXPECT_THAT(Ask(client, "$POLL$"), HasSubstr(kAck)) << "it is taken for a client now";
    ExpectLogAt(board, client);
}

// Its connection fills up, here by a tool that writes 10 MB to the standard output it got from the daemon; then lines
// are lost, and neither the daemon nor the tool waits.
TEST(NetworkLog, ClientThatStopsReadingStopsNobody) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg"});
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
    ExpectLogAt(board, next);
}
