#include "kernel/event_loop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>

#include "kernel/supervisor.h"

using EventWork = std::function<void(uint32_t)>;

// Shared, because the work of an event may replace or forget its own watch.
static std::unordered_map<int, std::shared_ptr<EventWork>> watches;
static std::map<std::pair<int64_t, TimerId>, std::function<void()>> timers;
static std::unordered_map<TimerId, int64_t> timerDue;
static TimerId lastTimer = 0;
static std::function<void()> afterEach = [] {};
static std::optional<int> endStatus;

static int Epoll() {
    static const int epoll = epoll_create1(EPOLL_CLOEXEC);
    return epoll;
}

int64_t NowMicroseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

TimerId CallAt(int64_t microseconds, std::function<void()> work) {
    TimerId id = ++lastTimer;
    timers.emplace(std::pair{microseconds, id}, std::move(work));
    timerDue.emplace(id, microseconds);
    return id;
}

void CancelCall(TimerId id) {
    auto due = timerDue.find(id);
    if (due == timerDue.end()) return;
    timers.erase({due->second, id});
    timerDue.erase(due);
}

bool WatchDescriptor(int descriptor, EventWork work, uint32_t events) {
    epoll_event event{.events = events, .data = {.fd = descriptor}};
    int operation = watches.contains(descriptor) ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (epoll_ctl(Epoll(), operation, descriptor, &event) < 0) return false;
    watches[descriptor] = std::make_shared<EventWork>(std::move(work));
    return true;
}

void ForgetDescriptor(int descriptor) {
    if (watches.erase(descriptor) > 0) epoll_ctl(Epoll(), EPOLL_CTL_DEL, descriptor, nullptr);
}

void AfterEachEvent(std::function<void()> work) { afterEach = std::move(work); }

void EndEvents(int status) {
    if (!endStatus) endStatus = status;
}

// Those due at `time`, microseconds on the monotonic clock. What came due later waits for the next look at the descriptors:
// after slow work it would overtake what was there before it.
static void RunTimersDue(int64_t time) {
    while (!timers.empty() && timers.begin()->first.first <= time && !endStatus) {
        auto timer = timers.extract(timers.begin());
        timerDue.erase(timer.key().second);
        timer.mapped()();
        afterEach();
    }
}

static int WaitForEvents(epoll_event* events, int limit) {
    if (timers.empty()) return epoll_wait(Epoll(), events, limit, -1);
    int64_t wait = std::max<int64_t>(0, timers.begin()->first.first - NowMicroseconds());
    timespec timeout{.tv_sec = wait / 1'000'000, .tv_nsec = wait % 1'000'000 * 1000};
    return epoll_pwait2(Epoll(), events, limit, &timeout, nullptr);
}

int RunEvents() {
    std::array<epoll_event, 16> events;
    while (!endStatus) {
        int count = WaitForEvents(events.data(), events.size());
        const int64_t looked = NowMicroseconds();
        for (int i = 0; i < count && !endStatus; ++i) {
            // An earlier event of this batch may have ended this watch.
            auto watch = watches.find(events[size_t(i)].data.fd);
            if (watch == watches.end()) continue;
            std::shared_ptr<EventWork> work = watch->second;
            (*work)(events[size_t(i)].events);
            afterEach();
        }
        RunTimersDue(looked);
    }
    return *std::exchange(endStatus, std::nullopt);
}
