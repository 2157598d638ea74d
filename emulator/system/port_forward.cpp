#include "system/port_forward.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "kernel/sandbox.h"
#include "kernel/supervisor.h"
#include "system/board.h"

struct Port {
    const char* name;
    int BoardOptions::*wanted;  // 0: any free one
    uint16_t boardPort;
    const char *before, *behind;  // the number, where the port is announced
    int listening = -1;
    int number = 0;
};

struct Pipe {
    int from, to;
    std::string held = {};  // read, not yet taken by the far side
    bool ended = false;     // the near side sends no more
    bool shut = false;      // and the far side was told
};

struct Connection {
    bool connected;
    Pipe up, down;                               // from the client, from the board
    uint32_t clientEvents = 0, boardEvents = 0;  // watched now
};

static constexpr size_t kPiece = 16 * 1024;
static constexpr size_t kConnections = 500;
static constexpr int64_t kPause = 100'000;  // microseconds

static std::array ports{
    Port{.name = "http",
         .wanted = &BoardOptions::httpPort,
         .boardPort = 80,
         .before = "HTTP:  http://127.0.0.1:",
         .behind = "/"},
    Port{.name = "telnet",
         .wanted = &BoardOptions::telnetPort,
         .boardPort = 50000,
         .before = "Telnet: 127.0.0.1 ",
         .behind = ""},
};

static std::map<uint64_t, Connection> connections;
static uint64_t lastConnection = 0;

static sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

static void SwitchOn(int descriptor, int level, int option) {
    const int on = 1;
    setsockopt(descriptor, level, option, &on, sizeof on);
}

// Connections

static void Close(int descriptor, bool reset) {
    const linger atOnce{.l_onoff = 1, .l_linger = 0};
    if (reset) setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    ForgetDescriptor(descriptor);
    close(descriptor);
}

static void End(uint64_t id, bool reset) {
    const Connection& connection = connections.at(id);
    Close(connection.up.from, reset);
    Close(connection.up.to, reset);
    connections.erase(id);
}

static bool MustWait() { return errno == EAGAIN || errno == EINTR; }

static bool WantsToRead(const Pipe& pipe) { return !pipe.ended && pipe.held.empty(); }

// False when the near side was reset.
static bool Take(Pipe& pipe) {
    static std::array<char, kPiece> piece;
    const ssize_t size = recv(pipe.from, piece.data(), piece.size(), MSG_DONTWAIT);
    if (size < 0) return MustWait();
    pipe.held.assign(piece.data(), size_t(size));
    pipe.ended = size == 0;
    return true;
}

// False when the far side was reset.
static bool Give(Pipe& pipe) {
    const ssize_t size = send(pipe.to, pipe.held.data(), pipe.held.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size < 0) return MustWait();
    pipe.held.erase(0, size_t(size));
    return true;
}

static bool Move(Pipe& pipe) {
    if (WantsToRead(pipe) && !Take(pipe)) return false;
    if (!pipe.held.empty() && !Give(pipe)) return false;
    if (pipe.ended && !pipe.shut) {
        shutdown(pipe.to, SHUT_WR);
        pipe.shut = true;
    }
    return true;
}

static void TakeEvent(uint64_t id, int descriptor, uint32_t events);

// A side that nothing is expected of is watched for its reset alone, which must be told once: an end that stands, too,
// would be told for ever.
static void Watch(uint64_t id, int descriptor, uint32_t& watched, bool read, bool write) {
    uint32_t events = (read ? uint32_t{EPOLLIN} : 0) | (write ? uint32_t{EPOLLOUT} : 0);
    if (events == 0) events = EPOLLET;
    if (events == watched) return;
    watched = events;
    WatchDescriptor(
        descriptor, [=](uint32_t now) { TakeEvent(id, descriptor, now); }, events);
}

static void WatchBoth(uint64_t id, Connection& connection) {
    const Pipe &up = connection.up, &down = connection.down;
    const bool open = connection.connected;
    Watch(id, up.from, connection.clientEvents, open && WantsToRead(up), !down.held.empty());
    Watch(id, up.to, connection.boardEvents, open && WantsToRead(down), !open || !up.held.empty());
}

static bool FinishConnecting(Connection& connection, int descriptor) {
    if (connection.connected || descriptor != connection.up.to) return true;
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size);
    connection.connected = error == 0;
    return connection.connected;
}

static void TakeEvent(uint64_t id, int descriptor, uint32_t events) {
    Connection& connection = connections.at(id);
    const Pipe& read = descriptor == connection.up.from ? connection.up : connection.down;
    // Reading tells of a reset behind the last byte; a side that is not read would never tell.
    const bool lost = events & EPOLLERR && !(connection.connected && WantsToRead(read));
    if (lost || !FinishConnecting(connection, descriptor)) return End(id, true);
    if (connection.connected && !(Move(connection.up) && Move(connection.down))) return End(id, true);
    if (connection.up.shut && connection.down.shut) return End(id, false);
    WatchBoth(id, connection);
}

// The board's side of a new connection, or -1: nobody is at home.
static int ConnectToBoard(uint16_t port) {
    const int board = SandboxInit() ? BoardSocket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0) : -1;
    if (board < 0) return -1;
    SwitchOn(board, IPPROTO_TCP, TCP_NODELAY);
    const sockaddr_in address = Loopback(port);
    const int result = connect(board, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (result == 0 || errno == EINPROGRESS) return board;
    close(board);
    return -1;
}

static void Join(int client, uint16_t boardPort) {
    SwitchOn(client, IPPROTO_TCP, TCP_NODELAY);
    const int board = ConnectToBoard(boardPort);
    if (board < 0) return Close(client, true);
    const uint64_t id = ++lastConnection;
    auto& connection = connections[id] = {
        .connected = false, .up = {.from = client, .to = board}, .down = {.from = board, .to = client}};
    WatchBoth(id, connection);
}

// Ports

static void Listen(Port& port);

// When descriptors run short, the next clients wait in the port's queue.
static void TakeClient(Port& port) {
    const bool full = connections.size() >= kConnections;
    const int client = full ? -1 : accept4(port.listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (client >= 0) return Join(client, port.boardPort);
    if (!full && (MustWait() || errno == ECONNABORTED)) return;
    ForgetDescriptor(port.listening);
    CallAt(NowMicroseconds() + kPause, [&port] { Listen(port); });
}

static void Listen(Port& port) {
    if (port.listening >= 0) WatchDescriptor(port.listening, [&port](uint32_t) { TakeClient(port); });
}

static bool Open(Port& port) {
    port.listening = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    SwitchOn(port.listening, SOL_SOCKET, SO_REUSEADDR);
    sockaddr_in address = Loopback(uint16_t(Board.*port.wanted));
    socklen_t size = sizeof address;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    if (bind(port.listening, plain, size) < 0 || listen(port.listening, SOMAXCONN) < 0 ||
        getsockname(port.listening, plain, &size) < 0) {
        fprintf(stderr, "Board: cannot open port %d of 127.0.0.1 for %s: %s\n", Board.*port.wanted, port.name,
                strerror(errno));
        return false;
    }
    port.number = ntohs(address.sin_port);
    fprintf(stderr, "%s%d%s\n", port.before, port.number, port.behind);
    Listen(port);
    return true;
}

bool OpenPorts() {
    for (Port& port : ports)
        if (!Open(port)) return false;
    return true;
}

void ClosePorts() {
    for (Port& port : ports) {
        if (port.listening < 0) continue;
        ForgetDescriptor(port.listening);
        close(port.listening);
        port.listening = -1;
    }
}

void ResetConnections() {
    while (!connections.empty()) End(connections.begin()->first, true);
}

Json PortStatus() {
    Json status;
    for (const Port& port : ports) status[port.name] = port.number;
    if (Board.pagePort > 0) status["page"] = Board.pagePort;
    return status;
}
