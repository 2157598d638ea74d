#include "tcp_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <utility>

using Clock = std::chrono::steady_clock;

static int PortOf(const Board& board, const char* service) { return Status(board)["ports"].value(service, 0); }

int TelnetPort(const Board& board) { return PortOf(board, "telnet"); }

int HttpPort(const Board& board) { return PortOf(board, "http"); }

TcpClient::TcpClient(int port) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return;
    close(socket);
    socket = -1;
}

TcpClient::TcpClient(TcpClient&& other) noexcept : socket(std::exchange(other.socket, -1)) {}

TcpClient::~TcpClient() {
    if (socket >= 0) close(socket);
}

bool Send(const TcpClient& client, std::string_view text) {
    return send(client.socket, text.data(), text.size(), MSG_NOSIGNAL) == ssize_t(text.size());
}

// One piece: true when there was one; `closed` when the server has closed.
static bool ReceivePiece(const TcpClient& client, Clock::time_point deadline, std::string& text, bool& closed) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd ready{.fd = client.socket, .events = POLLIN, .revents = 0};
    if (left <= 0 || poll(&ready, 1, int(left)) <= 0) return false;
    std::array<char, 65536> buffer;
    const ssize_t count = recv(client.socket, buffer.data(), buffer.size(), 0);
    closed = count <= 0;
    if (!closed) text.append(buffer.data(), size_t(count));
    return !closed;
}

// True when the server has closed the connection; else the text is there, or the time is over.
static bool ReceiveTo(const TcpClient& client, std::optional<std::string_view> until, double seconds,
                      std::string& text) {
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(seconds * Patience()));
    bool closed = false;
    while ((!until || text.find(*until) == text.npos) && ReceivePiece(client, deadline, text, closed)) {
    }
    return closed;
}

std::string Receive(const TcpClient& client, std::string_view until, double seconds) {
    std::string text;
    ReceiveTo(client, until, seconds, text);
    return text;
}

std::string ReceiveAll(const TcpClient& client, double seconds) {
    std::string text;
    ReceiveTo(client, {}, seconds, text);
    return text;
}

bool IsClosed(const TcpClient& client, double seconds) {
    std::string ignored;
    return ReceiveTo(client, {}, seconds, ignored);
}

void CloseSending(const TcpClient& client) { shutdown(client.socket, SHUT_WR); }

void Reset(TcpClient& client) {
    const linger abort{.l_onoff = 1, .l_linger = 0};
    setsockopt(client.socket, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    close(std::exchange(client.socket, -1));
}

std::string Ask(const TcpClient& client, std::string_view text, std::string_view until) {
    Send(client, text);
    return Receive(client, until, 20);
}

std::string Telnet(const Board& board, std::string_view text, std::string_view until, double seconds) {
    const TcpClient client(TelnetPort(board));
    Send(client, text);
    return Receive(client, until, seconds);
}

std::string Http(const Board& board, std::string_view path, double seconds) {
    const TcpClient client(HttpPort(board));
    Send(client, "GET " + std::string(path) + " HTTP/1.1\r\nHost: tesselvisor\r\n\r\n");
    return ReceiveAll(client, seconds);
}
