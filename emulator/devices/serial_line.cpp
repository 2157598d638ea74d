#include "devices/serial_line.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "bench/trace.h"
#include "kernel/supervisor.h"
#include "text.h"

static constexpr unsigned kMajor = 207, kFirstMinor = 16;
static constexpr unsigned kAnswerTime = 1000, kLongestAnswerTime = 60'000;  // ms that `serial` listens for
static constexpr int kControlPort = 2;

struct SerialLine {
    int unit;
    const char* node;
    int bench = -1;  // the pty's master: our end
    int board = -1;  // a slave kept open: without one the master reports an error once the first opener has gone
};

static SerialLine serialLines[] = {{.unit = 0, .node = "/dev/ttymxc0"}, {.unit = kControlPort, .node = "/dev/ttymxc2"}};

// The `serial` verb that listens now. One at a time: what comes back belongs to it.
static uint64_t listener;
static std::string heard;

static SerialLine& Line(int unit) { return serialLines[unit == kControlPort ? 1 : 0]; }

static int OpenSerial(const std::string&, int flags, int unit) {
    const int slave = ioctl(Line(unit).bench, TIOCGPTPEER, (flags & (O_ACCMODE | O_NONBLOCK)) | O_NOCTTY | O_CLOEXEC);
    return slave < 0 ? -errno : slave;
}

static const DeviceModel kSerialModel{.name = "serial line", .openReal = OpenSerial};

static void Receive(SerialLine& line) {
    std::array<char, 4096> bytes{};
    const ssize_t size = read(line.bench, bytes.data(), bytes.size());
    if (size <= 0) return;
    const std::string_view text(bytes.data(), static_cast<size_t>(size));
    Trace("serial", {{"node", line.node}, {"received", text}});
    if (line.unit == kControlPort && listener != 0) heard += text;
}

static void CloseLine(SerialLine& line) {
    if (line.bench < 0) return;
    ForgetDescriptor(line.bench);
    close(line.board);
    close(line.bench);
    line.bench = line.board = -1;
}

static bool OpenLine(SerialLine& line) {
    line.bench = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (line.bench < 0 || unlockpt(line.bench) != 0) return false;
    line.board = ioctl(line.bench, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
    return line.board >= 0;
}

void PowerOnSerialLines() {
    for (SerialLine& line : serialLines) {
        CloseLine(line);
        if (!OpenLine(line)) {
            Trace("serial", {{"node", line.node}, {"error", std::strerror(errno)}});
            CloseLine(line);
            continue;
        }
        WatchDescriptor(line.bench, [&line](uint32_t) { Receive(line); });
        AddNode(line.node, kSerialModel, line.unit, kMajor, kFirstMinor + static_cast<unsigned>(line.unit));
    }
}

// The value of one escape after the backslash, which is taken off `rest`.
static std::optional<char> TakeEscape(std::string_view& rest) {
    static constexpr std::string_view kLetters = "rnt\\0", kBytes("\r\n\t\\\0", 5);
    if (rest.empty()) return std::nullopt;
    const char letter = rest.front();
    rest.remove_prefix(1);
    if (const size_t known = kLetters.find(letter); known != kLetters.npos) return kBytes[known];
    if (letter != 'x' || rest.size() < 2 || !isxdigit(rest[0]) || !isxdigit(rest[1])) return std::nullopt;
    const std::string digits(rest.substr(0, 2));
    rest.remove_prefix(2);
    return static_cast<char>(strtoul(digits.c_str(), nullptr, 16));
}

static std::optional<std::string> Unescape(std::string_view text) {
    std::string bytes;
    while (!text.empty()) {
        const char next = text.front();
        text.remove_prefix(1);
        if (next != '\\') {
            bytes += next;
            continue;
        }
        const std::optional<char> byte = TakeEscape(text);
        if (!byte) return std::nullopt;
        bytes += *byte;
    }
    return bytes;
}

VerbAnswer SerialVerb(const VerbWords& words) {
    if (words.empty() || words.size() > 2) return Usage("serial");
    const std::optional<unsigned> time = words.size() == 1 ? kAnswerTime : ParseNumber(words[1], kLongestAnswerTime);
    if (!time) return Bad("serial: the time is 0 to " + std::to_string(kLongestAnswerTime) + " ms");
    if (listener != 0) return Bad("serial: another one is waiting for its answer");
    const std::optional<std::string> bytes = Unescape(words[0]);
    if (!bytes) return Bad("serial: the escapes are \\r \\n \\t \\\\ \\0 and \\xHH");
    const ssize_t sent = write(Line(kControlPort).bench, bytes->data(), bytes->size());
    if (sent != static_cast<ssize_t>(bytes->size())) return Bad("serial: the board does not read its port");

    Trace("serial", {{"node", Line(kControlPort).node}, {"sent", *bytes}});
    heard.clear();
    listener = LaterAnswer();
    CallAt(NowMicroseconds() + int64_t{*time} * 1000, [] {
        AnswerLater(listener, {.good = true, .text = heard});
        listener = 0;
    });
    return {.good = true, .text = {}, .later = listener};
}
