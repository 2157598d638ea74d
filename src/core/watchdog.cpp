#include "core/watchdog.h"

#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "settings/device_identity.h"
#include "settings/shared_field.h"

static constexpr const char* kMarkerPath = "/home/root/Tesselvisor.NoWatchdog";
static constexpr int kTimeoutSeconds = 30;

// Closed on exec: a program that inherited it would keep the watchdog armed after WatchdogClose.
static constexpr int kOpenMode = O_RDWR | O_CLOEXEC;

static Shared<int> watchdog{-1};

bool WatchdogTest() { return getenv("WATCHDOG_TEST") != nullptr; }

static bool MarkerExists() {
    const int marker = open(kMarkerPath, O_RDONLY | O_CLOEXEC);
    if (marker < 0) return false;
    close(marker);
    return true;
}

int WatchdogSetup() {
    if (WatchdogTest()) return 0;
    if (MarkerExists()) {
        NoWatchdog = 1;
        LogInfo("Disabling watchdog support!\n");
        return 0;
    }
    const int descriptor = open(kWatchdogPath, kOpenMode);
    if (descriptor < 0) {
        fprintf(stderr, "Error: %s\n", strerror(errno));
        _exit(1);
    }
    int timeout = kTimeoutSeconds;
    if (ioctl(descriptor, WDIOC_SETTIMEOUT, &timeout) < 0) {
        fputs("Error: Set watchdog interval failed\n", stderr);
        _exit(1);
    }
    close(descriptor);
    return 0;
}

int WatchdogStart() {
    LogInfo("Opening watchdog handle...\n");
    return WatchdogOpen(kWatchdogPath) < 0 ? -1 : WatchdogPat();
}

int WatchdogOpen(const char* path) {
    if (watchdog >= 0) {
        fputs("Watchdog already opened\n", stderr);
        return -1;
    }
    const int descriptor = open(path, kOpenMode);
    if (descriptor < 0) {
        const int error = errno;
        fprintf(stderr, "Could not open %s: %s\n", path, strerror(error));
        errno = error;  // the caller reports it too
    }
    watchdog = descriptor;
    return descriptor;
}

int WatchdogPat() {
    if (watchdog < 0) {
        fputs("Watchdog must be opened first!\n", stderr);
        return -1;
    }
    const int result = ioctl(watchdog, WDIOC_KEEPALIVE, nullptr);
    if (result < 0) {
        const int error = errno;
        fprintf(stderr, "Could not pat watchdog: %s\n", strerror(error));
        errno = error;
    }
    return result;
}

int WatchdogClose(const char* path) {
    const int descriptor = watchdog;
    if (descriptor < 0) {
        fputs("Watchdog already closed\n", stderr);
        return -1;
    }
    if (write(descriptor, "V", 1) != 1) LogInfo("Stopping watchdog ticks failed (%d)...\n", errno);
    watchdog = -1;
    const int result = close(descriptor);
    if (result < 0) fprintf(stderr, "Could not close %s: %s\n", path, strerror(errno));
    return result;
}
