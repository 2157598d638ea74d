#include "devices/watchdog.h"

#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "bench/trace.h"
#include "kernel/supervisor.h"
#include "system/board.h"

static constexpr unsigned kMajor = 10, kMinor = 130;
static constexpr int kDefaultSeconds = 60, kMostSeconds = 128;  // the hardware counts half seconds in 8 bits
static constexpr int64_t kSecond = 1'000'000;

static int timeout = kDefaultSeconds;
static int64_t deadline;        // microseconds; means something while armed
static int64_t patted;          // microseconds; means something while armed
static int64_t longestGap;      // microseconds, until the newest pat
static TimerId starved;         // 0: disarmed
static const OpenFile* holder;  // one opener at a time

static void Starve() {
    starved = 0;
    ResetBoard("watchdog");
}

static int64_t LongestGap() { return starved == 0 ? longestGap : std::max(longestGap, NowMicroseconds() - patted); }

static void Pat() {
    longestGap = LongestGap();
    CancelCall(starved);
    patted = NowMicroseconds();
    deadline = patted + timeout * kSecond;
    starved = CallAt(deadline, Starve);
}

static void Disarm() {
    longestGap = LongestGap();
    CancelCall(starved);
    starved = 0;
}

static double InSeconds(int64_t microseconds) { return double(microseconds) / double(kSecond); }

WatchdogState WatchdogNow() {
    const bool armed = starved != 0;
    return {.armed = armed,
            .timeLeft = armed ? InSeconds(std::max<int64_t>(0, deadline - NowMicroseconds())) : 0,
            .longestGap = InSeconds(LongestGap())};
}

static int OpenWatchdog(OpenFile& file) {
    if (holder != nullptr) return -EBUSY;
    holder = &file;
    Pat();
    Trace("watchdog", {{"event", "armed"}, {"timeout", timeout}});
    return 0;
}

// Magic close: the driver lets go only when the last write had a 'V' in it, with or without the newline of `echo`.
static bool EndsWithMagic(const OpenFile& file) {
    struct stat status {};
    if (fstat(file.descriptor, &status) != 0) return false;
    std::array<char, 2> last{};
    const off_t from = std::max<off_t>(0, status.st_size - 2);
    const ssize_t size = pread(file.descriptor, last.data(), last.size(), from);
    const std::string_view text(last.data(), size > 0 ? static_cast<size_t>(size) : 0);
    return text.ends_with('V') || text == "V\n";
}

static void CloseWatchdog(OpenFile& file) {
    if (holder != &file) return;
    holder = nullptr;
    if (EndsWithMagic(file)) {
        Disarm();
        Trace("watchdog", {{"event", "disarmed"}});
    } else {
        Pat();  // as the kernel does when it finds that the watchdog was not stopped
        Trace("watchdog", {{"event", "closed, still armed"}, {"timeout", timeout}});
    }
}

static int SetTimeout(const IoctlCall& call) {
    int seconds = 0;
    if (!call.memory.Read(call.argument, seconds)) return -EFAULT;
    if (seconds < 1 || seconds > kMostSeconds) return -EINVAL;
    timeout = seconds;
    Pat();
    Trace("watchdog", {{"event", "timeout"}, {"timeout", timeout}});
    return call.memory.Write(call.argument, timeout) ? 0 : -EFAULT;
}

static int Answer(const IoctlCall& call, int value) { return call.memory.Write(call.argument, value) ? 0 : -EFAULT; }

static int SetOptions(const IoctlCall& call) {
    int options = 0;
    if (!call.memory.Read(call.argument, options)) return -EFAULT;
    if (options & WDIOS_DISABLECARD) {
        Disarm();
        Trace("watchdog", {{"event", "disarmed"}});
    }
    if (options & WDIOS_ENABLECARD) {
        Pat();
        Trace("watchdog", {{"event", "armed"}, {"timeout", timeout}});
    }
    return 0;
}

static int WatchdogIoctl(const IoctlCall& call) {
    switch (call.request) {
        case WDIOC_GETSUPPORT: {
            const watchdog_info info{.options = WDIOF_KEEPALIVEPING | WDIOF_SETTIMEOUT | WDIOF_MAGICCLOSE,
                                     .firmware_version = 0,
                                     .identity = "imx2+ watchdog"};
            return call.memory.Write(call.argument, info) ? 0 : -EFAULT;
        }
        case WDIOC_GETSTATUS:
        case WDIOC_GETBOOTSTATUS:
            return Answer(call, 0);
        case WDIOC_SETOPTIONS:
            return SetOptions(call);
        case WDIOC_KEEPALIVE:
            Pat();
            Trace("watchdog", {{"event", "pat"}});
            return 0;
        case WDIOC_SETTIMEOUT:
            return SetTimeout(call);
        case WDIOC_GETTIMEOUT:
            return Answer(call, timeout);
        case WDIOC_GETTIMELEFT:
            return Answer(call, static_cast<int>(WatchdogNow().timeLeft));
        default:
            return -ENOTTY;
    }
}

static const DeviceModel kWatchdogModel{
    .name = "watchdog", .open = OpenWatchdog, .ioctl = WatchdogIoctl, .close = CloseWatchdog};

void PowerOffWatchdog() {
    Disarm();
    holder = nullptr;
}

void PowerOnWatchdog() {
    PowerOffWatchdog();
    longestGap = 0;
    timeout = kDefaultSeconds;
    AddNode("/dev/watchdog", kWatchdogModel, 0, kMajor, kMinor);
}
