#include "devices/monitor.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "bench/trace.h"
#include "devices/edid.h"
#include "devices/framebuffer.h"
#include "devices/i2c_bus.h"
#include "system/board.h"
#include "system/places.h"

static constexpr const char* kCableState = "/sys/devices/platform/soc/20e0000.hdmi_video/cable_state";
static constexpr std::string_view kExtension = ".edid";
static constexpr uint8_t kPastEnd = 0xFF;  // an idle bus reads as ones

static bool firstPowerOn = true;
static std::string plugged;  // the monitor's name, empty: none
static EdidFile monitor;

static std::optional<EdidFile> LoadEdid(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file) return std::nullopt;
    return ParseEdidFile(std::string(std::istreambuf_iterator(file), {}));
}

static std::filesystem::path EdidPath(const std::string& name) {
    if (name.find('/') != name.npos) return name;
    return EmulatorFile("monitors") / (name + std::string(kExtension));
}

std::vector<MonitorSummary> ListMonitors() {
    std::vector<MonitorSummary> monitors;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(EmulatorFile("monitors"), error)) {
        if (entry.path().extension() != kExtension) continue;
        const std::optional<EdidFile> file = LoadEdid(entry.path());
        monitors.push_back({entry.path().stem(), file ? file->description : "not an EDID in hex text"});
    }
    std::ranges::sort(monitors, {}, &MonitorSummary::name);
    return monitors;
}

bool MonitorPlugged() { return !plugged.empty(); }
std::string PluggedMonitor() { return plugged; }

static bool HasEdid(const I2cDevice&) { return MonitorPlugged() && !monitor.bytes.empty(); }

static uint8_t ReadEdid(I2cDevice&, unsigned offset) {
    return offset < monitor.bytes.size() ? monitor.bytes[offset] : kPastEnd;
}

static void KeepEdid(I2cDevice&, unsigned, uint8_t) {}  // its memory is write-protected

static I2cDevice edidMemory{
    .name = "monitor EDID", .bus = 1, .address = 0x50, .answers = HasEdid, .read = ReadEdid, .write = KeepEdid};

// Brings everything that shows the plug in line with it.
static void ShowPlug() {
    edidMemory.registers.fill(kPastEnd);
    std::ranges::copy_n(monitor.bytes.begin(),
                        static_cast<ptrdiff_t>(std::min(monitor.bytes.size(), edidMemory.registers.size())),
                        edidMemory.registers.begin());
    const std::optional<fb_var_screeninfo> panel = monitor.fixedMode ? PreferredTiming(monitor.bytes) : std::nullopt;
    SetFixedPanel(panel ? &*panel : nullptr);
    WriteBoardFile(kCableState, MonitorPlugged() ? "plugin\n" : "plugout\n");
}

// An empty text, or what is wrong with that monitor.
static std::string Plug(const std::string& name) {
    std::optional<EdidFile> file = LoadEdid(EdidPath(name));
    if (!file) return "no monitor \"" + name + "\" (tessel-emulator profiles lists them)";
    monitor = std::move(*file);
    plugged = name;
    return {};
}

void PowerOnMonitor() {
    // Later the bench decides: a plug stays in its socket over a power cycle.
    if (firstPowerOn && Board.monitor != "none") Plug(Board.monitor);
    firstPowerOn = false;
    AddI2cDevice(edidMemory);
    ShowPlug();
}

static VerbAnswer PlugVerb(const std::string& name) {
    if (const std::string wrong = Plug(name); !wrong.empty()) return Bad("monitor: " + wrong);
    ShowPlug();
    Trace("plug", {{"monitor", name}});
    return {};
}

VerbAnswer MonitorVerb(const VerbWords& words) {
    if (words.size() == 1 && words[0] == "unplug") {
        plugged.clear();
        monitor = {};
        ShowPlug();
        Trace("plug", {{"monitor", nullptr}});
        return {};
    }
    const bool plug = !words.empty() && words[0] == "plug" && words.size() <= 2;
    if (!plug) return Usage("monitor");
    static const std::string kUsual = "1080p60";
    return PlugVerb(words.size() == 2 ? words[1] : kUsual);
}
