#include "bench/telnet_line.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <map>
#include <string>

#include "kernel/sandbox.h"
#include "kernel/supervisor.h"

static constexpr uint16_t kPort = 50000;
static constexpr int64_t kAnswerTime = 1'000'000;  // microseconds
static constexpr size_t kAnswerLimit = 256 * 1024;

struct Call {
    std::string text;  // still to be sent
    std::string heard = {};
};
static std::map<int, Call> calls;  // by socket

static void Converse(int socket, uint32_t events) {
    Call& call = calls.at(socket);
    if (events & EPOLLOUT && !call.text.empty()) {
        // One text is one read of the server: it fits into the empty buffer of a fresh connection.
        send(socket, call.text.data(), call.text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        call.text.clear();
        WatchDescriptor(socket, [socket](uint32_t now) { Converse(socket, now); });
    }
    std::array<char, 4096> chunk;
    const ssize_t size = recv(socket, chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (size > 0) call.heard.append(chunk.data(), size_t(size));
    const bool over = size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR);
    if (over || call.heard.size() > kAnswerLimit) ForgetDescriptor(socket);
}

static void HangUp(int socket, uint64_t answer) {
    ForgetDescriptor(socket);
    close(socket);
    const auto call = calls.extract(socket);
    AnswerLater(answer, call.mapped().text.empty() ? VerbAnswer{.text = call.mapped().heard}
                                                   : Bad("telnet: the board does not answer"));
}

VerbAnswer TelnetVerb(const VerbWords& words) {
    if (words.size() != 1 || words[0].empty()) return Usage("telnet");
    const int board = SandboxInit() ? BoardSocket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0) : -1;
    if (board < 0) return Bad("telnet: the board is off");
    const sockaddr_in address{.sin_family = AF_INET,
                              .sin_port = htons(kPort),
                              .sin_addr = {.s_addr = htonl(INADDR_LOOPBACK)},
                              .sin_zero = {}};
    if (connect(board, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0 && errno != EINPROGRESS) {
        close(board);
        return Bad("telnet: the board's port is closed");
    }
    calls[board] = {.text = words[0]};
    WatchDescriptor(
        board, [board](uint32_t events) { Converse(board, events); }, EPOLLIN | EPOLLOUT);
    const uint64_t id = LaterAnswer();
    CallAt(NowMicroseconds() + kAnswerTime, [board, id] { HangUp(board, id); });
    return {.later = id};
}
