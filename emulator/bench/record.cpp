#include "bench/record.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "bench/display_picture.h"
#include "bench/scenario.h"
#include "capture/camera.h"
#include "devices/framebuffer.h"
#include "devices/hdmi_receiver.h"
#include "devices/monitor.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "system/system_files.h"
#include "text.h"

static constexpr size_t kLimit = size_t{8} << 20;      // bytes
static constexpr int64_t kPictureRunning = 1'000'000;  // microseconds since its newest frame, at most

static std::string recorded;  // lines
static int64_t startedAt = 0;
static bool recording = false;
static unsigned verbs = 0;  // recorded since the start
static FILE* file = nullptr;
static std::string typed;  // a line that is not yet ended

static void Keep(const std::string& line) {
    recorded += line + '\n';
    if (file == nullptr) return;
    fprintf(file, "%s\n", line.c_str());
    fflush(file);
}

static void StopRecord() {
    recording = false;
    if (file != nullptr) fclose(file);
    file = nullptr;
}

void Record(const VerbWords& verb) {
    if (!recording) return;
    ++verbs;
    Keep(ScenarioText(double(NowMicroseconds() - startedAt) / 1e6, verb));
    if (recorded.size() < kLimit) return;
    Keep("# The record is full: what was done from here on is missing.");
    StopRecord();
}

void RecordTyped(std::string_view part) {
    typed += part;
    for (size_t end; (end = typed.find('\n')) != typed.npos; typed.erase(0, end + 1))
        Record({"console", typed.substr(0, end)});
    if (typed.size() > kLimit) typed.clear();
}

// The beginning: the board as options of `run` tell it, and what they cannot tell.

static std::string PluggedSource(int port) {
    const HdmiSignal signal = HdmiSourceAt(port);
    return signal.present ? HdmiSignalText(signal) : "";
}

static VerbWords BoardLine() {
    const std::string monitor = PluggedMonitor(), id = Board.deviceId < 0 ? "" : std::to_string(Board.deviceId);
    struct Option {
        const char* name;
        std::string value;  // empty: it is not there
    };
    const std::array options{Option{"--device-id", id},
                             Option{"--panel", Board.panel == "keypad" ? "" : Board.panel},
                             Option{"--camera1", PluggedCamera(1)},
                             Option{"--camera2", PluggedCamera(2)},
                             Option{"--hdmi-in", PluggedSource(0)},
                             Option{"--monitor", monitor.empty() ? "none" : monitor}};
    VerbWords words{"board"};
    for (const Option& option : options)
        if (!option.value.empty()) words.insert(words.end(), {option.name, option.value});
    for (const std::string& variable : Board.environment) words.insert(words.end(), {"--env", variable});
    if (Board.oldKernel) words.emplace_back("--old-kernel");
    if (Board.topBoard) words.emplace_back("--top-board");
    if (!Board.restart) words.emplace_back("--no-restart");
    if (!Board.arguments.empty()) words.emplace_back("--");
    words.insert(words.end(), Board.arguments.begin(), Board.arguments.end());
    return words;
}

// A fresh board takes some seconds to its first picture: what was done to one that had a picture is done once it is
// there, at the same times from then on.
static void AwaitPicture() {
    if (NowMicroseconds() - LastShownAt(Volatile / "display") > kPictureRunning) return;
    const fb_var_screeninfo& mode = DisplayTiming();
    Keep(Text("expect picture size %ux%u within 30", mode.xres, mode.yres));
    Keep("clock");
}

void StartRecord() {
    recorded.clear();
    typed.clear();
    startedAt = NowMicroseconds();
    recording = true;
    Keep(QuotedWords(BoardLine()));
    if (const std::string source = PluggedSource(1); !source.empty()) Record({"hdmi-in", "1", source});
    if (!LanPlugged()) Record({"lan", "unplug"});
    AwaitPicture();
    verbs = 0;  // so far they only tell how the board is
}

static VerbAnswer Start(const VerbWords& words) {
    FILE* opened = words.size() == 2 ? fopen(words[1].c_str(), "we") : nullptr;
    if (words.size() == 2 && opened == nullptr) return Bad("record: " + words[1] + ": " + strerror(errno));
    StopRecord();
    file = opened;
    StartRecord();
    return {};
}

VerbAnswer RecordVerb(const VerbWords& words) {
    if (words.empty()) return {.text = recorded};
    if (words[0] == "start" && words.size() <= 2) return Start(words);
    if (words != VerbWords{"stop"}) return Usage("record");
    if (!recording) return Bad("record: nothing is being recorded");
    StopRecord();
    return {};
}

Json RecordNow() {
    const int64_t seconds = recording ? (NowMicroseconds() - startedAt) / 1'000'000 : 0;
    return {{"running", recording}, {"seconds", seconds}, {"verbs", verbs}};
}
