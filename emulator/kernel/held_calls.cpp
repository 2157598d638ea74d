#include "kernel/held_calls.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kernel/nodes.h"

struct PollEntry {
    pollfd wanted;
    ino_t inode = 0;  // of an emulated file, or
    int real = -1;    // our copy of any other descriptor
};

struct HeldCall {
    TrappedCall call;
    int64_t since;
    ino_t inode = 0;                      // of an ioctl
    std::vector<PollEntry> entries = {};  // of a poll
    TimerId deadline = 0;
};

using HeldIterator = std::list<HeldCall>::iterator;

static constexpr int64_t kSweepMicroseconds = 25'000;
static constexpr uint64_t kPollLimit = 4096;
static constexpr unsigned kAlwaysReady = POLLIN | POLLOUT | POLLRDNORM | POLLWRNORM;
static constexpr unsigned kAlwaysReported = POLLERR | POLLHUP | POLLNVAL;

static std::list<HeldCall> held;
static std::set<ino_t> woken;
static TimerId sweep = 0;

size_t HeldCallCount() { return held.size(); }

// Waking

void Wake(const OpenFile& file) {
    if (!held.empty()) woken.insert(InodeOf(file));
}

static bool IsOf(ino_t inode, const DeviceModel& model, int unit) {
    const OpenFile* file = FileOfInode(inode);
    return file && file->model == &model && file->unit == unit;
}

void WakeModel(const DeviceModel& model, int unit) {
    for (const HeldCall& call : held) {
        if (IsOf(call.inode, model, unit)) woken.insert(call.inode);
        for (const PollEntry& entry : call.entries)
            if (IsOf(entry.inode, model, unit)) woken.insert(entry.inode);
    }
}

// Ioctl

static int64_t AskModel(const TrappedCall& call, OpenFile& file) {
    if (!file.model->ioctl) return -ENOTTY;
    return file.model->ioctl({.file = file,
                              .memory = call.Memory(),
                              .request = uint32_t(call.arguments[1]),
                              .argument = call.arguments[2],
                              .nonBlocking = {call.thread, int(call.arguments[0])}});
}

static void StartSweep();

void CarryOutIoctl(const TrappedCall& call, OpenFile& file) {
    int64_t result = AskModel(call, file);
    if (result != kHold) return Answer(call, result);
    held.push_back({.call = call, .since = NowMicroseconds(), .inode = InodeOf(file)});
    StartSweep();
}

static bool RetryIoctl(const HeldCall& waiting) {
    OpenFile* file = FileOfInode(waiting.inode);
    int64_t result = file ? AskModel(waiting.call, *file) : -EBADF;
    if (result == kHold) return false;
    Answer(waiting.call, result);
    return true;
}

// Poll

static short ReadyNow(const PollEntry& entry) {
    const unsigned wanted = unsigned(entry.wanted.events) | kAlwaysReported;
    if (entry.wanted.fd < 0) return 0;
    if (entry.inode == 0) {
        pollfd real{.fd = entry.real, .events = entry.wanted.events, .revents = 0};
        if (entry.real < 0) return POLLNVAL;
        return poll(&real, 1, 0) > 0 ? real.revents : short{0};
    }
    const OpenFile* file = FileOfInode(entry.inode);
    if (!file) return POLLNVAL;
    return short((file->model->ready ? file->model->ready(*file) : kAlwaysReady) & wanted);
}

static int CountReady(std::vector<PollEntry>& entries) {
    int count = 0;
    for (PollEntry& entry : entries) {
        entry.wanted.revents = ReadyNow(entry);
        count += entry.wanted.revents != 0;
    }
    return count;
}

static void AnswerPoll(const TrappedCall& call, const std::vector<PollEntry>& entries, int count) {
    std::vector<pollfd> set;
    for (const PollEntry& entry : entries) set.push_back(entry.wanted);
    bool written = call.Memory().Write(call.arguments[0], set.data(), set.size() * sizeof(pollfd));
    Answer(call, written ? count : -EFAULT);
}

static void ReleaseCopies(const std::vector<PollEntry>& entries) {
    for (const PollEntry& entry : entries) {
        if (entry.real < 0) continue;
        ForgetDescriptor(entry.real);
        close(entry.real);
    }
}

static bool RetryPoll(HeldCall& waiting, bool expired) {
    int count = CountReady(waiting.entries);
    if (count == 0 && !expired) return false;
    AnswerPoll(waiting.call, waiting.entries, count);
    return true;
}

static void Release(HeldIterator waiting) {
    CancelCall(waiting->deadline);
    ReleaseCopies(waiting->entries);
    held.erase(waiting);
}

// The set, if an emulated file is in it.
static std::vector<PollEntry> EmulatedSet(const TrappedCall& call) {
    std::vector<pollfd> set(call.arguments[1]);
    if (!call.Memory().Read(call.arguments[0], set.data(), set.size() * sizeof(pollfd))) return {};
    std::vector<PollEntry> entries;
    bool emulated = false;
    for (const pollfd& wanted : set) {
        const OpenFile* file = wanted.fd >= 0 ? FileOf(call.thread, wanted.fd) : nullptr;
        entries.push_back({.wanted = wanted, .inode = file ? InodeOf(*file) : 0});
        emulated |= file != nullptr;
    }
    return emulated ? entries : std::vector<PollEntry>{};
}

static void CopyOthers(pid_t thread, std::vector<PollEntry>& entries) {
    int process = -1;
    for (PollEntry& entry : entries) {
        if (entry.inode != 0 || entry.wanted.fd < 0) continue;
        if (process < 0) process = OpenProcess(thread);
        entry.real = int(syscall(SYS_pidfd_getfd, process, entry.wanted.fd, 0));
    }
    if (process >= 0) close(process);
}

// Microseconds, or nothing for a poll without end.
static std::optional<int64_t> PollTimeout(const TrappedCall& call) {
    if (call.number == __NR_poll) {
        int milliseconds = int(call.arguments[2]);
        return milliseconds < 0 ? std::nullopt : std::optional(int64_t{milliseconds} * 1000);
    }
    timespec timeout;
    if (call.arguments[2] == 0 || !call.Memory().Read(call.arguments[2], timeout)) return std::nullopt;
    return timeout.tv_sec * 1'000'000 + (timeout.tv_nsec + 999) / 1000;
}

static void HoldPoll(const TrappedCall& call, std::vector<PollEntry> entries, std::optional<int64_t> timeout) {
    int64_t now = NowMicroseconds();
    HeldIterator waiting = held.insert(held.end(), {.call = call, .since = now, .entries = std::move(entries)});
    auto retry = [waiting] {
        if (RetryPoll(*waiting, false)) Release(waiting);
    };
    for (const PollEntry& entry : waiting->entries)
        if (entry.real >= 0)
            WatchDescriptor(
                entry.real, [retry](uint32_t) { retry(); }, uint32_t(uint16_t(entry.wanted.events)));
    if (timeout) {
        waiting->deadline = CallAt(now + *timeout, [waiting] {
            RetryPoll(*waiting, true);
            Release(waiting);
        });
    }
    StartSweep();
}

void CarryOutPoll(const TrappedCall& call) {
    if (call.arguments[1] > kPollLimit) return PassOn(call);
    std::vector<PollEntry> entries = EmulatedSet(call);
    if (entries.empty()) return PassOn(call);
    CopyOthers(call.thread, entries);
    int count = CountReady(entries);
    std::optional<int64_t> timeout = PollTimeout(call);
    if (count == 0 && timeout != 0) return HoldPoll(call, std::move(entries), timeout);
    AnswerPoll(call, entries, count);
    ReleaseCopies(entries);
}

void RetryWoken() {
    while (!woken.empty()) {
        std::set<ino_t> now = std::exchange(woken, {});
        for (HeldIterator waiting = held.begin(); waiting != held.end();) {
            HeldIterator next = std::next(waiting);
            bool concerned = now.contains(waiting->inode) || std::ranges::any_of(waiting->entries, [&](auto& entry) {
                                 return now.contains(entry.inode);
                             });
            if (concerned && (waiting->entries.empty() ? RetryIoctl(*waiting) : RetryPoll(*waiting, false)))
                Release(waiting);
            waiting = next;
        }
    }
}

// The sweep

struct ThreadSignals {
    pid_t group = 0;
    uint64_t own = 0, shared = 0, blocked = 0;
};

static ThreadSignals SignalsOf(pid_t thread) {
    ThreadSignals signals;
    std::ifstream status("/proc/" + std::to_string(thread) + "/status");
    for (std::string line; std::getline(status, line);) {
        const char* value = line.c_str() + std::min<size_t>(line.size(), 7);
        if (line.starts_with("Tgid:")) signals.group = atoi(line.c_str() + 5);
        if (line.starts_with("SigPnd:")) signals.own = strtoull(value, nullptr, 16);
        if (line.starts_with("ShdPnd:")) signals.shared = strtoull(value, nullptr, 16);
        if (line.starts_with("SigBlk:")) signals.blocked = strtoull(value, nullptr, 16);
    }
    return signals;
}

// A signal to a whole process goes to its first thread unless that one blocks it. Only the thread it goes to may be let
// go: any other one would see the kernel's inner error numbers.
static bool SignalWaitsFor(pid_t thread) {
    ThreadSignals signals = SignalsOf(thread);
    if (signals.own & ~signals.blocked) return true;
    uint64_t shared = signals.shared & ~signals.blocked;
    if (shared != 0 && signals.group != thread) shared &= SignalsOf(signals.group).blocked;
    return shared != 0;
}

static bool MustGo(const HeldCall& waiting) {
    if (!StillWaiting(waiting.call)) return true;
    if (!SignalWaitsFor(waiting.call.thread)) return false;
    Answer(waiting.call, waiting.entries.empty() ? kRestartAfterSignal : kRestartWithoutHandler);
    return true;
}

static void Sweep() {
    sweep = 0;
    int64_t now = NowMicroseconds();
    for (HeldIterator waiting = held.begin(); waiting != held.end();) {
        HeldIterator next = std::next(waiting);
        if (now - waiting->since >= kSweepMicroseconds && MustGo(*waiting)) Release(waiting);
        waiting = next;
    }
    StartSweep();
}

static void StartSweep() {
    if (sweep == 0 && !held.empty()) sweep = CallAt(NowMicroseconds() + kSweepMicroseconds, Sweep);
}

void DropHeldCalls(int listener) {
    for (HeldIterator waiting = held.begin(); waiting != held.end();) {
        HeldIterator next = std::next(waiting);
        if (waiting->call.listener == listener) Release(waiting);
        waiting = next;
    }
}

void DropHeldCalls() {
    while (!held.empty()) Release(held.begin());
    woken.clear();
}
