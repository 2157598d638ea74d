// How long an operator waits for an answer on telnet while the picture runs, beside two yardsticks of the same run: a
// plain echo server on the same loopback, and the bare search of the text for every pattern of the command table.
//
// The measuring process enters the board's network, so that the emulator's forwarding of ports is not measured.
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <regex.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "board_run.h"
#include "commands/command_tables.h"
#include "figures.h"

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

static constexpr uint16_t kTelnet = 50000, kEcho = 50001;
static constexpr size_t kCrowd = 30;
static constexpr auto kCrowdTime = std::chrono::seconds(3);
static constexpr std::string_view kEnd = "ACK\r\n";

struct Question {
    const char* title;
    uint16_t port;  // 0: no server, the search of the patterns alone
    int rounds;
    std::array<std::string, 2> texts;  // asked in turn
};

// The echo answers each text with itself, so it asks with what a command's answer ends in.
static const std::array kQuestions{
    Question{.title = "echo server", .port = kEcho, .rounds = 2000, .texts = {"ACK\r\n", "ACK\r\n"}},
    Question{.title = "search of all patterns", .port = 0, .rounds = 2000, .texts = {"$POLL$", "$POLL$"}},
    Question{.title = "$POLL$", .port = kTelnet, .rounds = 2000, .texts = {"$POLL$", "$POLL$"}},
    Question{.title = "$AIN1_5$", .port = kTelnet, .rounds = 2000, .texts = {"$AIN1_5$", "$AIN1_6$"}},
    Question{.title = "$SS$, $PPTR2$", .port = kTelnet, .rounds = 200, .texts = {"$SS$", "$PPTR2$"}},
    Question{.title = "$GET$", .port = kTelnet, .rounds = 40, .texts = {"$GET$", "$GET$"}},
};

[[noreturn]] static void GiveUp(const char* what) {
    perror(what);
    _exit(1);
}

// Sockets

static sockaddr_in Loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

static void SendAtOnce(int socket) {
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

static int Connect(uint16_t port) {
    const int made = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = Loopback(port);
    if (connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) GiveUp("connect");
    SendAtOnce(made);
    return made;
}

[[noreturn]] static void ServeEcho(int listening) {
    std::vector<pollfd> sockets{{.fd = listening, .events = POLLIN, .revents = 0}};
    std::array<char, 4096> text;
    while (poll(sockets.data(), sockets.size(), -1) > 0) {
        for (size_t i = sockets.size(); i-- > 1;) {
            if (!sockets[i].revents) continue;
            const ssize_t size = recv(sockets[i].fd, text.data(), text.size(), 0);
            if (size > 0 && send(sockets[i].fd, text.data(), size_t(size), MSG_NOSIGNAL) == size) continue;
            close(sockets[i].fd);
            sockets.erase(sockets.begin() + ptrdiff_t(i));
        }
        if (!sockets[0].revents) continue;
        sockets.push_back({.fd = accept(listening, nullptr, nullptr), .events = POLLIN, .revents = 0});
        SendAtOnce(sockets.back().fd);
    }
    _exit(0);
}

static void StartEcho() {
    const int listening = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = Loopback(kEcho);
    if (bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) GiveUp("bind");
    listen(listening, int(kCrowd));
    if (fork() == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        ServeEcho(listening);
    }
    close(listening);
}

// True when the answer is complete.
static bool TakeAnswer(int socket, std::string& answer) {
    std::array<char, 65536> piece;
    const ssize_t size = recv(socket, piece.data(), piece.size(), 0);
    if (size <= 0) GiveUp("recv");
    answer.append(piece.data(), size_t(size));
    return answer.ends_with(kEnd);
}

static void Ask(int socket, const std::string& text) {
    if (send(socket, text.data(), text.size(), MSG_NOSIGNAL) < 0) GiveUp("send");
}

// One after the other

static void SearchPatterns(const std::string& text) {
    for (const CommandEntry& entry : NetworkCommandTable) {
        regex_t pattern;
        if (regcomp(&pattern, entry.pattern, REG_EXTENDED) != 0) continue;
        std::array<regmatch_t, 2> matches;
        regexec(&pattern, text.c_str(), matches.size(), matches.data(), 0);
        regfree(&pattern);
    }
}

static double Measure(int socket, const std::string& text) {
    const auto start = Clock::now();
    if (socket < 0) {
        SearchPatterns(text);
    } else {
        Ask(socket, text);
        std::string answer;
        while (!TakeAnswer(socket, answer)) continue;
    }
    return Microseconds(Clock::now() - start).count();
}

// In turn, so that each of them meets the same moments of a busy machine.
static void MeasureLatency() {
    std::array<std::vector<double>, kQuestions.size()> times;
    const int telnet = Connect(kTelnet), echo = Connect(kEcho);
    const int most = std::ranges::max(kQuestions, {}, &Question::rounds).rounds;
    for (int round = 0; round < most; ++round) {
        for (size_t i = 0; i < kQuestions.size(); ++i) {
            const Question& question = kQuestions[i];
            const int every = most / question.rounds;
            if (round % every != 0) continue;
            const int socket = question.port == 0 ? -1 : question.port == kEcho ? echo : telnet;
            times[i].push_back(Measure(socket, question.texts[size_t(round / every) % 2]));
        }
    }
    close(telnet);
    close(echo);
    const double yardstick = Median(times[0]);
    for (size_t i = 0; i < kQuestions.size(); ++i)
        ReportRow("command latency", kQuestions[i].title,
                  {{"rounds", double(times[i].size())},
                   {"median µs", Median(times[i])},
                   {"p99 µs", Quantile(times[i], 0.99)},
                   {"median/echo", Median(times[i]) / yardstick}});
}

// Thirty at once, each asking again when it is answered: answers a second

static double MeasureCrowd(uint16_t port, const std::string& text) {
    std::vector<pollfd> clients;
    std::vector<std::string> answers(kCrowd);
    for (size_t i = 0; i < kCrowd; ++i) clients.push_back({.fd = Connect(port), .events = POLLIN, .revents = 0});
    for (const pollfd& client : clients) Ask(client.fd, text);
    size_t count = 0;
    const auto start = Clock::now();
    while (Clock::now() - start < kCrowdTime && poll(clients.data(), clients.size(), 5000) > 0) {
        for (size_t i = 0; i < kCrowd; ++i) {
            if (!clients[i].revents || !TakeAnswer(clients[i].fd, answers[i])) continue;
            answers[i].clear();
            ++count;
            Ask(clients[i].fd, text);
        }
    }
    const double seconds = Microseconds(Clock::now() - start).count() / 1e6;
    for (const pollfd& client : clients) close(client.fd);
    return double(count) / seconds;
}

static void MeasureCrowds() {
    constexpr auto kSettle = std::chrono::milliseconds(500);  // the last clients' slots are free again
    const auto settle = [&] { usleep(useconds_t(std::chrono::microseconds(kSettle).count())); };
    settle();
    const double echo = MeasureCrowd(kEcho, std::string(kEnd));
    const double commands = MeasureCrowd(kTelnet, "$POLL$");
    settle();
    ReportRow("thirty clients", "echo server", {{"answers/s", echo}, {"of the echo server's", 1}});
    ReportRow("thirty clients", "$POLL$", {{"answers/s", commands}, {"of the echo server's", commands / echo}});
}

// The board

static void EnterNetwork(int process) {
    for (const char* kind : {"user", "net"}) {
        const std::string name = "/proc/" + std::to_string(process) + "/ns/" + kind;
        const int space = open(name.c_str(), O_RDONLY | O_CLOEXEC);
        if (setns(space, 0) < 0) GiveUp(name.c_str());
        close(space);
    }
}

// In a process of its own: this one has threads, which may not change their user namespace.
static int MeasureOn(const Board& board) {
    const int daemon = Status(board)["daemon"]["pid"];
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        EnterNetwork(daemon);
        StartEcho();
        MeasureLatency();
        MeasureCrowds();
        fflush(stdout);
        _exit(0);
    }
    int status = 1;
    waitpid(child, &status, 0);
    return status == 0 ? 0 : 1;
}

int main() {
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg", "--camera2", "hd-mjpeg"});
    if (!WaitForPicture(board)) {
        fprintf(stderr, "no picture:\n%s", Output(board).c_str());
        return 1;
    }
    printf("%zu patterns, a running picture of two cameras\n\n", NetworkCommandTable.size());
    return MeasureOn(board);
}
