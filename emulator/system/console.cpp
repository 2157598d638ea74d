#include "system/console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <string>
#include <string_view>

#include "bench/record.h"
#include "kernel/supervisor.h"
#include "system/board.h"

// An outlet of the daemon and where it leads.
struct Outlet {
    int from;  // our end of the daemon's pipe; -1: no daemon
    const int to;
    bool closed = false;  // whoever read it has gone
};

static constexpr size_t kHistoryBytes = 256 * 1024;
static constexpr size_t kFollowedBytes = 8 * 1024;  // of the history, that a follower starts with
static constexpr size_t kPendingBytes = 64 * 1024;
static constexpr int64_t kAnswerTime = 1'000'000;  // microseconds
// A pipe that polls writable takes at least so much without blocking.
static constexpr size_t kChunk = 4096;

static std::array outlets{Outlet{-1, STDOUT_FILENO}, Outlet{-1, STDERR_FILENO}};
static std::string history;
static uint64_t historyTotal = 0;  // bytes ever; the history is the newest of them

static int toDaemon = -1;
static std::string pending;  // typed, not yet taken by the daemon
static bool inputWatched = false, inputEnded = false;

// Output

static bool Writable(int descriptor) {
    pollfd out{.fd = descriptor, .events = POLLOUT, .revents = 0};
    return poll(&out, 1, 0) > 0;
}

static void Remember(std::string_view text) {
    PassToFollowers(Feed::kConsole, text);
    history += text;
    historyTotal += text.size();
    if (history.size() > 2 * kHistoryBytes) history.erase(0, history.size() - kHistoryBytes);
}

static void WriteAll(Outlet& outlet, std::string_view text) {
    while (!text.empty() && !outlet.closed) {
        ssize_t size = write(outlet.to, text.data(), text.size());
        if (size > 0) text.remove_prefix(size_t(size));
        if (size < 0 && errno == EAGAIN) {
            pollfd out{.fd = outlet.to, .events = POLLOUT, .revents = 0};
            poll(&out, 1, -1);
        } else if (size < 0 && errno != EINTR) {
            outlet.closed = true;
        }
    }
}

// False when there is nothing more for now.
static bool PassOutput(Outlet& outlet) {
    std::array<char, kChunk> chunk;
    ssize_t size = read(outlet.from, chunk.data(), chunk.size());
    if (size <= 0) return size < 0 && errno == EINTR;
    Remember({chunk.data(), size_t(size)});
    WriteAll(outlet, {chunk.data(), size_t(size)});
    return true;
}

static void WatchOutlet(Outlet& outlet);

static void AwaitReader(Outlet& outlet) {
    ForgetDescriptor(outlet.from);
    WatchDescriptor(
        outlet.to,
        [&outlet](uint32_t) {
            ForgetDescriptor(outlet.to);
            if (outlet.from >= 0) WatchOutlet(outlet);
        },
        EPOLLOUT);
}

static void WatchOutlet(Outlet& outlet) {
    WatchDescriptor(outlet.from, [&outlet](uint32_t) {
        if (!outlet.closed && !Writable(outlet.to)) return AwaitReader(outlet);
        // Nothing to read and yet awake: the daemon has closed its end.
        if (!PassOutput(outlet) && errno != EAGAIN) ForgetDescriptor(outlet.from);
    });
}

static void CloseOutlet(Outlet& outlet) {
    if (outlet.from < 0) return;
    while (PassOutput(outlet)) continue;
    ForgetDescriptor(outlet.from);
    ForgetDescriptor(outlet.to);
    close(outlet.from);
    outlet.from = -1;
}

// Input

static void TakeInput();

static void PassInput() {
    while (toDaemon >= 0 && !pending.empty()) {
        ssize_t size = write(toDaemon, pending.data(), pending.size());
        if (size < 0 && errno == EINTR) continue;
        if (size < 0 && errno == EAGAIN) {
            WatchDescriptor(
                toDaemon, [](uint32_t) { PassInput(); }, EPOLLOUT);
            return;
        }
        if (size < 0) break;  // the daemon reads no more
        pending.erase(0, size_t(size));
    }
    ForgetDescriptor(toDaemon);
    if (inputEnded && !Board.restart && toDaemon >= 0) {
        close(toDaemon);
        toDaemon = -1;
    }
    if (!inputWatched && !inputEnded && pending.size() < kPendingBytes) TakeInput();
}

static bool ReadInput() {
    std::array<char, kChunk> chunk;
    ssize_t size = read(STDIN_FILENO, chunk.data(), chunk.size());
    if (size > 0) {
        pending.append(chunk.data(), size_t(size));
        RecordTyped({chunk.data(), size_t(size)});
    }
    if (size == 0 || (size < 0 && errno != EINTR && errno != EAGAIN)) inputEnded = true;
    return size > 0;
}

static void StopWatchingInput() {
    ForgetDescriptor(STDIN_FILENO);
    inputWatched = false;
}

static void TakeInput() {
    inputWatched = WatchDescriptor(STDIN_FILENO, [](uint32_t) {
        ReadInput();
        if (inputEnded || pending.size() >= kPendingBytes) StopWatchingInput();
        PassInput();
    });
    if (inputWatched) return;
    // A plain file cannot be waited for, and need not be; the rest of it is read when the daemon has taken this.
    while (pending.size() < kPendingBytes && ReadInput()) continue;
    PassInput();
}

// The pipes

struct PipeEnds {
    int read, write;
};

static PipeEnds MakePipe() {
    int ends[2]{-1, -1};
    if (pipe2(ends, O_CLOEXEC) < 0) perror("Board: pipe");
    return {ends[0], ends[1]};
}

static void NeverBlock(int descriptor) { fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK); }

DaemonStreams OpenConsole() {
    signal(SIGTTIN, SIG_IGN);  // in the background of a shell, reading shall fail, not stop the board
    PipeEnds in = MakePipe(), out = MakePipe(), error = MakePipe();
    toDaemon = in.write;
    NeverBlock(toDaemon);
    outlets[0].from = out.read;
    outlets[1].from = error.read;
    for (Outlet& outlet : outlets) {
        NeverBlock(outlet.from);
        WatchOutlet(outlet);
    }
    PassInput();
    return {.in = in.read, .out = out.write, .error = error.write};
}

void CloseConsoleEnds(const DaemonStreams& streams) {
    close(streams.in);
    close(streams.out);
    close(streams.error);
}

void CloseConsole() {
    for (Outlet& outlet : outlets) CloseOutlet(outlet);
    if (toDaemon < 0) return;
    ForgetDescriptor(toDaemon);
    close(toDaemon);
    toDaemon = -1;
}

static std::string HistorySince(uint64_t mark) {
    uint64_t size = historyTotal - mark;
    return size >= history.size() ? history : history.substr(history.size() - size);
}

VerbAnswer ConsoleVerb(const VerbWords& words) {
    if (words.empty()) return {.text = HistorySince(historyTotal - std::min<uint64_t>(historyTotal, kHistoryBytes))};
    if (words[0] == "--follow") {
        const uint64_t shown = std::min<uint64_t>(historyTotal, kFollowedBytes);
        return {.text = HistorySince(historyTotal - shown), .follow = Feed::kConsole};
    }
    for (const std::string& word : words) pending += (&word == &words.front() ? "" : " ") + word;
    pending += '\n';
    uint64_t id = LaterAnswer(), mark = historyTotal;
    PassInput();
    CallAt(NowMicroseconds() + kAnswerTime, [id, mark] { AnswerLater(id, {.text = HistorySince(mark)}); });
    return {.later = id};
}
