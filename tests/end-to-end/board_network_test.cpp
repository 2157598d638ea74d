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
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "board_run.h"
#include "tcp_client.h"

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

static constexpr uint16_t kTelnetOnBoard = 50000;

// A board whose only program sleeps.
static Board StartEmptyBoard() {
    Board board = StartNewBoard({"--daemon", "/usr/bin/sleep", "--", "infinity"});
    WaitUntil(10, [&] { return Status(board)["daemon"].value("pid", 0) > 0; });
    return board;
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
    BoardServer& operator=(const BoardServer&) = delete;
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

static std::vector<char>& Buffer() {
    static std::vector<char> buffer(65536);
    return buffer;
}

// Every client at once gets back what it sends, until it sends no more.
static int ServeEcho(int listening) {
    std::vector<pollfd> sockets{{.fd = listening, .events = POLLIN, .revents = 0}};
    while (poll(sockets.data(), sockets.size(), -1) > 0) {
        const std::vector<pollfd> ready = sockets;
        if (ready[0].revents)
            sockets.push_back({.fd = accept(listening, nullptr, nullptr), .events = POLLIN, .revents = 0});
        for (size_t i = 1; i < ready.size(); ++i) {
            if (!ready[i].revents) continue;
            const ssize_t size = recv(ready[i].fd, Buffer().data(), Buffer().size(), 0);
            if (size > 0) send(ready[i].fd, Buffer().data(), size_t(size), 0);
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

static std::string StatusLine(int process, const std::string& key) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(key)) return line.substr(key.size());
    return "0";
}

static int EmulatorOf(const Board& board) {
    const int daemon = Status(board)["daemon"]["pid"];
    return std::stoi(StatusLine(std::stoi(StatusLine(daemon, "PPid:")), "PPid:"));
}

static auto DescriptorsOf(int process) {
    return std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd"), {});
}

static double ProcessorSeconds(int process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::vector<std::string> fields{std::istream_iterator<std::string>(file), {}};
    return fields.size() < 15 ? 0 : (std::stod(fields[13]) + std::stod(fields[14])) / double(sysconf(_SC_CLK_TCK));
}

TEST(BoardPorts, CarryManyClientsAndForgetThem) {
    const Board board = StartEmptyBoard();
    const BoardServer server(board, ServeEcho);
    const int emulator = EmulatorOf(board);
    const auto before = DescriptorsOf(emulator);
    {
        std::vector<TcpClient> clients;
        for (int i = 0; i < 100; ++i) clients.emplace_back(TelnetPort(board));
        for (size_t i = 0; i < clients.size(); ++i) EXPECT_TRUE(Send(clients[i], std::to_string(i) + ";"));
        for (size_t i = 0; i < clients.size(); ++i) EXPECT_EQ(Receive(clients[i], ";"), std::to_string(i) + ";");
        for (size_t i = 0; i < clients.size(); i += 2) Reset(clients[i]);
    }
    EXPECT_TRUE(WaitUntil(5, [&] { return DescriptorsOf(emulator) == before; }));
}

TEST(BoardPorts, PassOnEveryByteAndTheEndOfEachDirection) {
    const Board board = StartEmptyBoard();
    const BoardServer server(board, ServeEcho);
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

TEST(BoardPorts, MakeAWriterWaitForASlowReader) {
    const Board board = StartEmptyBoard();
    BoardServer server(board, [](int listening) {
        const int client = accept(listening, nullptr, nullptr);
        char go;
        const int control = accept(listening, nullptr, nullptr);
        if (recv(control, &go, 1, 0) != 1) return 1;
        uint64_t count = 0;
        for (ssize_t size; (size = recv(client, Buffer().data(), Buffer().size(), 0)) > 0;) count += uint64_t(size);
        const std::string answer = std::to_string(count) + "\n";
        return send(client, answer.data(), answer.size(), 0) > 0 ? 0 : 2;
    });
    const TcpClient client(TelnetPort(board)), control(TelnetPort(board));
    const int emulator = EmulatorOf(board);
    uint64_t sent = 0;
    const auto push = [&] {
        for (ssize_t size; (size = send(client.socket, Buffer().data(), Buffer().size(), MSG_DONTWAIT)) > 0;)
            sent += uint64_t(size);
    };
    for (int i = 0; i < 20; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(50))) push();
    EXPECT_LT(sent, 64U << 20);  // the systems' socket buffers, not a pile of the emulator's

    const double busy = ProcessorSeconds(emulator);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(ProcessorSeconds(emulator) - busy, 0.1);  // and it waits asleep

    EXPECT_TRUE(Send(control, "!"));
    CloseSending(client);
    EXPECT_EQ(Receive(client, "\n", 20), std::to_string(sent) + "\n");
    EXPECT_EQ(server.Result(), 0);
}

TEST(BoardPorts, PassOnResets) {
    const Board board = StartEmptyBoard();
    const TcpClient refused(TelnetPort(board));
    EXPECT_TRUE(ResetByServer(refused)) << "nobody listens on the board";

    BoardServer resets(board, [](int listening) {
        const int client = accept(listening, nullptr, nullptr);
        const linger atOnce{.l_onoff = 1, .l_linger = 0};
        setsockopt(client, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        // A reset may overtake what was sent before it: it waits until that was read.
        return send(client, "last words\n", 11, 0) == 11 && recv(client, Buffer().data(), 1, 0) == 1 ? 0 : 1;
    });
    const TcpClient client(TelnetPort(board));
    EXPECT_EQ(Receive(client, "\n"), "last words\n");
    Send(client, "!");
    EXPECT_TRUE(ResetByServer(client));
    EXPECT_EQ(resets.Result(), 0);

    // The client vanishes while nothing moves, its own direction ended before.
    BoardServer watches(board, [](int listening) {
        const int vanishing = accept(listening, nullptr, nullptr);
        if (recv(vanishing, Buffer().data(), Buffer().size(), 0) != 0) return 1;
        if (send(vanishing, "ended\n", 6, 0) != 6) return 2;
        pollfd lost{.fd = vanishing, .events = 0, .revents = 0};
        return poll(&lost, 1, 10'000) == 1 && lost.revents & POLLERR ? 0 : 3;
    });
    TcpClient vanishes(TelnetPort(board));
    CloseSending(vanishes);
    EXPECT_EQ(Receive(vanishes, "\n"), "ended\n");
    Reset(vanishes);
    EXPECT_EQ(watches.Result(), 0);
}

TEST(BoardPorts, OutliveAPowerCycleWhichResetsConnections) {
    const Board board = StartEmptyBoard();
    const int port = TelnetPort(board);
    auto server = std::make_unique<BoardServer>(board, ServeEcho);
    const TcpClient client(port);
    EXPECT_TRUE(Send(client, "on;"));
    EXPECT_EQ(Receive(client, ";"), "on;");
    EXPECT_EQ(Ctl(board, {"power-cycle"}).status, 0);
    EXPECT_TRUE(ResetByServer(client));
    EXPECT_TRUE(WaitUntil(10, [&] { return Status(board)["daemon"].value("pid", 0) > 0; }));
    server = std::make_unique<BoardServer>(board, ServeEcho);
    EXPECT_EQ(TelnetPort(board), port);
    const TcpClient again(port);
    EXPECT_TRUE(Send(again, "again;"));
    EXPECT_EQ(Receive(again, ";"), "again;");
}

TEST(BoardPorts, AreAnnouncedAndRefusedWhenTaken) {
    const Board first = StartEmptyBoard();
    const std::string http = std::to_string(HttpPort(first)), telnet = std::to_string(TelnetPort(first));
    EXPECT_THAT(Output(first), HasSubstr("HTTP:  http://127.0.0.1:" + http + "/\nTelnet: 127.0.0.1 " + telnet + "\n"));

    const Board second = StartNewBoard({"--telnet", telnet, "--daemon", "/bin/echo", "--", "never"});
    EXPECT_EQ(WaitForEnd(second, 10), 1);
    EXPECT_THAT(Output(second), HasSubstr("cannot open port " + telnet + " of 127.0.0.1 for telnet"));
    EXPECT_THAT(Output(second), Not(HasSubstr("never")));

    StopBoard(first);
    const Board third = StartNewBoard({"--http", http, "--daemon", "/usr/bin/sleep", "--", "infinity"});
    EXPECT_EQ(std::to_string(HttpPort(third)), http);
}

// The board's own programs, typed into a shell in the daemon's place.

static Board StartShell(const Words& words = {}) {
    Words all{"--daemon", "/bin/sh"};
    all.insert(all.end(), words.begin(), words.end());
    return StartNewBoard(all);
}

static std::string RunOn(const Board& board, const std::string& line) {
    const size_t from = OutputSize(board);
    Type(board, line + "; echo \"<$?>\"\n");
    WaitUntil(10, [&] {
        const std::string output = Output(board);
        return output.find("<0>", from) != output.npos || output.find("<1", from) != output.npos;
    });
    return Output(board).substr(from);
}

TEST(BoardTools, ShowTheNetworkCable) {
    const Board board = StartShell();
    const std::string service = "ethernet_00049f052a61_cable";
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(Status(board)["lan"], "plugged");
        EXPECT_THAT(RunOn(board, "connmanctl services"), HasSubstr("*AO Wired                " + service));
        EXPECT_THAT(RunOn(board, "connmanctl services " + service),
                    HasSubstr("  IPv4 = [ Method=dhcp, Address=192.168."));
        EXPECT_THAT(RunOn(board, "ifconfig eth0"), HasSubstr("UP BROADCAST RUNNING MULTICAST"));
        EXPECT_THAT(RunOn(board, "ethtool eth0"), HasSubstr("Link detected: yes"));

        EXPECT_EQ(Ctl(board, {"lan", "unplug"}).status, 0);
        if (round == 1) {  // what the bench did stays
            Ctl(board, {"power-cycle"});
            EXPECT_TRUE(WaitUntil(10, [&] { return Status(board)["daemon"].value("pid", 0) > 0; }));
        }
        EXPECT_EQ(Status(board)["lan"], "unplugged");
        EXPECT_THAT(RunOn(board, "connmanctl services"), HasSubstr("    Wired                " + service));
        EXPECT_THAT(RunOn(board, "connmanctl services " + service), HasSubstr("\n  IPv4 = [  ]\n"));
        EXPECT_THAT(RunOn(board, "ifconfig eth0"), HasSubstr("UP BROADCAST MULTICAST"));
        EXPECT_THAT(RunOn(board, "ifconfig eth0 | grep 'inet addr'"), HasSubstr("<1>"));
        EXPECT_THAT(RunOn(board, "ethtool eth0"), HasSubstr("Link detected: no"));
        EXPECT_EQ(Ctl(board, {"lan", "plug"}).status, 0);
    }
    EXPECT_THAT(RunOn(board, "dmesg | tail -n 1"), HasSubstr("eth0: Link is Up"));
}

TEST(BoardTools, ShowTemperatureAndFaults) {
    const Board board = StartShell();
    const std::string read = "cat /sys/class/thermal/thermal_zone0/temp";
    EXPECT_EQ(Ctl(board, {"temperature", "-12.5"}).status, 0);
    EXPECT_THAT(RunOn(board, read), StartsWith("-12500\n"));
    for (const char* wrong : {"", "warm", "nan", "1e9"}) EXPECT_EQ(Ctl(board, {"temperature", wrong}).status, 1);

    Ctl(board, {"fault", "tool", "dmesg", "silent"});
    EXPECT_THAT(RunOn(board, "dmesg | wc -c"), StartsWith("0\n"));
    Ctl(board, {"fault", "tool", "dmesg", "flood"});
    EXPECT_THAT(RunOn(board, "dmesg | wc -lc"), HasSubstr(" 200000 10000000\n"));
    Ctl(board, {"fault", "tool", "dmesg", "slow"});
    EXPECT_THAT(RunOn(board, "dmesg | head -n 1"), HasSubstr("Booting Linux"));
    EXPECT_EQ(Ctl(board, {"fault", "tool", "sh", "flood"}).status, 1);
    EXPECT_EQ(Ctl(board, {"fault", "tool", "sh", "absent"}).status, 0);
    EXPECT_THAT(RunOn(board, "/bin/sh -c 'echo here'"), HasSubstr("<127>"));
}

TEST(BoardTools, DescribeThePluggedCamera) {
    const Board board = StartShell({"--camera2", "ptz-speed"});
    const std::string tree = RunOn(board, "lsusb -t");
    EXPECT_THAT(tree, HasSubstr("/:  Bus 02.Port 1: Dev 1, Class=root_hub"));
    EXPECT_THAT(tree, HasSubstr("Dev 2, If 3, Class=Audio, Driver=snd-usb-audio, 480M\n/:  Bus 01."));
    const std::string devices = RunOn(board, "lsusb -v");
    for (const char* part :
         {"\nBus 002 Device 002: ID 2574:0980 AVer CAM520 Pro2\nDevice Descriptor:\n", "  idVendor           0x2574 \n",
          "(FORMAT_UNCOMPRESSED)", "bUnitID                 8\n", "        wWidth                           1920\n",
          "dwFrameInterval( 0)            166667\n"})
        EXPECT_THAT(devices, HasSubstr(part));
    Ctl(board, {"camera", "2", "unplug"});
    EXPECT_THAT(RunOn(board, "lsusb -v"), Not(HasSubstr("FORMAT")));
}
