// The emulated HDMI receiver beside buses, pins and a clock that the test moves by hand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

#include "bench/control.h"
#include "bench/trace.h"
#include "devices/gpio.h"
#include "devices/hdmi_receiver.h"
#include "devices/i2c_bus.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "text.h"

namespace {

std::map<uint16_t, I2cDevice*> devices;
std::map<int, bool> levels;
std::map<int, void (*)(bool)> pinListeners;
std::map<TimerId, std::pair<int64_t, std::function<void()>>> timers;
int64_t now;

void PassTime(int64_t microseconds) {
    now += microseconds;
    const auto isDue = [](const auto& timer) { return timer.second.first <= now; };
    const auto nextDue = [=] { return std::ranges::find_if(timers, isDue); };
    for (auto due = nextDue(); due != timers.end(); due = nextDue()) {
        const auto work = due->second.second;
        timers.erase(due);
        work();
    }
}

}  // namespace

BoardOptions Board;

void AddI2cDevice(I2cDevice& device) { devices[device.address] = &device; }
bool GpioLevel(int line) { return levels[line]; }
void OnGpioChange(int line, void (*changed)(bool level)) { pinListeners[line] = changed; }
int64_t NowMicroseconds() { return now; }
TimerId CallAt(int64_t microseconds, std::function<void()> work) {
    static TimerId last = 0;
    timers[++last] = {microseconds, std::move(work)};
    return last;
}
void CancelCall(TimerId id) { timers.erase(id); }
void Trace(std::string_view, Json) {}
VerbAnswer Bad(std::string text) { return {.good = false, .text = std::move(text)}; }
VerbAnswer Usage(std::string_view word) { return Bad("usage: " + std::string(word)); }

namespace {

constexpr uint16_t kMain = 0x4C, kHdmi = 0x34;

void Plug(const char* port, const char* signal) { HdmiInVerb({port, signal}); }

void Set(int line, bool level) {
    levels[line] = level;
    if (pinListeners.contains(line)) pinListeners[line](level);
}

void Put(uint16_t map, uint8_t at, uint8_t value) {
    I2cDevice& device = *devices.at(map);
    device.write ? device.write(device, at, value) : void(device.registers[at] = value);
    if (device.written) device.written(device);
}

// What the receiver's registers say; empty without a lock.
std::string Measured() {
    const I2cDevice& map = *devices.at(kHdmi);
    const auto& r = map.registers;
    if (map.answers && !map.answers(map)) return "no answer";
    if ((r[0x07] & 0xA0) == 0) return "";
    const int width = (r[0x07] & 0x1F) * 256 + r[0x08], height = (r[0x09] & 0x1F) * 256 + r[0x0A];
    return Text("%dx%d%c %d MHz", width, height, (r[0x0B] & 0x20) != 0 ? 'i' : 'p', r[0x51] * 2);
}

TEST(HdmiSignals, AreParsedWholeOrNotAtAll) {
    EXPECT_EQ(ParseHdmiSignal("1920x1080i60"),
              (HdmiSignal{.present = true, .width = 1920, .height = 1080, .rate = 60, .interlaced = true}));
    EXPECT_EQ(ParseHdmiSignal("off"), HdmiSignal{});
    for (const char* text : {"", "1920x1080", "1920x1080p", "x1080p60", "1920x1080p60 ", "1920x1081i60", "4097x2160p30",
                             "1920x1080p0", "-1x1080p60", "99999999999x1080p60", "1920X1080p60"})
        EXPECT_FALSE(ParseHdmiSignal(text)) << text;
    EXPECT_NEAR(TmdsMegahertz(*ParseHdmiSignal("1600x1200p60")), 162, 20) << "one that no table has";
}

int changes;

TEST(HdmiReceiver, MeasuresWhatItLocksOnAndTellsOfEachChangeOnce) {
    struct Step {
        int64_t wait;
        const char* measured;
        int told;  // times that listeners were called
        void (*act)();
    };
    static constexpr Step kSteps[] = {
        {199'000, "", 0, [] { Plug("0", "1920x1080p60"); }},
        {1'000, "1920x1080p 148 MHz", 1, [] {}},
        {0, "", 1, [] { Plug("0", "1920x1080i60"); }},  // a hot change loses the lock first
        {200'000, "1920x540i 74 MHz", 1, [] {}},
        {200'000, "4096x2160p 266 MHz", 2, [] { Plug("0", "4096x2160p24"); }},
        {10'000'000, "", 1, [] { Plug("0", "3840x2160p60"); }},  // more than it can follow
        {200'000, "1280x720p 74 MHz", 1, [] { Plug("0", "1280x720p60"); }},
        {200'000, "1280x720p 74 MHz", 0, [] { Plug("1", "1920x1080i50"); }},
        {0, "1280x720p 74 MHz", 0, [] { Put(kHdmi, 0x00, 0x80); }},  // the same port is selected
        {0, "", 1, [] { Put(kHdmi, 0x00, 0x81); }},
        {200'000, "1920x540i 74 MHz", 1, [] {}},
        {200'000, "1920x540i 74 MHz", 0, [] { Plug("0", "1920x1080p60"); }},
        {0, "1920x540i 74 MHz", 1, [] { Set(kGpioReceiverEnable1, false); }},  // its video is switched off
        {0, "1920x540i 74 MHz", 1, [] { Set(kGpioReceiverEnable1, true); }},
        {0, "no answer", 1, [] { Set(kGpioReceiverReset, false); }},
        {200'000, "1920x1080p 148 MHz", 1, [] { Set(kGpioReceiverReset, true); }},  // the port is forgotten
        {200'000, "", 1, [] { Put(kMain, 0x20, 0x78); }},                           // hot-plug low: no source sends
        {200'000, "1920x1080p 148 MHz", 1, [] { Put(kMain, 0x20, 0xF0); }},
        {0, "", 1, [] { Put(kMain, 0xFF, 0x80); }},  // its own reset
    };
    PowerOnHdmiReceiver();
    for (const int line : {kGpioReceiverReset, kGpioReceiverEnable1, kGpioReceiverEnable2}) Set(line, true);
    for (int times = 0; times < 2; ++times) OnHdmiSignalChange([] { ++changes; });
    for (const Step& step : kSteps) {
        SCOPED_TRACE(&step - kSteps);
        changes = 0;
        step.act();
        PassTime(step.wait);
        EXPECT_EQ(Measured(), step.measured);
        EXPECT_EQ(changes, step.told);
    }
    EXPECT_EQ(devices.at(kMain)->registers[0x6A] & 0x18, 0x18) << "both sources are detected, locked or not";
}

}  // namespace
