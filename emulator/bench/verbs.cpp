// The table of verbs, and the few verbs that belong to the board as a whole.

#include <algorithm>
#include <array>
#include <string>

#include "bench/bench_state.h"
#include "bench/control.h"
#include "bench/record.h"
#include "bench/settings_record.h"
#include "bench/telnet_line.h"
#include "bench/trace.h"
#include "capture/camera.h"
#include "devices/expander.h"
#include "devices/gpio.h"
#include "devices/hdmi_receiver.h"
#include "devices/i2c_bus.h"
#include "devices/keypad.h"
#include "devices/monitor.h"
#include "devices/serial_line.h"
#include "devices/watchdog.h"
#include "kernel/held_calls.h"
#include "kernel/nodes.h"
#include "kernel/sandbox.h"
#include "kernel/supervisor.h"
#include "sound/sound_card.h"
#include "system/board.h"
#include "system/console.h"
#include "system/faults.h"
#include "system/journal.h"
#include "system/port_forward.h"
#include "system/service_manager.h"
#include "system/system_files.h"
#include "text.h"

static VerbAnswer TraceVerb(const VerbWords& words) {
    const std::optional<Listing> listing = ParseListing(words);
    if (!listing) return Usage("trace");
    if (listing->clear) ClearTrace();
    return {.text = TraceText(listing->newest), .follow = listing->follow ? Feed::kTrace : Feed::kNone};
}

static VerbAnswer LedsVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("leds");
    return {.text = LedsNow().dump(4)};
}

static Json CameraStatus(int camera) {
    const CameraProfile* profile = ConnectedCamera(camera);
    return profile ? Json(profile->name) : Json(nullptr);
}

static VerbAnswer StatusVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("status");
    const WatchdogState watchdog = WatchdogNow();
    Json status{
        {"board", Board.folder.string()},
        {"uptime", double(NowMicroseconds() - PowerOnTime()) / 1e6},
        {"daemon", ServiceStatus()},
        {"camera1", CameraStatus(1)},
        {"camera2", CameraStatus(2)},
        {"hdmi-in", {SourceAt(0), SourceAt(1)}},
        {"monitor", PluggedMonitor()},
        {"panel", Board.panel},
        {"lan", LanPlugged() ? "plugged" : "unplugged"},
        {"watchdog",
         {{"armed", watchdog.armed}, {"time left", watchdog.timeLeft}, {"longest gap", watchdog.longestGap}}},
        {"held calls", HeldCallCount()},
        {"open", OpenNodes()},
        {"ports", PortStatus()},
    };
    return {.text = status.dump(4)};
}

// What a board can be made into while its power is off. False when the value is none of that row's.
struct RebuildRow {
    std::string_view word;
    bool (*take)(const std::string& value, BoardOptions& wanted);
};

static bool TakeEither(const std::string& value, std::string_view on, std::string_view off, bool& to) {
    to = value == on;
    return value == on || value == off;
}

static bool TakeDeviceId(const std::string& value, BoardOptions& wanted) {
    const std::optional<unsigned> number = ParseNumber(value, 255);
    wanted.deviceId = int(number.value_or(0));
    return number.has_value();
}

static bool TakePanel(const std::string& value, BoardOptions& wanted) {
    wanted.panel = value;
    return value == "keypad" || value == "expander" || value == "none";
}

static constexpr std::array kRebuildRows{
    RebuildRow{"device-id", TakeDeviceId},
    RebuildRow{"kernel", [](const std::string& value,
                            BoardOptions& wanted) { return TakeEither(value, "old", "new", wanted.oldKernel); }},
    RebuildRow{"top-board", [](const std::string& value,
                               BoardOptions& wanted) { return TakeEither(value, "on", "off", wanted.topBoard); }},
    RebuildRow{"panel", TakePanel},
};

static VerbAnswer PowerCycleVerb(const VerbWords& words) {
    if (words.size() % 2 != 0) return Usage("power-cycle");
    BoardOptions wanted = Board;
    wanted.deviceId = -1;
    for (size_t at = 0; at < words.size(); at += 2) {
        const auto row = std::ranges::find(kRebuildRows, std::string_view(words[at]), &RebuildRow::word);
        if (row == kRebuildRows.end() || !row->take(words[at + 1], wanted)) return Usage("power-cycle");
    }
    if (wanted.deviceId >= 0) WriteDeviceId(wanted.deviceId);
    Board = wanted;
    ResetBoard("power-cycle");
    return {};
}

static VerbAnswer KernelLogVerb(const VerbWords& words) {
    if (words.empty()) return Usage("kernel-log");
    std::string line;
    for (const std::string& word : words) line.append(line.empty() ? "" : " ").append(word);
    WriteKernelLog(line);
    return {};
}

static constexpr std::array kVerbs{
    Verb{"camera", "camera N [plug PROFILE | unplug | stall | resume | garbage | wrong-size]", CameraVerb, 2},
    Verb{"hdmi-in", "hdmi-in PORT WxH[p|i]R | off", HdmiInVerb, kActs},
    Verb{"monitor", "monitor plug [EDID] | unplug", MonitorVerb, kActs},
    Verb{"lan", "lan plug|unplug", LanVerb, kActs},
    Verb{"jack", "jack in|out", JackVerb, kActs},
    Verb{"strap60", "strap60 on|off", Strap60Verb, kActs},
    Verb{"key", "key CODE | swap | view N | repeat CODE | garbage [TYPE]", KeyVerb, kActs},
    Verb{"buttons", "buttons MASK [for MS]", ButtonsVerb, kActs},
    Verb{"gpio-button", "gpio-button N press|release", GpioButtonVerb, kActs},
    Verb{"serial", "serial TEXT [MS]", SerialVerb, kActs},
    Verb{"telnet", "telnet TEXT", TelnetVerb, kActs},
    Verb{"console", "console [TEXT | --follow]", ConsoleVerb, 1},
    Verb{"audio", "audio", AudioVerb},
    Verb{"tone", "tone SOURCE on|off", ToneVerb, kActs},
    Verb{"sound", "sound PORT plug PROFILE | unplug", SoundVerb, kActs},
    Verb{"bench", "bench", BenchVerb},
    Verb{"settings", "settings", SettingsVerb},
    Verb{"leds", "leds", LedsVerb},
    Verb{"gpio", "gpio", GpioVerb},
    Verb{"i2c", "i2c", I2cVerb},
    Verb{"fault",
         "fault tool NAME fail|killed|hang|spin|silent|flood|slow|absent|off | disk full|readonly|off | i2c ADDRESS "
         "nak [N]|hang|off | camera N query|read|write|stuck|off | sound PLACE busy|gone|xrun|off | expander reset|"
         "bounce MS|off | udev NODE ACTION [TIMES] | element NAME error CODE|warning CODE|end|stall|off",
         FaultVerb, kActs},
    Verb{"temperature", "temperature CELSIUS", TemperatureVerb, kActs},
    Verb{"kernel-log", "kernel-log TEXT", KernelLogVerb, kActs},
    Verb{"trace", "trace [--last N] [--follow] [--clear]", TraceVerb},
    Verb{"journal", "journal [--last N] [--follow]", JournalVerb},
    Verb{"record", "record [start [FILE] | stop]", RecordVerb},
    Verb{"power-cycle", "power-cycle [device-id N] [kernel old|new] [top-board on|off] [panel keypad|expander|none]",
         PowerCycleVerb, kActs},
    Verb{"status", "status", StatusVerb},
};

std::span<const Verb> Verbs() { return kVerbs; }
