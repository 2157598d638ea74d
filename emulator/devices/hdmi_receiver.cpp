#include "devices/hdmi_receiver.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <string>
#include <vector>

#include "bench/trace.h"
#include "devices/gpio.h"
#include "devices/i2c_bus.h"
#include "kernel/supervisor.h"
#include "system/board.h"

static constexpr int kBus = 1, kPorts = 2;
static constexpr int64_t kLockTime = 500'000;  // microseconds that the receiver needs to lock on a new signal
static constexpr unsigned kMostTmds = 300;     // MHz; beyond, it never locks

enum Map { kMain, kHdmi, kCp, kDpll, kKsv, kEdid, kAudio, kMaps };

struct MapRow {
    Map map;
    const char* name;
    uint8_t address;
};

static constexpr MapRow kMapRows[] = {
    {.map = kMain, .name = "HDMI receiver, main map", .address = 0x4C},
    {.map = kHdmi, .name = "HDMI receiver, HDMI map", .address = 0x34},
    {.map = kCp, .name = "HDMI receiver, CP map", .address = 0x22},
    {.map = kDpll, .name = "HDMI receiver, DPLL map", .address = 0x26},
    {.map = kKsv, .name = "HDMI receiver, KSV map", .address = 0x32},
    {.map = kEdid, .name = "HDMI receiver, EDID map", .address = 0x36},
    {.map = kAudio, .name = "HDMI receiver, map 40", .address = 0x40},
};

// Main map.
static constexpr unsigned kHotPlug = 0x20;       // bit 7 port 0, bit 6 port 1: a low line silences the source
static constexpr unsigned kSignalDetect = 0x6A;  // bit 4 port 0, bit 3 port 1
static constexpr unsigned kAlternate = 0x8D;     // bit 1: the other port has a signal
static constexpr unsigned kReset = 0xFF;         // bit 7

// HDMI map. Sizes have 13 bits, the upper five of them in the first of two registers.
static constexpr unsigned kPort = 0x00;
static constexpr unsigned kWidth = 0x07;      // with the lock bits on top
static constexpr unsigned kHeight = 0x09;     // of a field
static constexpr unsigned kInterlace = 0x0B;  // bit 5
static constexpr unsigned kTmds = 0x51;       // in 2 MHz, bit 7 of the next register is the odd one
static constexpr unsigned kAlternateWidth = 0xE2, kAlternateHeight = 0xE6, kAlternateInterlace = 0xEA;
static constexpr uint8_t kLockBits = 0xA0;

static std::array<I2cDevice, kMaps> maps;
static std::array<HdmiSignal, kPorts> sources;
static bool firstPowerOn = true;
static HdmiSignal tracked;  // what the receiver locks on, or is about to
static bool locked;         // on `tracked`
static TimerId lockTimer;
// As the listeners know it: the same signal from the other port is another picture.
struct Delivered {
    HdmiSignal signal;
    int port = 0;
    bool operator==(const Delivered&) const = default;
};
static Delivered delivered;
static std::vector<void (*)()> listeners;

static uint8_t& Register(Map map, unsigned offset) { return maps[map].registers[offset & 0xFF]; }

HdmiSignal HdmiSourceAt(int port) { return sources[static_cast<size_t>(port)]; }
int SelectedHdmiPort() { return Register(kHdmi, kPort) & 1; }

HdmiSignal LockedHdmiSignal() {
    const bool enabled = GpioLevel(kGpioReceiverEnable1) && GpioLevel(kGpioReceiverEnable2);
    return locked && enabled ? tracked : HdmiSignal{};
}

void OnHdmiSignalChange(void (*changed)()) {
    if (std::ranges::find(listeners, changed) == listeners.end()) listeners.push_back(changed);
}

struct StandardClock {
    unsigned height, rate;
    bool interlaced;
    unsigned width, megahertz;
};

static constexpr StandardClock kStandardClocks[] = {
    {.height = 1080, .rate = 60, .interlaced = false, .width = 1920, .megahertz = 148},
    {.height = 1080, .rate = 50, .interlaced = false, .width = 1920, .megahertz = 148},
    {.height = 1080, .rate = 30, .interlaced = false, .width = 1920, .megahertz = 74},
    {.height = 1080, .rate = 25, .interlaced = false, .width = 1920, .megahertz = 74},
    {.height = 1080, .rate = 24, .interlaced = false, .width = 1920, .megahertz = 74},
    {.height = 1080, .rate = 60, .interlaced = true, .width = 1920, .megahertz = 74},
    {.height = 1080, .rate = 50, .interlaced = true, .width = 1920, .megahertz = 74},
    {.height = 720, .rate = 60, .interlaced = false, .width = 1280, .megahertz = 74},
    {.height = 720, .rate = 50, .interlaced = false, .width = 1280, .megahertz = 74},
    {.height = 2160, .rate = 30, .interlaced = false, .width = 3840, .megahertz = 297},
    {.height = 2160, .rate = 25, .interlaced = false, .width = 3840, .megahertz = 297},
    {.height = 2160, .rate = 24, .interlaced = false, .width = 3840, .megahertz = 297},
    {.height = 768, .rate = 60, .interlaced = false, .width = 1366, .megahertz = 85},
    {.height = 480, .rate = 60, .interlaced = false, .width = 640, .megahertz = 25},
    {.height = 1024, .rate = 60, .interlaced = false, .width = 1280, .megahertz = 108},
};

unsigned TmdsMegahertz(const HdmiSignal& signal) {
    const auto* row = std::ranges::find_if(kStandardClocks, [&](const StandardClock& clock) {
        return clock.width == signal.width && clock.height == signal.height && clock.rate == signal.rate &&
               clock.interlaced == signal.interlaced;
    });
    if (row != std::end(kStandardClocks)) return row->megahertz;
    const double lines = signal.interlaced ? signal.height / 2.0 : signal.height;
    static constexpr double kWidthBlanking = 1.2, kHeightBlanking = 1.05;
    return static_cast<unsigned>(signal.width * kWidthBlanking * lines * kHeightBlanking * signal.rate / 1e6);
}

static bool TakeNumber(std::string_view& rest, unsigned& number) {
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    if (error != std::errc()) return false;
    rest.remove_prefix(static_cast<size_t>(end - rest.data()));
    return true;
}

std::optional<HdmiSignal> ParseHdmiSignal(std::string_view text) {
    if (text == "off") return HdmiSignal{};
    HdmiSignal signal{.present = true};
    if (!TakeNumber(text, signal.width) || !text.starts_with('x')) return std::nullopt;
    text.remove_prefix(1);
    if (!TakeNumber(text, signal.height) || !(text.starts_with('p') || text.starts_with('i'))) return std::nullopt;
    signal.interlaced = text.front() == 'i';
    text.remove_prefix(1);
    if (!TakeNumber(text, signal.rate) || !text.empty()) return std::nullopt;
    const bool measurable = signal.width >= 16 && signal.width <= 4096 && signal.height >= 16 &&
                            signal.height <= 2160 && signal.rate >= 1 && signal.rate <= 240;
    const bool wholeFields = !signal.interlaced || signal.height % 2 == 0;
    return measurable && wholeFields ? std::optional(signal) : std::nullopt;
}

std::string HdmiSignalText(const HdmiSignal& signal) {
    if (!signal.present) return "off";
    return std::to_string(signal.width) + "x" + std::to_string(signal.height) + (signal.interlaced ? "i" : "p") +
           std::to_string(signal.rate);
}

// What arrives at a port: nothing from a source whose hot-plug line is low, or while the chip is held in reset.
static HdmiSignal ArrivingAt(int port) {
    const bool hotPlug = (Register(kMain, kHotPlug) & (0x80 >> port)) != 0;
    return hotPlug && GpioLevel(kGpioReceiverReset) ? HdmiSourceAt(port) : HdmiSignal{};
}

static void PutSize(unsigned first, unsigned size, uint8_t topBits = 0) {
    Register(kHdmi, first) = static_cast<uint8_t>(topBits | ((size >> 8) & 0x1F));
    Register(kHdmi, first + 1) = static_cast<uint8_t>(size);
}

static unsigned FieldHeight(const HdmiSignal& signal) { return signal.interlaced ? signal.height / 2 : signal.height; }

static void ShowStatus() {
    const HdmiSignal port0 = ArrivingAt(0), port1 = ArrivingAt(1);
    const HdmiSignal& other = SelectedHdmiPort() == 0 ? port1 : port0;
    Register(kMain, kSignalDetect) = static_cast<uint8_t>((port0.present ? 0x10 : 0) | (port1.present ? 0x08 : 0));
    Register(kMain, kAlternate) = other.present ? 0x02 : 0;

    const HdmiSignal shown = locked ? tracked : HdmiSignal{};
    const unsigned clock = tracked.present ? TmdsMegahertz(tracked) : 0;
    PutSize(kWidth, shown.width, locked ? kLockBits : 0);
    PutSize(kHeight, FieldHeight(shown));
    Register(kHdmi, kInterlace) = shown.interlaced ? 0x20 : 0;
    Register(kHdmi, kTmds) = static_cast<uint8_t>(std::min(clock / 2, 0xFFu));
    Register(kHdmi, kTmds + 1) = static_cast<uint8_t>(clock % 2 * 0x80);
    PutSize(kAlternateWidth, other.width);
    PutSize(kAlternateHeight, FieldHeight(other));
    Register(kHdmi, kAlternateInterlace) = other.interlaced ? 1 : 0;
}

static void Publish() {
    ShowStatus();
    const Delivered now{LockedHdmiSignal(), SelectedHdmiPort()};
    if (now == delivered) return;
    delivered = now;
    for (void (*changed)() : listeners) changed();
}

static void Lock() {
    lockTimer = 0;
    locked = true;
    Publish();
}

static void LoseLock() {
    CancelCall(lockTimer);
    lockTimer = 0;
    locked = false;
    tracked = {};
}

// Follows the signal of the selected port: any other one than before takes its time to be locked on.
static void Follow() {
    const HdmiSignal arriving = ArrivingAt(SelectedHdmiPort());
    if (arriving != tracked) {
        LoseLock();
        tracked = arriving;
        if (arriving.present && TmdsMegahertz(arriving) <= kMostTmds)
            lockTimer = CallAt(NowMicroseconds() + kLockTime, Lock);
    }
    Publish();
}

static void ClearRegisters() {
    LoseLock();
    for (I2cDevice& map : maps) map.registers.fill(0);
    Register(kMain, kHotPlug) = 0xF0;  // the chip lets sources send until it is told otherwise
}

static bool OutOfReset(const I2cDevice&) { return GpioLevel(kGpioReceiverReset); }

static void WriteRegister(I2cDevice& map, unsigned offset, uint8_t value) {
    map.registers[offset & 0xFF] = value;
    if (&map == &maps[kMain] && (offset & 0xFF) == kReset && (value & 0x80) != 0) ClearRegisters();
}

static void Written(I2cDevice&) { Follow(); }

static void ResetLine(bool level) {
    if (!level) ClearRegisters();
    Follow();
}

static void EnableLine(bool) { Publish(); }

void PowerOnHdmiReceiver() {
    for (const MapRow& row : kMapRows) {
        maps[row.map] = {.name = row.name,
                         .bus = kBus,
                         .address = row.address,
                         .answers = OutOfReset,
                         .write = WriteRegister,
                         .written = Written};
        AddI2cDevice(maps[row.map]);
    }
    OnGpioChange(kGpioReceiverReset, ResetLine);
    OnGpioChange(kGpioReceiverEnable1, EnableLine);
    OnGpioChange(kGpioReceiverEnable2, EnableLine);
    // Later the bench decides: a plug stays in its socket over a power cycle.
    if (firstPowerOn) sources[0] = ParseHdmiSignal(Board.hdmiIn).value_or(HdmiSignal{});
    firstPowerOn = false;
    ClearRegisters();
    Follow();
}

VerbAnswer HdmiInVerb(const VerbWords& words) {
    if (words.size() != 2) return Usage("hdmi-in");
    if (words[0] != "0" && words[0] != "1") return Bad("hdmi-in: the ports are 0 and 1, not " + words[0]);
    const std::optional<HdmiSignal> signal = ParseHdmiSignal(words[1]);
    if (!signal) {
        return Bad("hdmi-in: " + words[1] +
                   " is no signal; it wants WIDTHxHEIGHT, p or i, and the rate, as in 1920x1080p60 (up to 4096x2160), "
                   "or off");
    }
    const int port = words[0] == "0" ? 0 : 1;
    sources[static_cast<size_t>(port)] = *signal;
    Trace("plug", {{"hdmi-in", port}, {"signal", words[1]}});
    Follow();
    return {};
}
