// The emulated chips on the I2C buses against a supervisor whose clock the test moves by hand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "bench/control.h"
#include "bench/trace.h"
#include "devices/expander.h"
#include "devices/gpio.h"
#include "devices/hdmi_receiver.h"
#include "devices/i2c_bus.h"
#include "devices/keypad.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "text.h"

// The supervisor's side: nodes and clock are plain maps here, and the caller's memory is our own.

namespace {

std::map<std::string, std::pair<const DeviceModel*, int>, std::less<>> nodes;
std::map<TimerId, std::pair<int64_t, std::function<void()>>> timers;
bool polling;
int transfersTraced;
std::map<uint64_t, VerbAnswer> lateAnswers;
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

bool TargetMemory::Read(uint64_t address, void* to, size_t size) const {
    if (size > 0) std::memcpy(to, reinterpret_cast<const void*>(address), size);
    return true;
}
bool TargetMemory::Write(uint64_t address, const void* from, size_t size) const {
    if (size > 0) std::memcpy(reinterpret_cast<void*>(address), from, size);
    return true;
}
void AddNode(std::string path, const DeviceModel& model, int unit, unsigned, unsigned) { nodes[path] = {&model, unit}; }
void AddTree(std::string prefix, const DeviceModel& model, int unit) { nodes[prefix] = {&model, unit}; }
void WakeModel(const DeviceModel&, int) {}
int64_t NowMicroseconds() { return now; }
TimerId CallAt(int64_t microseconds, std::function<void()> work) {
    static TimerId last = 0;
    timers[++last] = {microseconds, std::move(work)};
    return last;
}
void CancelCall(TimerId id) { timers.erase(id); }
void Trace(std::string_view what, Json) { transfersTraced += what == "i2c"; }
bool IsPolling(std::string_view, unsigned, std::string_view) { return polling; }
VerbAnswer Bad(std::string text) { return {.good = false, .text = std::move(text)}; }
uint64_t LaterAnswer() {
    static uint64_t last = 0;
    return ++last;
}
void AnswerLater(uint64_t id, const VerbAnswer& answer) { lateAnswers[id] = answer; }
VerbAnswer Usage(std::string_view word) { return Bad("usage: " + std::string(word)); }

namespace {

int Transfer(int bus, std::vector<i2c_msg> messages) {
    const auto& [model, unit] = nodes.at("/dev/i2c-" + std::to_string(bus));
    i2c_rdwr_ioctl_data request{.msgs = messages.data(), .nmsgs = static_cast<uint32_t>(messages.size())};
    OpenFile file{.model = model, .unit = unit, .path = {}, .flags = 0, .descriptor = -1, .state = nullptr};
    return model->ioctl({.file = file,
                         .memory = {},
                         .request = I2C_RDWR,
                         .argument = reinterpret_cast<uint64_t>(&request),
                         .nonBlocking = {.thread = 0, .descriptor = -1}});
}

int I2cRead(int bus, uint16_t address, uint8_t first, std::span<uint8_t> to) {
    const auto size = static_cast<uint16_t>(to.size());
    return Transfer(bus, {{.addr = address, .flags = 0, .len = 1, .buf = &first},
                          {.addr = address, .flags = I2C_M_RD, .len = size, .buf = to.data()}});
}

int I2cWrite(int bus, uint16_t address, std::vector<uint8_t> bytes) {
    const auto size = static_cast<uint16_t>(bytes.size());
    return Transfer(bus, {{.addr = address, .flags = 0, .len = size, .buf = bytes.data()}});
}

// -1 when the device does not answer.
int Register(int bus, uint16_t address, uint8_t at) {
    uint8_t value = 0;
    return I2cRead(bus, address, at, {&value, 1}) == 2 ? value : -1;
}

constexpr uint16_t kMain = 0x4C, kHdmi = 0x34, kCp = 0x22;

// What the receiver's registers say; empty without a lock.
std::string Measured() {
    std::array<uint8_t, 0x60> r{};
    if (I2cRead(1, kHdmi, 0, r) != 2) return "no answer";
    if ((r[0x07] & 0xA0) == 0) return "";
    const int width = (r[0x07] & 0x1F) * 256 + r[0x08], height = (r[0x09] & 0x1F) * 256 + r[0x0A];
    return Text("%dx%d%c %d MHz", width, height, (r[0x0B] & 0x20) != 0 ? 'i' : 'p', r[0x51] * 2);
}

class Models : public testing::Test {
protected:
    void SetUp() override {
        timers.clear();
        PowerOnGpio();
        PowerOn("keypad");
        PowerOnHdmiReceiver();
        for (const char* port : {"0", "1"}) Plug(port, "off");
        for (const int line : {kGpioReceiverReset, kGpioReceiverEnable1, kGpioReceiverEnable2}) Set(line, true);
    }

    static void Set(int line, bool level) { SetGpioOutside(line, level, "test"); }
    static void Plug(const char* port, const char* signal) { HdmiInVerb({port, signal}); }
    static void Put(uint16_t map, uint8_t at, uint8_t value) { I2cWrite(1, map, {at, value}); }

    // The bus and the front panel.
    static void PowerOn(const char* panel) {
        Board.panel = panel;
        PowerOnI2c();
        PowerOnKeypad();
        PowerOnExpander();
    }
};

TEST_F(Models, BusCarriesFaultsAndDoesNotTraceWhoPolls) {
    for (const bool polls : {true, false}) {
        polling = polls;
        transfersTraced = 0;
        EXPECT_EQ(Register(2, 0x48, 0), 16);
        EXPECT_EQ(Register(1, 0x48, 0), -1) << "that chip sits on the other bus";
        EXPECT_EQ(transfersTraced, polls ? 0 : 2);
    }
    EXPECT_TRUE(I2cFaultVerb({"48", "nak", "2"}).good);
    EXPECT_EQ(I2cWrite(2, 0x48, {9, 1}), 1);
    EXPECT_EQ(I2cWrite(2, 0x48, {9, 2}), -ENXIO);
    EXPECT_EQ(Register(2, 0x48, 9), 1) << "the failed write changed nothing";
    I2cFaultVerb({"48", "hang"});
    EXPECT_EQ(I2cWrite(2, 0x48, {9, 3}), kHold);
    I2cFaultVerb({"48", "off"});
    EXPECT_EQ(Register(2, 0x48, 9), 1);
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

TEST_F(Models, ReceiverMeasuresWhatItLocksOnAndTellsOfEachChangeOnce) {
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
    for (int times = 0; times < 2; ++times) OnHdmiSignalChange([] { ++changes; });
    I2cWrite(1, kCp, {0x10, 1, 2, 3});
    EXPECT_EQ(Register(1, kCp, 0x12), 3);
    for (const Step& step : kSteps) {
        SCOPED_TRACE(&step - kSteps);
        changes = 0;
        step.act();
        PassTime(step.wait);
        EXPECT_EQ(Measured(), step.measured);
        EXPECT_EQ(changes, step.told);
    }
    EXPECT_EQ(Register(1, kCp, 0x12), 0);
    EXPECT_EQ(Register(1, kMain, 0x6A) & 0x18, 0x18) << "both sources are detected, locked or not";
}

std::vector<int> KeyReport() {
    std::array<uint8_t, 25> report{};
    EXPECT_EQ(I2cRead(2, 0x08, 0, report), 2);
    EXPECT_THAT(std::span(report).subspan(6), testing::Each(0));
    return {report.begin(), report.begin() + 6};
}

TEST_F(Models, KeypadHoldsTheReportOfTheLastKey) {
    EXPECT_EQ(KeyReport(), (std::vector{0, 235, 2, 4, 0, 0}));
    const uint64_t id = KeyVerb({"0xFF"}).later;
    EXPECT_FALSE(lateAnswers.contains(id)) << "before it was fetched";
    for (int times = 0; times < 2; ++times) EXPECT_EQ(KeyReport(), (std::vector{1, 235, 2, 4, 255, 1}));
    EXPECT_TRUE(lateAnswers[id].good);
    KeyVerb({"repeat", "4"});
    EXPECT_EQ(KeyReport(), (std::vector{1, 235, 2, 4, 4, 1}));
    const uint64_t first = KeyVerb({"1"}).later, second = KeyVerb({"2"}).later;
    EXPECT_FALSE(lateAnswers[first].good) << "overtaken";
    PassTime(2'000'000);
    EXPECT_FALSE(lateAnswers[second].good) << "nobody looked";
    EXPECT_EQ(KeyReport(), (std::vector{3, 235, 2, 4, 2, 1}));
    PowerOn("keypad");
    EXPECT_EQ(KeyReport(), (std::vector{0, 235, 2, 4, 0, 0}));
}

TEST_F(Models, KeypadTakesWholeFramesOnly) {
    std::vector<std::vector<uint8_t>> frames(5, {0, 9, 0xAB, 0xCD, 0, 0, 0, 0, 0, 0, 0});
    frames[1].pop_back();
    frames[2].push_back(0);
    frames[3][2] = 0xCD;
    frames[4][0] = 1;
    for (const std::vector<uint8_t>& frame : frames) EXPECT_EQ(I2cWrite(2, 0x08, frame), 1);
    EXPECT_EQ(KeypadLeds(), (Json{{"leds", 9}, {"frames", 1}, {"refused", 4}}));
    EXPECT_EQ(KeyReport()[1], 235) << "a frame is no report";
}

int ExpanderRegister(uint8_t at) { return Register(2, 0x21, at); }
int ButtonPort() { return ExpanderRegister(1) & 0x7F; }

TEST_F(Models, ExpanderStartsUnconfigured) {
    EXPECT_EQ(ExpanderRegister(6), -1) << "a board with a keypad";
    PowerOn("expander");
    I2cWrite(2, 0x21, {2, 5});
    EXPECT_EQ(ExpanderLeds(), (Json{{"leds", 0}, {"configured", false}, {"looks", 0}}));
    I2cWrite(2, 0x21, {6, 0});
    I2cWrite(2, 0x21, {2, 6, 0xFF, 7});  // back and forth within the pair
    EXPECT_EQ(ExpanderLeds(), (Json{{"leds", 7}, {"configured", true}, {"looks", 0}}));
    EXPECT_TRUE(ExpanderFaultVerb({"reset"}).good);
    EXPECT_EQ(ExpanderRegister(6), 255);
}

TEST_F(Models, ButtonsAreHeldAndComeBack) {
    PowerOn("expander");
    ButtonsVerb({"0x40"});
    EXPECT_EQ(ButtonPort(), 0x7F);
    const uint64_t id = ButtonsVerb({"0x41", "for", "200"}).later;
    EXPECT_EQ(ButtonPort(), 0x7E);
    PassTime(199'999);
    EXPECT_FALSE(lateAnswers.contains(id));
    PassTime(1);
    EXPECT_TRUE(lateAnswers[id].good);
    EXPECT_EQ(ButtonPort(), 0x7F) << "what was held before";
    ButtonsVerb({"1"});
    PowerOn("expander");
    EXPECT_EQ(ButtonPort(), 0x3E) << "fingers know nothing of power";
    ButtonsVerb({"0"});
}

TEST_F(Models, BouncingContactsComeToRest) {
    PowerOn("expander");
    EXPECT_TRUE(ExpanderFaultVerb({"bounce", "100"}).good);
    ButtonsVerb({"2"});
    std::vector<int> seen;
    for (int look = 0; look < 6; ++look, PassTime(25'000)) seen.push_back(ButtonPort());
    EXPECT_EQ(seen, (std::vector{0x3F, 0x3D, 0x3F, 0x3D, 0x3D, 0x3D}));
    ExpanderFaultVerb({"off"});
    ButtonsVerb({"0"});
    EXPECT_EQ(ButtonPort(), 0x3F);
}

}  // namespace
