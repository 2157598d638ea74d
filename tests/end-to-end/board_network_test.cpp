// The emulator's loopback ports, with servers of our own on an otherwise empty board; the network cable and what the
// board's programs tell of it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <thread>

#include "process_figures.h"
#include "tcp_client.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

static constexpr uint16_t kTelnetOnBoard = 50000;

static void WaitForProgram(const Board& board) {
    EXPECT_TRUE(WaitUntil(10, [&] { return Status(board)["daemon"].value("pid", 0) > 0; }));
}

// A board whose only program sleeps.
static Board StartEmptyBoard() {
    Board board = StartNewBoard({"--daemon", "/usr/bin/sleep", "--", "infinity"});
    WaitForProgram(board);
    return board;
}

static void PowerCycle(const Board& board) {
    EXPECT_EQ(Ctl(board, {"power-cycle"}).status, 0);
    WaitForProgram(board);
}

static void EnterBoard(int process) {
    for (const char* kind : {"user", "net"}) {
        const std::string name = "/proc/" + std::to_string(process) + "/ns/" + kind;
        const int space = open(name.c_str(), O_RDONLY | O_CLOEXEC);
        if (setns(space, 0) != 0) _exit(100);
        close(space);
    }
}

static int ListenOnBoard() {
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kTelnetOnBoard);
    if (bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) _exit(101);
    if (listen(listening, 128) != 0) _exit(102);
    return listening;
}

// A process of ours behind the board's telnet port; it ends with its owner.
struct BoardServer {
    pid_t process = -1;
    BoardServer(const Board& board, int (*serve)(int listening)) {
        const int daemon = Status(board)["daemon"]["pid"];
        int ready[2];
        if (pipe(ready) != 0) return;
        process = fork();
        if (process == 0) {
            signal(SIGPIPE, SIG_IGN);
            EnterBoard(daemon);
            const int listening = ListenOnBoard();
            if (write(ready[1], "", 1) != 1) _exit(103);
            _exit(serve(listening));
        }
        close(ready[1]);
        char listens;
        EXPECT_EQ(read(ready[0], &listens, 1), 1);
        close(ready[0]);
    }
    BoardServer(const BoardServer&) = delete;
    ~BoardServer() {
        if (process <= 0) return;
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    int Result() {  // of `serve`
        int status = 0;
        waitpid(process, &status, 0);
        process = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

static char buffer[65536];

// Every client at once gets back what it sends, until it sends no more.
static int ServeEcho(int listening) {
    std::vector<pollfd> sockets{{.fd = listening, .events = POLLIN, .revents = 0}};
    while (poll(sockets.data(), sockets.size(), -1) > 0) {
        const std::vector<pollfd> ready = sockets;
        if (ready[0].revents)
            sockets.push_back({.fd = accept(listening, nullptr, nullptr), .events = POLLIN, .revents = 0});
        for (size_t i = 1; i < ready.size(); ++i) {
            if (!ready[i].revents) continue;
            const ssize_t size = recv(ready[i].fd, buffer, sizeof buffer, 0);
            if (size > 0) send(ready[i].fd, buffer, size_t(size), 0);
            if (size > 0) continue;
            close(ready[i].fd);
            std::erase_if(sockets, [&](const pollfd& socket) { return socket.fd == ready[i].fd; });
        }
    }
    return 0;
}

static bool ResetByServer(const TcpClient& client) {
    char byte;
    pollfd ready{.fd = client.socket, .events = POLLIN, .revents = 0};
    return poll(&ready, 1, int(5000 * Patience())) > 0 && recv(client.socket, &byte, 1, 0) < 0 && errno == ECONNRESET;
}

static int ParentOf(int process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    int own = 0, parent = 0;
    std::string name, state;
    file >> own >> name >> state >> parent;
    return parent;
}

static int EmulatorOf(const Board& board) { return ParentOf(ParentOf(Status(board)["daemon"]["pid"])); }

TEST(BoardPorts, CarryManyClientsEveryByteAndForgetThem) {
    const Board board = StartEmptyBoard();
    const BoardServer server(board, ServeEcho);
    const int emulator = EmulatorOf(board);
    const long before = FiguresOf(emulator).descriptors;
    {
        std::vector<TcpClient> clients;
        for (int i = 0; i < 100; ++i) clients.emplace_back(TelnetPort(board));
        for (size_t i = 0; i < clients.size(); ++i) EXPECT_TRUE(Send(clients[i], std::to_string(i) + ";"));
        for (size_t i = 0; i < clients.size(); ++i) EXPECT_EQ(Receive(clients[i], ";"), std::to_string(i) + ";");
        for (size_t i = 0; i < clients.size(); i += 2) Reset(clients[i]);

        const TcpClient client(TelnetPort(board));
        std::string sent(8 << 20, '\0');
        for (size_t i = 0; i < sent.size(); ++i) sent[i] = char(i * 2654435761U >> 24);
        std::thread sender([&] {
            EXPECT_TRUE(Send(client, sent));
            CloseSending(client);
        });
        const std::string received = ReceiveAll(client, 20);  // the server answers an end with an end
        sender.join();
        EXPECT_TRUE(received == sent) << received.size();
        EXPECT_TRUE(IsClosed(client, 1));
    }
    EXPECT_TRUE(WaitUntil(5, [&] { return FiguresOf(emulator).descriptors == before; }));
}

TEST(BoardPorts, PassOnResets) {
    const Board board = StartEmptyBoard();
    const TcpClient refused(TelnetPort(board));
    EXPECT_TRUE(ResetByServer(refused)) << "nobody listens on the board";

    // The client vanishes while nothing moves, its own direction ended before.
    BoardServer watches(board, [](int listening) {
        const int vanishing = accept(listening, nullptr, nullptr);
        if (recv(vanishing, buffer, sizeof buffer, 0) != 0) return 1;
        if (send(vanishing, "ended\n", 6, 0) != 6) return 2;
        pollfd lost{.fd = vanishing, .events = 0, .revents = 0};
        return poll(&lost, 1, 10'000) == 1 && lost.revents & POLLERR ? 0 : 3;
    });
    TcpClient vanishes(TelnetPort(board));
    CloseSending(vanishes);
    EXPECT_EQ(Receive(vanishes, "\n"), "ended\n");
    const int emulator = EmulatorOf(board);
    const double busy = FiguresOf(emulator).cpuSeconds;
    Pause(0.5);
    EXPECT_LT(FiguresOf(emulator).cpuSeconds - busy, 0.1) << "an end that stands is told once";
    Reset(vanishes);
    EXPECT_EQ(watches.Result(), 0);
}

TEST(BoardPorts, OutliveAPowerCycleWhichResetsConnections) {
    const Board board = StartEmptyBoard();
    const int port = TelnetPort(board);
    for (int round = 0; round < 2; ++round) {
        const BoardServer server(board, ServeEcho);
        const TcpClient client(port);
        EXPECT_TRUE(Send(client, "on;"));
        EXPECT_EQ(Receive(client, ";"), "on;");
        PowerCycle(board);
        EXPECT_TRUE(ResetByServer(client));
        EXPECT_EQ(TelnetPort(board), port);
    }
}

TEST(BoardPorts, AreAnnouncedAndRefusedWhenTaken) {
    const Board first = StartEmptyBoard();
    const std::string http = std::to_string(HttpPort(first)), telnet = std::to_string(TelnetPort(first));
    EXPECT_THAT(Output(first), HasSubstr("HTTP:  http://127.0.0.1:" + http + "/\nTelnet: 127.0.0.1 " + telnet + "\n"));

    const Board second = StartNewBoard({"--telnet", telnet, "--daemon", "/bin/echo", "--", "never"});
    EXPECT_EQ(WaitForEnd(second, 10), 1);
    EXPECT_THAT(Output(second), HasSubstr("cannot open port " + telnet + " of 127.0.0.1 for telnet"));
    EXPECT_THAT(Output(second), Not(HasSubstr("never")));
}

// The board's own programs, typed into a shell in the daemon's place.
static std::string RunOn(const Board& board, const std::string& line) {
    const size_t from = OutputSize(board);
    Type(board, line + "; echo '<end>'\n");
    EXPECT_TRUE(WaitForOutput(board, "<end>\n", 10, from)) << line;
    return Output(board).substr(from);
}

struct ToolRow {
    const char *line, *plugged, *unplugged;
};
static constexpr ToolRow kCableRows[] = {
    {"connmanctl services", "*AO Wired                ethernet_00049f052a61_cable",
     "    Wired                ethernet_00049f052a61_cable"},
    {"connmanctl services ethernet_00049f052a61_cable", "  IPv4 = [ Method=dhcp, Address=192.168.",
     "\n  IPv4 = [  ]\n"},
    {"ifconfig eth0", "UP BROADCAST RUNNING MULTICAST", "UP BROADCAST MULTICAST"},
    {"ethtool eth0", "Link detected: yes", "Link detected: no"},
};

TEST(BoardTools, TellOfTheBench) {
    const Board board = StartNewBoard({"--daemon", "/bin/sh", "--camera2", "ptz-speed"});
    for (const ToolRow& row : kCableRows) EXPECT_THAT(RunOn(board, row.line), HasSubstr(row.plugged));
    EXPECT_EQ(Ctl(board, {"lan", "unplug"}).status, 0);
    PowerCycle(board);  // what the bench did stays
    EXPECT_EQ(Status(board)["lan"], "unplugged");
    for (const ToolRow& row : kCableRows) EXPECT_THAT(RunOn(board, row.line), HasSubstr(row.unplugged));
    EXPECT_EQ(Ctl(board, {"lan", "plug"}).status, 0);
    EXPECT_THAT(RunOn(board, "dmesg | tail -n 1"), HasSubstr("eth0: Link is Up"));

    EXPECT_EQ(Ctl(board, {"temperature", "-12.5"}).status, 0);
    EXPECT_THAT(RunOn(board, "cat /sys/class/thermal/thermal_zone0/temp"), StartsWith("-12500\n"));
    for (const char* wrong : {"", "warm", "nan", "1e9"}) EXPECT_EQ(Ctl(board, {"temperature", wrong}).status, 1);
    Ctl(board, {"fault", "tool", "dmesg", "flood"});
    EXPECT_THAT(RunOn(board, "hash -r; dmesg | wc -lc"), HasSubstr(" 200000 10000000\n"));

    EXPECT_THAT(RunOn(board, "lsusb -t"), HasSubstr("Driver=snd-usb-audio, 480M\n/:  Bus 01."));
    EXPECT_THAT(RunOn(board, "lsusb -v"), AllOf(HasSubstr("ID 2574:0980 AVer CAM520 Pro2\nDevice Descriptor:\n"),
                                                HasSubstr("bUnitID                 8\n")));
}
