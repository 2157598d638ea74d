// The emulated board's simple devices against a supervisor whose clock the test moves by hand.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fb.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/watchdog.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <string>
#include <vector>

#include "board.h"
#include "control.h"
#include "edid.h"
#include "expander.h"
#include "framebuffer.h"
#include "gpio.h"
#include "hdmi_receiver.h"
#include "i2c_bus.h"
#include "journal.h"
#include "keypad.h"
#include "monitor.h"
#include "supervisor.h"
#include "trace.h"
#include "watchdog.h"

// ---- The supervisor's side: nodes, clock and files are plain maps here, and the caller's memory is our own.

namespace {

struct FakeNode {
    const DeviceModel* model;
    int unit;
};

std::map<std::string, FakeNode, std::less<>> nodes;
std::map<TimerId, std::pair<int64_t, std::function<void()>>> timers;
std::map<std::string, std::string> files;
std::vector<std::string> resets;
std::vector<Json> ledChanges;
std::map<uint64_t, VerbAnswer> lateAnswers;
int64_t now;

void PassTime(int64_t microseconds) {
    now += microseconds;
    while (true) {
        auto due = std::find_if(timers.begin(), timers.end(), [](auto& timer) { return timer.second.first <= now; });
        if (due == timers.end()) return;
        auto work = due->second.second;
        timers.erase(due);
        work();
    }
}

const std::filesystem::path kMonitors = std::filesystem::path(__FILE__).parent_path() / "../../../emulator/monitors";

}  // namespace

BoardOptions Board;
std::filesystem::path Volatile;
std::filesystem::path HostPath(const std::string& path) { return "/nonexistent" + path; }
std::filesystem::path EmulatorFile(std::string_view) { return kMonitors; }
void WriteBoardFile(const std::string& path, const std::string& text) { files[path] = text; }
void ResetBoard(const std::string& why) { resets.push_back(why); }

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
bool WatchDescriptor(int, std::function<void(uint32_t)>, uint32_t) { return true; }
void ForgetDescriptor(int) {}
void Trace(std::string_view what, Json fields) {
    if (what == "led") ledChanges.push_back(std::move(fields));
}
bool IsPolling(std::string_view, unsigned, std::string_view) { return false; }
VerbAnswer Bad(std::string text) { return {.good = false, .text = std::move(text)}; }
uint64_t LaterAnswer() {
    static uint64_t last = 0;
    return ++last;
}
void AnswerLater(uint64_t id, const VerbAnswer& answer) { lateAnswers[id] = answer; }
VerbAnswer Usage(std::string_view word) { return Bad("usage: " + std::string(word)); }

namespace {

// ---- Doing what a program of the board does.

struct Opened {
    OpenFile file;
    int result = 0;
};

Opened Open(const std::string& path, int flags = O_RDWR) {
    auto node = nodes.find(path);
    if (node == nodes.end()) node = nodes.find("/sys/class/gpio/");
    Opened opened{.file = {.model = node->second.model,
                           .unit = node->second.unit,
                           .path = path,
                           .flags = flags,
                           .descriptor = memfd_create("file", MFD_CLOEXEC),
                           .state = nullptr}};
    if (opened.file.model->open != nullptr) opened.result = opened.file.model->open(opened.file);
    return opened;
}

void Close(OpenFile& file) {
    if (file.model->close != nullptr) file.model->close(file);
    close(file.descriptor);
}

template <typename T>
int Ioctl(OpenFile& file, unsigned long request, T* argument) {
    return file.model->ioctl({.file = file,
                              .memory = {},
                              .request = static_cast<uint32_t>(request),
                              .argument = reinterpret_cast<uint64_t>(argument),
                              .nonBlocking = {.thread = 0, .descriptor = -1}});
}

int WriteAttribute(const std::string& path, std::string_view text) {
    Opened opened = Open(path, O_WRONLY);
    if (opened.result != 0) return opened.result;
    EXPECT_EQ(write(opened.file.descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    Close(opened.file);
    return 0;
}

std::string ReadAttribute(const std::string& path) {
    Opened opened = Open(path, O_RDONLY);
    if (opened.result != 0) return std::strerror(-opened.result);
    char text[64] = "";
    EXPECT_GE(pread(opened.file.descriptor, text, sizeof text - 1, 0), 0);
    Close(opened.file);
    return text;
}

int I2cRead(int bus, unsigned address, uint8_t first, std::span<uint8_t> to) {
    Opened opened = Open("/dev/i2c-" + std::to_string(bus));
    i2c_msg messages[] = {{.addr = static_cast<uint16_t>(address), .flags = 0, .len = 1, .buf = &first},
                          {.addr = static_cast<uint16_t>(address),
                           .flags = I2C_M_RD,
                           .len = static_cast<uint16_t>(to.size()),
                           .buf = to.data()}};
    i2c_rdwr_ioctl_data request{.msgs = messages, .nmsgs = 2};
    const int result = Ioctl(opened.file, I2C_RDWR, &request);
    Close(opened.file);
    return result;
}

int I2cWrite(int bus, unsigned address, std::vector<uint8_t> bytes) {
    Opened opened = Open("/dev/i2c-" + std::to_string(bus));
    i2c_msg message{.addr = static_cast<uint16_t>(address),
                    .flags = 0,
                    .len = static_cast<uint16_t>(bytes.size()),
                    .buf = bytes.data()};
    i2c_rdwr_ioctl_data request{.msgs = &message, .nmsgs = 1};
    const int result = Ioctl(opened.file, I2C_RDWR, &request);
    Close(opened.file);
    return result;
}

constexpr unsigned kMain = 0x4C, kHdmi = 0x34, kCp = 0x22;

// -1 when the device does not answer.
int Register(unsigned address, unsigned offset) {
    uint8_t value = 0;
    return I2cRead(1, address, static_cast<uint8_t>(offset), {&value, 1}) == 2 ? value : -1;
}

struct Measured {
    bool locked, interlaced;
    unsigned width, height, megahertz;
};

Measured Measure() {
    uint8_t registers[0x60] = {};
    EXPECT_EQ(I2cRead(1, kHdmi, 0, registers), 2);
    return {.locked = (registers[0x07] & 0xA0) != 0,
            .interlaced = (registers[0x0B] & 0x20) != 0,
            .width = registers[0x08] + (registers[0x07] & 0x1Fu) * 256,
            .height = registers[0x0A] + (registers[0x09] & 0x1Fu) * 256,
            .megahertz = registers[0x51] * 2u};
}

class Models : public testing::Test {
protected:
    void SetUp() override {
        resets.clear();
        timers.clear();
        PowerOnGpio();
        PowerOnI2c();
        PowerOnFramebuffer();
        PowerOnHdmiReceiver();
        PowerOnMonitor();
        PowerOnWatchdog();
        for (const char* port : {"0", "1"}) HdmiInVerb({port, "off"});
        for (const char* line : {"41", "43", "2"}) Drive(line, "high");
        MonitorVerb({"plug", "1080p60"});
    }

    static void Drive(const std::string& line, std::string_view direction) {
        WriteAttribute("/sys/class/gpio/export", line);
        EXPECT_EQ(WriteAttribute("/sys/class/gpio/gpio" + line + "/direction", direction), 0);
    }
};

// ---- Monitors.

std::optional<EdidFile> LoadMonitor(const std::string& name) {
    std::ifstream file(kMonitors / (name + ".edid"));
    return ParseEdidFile(std::string(std::istreambuf_iterator(file), {}));
}

TEST(MonitorFiles, CarryGoodEdidsExceptWhereTheyMeanNotTo) {
    static constexpr std::array<uint8_t, 8> kHeader{0, 255, 255, 255, 255, 255, 255, 0};
    const auto monitors = ListMonitors();
    EXPECT_GE(monitors.size(), 11u);
    for (const MonitorSummary& row : monitors) {
        SCOPED_TRACE(row.name);
        const auto file = LoadMonitor(row.name);
        ASSERT_TRUE(file);
        EXPECT_FALSE(row.description.empty());
        if (row.name == "none-ddc") {
            EXPECT_TRUE(file->bytes.empty());
            continue;
        }
        ASSERT_TRUE(file->bytes.size() == 128 || file->bytes.size() == 256);
        EXPECT_EQ(file->bytes[126] + 1u, file->bytes.size() / 128);
        for (auto block = file->bytes.begin(); block != file->bytes.end(); block += 128) {
            EXPECT_EQ(std::accumulate(block, block + 128, 0u) % 256, 0u);
        }
        const bool headerGood = std::equal(kHeader.begin(), kHeader.end(), file->bytes.begin());
        EXPECT_EQ(headerGood, row.name != "garbage");
    }
}

TEST(MonitorFiles, PreferTheTimingOfTheirName) {
    struct Row {
        const char* name;
        unsigned width, height, clock, lineTotal, linesTotal;  // clock in kHz
    };
    static constexpr Row kRows[] = {
        {"1080p60", 1920, 1080, 148'500, 2200, 1125}, {"1080p50", 1920, 1080, 148'500, 2640, 1125},
        {"720p60", 1280, 720, 74'250, 1650, 750},     {"720p50", 1280, 720, 74'250, 1980, 750},
        {"1080p30", 1920, 1080, 74'250, 2200, 1125},  {"1366x768", 1366, 768, 85'500, 1792, 798}};
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        const auto timing = PreferredTiming(LoadMonitor(row.name)->bytes);
        ASSERT_TRUE(timing);
        EXPECT_EQ(timing->xres, row.width);
        EXPECT_EQ(timing->yres, row.height);
        EXPECT_EQ(timing->pixclock, 1'000'000'000 / row.clock);
        EXPECT_EQ(timing->xres + timing->left_margin + timing->right_margin + timing->hsync_len, row.lineTotal);
        EXPECT_EQ(timing->yres + timing->upper_margin + timing->lower_margin + timing->vsync_len, row.linesTotal);
    }
    EXPECT_FALSE(PreferredTiming(LoadMonitor("display-descriptor-first")->bytes));
}

TEST(MonitorFiles, WithOtherThanHexAreRefused) {
    EXPECT_TRUE(ParseEdidFile("# words\n00 FFff\t01 # more\r\n"));
    EXPECT_EQ(ParseEdidFile("# words\n00 FFff\t01 # more\r\n")->bytes, (std::vector<uint8_t>{0, 255, 255, 1}));
    for (const char* text : {"0", "00 F", "0x00", "00,01", "!fix", "-1"}) EXPECT_FALSE(ParseEdidFile(text)) << text;
}

TEST_F(Models, MonitorAnswersItsEdidAndOnesBeyond) {
    std::vector<uint8_t> bytes(1024);
    ASSERT_EQ(I2cRead(1, 0x50, 0, bytes), 2);
    const auto edid = LoadMonitor("1080p60")->bytes;
    EXPECT_TRUE(std::equal(edid.begin(), edid.end(), bytes.begin()));
    EXPECT_THAT(std::vector(bytes.begin() + 256, bytes.end()), testing::Each(0xFF));

    for (const VerbWords& words : {VerbWords{"plug", "none-ddc"}, VerbWords{"unplug"}}) {
        EXPECT_TRUE(MonitorVerb(words).good);
        EXPECT_EQ(I2cRead(1, 0x50, 0, bytes), -ENXIO);
        EXPECT_EQ(files["/sys/devices/platform/soc/20e0000.hdmi_video/cable_state"],
                  words[0] == "plug" ? "plugin\n" : "plugout\n");
    }
    EXPECT_FALSE(MonitorVerb({"plug", "no-such"}).good);
    EXPECT_FALSE(MonitorVerb({"plug", "../monitors/1080p60"}).good);
}

TEST_F(Models, FixedPanelKeepsItsMode) {
    MonitorVerb({"plug", "1366x768"});
    EXPECT_EQ(DisplayTiming().xres, 1366u);
    Opened opened = Open("/dev/fb0");
    fb_var_screeninfo timing = DisplayTiming();
    timing.xres = timing.xres_virtual = 1920;
    timing.yres = timing.yres_virtual = 1080;
    timing.activate = FB_ACTIVATE_NOW;
    EXPECT_EQ(Ioctl(opened.file, FBIOPUT_VSCREENINFO, &timing), 0);
    EXPECT_EQ(timing.xres, 1366u);

    MonitorVerb({"plug", "1080p60"});
    timing.xres = 1280;
    timing.yres = 720;
    EXPECT_EQ(Ioctl(opened.file, FBIOPUT_VSCREENINFO, &timing), 0);
    EXPECT_EQ(DisplayTiming().xres, 1280u);
    timing.xres = 640;
    timing.activate = FB_ACTIVATE_TEST;
    EXPECT_EQ(Ioctl(opened.file, FBIOPUT_VSCREENINFO, &timing), 0);
    EXPECT_EQ(DisplayTiming().xres, 1280u);
    Close(opened.file);
}

// ---- HDMI receiver.

TEST(HdmiSignals, AreParsedWholeOrNotAtAll) {
    EXPECT_EQ(ParseHdmiSignal("1920x1080i60"),
              (HdmiSignal{.present = true, .width = 1920, .height = 1080, .rate = 60, .interlaced = true}));
    EXPECT_EQ(ParseHdmiSignal("off"), HdmiSignal{});
    for (const char* text : {"", "1920x1080", "1920x1080p", "x1080p60", "1920x1080p60 ", "1920x1081i60", "4097x2160p30",
                             "1920x1080p0", "-1x1080p60", "99999999999x1080p60", "1920X1080p60"})
        EXPECT_FALSE(ParseHdmiSignal(text)) << text;
}

TEST(HdmiSignals, HaveTheClockOfTheirTiming) {
    EXPECT_EQ(TmdsMegahertz(*ParseHdmiSignal("1920x1080p60")), 148u);
    EXPECT_EQ(TmdsMegahertz(*ParseHdmiSignal("1920x1080i60")), 74u);
    EXPECT_EQ(TmdsMegahertz(*ParseHdmiSignal("3840x2160p30")), 297u);
    EXPECT_NEAR(TmdsMegahertz(*ParseHdmiSignal("1600x1200p60")), 162, 20);  // 162 MHz by the book
}

TEST_F(Models, ReceiverLocksAfterAWhileAndMeasures) {
    HdmiInVerb({"0", "1920x1080p60"});
    EXPECT_EQ(Register(kMain, 0x6A) & 0x18, 0x10);
    PassTime(199'000);
    EXPECT_FALSE(Measure().locked);
    PassTime(1'000);
    EXPECT_EQ(Measure().width, 1920u);
    EXPECT_EQ(Measure().height, 1080u);
    EXPECT_EQ(Measure().megahertz, 148u);
    EXPECT_EQ(LockedHdmiSignal(), HdmiSourceAt(0));

    HdmiInVerb({"0", "1920x1080i60"});  // a hot change loses the lock first
    EXPECT_FALSE(Measure().locked);
    EXPECT_FALSE(LockedHdmiSignal().present);
    PassTime(200'000);
    EXPECT_TRUE(Measure().locked && Measure().interlaced);
    EXPECT_EQ(Measure().height, 540u);

    HdmiInVerb({"0", "4096x2160p24"});
    PassTime(200'000);
    EXPECT_EQ(Measure().width, 4096u);
    EXPECT_EQ(Register(kHdmi, 0x09), 0x08);
    EXPECT_EQ(Register(kHdmi, 0x0A), 0x70);

    HdmiInVerb({"0", "3840x2160p60"});  // more than it can follow: detected, never locked
    PassTime(10'000'000);
    EXPECT_FALSE(Measure().locked);
    EXPECT_EQ(Register(kMain, 0x6A) & 0x18, 0x10);
}

TEST_F(Models, ReceiverFollowsTheSelectedPort) {
    HdmiInVerb({"0", "1280x720p60"});
    HdmiInVerb({"1", "1920x1080i50"});
    PassTime(200'000);
    EXPECT_EQ(Register(kMain, 0x8D) & 2, 2);
    uint8_t other[10] = {};
    ASSERT_EQ(I2cRead(1, kHdmi, 0xE2, other), 2);
    EXPECT_EQ((other[0] & 0x1F) * 256 + other[1], 1920);
    EXPECT_EQ((other[4] & 0x1F) * 256 + other[5], 540);
    EXPECT_EQ(other[8] & 1, 1);

    I2cWrite(1, kHdmi, {0x00, 0x80});  // same port: nothing happens
    EXPECT_EQ(LockedHdmiSignal().height, 720u);
    I2cWrite(1, kHdmi, {0x00, 0x81});
    EXPECT_FALSE(LockedHdmiSignal().present);
    PassTime(200'000);
    EXPECT_EQ(SelectedHdmiPort(), 1);
    EXPECT_EQ(LockedHdmiSignal(), HdmiSourceAt(1));

    HdmiInVerb({"0", "off"});  // nor does it when the other port changes
    EXPECT_EQ(LockedHdmiSignal(), HdmiSourceAt(1));
    EXPECT_EQ(Register(kMain, 0x8D) & 2, 0);
}

TEST_F(Models, ReceiverForgetsItsRegistersAtAReset) {
    HdmiInVerb({"0", "1920x1080p60"});
    I2cWrite(1, kCp, {0x10, 1, 2, 3});
    EXPECT_EQ(Register(kCp, 0x12), 3);
    I2cWrite(1, kMain, {0xFF, 0x80});
    EXPECT_EQ(Register(kCp, 0x12), 0);

    I2cWrite(1, kCp, {0x10, 1});
    PassTime(200'000);
    EXPECT_TRUE(LockedHdmiSignal().present);
    WriteAttribute("/sys/class/gpio/gpio41/value", "0");
    EXPECT_EQ(Register(kCp, 0x10), -1);  // held in reset
    EXPECT_FALSE(LockedHdmiSignal().present);
    WriteAttribute("/sys/class/gpio/gpio41/value", "1\n");
    EXPECT_EQ(Register(kCp, 0x10), 0);
    PassTime(200'000);
    EXPECT_TRUE(LockedHdmiSignal().present);

    I2cWrite(1, kMain, {0x20, 0x78});  // hot-plug of port 0 low: its source goes quiet
    EXPECT_EQ(Register(kMain, 0x6A) & 0x10, 0);
    I2cWrite(1, kMain, {0x20, 0xF0});
    PassTime(200'000);
    EXPECT_TRUE(LockedHdmiSignal().present);
}

int changes;

TEST_F(Models, ReceiverTellsOfEachChangeOnce) {
    changes = 0;
    for (int times = 0; times < 2; ++times) OnHdmiSignalChange([] { ++changes; });
    void (*const count)() = [] { ++changes; };
    OnHdmiSignalChange(count);
    OnHdmiSignalChange(count);
    changes = 0;
    HdmiInVerb({"0", "1920x1080p60"});
    EXPECT_EQ(changes, 0);
    PassTime(200'000);
    const int once = changes;
    EXPECT_GT(once, 0);
    I2cWrite(1, kHdmi, {0x1A, 0x10});
    EXPECT_EQ(changes, once);
    WriteAttribute("/sys/class/gpio/gpio43/value", "0");  // its video is switched off
    EXPECT_EQ(changes, 2 * once);
    EXPECT_FALSE(LockedHdmiSignal().present);
}

// ---- I2C faults.

TEST_F(Models, I2cFaultsStrikeTheirAddressOnly) {
    uint8_t value = 0;
    EXPECT_EQ(I2cRead(2, 0x48, 0, {&value, 1}), 2);
    EXPECT_EQ(value, 16);
    EXPECT_EQ(I2cRead(1, 0x48, 0, {&value, 1}), -ENXIO);  // that chip sits on the other bus

    EXPECT_TRUE(I2cFaultVerb({"48", "nak"}).good);
    value = 77;
    EXPECT_EQ(I2cRead(2, 0x48, 0, {&value, 1}), -ENXIO);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(I2cRead(2, 0x60, 0, {&value, 1}), 2);
    EXPECT_TRUE(I2cFaultVerb({"48", "nak", "3"}).good);
    EXPECT_EQ(I2cRead(2, 0x48, 0, {&value, 1}), 2);
    EXPECT_EQ(I2cWrite(2, 0x48, {9, 1}), 1);
    EXPECT_EQ(I2cWrite(2, 0x48, {9, 2}), -ENXIO);
    EXPECT_EQ(I2cRead(2, 0x48, 9, {&value, 1}), 2);
    EXPECT_EQ(value, 1);  // the failed write changed nothing

    EXPECT_TRUE(I2cFaultVerb({"48", "hang"}).good);
    EXPECT_EQ(I2cRead(2, 0x48, 0, {&value, 1}), kHold);
    EXPECT_TRUE(I2cFaultVerb({"48", "off"}).good);
    EXPECT_EQ(I2cRead(2, 0x48, 0, {&value, 1}), 2);
    for (const VerbWords& words :
         {VerbWords{"48"}, {"80", "nak"}, {"zz", "nak"}, {"48", "nak", "0"}, {"48", "off", "1"}})
        EXPECT_FALSE(I2cFaultVerb(words).good);
}

// ---- GPIO.

TEST_F(Models, GpioLinesShowWhatDrivesThem) {
    const std::string value = "/sys/class/gpio/gpio87/value", direction = "/sys/class/gpio/gpio87/direction";
    EXPECT_EQ(ReadAttribute(value), std::strerror(ENOENT));
    EXPECT_EQ(WriteAttribute(value, "1"), -ENOENT);
    EXPECT_EQ(WriteAttribute("/sys/class/gpio/export", "87"), 0);
    EXPECT_EQ(ReadAttribute(direction), "in\n");
    EXPECT_EQ(ReadAttribute(value), "0\n");
    EXPECT_TRUE(JackVerb({"in"}).good);
    EXPECT_EQ(ReadAttribute(value), "1\n");
    EXPECT_FALSE(JackVerb({"maybe"}).good);

    WriteAttribute(direction, "out\n");
    EXPECT_EQ(ReadAttribute(value), "0\n");
    WriteAttribute(value, "1\n");
    EXPECT_TRUE(GpioLevel(87));
    WriteAttribute(value, "nonsense");
    EXPECT_TRUE(GpioLevel(87));
    JackVerb({"out"});
    EXPECT_TRUE(GpioLevel(87));  // an output does not care
    WriteAttribute(direction, "in");
    EXPECT_EQ(ReadAttribute(value), "0\n");

    for (const char* number : {"224", "-1", "8 7", ""}) WriteAttribute("/sys/class/gpio/export", number);
    EXPECT_EQ(GpioVerb({}).text.find("224"), std::string::npos);
    JackVerb({"in"});
    PowerOnGpio();
    EXPECT_EQ(ReadAttribute(value), std::strerror(ENOENT));
    EXPECT_TRUE(GpioLevel(87));  // the plug is still in its socket
    JackVerb({"out"});
}

TEST_F(Models, LedsThatAreButtonsTooStayWhileTheyAreRead) {
    const std::string value = "/sys/class/gpio/gpio106/value", direction = "/sys/class/gpio/gpio106/direction";
    EXPECT_TRUE(GpioLeds()["input3"].is_null());
    Drive("106", "high");
    Drive("8", "low");
    WriteAttribute("/sys/class/gpio/gpio8/value", "0");
    ledChanges.clear();
    for (const bool pressed : {false, true}) {
        EXPECT_TRUE(GpioButtonVerb({"3", pressed ? "press" : "release"}).good);
        EXPECT_EQ(ReadAttribute(value), "1\n");  // driven by the board
        WriteAttribute(direction, "in");
        EXPECT_EQ(ReadAttribute(value), pressed ? "0\n" : "1\n");
        EXPECT_EQ(GpioLeds()["input3"], 1);
        WriteAttribute(direction, "high");
    }
    EXPECT_TRUE(ledChanges.empty());
    WriteAttribute(value, "0");
    WriteAttribute(value, "0");
    EXPECT_EQ(ledChanges, (std::vector{Json{{"led", "input3"}, {"value", 0}}}));
    EXPECT_EQ(GpioLeds()["input3"], 0);
    EXPECT_EQ(GpioLeds()["camera1"], 0);
    GpioButtonVerb({"3", "release"});
    for (const VerbWords& words : {VerbWords{"0", "press"}, {"5", "press"}, {"3"}, {"3", "push"}})
        EXPECT_FALSE(GpioButtonVerb(words).good);
}

// ---- Front panel.

class PanelModels : public Models {
protected:
    void TearDown() override { Board.panel = "keypad"; }

    static void PowerOn(const char* panel) {
        Board.panel = panel;
        PowerOnI2c();
        PowerOnKeypad();
        PowerOnExpander();
        ledChanges.clear();
    }
};

std::vector<int> KeyReport() {
    std::array<uint8_t, 25> report{};
    EXPECT_EQ(I2cRead(2, 0x08, 0, report), 2);
    EXPECT_THAT(std::span(report).subspan(6), testing::Each(0));
    return {report.begin(), report.begin() + 6};
}

TEST_F(PanelModels, KeypadHoldsTheReportOfTheLastKey) {
    struct Row {
        VerbWords words;
        std::vector<int> report;
    };
    static const Row kRows[] = {
        {{"2"}, {1, 235, 2, 4, 2, 1}},
        {{"0xFF"}, {2, 235, 2, 4, 255, 1}},
        {{"swap"}, {3, 238, 0, 0, 0, 0}},
        {{"view", "14"}, {4, 239, 14, 0, 0, 0}},
        {{"repeat", "4"}, {4, 235, 2, 4, 4, 1}},
        {{"garbage"}, {5, 0, 1, 1, 1, 1}},
        {{"garbage", "240"}, {6, 240, 1, 1, 1, 1}},
    };
    PowerOn("keypad");
    EXPECT_EQ(KeyReport(), (std::vector{0, 235, 2, 4, 0, 0}));
    for (const Row& row : kRows) {
        const uint64_t id = KeyVerb(row.words).later;
        EXPECT_FALSE(lateAnswers.contains(id)) << "before it was fetched";
        EXPECT_EQ(KeyReport(), row.report);
        EXPECT_EQ(KeyReport(), row.report) << "still there";
        EXPECT_TRUE(lateAnswers[id].good);
    }
    for (const VerbWords& words :
         {VerbWords{}, {"256"}, {"-1"}, {"0x"}, {"view"}, {"push"}, {"1", "2"}, {"view", "x"}, {"swap", "1"}})
        EXPECT_EQ(KeyVerb(words).later, 0u);

    const uint64_t first = KeyVerb({"1"}).later, second = KeyVerb({"2"}).later;
    EXPECT_FALSE(lateAnswers[first].good) << "overtaken";
    PassTime(2'000'000);
    EXPECT_FALSE(lateAnswers[second].good) << "nobody looked";
    EXPECT_EQ(KeyReport(), (std::vector{8, 235, 2, 4, 2, 1}));
    PowerOn("keypad");
    EXPECT_EQ(KeyReport(), (std::vector{0, 235, 2, 4, 0, 0}));
    EXPECT_EQ(I2cWrite(2, 0x21, {0x40, 0, 0}), -ENXIO);
    EXPECT_FALSE(ButtonsVerb({"1"}).good);
}

TEST_F(PanelModels, KeypadTakesWholeFramesOnly) {
    PowerOn("keypad");
    const std::vector<uint8_t> frame{0, 9, 0xAB, 0xCD, 0, 0, 0, 0, 0, 0, 0};
    for (int times = 0; times < 2; ++times) EXPECT_EQ(I2cWrite(2, 0x08, frame), 1);
    std::vector<std::vector<uint8_t>> bad(4, frame);
    for (std::vector<uint8_t>& bytes : bad) bytes[1] = 1;
    bad[0].pop_back();
    bad[1].push_back(0);
    bad[2][2] = 0xCD;
    bad[3][0] = 1;
    for (const std::vector<uint8_t>& bytes : bad) EXPECT_EQ(I2cWrite(2, 0x08, bytes), 1);
    EXPECT_EQ(KeypadLeds(), (Json{{"leds", 9}, {"frames", 2}, {"refused", 4}}));
    EXPECT_EQ(ledChanges, (std::vector{Json{{"led", "panel"}, {"value", 9}}}));
    EXPECT_EQ(KeyReport()[1], 235) << "a frame is no report";
}

int ExpanderRegister(unsigned at) {
    uint8_t value = 0;
    return I2cRead(2, 0x21, static_cast<uint8_t>(at), {&value, 1}) == 2 ? value : -1;
}

TEST_F(PanelModels, ExpanderStartsUnconfigured) {
    PowerOn("expander");
    EXPECT_EQ(ExpanderRegister(6), 255);
    I2cWrite(2, 0x21, {2, 5});
    EXPECT_EQ(ExpanderLeds(), (Json{{"leds", 0}, {"configured", false}, {"looks", 0}}));
    I2cWrite(2, 0x21, {6, 0});
    EXPECT_EQ(ExpanderLeds(), (Json{{"leds", 5}, {"configured", true}, {"looks", 0}}));
    EXPECT_EQ(ExpanderRegister(0), 5);
    I2cWrite(2, 0x21, {2, 6, 0xFF, 7});  // back and forth within the pair
    EXPECT_EQ(ExpanderRegister(2), 7);
    EXPECT_EQ(ExpanderRegister(6), 0);
    I2cWrite(2, 0x21, {0x40, 0, 0});
    EXPECT_EQ(ExpanderRegister(0x41), 0);
    I2cWrite(2, 0x21, {1, 0});
    EXPECT_EQ(ExpanderRegister(1) & 0x7F, 0x3F) << "inputs cannot be written";
    EXPECT_EQ(ExpanderLeds()["looks"], 1);

    EXPECT_TRUE(ExpanderFaultVerb({"reset"}).good);
    EXPECT_EQ(ExpanderRegister(6), 255);
    EXPECT_EQ(ExpanderRegister(2), 255);
    EXPECT_EQ(ExpanderLeds()["leds"], 0);
    EXPECT_EQ(ledChanges.size(), 3u);
    EXPECT_FALSE(KeyVerb({"1"}).good);
}

TEST_F(PanelModels, ButtonsAreHeldAndComeBack) {
    PowerOn("expander");
    const auto port = [] { return ExpanderRegister(1) & 0x7F; };
    EXPECT_EQ(port(), 0x3F);
    EXPECT_TRUE(ButtonsVerb({"0x40"}).good);
    EXPECT_EQ(port(), 0x7F);
    const uint64_t id = ButtonsVerb({"0x41", "for", "200"}).later;
    EXPECT_EQ(port(), 0x7E);
    PassTime(199'999);
    EXPECT_FALSE(lateAnswers.contains(id));
    PassTime(1);
    EXPECT_TRUE(lateAnswers[id].good);
    EXPECT_EQ(port(), 0x7F) << "what was held before";

    const uint64_t cut = ButtonsVerb({"1", "for", "200"}).later;
    PowerOn("expander");
    EXPECT_EQ(port(), 0x3E) << "fingers know nothing of power";
    EXPECT_TRUE(ButtonsVerb({"0"}).good);
    EXPECT_TRUE(lateAnswers.contains(cut));
    PassTime(1'000'000);
    EXPECT_EQ(port(), 0x3F);
    for (const VerbWords& words : {VerbWords{}, {"128"}, {"1", "for"}, {"1", "for", "60001"}, {"1", "until", "2"}})
        EXPECT_FALSE(ButtonsVerb(words).good);
}

TEST_F(PanelModels, BouncingContactsComeToRest) {
    PowerOn("expander");
    EXPECT_TRUE(ExpanderFaultVerb({"bounce", "100"}).good);
    ButtonsVerb({"2"});
    std::vector<int> seen;
    for (int look = 0; look < 6; ++look, PassTime(25'000)) seen.push_back(ExpanderRegister(1) & 0x7F);
    EXPECT_EQ(seen, (std::vector{0x3F, 0x3D, 0x3F, 0x3D, 0x3D, 0x3D}));
    EXPECT_TRUE(ExpanderFaultVerb({"off"}).good);
    ButtonsVerb({"0"});
    EXPECT_EQ(ExpanderRegister(1) & 0x7F, 0x3F);
    for (const VerbWords& words : {VerbWords{}, {"bounce"}, {"bounce", "x"}, {"reset", "1"}})
        EXPECT_FALSE(ExpanderFaultVerb(words).good);
}

// ---- Watchdog.

TEST_F(Models, WatchdogResetsTheBoardThatForgetsIt) {
    constexpr int64_t kSecond = 1'000'000;
    Opened opened = Open("/dev/watchdog");
    EXPECT_EQ(Open("/dev/watchdog").result, -EBUSY);
    int seconds = 30;
    EXPECT_EQ(Ioctl(opened.file, WDIOC_SETTIMEOUT, &seconds), 0);
    for (int pass = 0; pass < 5; ++pass) {
        PassTime(29 * kSecond);
        EXPECT_EQ(Ioctl(opened.file, WDIOC_KEEPALIVE, &seconds), 0);
    }
    seconds = 1000;
    EXPECT_EQ(Ioctl(opened.file, WDIOC_SETTIMEOUT, &seconds), -EINVAL);
    Close(opened.file);  // no 'V': armed all the same
    EXPECT_NEAR(WatchdogNow().timeLeft, 30, 0.01);

    Opened polite = Open("/dev/watchdog");
    EXPECT_EQ(write(polite.file.descriptor, "V", 1), 1);
    Close(polite.file);
    EXPECT_FALSE(WatchdogNow().armed);
    PassTime(100 * kSecond);
    EXPECT_TRUE(resets.empty());

    Opened forgetful = Open("/dev/watchdog");
    PassTime(30 * kSecond);
    EXPECT_THAT(resets, testing::ElementsAre("watchdog"));
    Close(forgetful.file);
}

// ---- Journal.

TEST(JournalDatagrams, AreParsedWholeOrDropped) {
    const std::string binary =
        std::string("PRIORITY=3\nMESSAGE\n\x0b\0\0\0\0\0\0\0", 27) + "two\nlines\n\n\nCODE_LINE=7\n";
    const auto entry = ParseJournalDatagram(binary);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->priority, '3');
    EXPECT_EQ(entry->message, "two\nlines");

    const auto plain = ParseJournalDatagram("MESSAGE=a=b\nPRIORITY=99\nSYSLOG_IDENTIFIER=daemon\n");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->message, "a=b");
    EXPECT_EQ(plain->priority, '6');
    EXPECT_EQ(plain->identifier, "daemon");

    EXPECT_FALSE(ParseJournalDatagram(""));
    EXPECT_FALSE(ParseJournalDatagram("PRIORITY=3\n"));
    EXPECT_FALSE(ParseJournalDatagram(std::string("MESSAGE\n\xff\xff\xff\xff\xff\xff\xff\xff", 16) + "x\n"));
    for (size_t size = 12; size < 38; ++size)
        EXPECT_FALSE(ParseJournalDatagram(std::string_view(binary).substr(0, size)));
}

}  // namespace
