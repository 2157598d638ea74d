#include "commands/serial_port.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "board/i2c.h"
#include "commands/dispatch.h"
#include "commands/status_report.h"
#include "core/log.h"
#include "core/shell.h"
#include "core/watchdog.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"
#include "settings/process_flags.h"

static constexpr const char* kSerialPath = "/dev/ttymxc2";
static constexpr size_t kSerialReadLimit = 100;
static constexpr int kPassesPerPat = 5000;  // of at least 1 ms each

static Shared<int> port{-1};

// ---- The port ----

// '>' ends a line, so that a read returns as soon as a command is complete.
int OpenSerialPort() {
    RunShell("stty -F /dev/ttymxc2 eol2 '>' -echo");
    port = open(kSerialPath, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (port < 0) LogError("open_port: Unable to open port ");

    termios attributes = {};
    tcgetattr(port, &attributes);
    cfsetispeed(&attributes, B9600);
    cfsetospeed(&attributes, B9600);
    attributes.c_iflag |= IGNPAR;
    attributes.c_oflag &= ~static_cast<tcflag_t>(OPOST);  // texts carry their own line ends: "\r\n" must not grow
    attributes.c_cflag &= ~static_cast<tcflag_t>(CSIZE | CSTOPB | PARENB);
    attributes.c_cflag |= CS8 | CLOCAL;
    tcsetattr(port, TCSANOW, &attributes);
    return 0;
}

int ReadSerial(char* buffer, size_t& count) {
    const ssize_t result = read(port, buffer, kSerialReadLimit);
    if (result <= 0) return 1;
    count = static_cast<size_t>(result);
    return 0;
}

int WriteSerial(const char* text, size_t count) {
    if (write(port, text, count) == static_cast<ssize_t>(count)) return 0;
    fputs("write() failed!\n", stderr);
    return 1;
}

int SendReply(const char* text) {
    if (SerialCommandActive == 1) return WriteSerial(text, strlen(text));
    PrintOut("%s", text);
    return 0;
}

// ---- The UART thread ----

struct Selection {
    uint8_t view, swap, input;
    bool operator==(const Selection&) const = default;
};

static Selection SelectionNow() { return {.view = Settings.View, .swap = Settings.Swap, .input = Settings.Input}; }

// Tells the USB bridge of every new selection, and of everything else now and then while nobody types.
static void BroadcastStatus() {
    static constexpr int64_t kQuietSeconds = 5;
    static Selection told = {.view = 255, .swap = 255, .input = 255};
    const Selection now = SelectionNow();
    const bool due = StatusBroadcast != 0 && SecondsNow() - LastCommandTime() > kQuietSeconds;
    if (!due && now == told) return;
    BuildStatusReport();
    NoteCommandTime();
    told = now;
}

void SerialPoll() {
    BroadcastStatus();
    if (ConsoleCommandActive != 0) return;
    std::array<char, kSerialReadLimit + 1> text;
    size_t count = 0;
    if (ReadSerial(text.data(), count) != 0) return;
    text[count] = '\0';
    DispatchSerialText(text.data());
}

void UartThreadMain() {
    if (NoWatchdog == 0 && WatchdogStart() < 0) fprintf(stderr, "Could not init watchdog: %s\n", strerror(errno));
    OpenSerialPort();
    for (int passes = 0;;) {
        SerialPoll();
        if (NoWatchdog == 0 && passes++ > kPassesPerPat) {
            passes = 1;
            if (!WatchdogTest() && WatchdogPat() < 0) LogInfo("Cannot reset watchdog!\n");
        }
        usleep(1'000);
    }
}

// ---- Diagnostics ----

int SerialLoopTest(const int32_t*) {
    static constexpr const char* kProbe = "Loop test\n";
    WriteSerial(kProbe, strlen(kProbe));
    usleep(100'000);
    std::array<char, kSerialReadLimit + 1> text{};
    size_t count = 0;
    const bool arrived = ReadSerial(text.data(), count) == 0;
    const bool connected = arrived && strstr(text.data(), "Loop test") != nullptr;
    PrintOut(connected ? "Loop connected.\n" : arrived ? "Bad loop communication.\n" : "Loop not connected.\n");
    tcflush(port, TCIOFLUSH);
    return connected ? 0 : 1;
}

int TopTest(const int32_t*) {
    uint8_t value = 0;
    const bool detected = I2cRead(2, 0x21, 0, &value, 1) == 0 && value != 0;
    PrintOut(detected ? "Top detected.\n" : "Top not detected.\n");
    return detected ? 0 : 1;
}

int I2cTest(const int32_t*) {
    struct KnownRegister {
        uint8_t address, value;  // register 0
    };
    static constexpr KnownRegister kKnown[] = {{.address = 0x48, .value = 16}, {.address = 0x60, .value = 192}};
    for (const KnownRegister& known : kKnown) {
        uint8_t value = 0;
        if (I2cRead(2, known.address, 0, &value, 1) != 0 || value != known.value) continue;
        PrintOut("I2C detected.\n");
        return 0;
    }
    PrintOut("I2C not detected.\n");
    return 1;
}
