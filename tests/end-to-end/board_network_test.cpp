// The emulator's loopback ports, with the daemon behind them.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <sstream>

#include "process_figures.h"
#include "tcp_client.h"

using testing::HasSubstr;
using testing::Not;

static constexpr const char* kListening = "Telnet - Waiting for connections ...\n";

static void WaitForProgram(const Board& board) {
    EXPECT_TRUE(WaitUntil(10, [&] { return Status(board)["daemon"].value("pid", 0) > 0; }));
}

static bool IsReset(const TcpClient& client) {
    char byte;
    pollfd ready{.fd = client.socket, .events = POLLIN, .revents = 0};
    return poll(&ready, 1, int(5000 * Patience())) > 0 && recv(client.socket, &byte, 1, 0) < 0 && errno == ECONNRESET;
}

static int ParentOf(int process) {
    std::istringstream file(FileText("/proc/" + std::to_string(process) + "/stat"));
    int own = 0, parent = 0;
    std::string name, state;
    file >> own >> name >> state >> parent;
    return parent;
}

// Bytes by the million pass in the tests of the diagnostic log and of HTTP.
TEST(BoardPorts, CarryManyClientsAndForgetThem) {
    const Board board = StartUntil(kListening, {});
    const int emulator = ParentOf(ParentOf(Status(board)["daemon"]["pid"]));
    const long before = FiguresOf(emulator).descriptors;
    {
        std::vector<TcpClient> clients;
        for (int i = 0; i < 25; ++i) {
            clients.emplace_back(TelnetPort(board));
            EXPECT_TRUE(Send(clients.back(), "$POLL$"));
            EXPECT_EQ(Receive(clients.back(), "ACK\r\n"), kPollAnswer) << i;
        }
        for (size_t i = 0; i < clients.size(); i += 2) Reset(clients[i]);

        // Nobody takes the second one's end before the first has been waited for.
        const TcpClient silent(HttpPort(board)), ended(HttpPort(board));
        Send(ended, "GET /$POLL$ HTTP/1.1\r\n\r\n");
        CloseSending(ended);
        const double busy = FiguresOf(emulator).cpuSeconds;
        Pause(1);
        EXPECT_LT(FiguresOf(emulator).cpuSeconds - busy, 0.4) << "an end that stands is told once";
        EXPECT_EQ(ReceiveAll(ended), kPollAnswer);
    }
    EXPECT_TRUE(WaitUntil(5, [&] { return FiguresOf(emulator).descriptors == before; }));
}

TEST(BoardPorts, AreAnnouncedAndRefusedWhenTaken) {
    const Board first = StartNewBoard({"--daemon", "/usr/bin/sleep", "--", "infinity"});
    WaitForProgram(first);
    const TcpClient refused(TelnetPort(first));
    EXPECT_TRUE(IsReset(refused)) << "nobody listens on the board";
    const std::string http = std::to_string(HttpPort(first)), telnet = std::to_string(TelnetPort(first));
    EXPECT_THAT(Output(first), HasSubstr("HTTP:  http://127.0.0.1:" + http + "/\nTelnet: 127.0.0.1 " + telnet + "\n"));

    const Board second = StartNewBoard({"--telnet", telnet, "--daemon", "/bin/echo", "--", "never"});
    EXPECT_EQ(WaitForEnd(second, 10), 1);
    EXPECT_THAT(Output(second), HasSubstr("cannot open port " + telnet + " of 127.0.0.1 for telnet"));
    EXPECT_THAT(Output(second), Not(HasSubstr("never")));
}
