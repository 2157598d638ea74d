#include "bench/bench_state.h"

#include <fstream>

#include "bench/daemon_memory.h"
#include "bench/record.h"
#include "bench/settings_record.h"
#include "capture/camera.h"
#include "devices/expander.h"
#include "devices/framebuffer.h"
#include "devices/gpio.h"
#include "devices/hdmi_receiver.h"
#include "devices/i2c_bus.h"
#include "devices/keypad.h"
#include "devices/monitor.h"
#include "devices/watchdog.h"
#include "kernel/supervisor.h"
#include "sound/sound_card.h"
#include "system/board.h"
#include "system/faults.h"
#include "system/port_forward.h"
#include "system/service_manager.h"
#include "system/system_files.h"

Json SourceAt(int port) {
    const HdmiSignal signal = HdmiSourceAt(port);
    return signal.present ? Json(HdmiSignalText(signal)) : Json(nullptr);
}

Json LedsNow() {
    Json leds = GpioLeds();
    leds["panel"] = nullptr;
    if (Board.panel == "none") return leds;
    leds["panel"] = {{"form", Board.panel}};
    leds["panel"].update(Board.panel == "keypad" ? KeypadLeds() : ExpanderLeds());
    return leds;
}

// What the daemon takes itself for: its command may have changed the variant since the start.
static int Variant() {
    const std::vector<uint8_t> live = DaemonVariable("DeviceId", 1);
    if (!live.empty()) return live[0];
    std::ifstream file(HostPath("/home/root/Tesselvisor.conf"));
    std::string line;
    std::getline(file, line);
    return line.starts_with("DEVICEID=") ? atoi(line.c_str() + 9) : 0;
}

static bool IsBlanked() {
    std::ifstream file(HostPath("/sys/class/graphics/fb0/blank"));
    int level = 0;
    return file >> level && level != 0;
}

static Json Ports() {
    return {{"camera", {CameraSummary(1), CameraSummary(2)}},
            {"sound", {PluggedSound(1), PluggedSound(2)}},
            {"hdmi-in", {SourceAt(0), SourceAt(1)}},
            {"monitor", PluggedMonitor()},
            {"blank", IsBlanked()},
            {"lan", LanPlugged()},
            {"jack", GpioLevel(kGpioAudioJack)},
            {"strap60", GpioLevel(kGpioStrap60)},
            {"temperature", TemperatureNow()}};
}

static Json Faults() {
    Json faults = FaultSummary();
    faults["i2c"] = I2cFaultSummary();
    return faults;
}

VerbAnswer BenchVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("bench");
    const WatchdogState watchdog = WatchdogNow();
    const Json bench{
        {"board", Board.folder.string()},
        {"temporary", Board.temporary},
        {"uptime", int64_t((NowMicroseconds() - PowerOnTime()) / 1'000'000)},
        {"daemon", ServiceSummary()},
        {"watchdog", {{"armed", watchdog.armed}, {"time left", watchdog.timeLeft}}},
        {"identity",
         {{"device-id", Variant()},
          {"kernel", Board.oldKernel ? "old" : "new"},
          {"top-board", Board.topBoard},
          {"panel", Board.panel}}},
        {"ports", Ports()},
        {"leds", LedsNow()},
        {"sound", SoundLevels()},
        {"faults", Faults()},
        {"addresses", PortStatus()},
        {"settings", SettingsNow()},
        {"record", RecordNow()},
    };
    return {.text = bench.dump(-1, ' ', false, Json::error_handler_t::replace)};
}
