// The table of verbs, and the few verbs that belong to the board as a whole.

#include <array>
#include <string>

#include "board.h"
#include "camera.h"
#include "console.h"
#include "control.h"
#include "expander.h"
#include "faults.h"
#include "gpio.h"
#include "hdmi_receiver.h"
#include "held_calls.h"
#include "i2c_bus.h"
#include "journal.h"
#include "keypad.h"
#include "monitor.h"
#include "port_forward.h"
#include "sandbox.h"
#include "serial_line.h"
#include "service_manager.h"
#include "sound_card.h"
#include "supervisor.h"
#include "system_files.h"
#include "trace.h"
#include "watchdog.h"

static VerbAnswer TraceVerb(const VerbWords& words) {
    bool follow = false, clear = false;
    for (const std::string& word : words) {
        if (word != "--follow" && word != "--clear") return Usage("trace");
        (word == "--follow" ? follow : clear) = true;
    }
    VerbAnswer answer{.text = clear ? "" : TraceText(), .follow = follow};
    if (clear) ClearTrace();
    return answer;
}

static Json PanelLeds() {
    if (Board.panel == "none") return nullptr;
    Json leds{{"form", Board.panel}};
    leds.update(Board.panel == "keypad" ? KeypadLeds() : ExpanderLeds());
    return leds;
}

static VerbAnswer LedsVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("leds");
    Json leds = GpioLeds();
    leds["panel"] = PanelLeds();
    return {.text = leds.dump(4)};
}

static Json SignalStatus(const HdmiSignal& signal) {
    if (!signal.present) return nullptr;
    return std::to_string(signal.width) + "x" + std::to_string(signal.height) + (signal.interlaced ? "i" : "p") +
           std::to_string(signal.rate);
}

static Json CameraStatus(int camera) {
    const CameraProfile* profile = ConnectedCamera(camera);
    return profile ? Json(profile->name) : Json(nullptr);
}

static VerbAnswer StatusVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("status");
    WatchdogState watchdog = WatchdogNow();
    Json status{
        {"board", Board.folder.string()},
        {"uptime", double(NowMicroseconds() - PowerOnTime()) / 1e6},
        {"daemon", ServiceStatus()},
        {"camera1", CameraStatus(1)},
        {"camera2", CameraStatus(2)},
        {"hdmi-in", {SignalStatus(HdmiSourceAt(0)), SignalStatus(HdmiSourceAt(1))}},
        {"monitor", PluggedMonitor()},
        {"panel", Board.panel},
        {"lan", LanPlugged() ? "plugged" : "unplugged"},
        {"watchdog", {{"armed", watchdog.armed}, {"time left", watchdog.timeLeft}}},
        {"held calls", HeldCallCount()},
        {"ports", PortStatus()},
    };
    return {.text = status.dump(4)};
}

static VerbAnswer PowerCycleVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("power-cycle");
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
    Verb{"camera", "camera N [plug PROFILE | unplug | stall | resume | garbage]", CameraVerb},
    Verb{"hdmi-in", "hdmi-in PORT WxH[p|i]R | off", HdmiInVerb},
    Verb{"monitor", "monitor plug [EDID] | unplug", MonitorVerb},
    Verb{"lan", "lan plug|unplug", LanVerb},
    Verb{"jack", "jack in|out", JackVerb},
    Verb{"strap60", "strap60 on|off", Strap60Verb},
    Verb{"key", "key CODE | swap | view N | repeat CODE | garbage [TYPE]", KeyVerb},
    Verb{"buttons", "buttons MASK [for MS]", ButtonsVerb},
    Verb{"gpio-button", "gpio-button N press|release", GpioButtonVerb},
    Verb{"serial", "serial TEXT", SerialVerb},
    Verb{"console", "console [TEXT]", ConsoleVerb},
    Verb{"audio", "audio", AudioVerb},
    Verb{"tone", "tone SOURCE on|off", ToneVerb},
    Verb{"sound", "sound PORT plug PROFILE | unplug", SoundVerb},
    Verb{"leds", "leds", LedsVerb},
    Verb{"gpio", "gpio", GpioVerb},
    Verb{"i2c", "i2c", I2cVerb},
    Verb{"fault",
         "fault tool NAME fail|hang|silent|flood|slow|absent|off | disk full|readonly|off | i2c ADDRESS nak "
         "[N]|hang|off | camera N query|read|write|stuck|off | sound PLACE busy|gone|xrun|off | expander reset|bounce "
         "MS|off",
         FaultVerb},
    Verb{"temperature", "temperature CELSIUS", TemperatureVerb},
    Verb{"kernel-log", "kernel-log TEXT", KernelLogVerb},
    Verb{"trace", "trace [--follow] [--clear]", TraceVerb},
    Verb{"journal", "journal", JournalVerb},
    Verb{"power-cycle", "power-cycle", PowerCycleVerb},
    Verb{"status", "status", StatusVerb},
};

std::span<const Verb> Verbs() { return kVerbs; }
