// Part of the daemon in a coverage build only. The daemon ends by _exit, or with its board by a signal that nobody can
// catch: neither saves what was counted, so a thread does it all the time, and _exit does it first.
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

extern "C" {
#include <gcov.h>
[[noreturn]] void __real__exit(int status);
[[noreturn]] void __wrap__exit(int status);
}

static constexpr int kPeriodMicroseconds = 1'000'000;

// A copy of the process saves: in it nobody counts any more. Counts of one function are derived from each other, so a
// count that came between saving and clearing, and was lost, would show as another line's. Nothing is cleared: a later
// copy adds the same counts once more, which makes them large and not wrong.
static void SaveCounts() {
    const pid_t copy = fork();
    if (copy == 0) {
        __gcov_dump();  // adds to the files, under a lock: boards side by side share them
        __real__exit(0);
    }
    if (copy > 0) waitpid(copy, nullptr, 0);
}

[[gnu::constructor]] static void SaveCountsAllTheTime() {
    std::thread([] {
        for (;;) {
            usleep(kPeriodMicroseconds);
            SaveCounts();
        }
    }).detach();
}

void __wrap__exit(int status) {
    SaveCounts();
    __real__exit(status);
}
