#include "system/system_files.h"

#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "bench/trace.h"
#include "capture/camera.h"
#include "capture/usb_description.h"
#include "devices/edid.h"
#include "kernel/attribute_file.h"
#include "kernel/supervisor.h"
#include "sound/sound_card.h"
#include "system/board.h"
#include "system/places.h"
#include "text.h"

struct PlainFile {
    const char* path;
    const char* text;
};

// What the kernel and the boot scripts show at every power-on.
static constexpr PlainFile kVolatileFiles[] = {
    {.path = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor", .text = "interactive\n"},
    {.path = "/sys/devices/system/cpu/cpu1/cpufreq/scaling_governor", .text = "interactive\n"},
    {.path = "/sys/devices/system/cpu/cpu2/online", .text = "1\n"},
    {.path = "/sys/devices/system/cpu/cpu3/online", .text = "1\n"},
    {.path = "/sys/devices/system/cpu/online", .text = "0-3\n"},
    {.path = "/sys/devices/system/cpu/possible", .text = "0-3\n"},
    {.path = "/opt/board/state/kernel.log",
     .text = "[    0.000000] Booting Linux on physical CPU 0x0\n"
             "[    0.000000] OF: fdt: Machine model: i.MX6 Quad video appliance\n"
             "[    0.412300] imx2-wdt 20bc000.wdog: timeout 60 sec (nowayout=0)\n"
             "[    1.204518] mxc_sdc_fb fb@0: registered mxc display driver hdmi\n"
             "[    1.731042] ci_hdrc ci_hdrc.0: EHCI Host Controller\n"
             "[    1.752216] ci_hdrc ci_hdrc.1: EHCI Host Controller\n"
             "[    2.086441] ov5640: unsupported bit mode 0\n"},
};

// What the factory wrote to the flash.
static constexpr PlainFile kFlashFiles[] = {
    {.path = "/etc/pixalto-osversion", .text = "20190412\n"},
    {.path = "/etc/init.d/syslog",
     .text = "#!/bin/sh\n# The log is the journal's: nothing to start or stop.\nexit 0\n"},
};

static constexpr const char* kKernel =
    "Linux imx6 4.9.88-imx6 #1 SMP PREEMPT Fri Apr 12 09:41:27 UTC 2019 armv7l armv7l armv7l GNU/Linux\n";
static constexpr const char* kOldKernel =
    "Linux imx6 4.1.15-imx6 #1 SMP PREEMPT Thu Sep 14 10:21:33 UTC 2017 armv7l armv7l armv7l GNU/Linux\n";

static constexpr const char* kConfiguration = "/home/root/Tesselvisor.conf";
static constexpr const char* kReceiverEdid = "/home/root/EDID_HDMI_INPUT.bin";

// The EDID that sources find at the HDMI input: that of a usual monitor.
static void WriteReceiverEdid() {
    std::ifstream file(EmulatorFile("monitors") / "1080p60.edid");
    const auto edid = ParseEdidFile(std::string(std::istreambuf_iterator(file), {}));
    if (edid) WriteBoardFile(kReceiverEdid, std::string(edid->bytes.begin(), edid->bytes.end()));
}

// A board that was never switched on gets what the factory writes. Later a file that is missing stays missing: somebody
// took it away to see what happens.
static void WriteFlash() {
    if (std::filesystem::exists(HostPath(kFlashFiles[0].path))) return;
    for (const PlainFile& file : kFlashFiles) {
        if (!std::filesystem::exists(HostPath(file.path))) WriteBoardFile(file.path, file.text);
    }
    chmod(HostPath("/etc/init.d/syslog").c_str(), 0755);
    if (!std::filesystem::exists(HostPath(kReceiverEdid))) WriteReceiverEdid();
}

// The boot loader hands the MAC address of its environment to the kernel.
static std::string BootMac() {
    static constexpr std::string_view kName = "ethaddr=";
    std::ifstream environment(HostPath("/etc/u-boot.env"));
    for (std::string line; std::getline(environment, line);) {
        if (line.starts_with(kName)) return line.substr(kName.size());
    }
    return "00:04:9f:05:2a:61";
}

static std::string UpperCase(std::string text) {
    for (char& letter : text) letter = static_cast<char>(toupper(static_cast<unsigned char>(letter)));
    return text;
}

// What the bench holds, through a power cycle too.
static bool lanPlugged = true;
static long temperature = 47'250;  // thousandths of a degree

bool LanPlugged() { return lanPlugged; }
double TemperatureNow() { return double(temperature) / 1000; }

void WriteDeviceId(int number) { WriteBoardFile(kConfiguration, Text("DEVICEID=%d\n", number)); }

void WriteKernelLog(const std::string& line) {
    std::ofstream(HostPath("/opt/board/state/kernel.log"), std::ios::app) << line << '\n';
}

static void ShowTemperature() { WriteBoardFile("/sys/class/thermal/thermal_zone0/temp", Text("%ld\n", temperature)); }

VerbAnswer TemperatureVerb(const VerbWords& words) {
    constexpr double kLimit = 1000;
    if (words.size() != 1) return Usage("temperature");
    char* end;
    const double degrees = strtod(words[0].c_str(), &end);
    if (words[0].empty() || *end || !(std::abs(degrees) <= kLimit)) return Usage("temperature");
    temperature = std::lround(degrees * 1000);
    ShowTemperature();
    return {};
}

static void ShowLink() { WriteBoardFile("/opt/board/state/lan", lanPlugged ? "plugged\n" : "unplugged\n"); }

static void LogLink() {
    constexpr double kBootTime = 4.5;  // seconds that the kernel has run at our power-on
    const double kernelTime = kBootTime + static_cast<double>(NowMicroseconds() - PowerOnTime()) / 1e6;
    const char* state = lanPlugged ? "Up - 1Gbps/Full - flow control rx/tx" : "Down";
    WriteKernelLog(Text("[%12.6f] fec 2188000.ethernet eth0: Link is %s", kernelTime, state));
}

VerbAnswer LanVerb(const VerbWords& words) {
    if (words.size() != 1 || (words[0] != "plug" && words[0] != "unplug")) return Usage("lan");
    const bool plug = words[0] == "plug";
    if (plug == lanPlugged) return {};
    lanPlugged = plug;
    Trace("plug", {{"lan", plug}});
    ShowLink();
    LogLink();
    return {};
}

static constexpr std::string_view kHostDriver = "/sys/bus/platform/drivers/ci_hdrc/";

static int OpenHostDriver(OpenFile& file) {
    const std::string_view name = std::string_view(file.path).substr(kHostDriver.size());
    return name == "bind" || name == "unbind" ? 0 : -ENOENT;
}

static void WriteHostDriver(OpenFile& file) {
    const auto device = WrittenAttribute(file);
    if (!device || (*device != "ci_hdrc.0" && *device != "ci_hdrc.1")) return;
    const bool bound = !file.path.ends_with("/unbind");
    Trace("file", {{"path", file.path}, {"written", *device}});
    UsbHostBound(device->back() - '0', bound);
    SoundHostBound(device->back() - '0', bound);
}

static const DeviceModel kHostDriverModel{
    .name = "USB host driver", .open = OpenHostDriver, .written = WriteHostDriver};

// Camera N is the first device behind the root hub of bus N.
static void ShowUsbDescription(int camera, const CameraProfile* profile) {
    WriteBoardFile(Text("/opt/board/state/usb-00%d-002", camera), profile ? DescribeUsbCamera(*profile) : "");
}

void PowerOnSystemFiles() {
    static bool firstPowerOn = true;
    WriteFlash();
    // The variant is given at the start of the emulator; later it is the daemon's to change.
    if (firstPowerOn && Board.deviceId >= 0) WriteDeviceId(Board.deviceId);
    firstPowerOn = false;
    for (const PlainFile& file : kVolatileFiles) WriteBoardFile(file.path, file.text);
    OnCameraPlug(ShowUsbDescription);
    ShowTemperature();
    ShowLink();
    if (lanPlugged) LogLink();
    WriteBoardFile("/opt/board/state/kernel", Board.oldKernel ? kOldKernel : kKernel);
    WriteBoardFile("/opt/board/state/mac", UpperCase(BootMac()) + "\n");
    AddTree(std::string(kHostDriver), kHostDriverModel, 0);
}
