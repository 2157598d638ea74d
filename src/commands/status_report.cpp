#include "commands/status_report.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <optional>
#include <span>

#include "board/hdmi_receiver.h"
#include "board/keypad.h"
#include "commands/command_tables.h"
#include "commands/dispatch.h"
#include "commands/reply_channel.h"
#include "commands/report_view.h"
#include "commands/serial_port.h"
#include "core/crc32.h"
#include "core/log.h"
#include "core/shell.h"
#include "net/network_config.h"
#include "net/telnet_server.h"
#include "settings/device_identity.h"
#include "settings/process_flags.h"
#include "video/video_devices.h"

// ---- Values ----

using Value = std::optional<std::string>;  // nothing: the line is left out

static std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
static std::string Format(const char* format, ...) {
    std::array<char, 100> text;
    va_list values;
    va_start(values, format);
    vsnprintf(text.data(), text.size(), format, values);
    va_end(values);
    return text.data();
}

static constexpr const char* kNotFound = "Not found";
static constexpr const char* kUnlocked = "Unlocked";

template <auto member>
static Value Fact(const StatusFacts& facts) {
    return std::to_string(facts.*member);
}

template <SharedByte DeviceSettings::*field>
static Value Setting(const StatusFacts& facts) {
    return std::to_string((facts.settings.*field).Load());
}

static Value NotAvailable(const StatusFacts&) { return "N/A"; }

static Value Version(const StatusFacts&) { return Format("%d.%d.%d", kVersion[0], kVersion[1], kVersion[2]); }

static Value Os(const StatusFacts& facts) { return facts.osVersion; }

static Value Keypad(const StatusFacts& facts) {
    return Format("%d.%d", facts.keypadVersion >> 4, facts.keypadVersion & 0x0F);
}

template <int index>
static Value Camera(const StatusFacts& facts) {
    const ReceivedCamera& camera = facts.cameras[index];
    if (!camera.video.locked) return kUnlocked;
    return Format("%ux%u %s %uHz", camera.video.width, camera.video.height, camera.format, camera.rate);
}

static Value Hdmi(const ReceivedVideo& video) {
    if (!video.locked) return kUnlocked;
    return Format("%ux%u", video.width, video.height);
}

static Value Input3(const StatusFacts& facts) { return Hdmi(facts.hdmi[0]); }

static Value Input4(const StatusFacts& facts) {
    if (facts.deviceId == 0) return {};
    return Hdmi(facts.hdmi[1]);
}

static Value AudioJack(const StatusFacts& facts) {
    if (facts.deviceId != 0) return {};
    return facts.settings.AudioJack != 0 ? "Detected" : "Not Detected";
}

static std::string ShownName(std::span<const CommandEntry> table, uint8_t deviceId, const DeviceSettings& settings) {
    return ViewName(table,
                    {.deviceId = deviceId, .view = settings.View, .swap = settings.Swap, .input = settings.Input});
}

template <const std::span<const CommandEntry>& table>
static Value View(const StatusFacts& facts) {
    return ShownName(table, facts.deviceId, facts.settings);
}

static const char* BlackState(const DeviceSettings& settings) { return settings.Black != 0 ? "enabled" : "disabled"; }

static Value Black(const StatusFacts& facts) { return BlackState(facts.settings); }

static bool IsSet(const Ipv4& address) {
    return std::ranges::any_of(address, [](uint8_t octet) { return octet != 0; });
}

static Value Address(const Ipv4& address, bool found) {
    if (!found) return kNotFound;
    return Format("%d.%d.%d.%d", address[0].Load(), address[1].Load(), address[2].Load(), address[3].Load());
}

template <Ipv4 DeviceSettings::*field>
static Value AddressIfFound(const StatusFacts& facts) {
    return Address(facts.settings.*field, facts.addressFound);
}

template <Ipv4 DeviceSettings::*field>
static Value AddressIfSet(const StatusFacts& facts) {
    return Address(facts.settings.*field, IsSet(facts.settings.*field));
}

static Value Mac(const StatusFacts& facts) {
    if (!facts.macFound) return {};
    const auto& mac = facts.settings.MacAddress;
    return Format("%02x:%02x:%02x:%02x:%02x:%02x", mac[0].Load(), mac[1].Load(), mac[2].Load(), mac[3].Load(),
                  mac[4].Load(), mac[5].Load());
}

static Value UsbOut(const StatusFacts& facts) { return facts.settings.UsbStream != 0 ? "STREAM" : "NSTREAM"; }

static Value OutputModeInUse(const StatusFacts& facts) {
    const OutputMode& mode = facts.output;
    if (mode.width == 0) return {};
    return Format("%ux%u %uHz", mode.width, mode.height, mode.refresh);
}

static Value FramesStreamed(const StatusFacts& facts) {
    if (facts.settings.UsbStream == 0) return {};
    return std::to_string(facts.frameCount);
}

// ---- Text ----

struct ReportItem {
    const char* name;
    Value (*value)(const StatusFacts&);
    uint8_t forms = kReportPlain | kReportFramed | kReportNetwork;
};

static constexpr uint8_t kLocal = kReportPlain | kReportFramed;

// In the order of the lines.
static constexpr ReportItem kItems[] = {
    {.name = "Tesselvisor", .value = Version},
    {.name = "DeviceID", .value = Fact<&StatusFacts::deviceId>},
    {.name = "FX3", .value = NotAvailable},
    {.name = "FPGA", .value = NotAvailable},
    {.name = "EDID", .value = Fact<&StatusFacts::edidVersion>},
    {.name = "OS", .value = Os, .forms = kLocal},
    {.name = "KEYPAD", .value = Keypad},
    {.name = "Input 1", .value = Camera<0>},
    {.name = "Input 2", .value = Camera<1>},
    {.name = "Input 3", .value = Input3},
    {.name = "Input 4", .value = Input4},
    {.name = "Audio Jack", .value = AudioJack},
    {.name = "VIEW", .value = View<SerialCommandTable>, .forms = kLocal},
    {.name = "VIEW", .value = View<NetworkCommandTable>, .forms = kReportNetwork},
    {.name = "BLACK", .value = Black},
    {.name = "DHCP", .value = Setting<&DeviceSettings::Dhcp>},
    {.name = "IP", .value = AddressIfFound<&DeviceSettings::IpAddress>},
    {.name = "NETMASK", .value = AddressIfSet<&DeviceSettings::Netmask>, .forms = kLocal},
    {.name = "NETMASK", .value = AddressIfFound<&DeviceSettings::Netmask>, .forms = kReportNetwork},
    {.name = "MAC", .value = Mac},
    {.name = "GATEWAY", .value = AddressIfSet<&DeviceSettings::Gateway>, .forms = kLocal},
    {.name = "GATEWAY", .value = AddressIfFound<&DeviceSettings::Gateway>, .forms = kReportNetwork},
    {.name = "AIN1", .value = Setting<&DeviceSettings::Ain1>},
    {.name = "AIN2", .value = Setting<&DeviceSettings::Ain2>},
    {.name = "AIN3", .value = Setting<&DeviceSettings::Ain3>},
    {.name = "AIN4", .value = Setting<&DeviceSettings::Ain4>},
    {.name = "AOUT1", .value = Setting<&DeviceSettings::Aout1>},
    {.name = "AOUT2", .value = Setting<&DeviceSettings::Aout2>},
    {.name = "AOUT3", .value = Setting<&DeviceSettings::Aout3>},
    {.name = "AOUT4", .value = Setting<&DeviceSettings::Aout4>},
    {.name = "AOUTHDMI", .value = Setting<&DeviceSettings::AoutHdmi>},
    {.name = "AOUTANALOG", .value = Setting<&DeviceSettings::AoutAnalog>},
    {.name = "AOUTUSB1", .value = Setting<&DeviceSettings::AoutUsb1>},
    {.name = "AOUTUSB2", .value = Setting<&DeviceSettings::AoutUsb2>},
    {.name = "ACFG", .value = Setting<&DeviceSettings::Acfg>},
    {.name = "INV1", .value = Setting<&DeviceSettings::Inv1>},
    {.name = "INV2", .value = Setting<&DeviceSettings::Inv2>},
    {.name = "INV3", .value = Setting<&DeviceSettings::Inv3>},
    {.name = "INV4", .value = Setting<&DeviceSettings::Inv4>},
    {.name = "MUTEIN", .value = Fact<&StatusFacts::muteIn>},
    {.name = "SBTN", .value = Setting<&DeviceSettings::Sbtn>},
    {.name = "USBOUT", .value = UsbOut},
    {.name = "BLANK", .value = Setting<&DeviceSettings::Blank>},
    {.name = "HDMI", .value = OutputModeInUse},
    {.name = "TEMP", .value = Fact<&StatusFacts::temperature>, .forms = kReportFramed | kReportNetwork},
    {.name = "ENLOG", .value = Setting<&DeviceSettings::EnLog>, .forms = kReportFramed | kReportNetwork},
    {.name = "ENJPEGPARSE", .value = Setting<&DeviceSettings::EnJpegParse>, .forms = kReportFramed | kReportNetwork},
    {.name = "FRAMECNT", .value = FramesStreamed, .forms = kReportFramed | kReportNetwork},
};

static std::string Line(const char* name, const std::string& value, const char* end) {
    return std::string(name) + " => " + value + end;
}

std::string ReportText(const StatusFacts& facts, ReportForm form) {
    const char* const lineEnd = form == kReportNetwork ? "\r\n" : "\n";
    std::string text = form == kReportFramed ? "IMX->FX3 START\n" : "";
    for (const ReportItem& item : kItems) {
        if ((item.forms & form) == 0) continue;
        if (const Value value = item.value(facts)) text += Line(item.name, *value, lineEnd);
    }
    if (form == kReportFramed) text += Format("CHECKSUM_CRC32 => 0x%X\nIMX->FX3 DONE\n", Crc32(text));
    return text;
}

// ---- Facts ----

int ReadTemperature() {
    int thousandths = 0;
    std::ifstream("/sys/class/thermal/thermal_zone0/temp") >> thousandths;
    return thousandths / 1000;
}

static ReceivedCamera CameraNow(const CameraInput& input) {
    const SelectedFormat& format = input.selected;
    return {.video = {.locked = input.present != 0, .width = format.width, .height = format.height},
            .format = FourccName(format.fourcc),
            .rate = format.fps};
}

// Variants with two HDMI inputs have them on the two ports of one receiver, which measures both at once.
static std::array<ReceivedVideo, 2> HdmiNow(uint8_t deviceId) {
    const ReceivedVideo selected = {
        .locked = HdmiInput.InputValid != 0, .width = HdmiInput.Width, .height = HdmiInput.Height};
    const ReceivedVideo other = {
        .locked = HdmiInput.AltValid != 0, .width = HdmiInput.AltWidth, .height = HdmiInput.AltHeight};
    if (deviceId == 0 || HdmiInput.PortIsA != 0) return {selected, other};
    return {other, selected};
}

static bool RefreshAddress() { return ReadIpConfig(Settings.IpAddress, Settings.Netmask, Settings.Gateway) == 0; }

// A static address that was set needs no look at the interface.
static bool RefreshAddressUnlessStatic() {
    return (Settings.Dhcp == 0 && IsSet(Settings.IpAddress)) || RefreshAddress();
}

static bool RefreshMacAddress() {
    std::array<SharedByte, 6> read;
    return ReadMacAddress(read) == 0;
}

static StatusFacts FactsNow(bool addressFound, bool macFound) {
    StatusFacts facts = {
        .deviceId = DeviceId,
        .osVersion = OsVersion,
        .edidVersion = EdidVersion,
        .keypadVersion = KeypadVersion,
        .cameras = {CameraNow(CameraInputs[0]), CameraNow(CameraInputs[1])},
        .hdmi = HdmiNow(DeviceId),
        .addressFound = addressFound,
        .macFound = macFound,
        .settings = {},
        .muteIn = MuteIn,
        .output = {},
        .temperature = ReadTemperature(),
        .frameCount = FrameCount,
    };
    if (GetHDMIOutput(facts.output) != 0) facts.output = {};
    CopySettings(facts.settings, Settings);
    return facts;
}

// ---- Operations ----

static bool IsSkipped() {
    static constexpr int kSkippedInRow = 12;
    static std::atomic<int> skipped{0};
    const bool logIsRead = Settings.EnLog == 1 && TelnetClientCount > 0;
    if (logIsRead && skipped++ < kSkippedInRow) return true;
    skipped = 0;
    return false;
}

int BuildStatusReport(const int32_t*) {
    if (IsSkipped()) return 0;
    const StatusFacts facts = FactsNow(RefreshAddressUnlessStatic(), true);
    const ReportForm form = SerialCommandActive == 1 ? kReportPlain : kReportFramed;
    SendReply(ReportText(facts, form).c_str());
    return 0;
}

int SendNetworkStatus(const int32_t*) {
    const bool addressFound = RefreshAddress();
    const bool macFound = RefreshMacAddress();
    WriteToClient(ReportText(FactsNow(addressFound, macFound), kReportNetwork));
    return 0;
}

int SendSerialPoll(const int32_t*) {
    const std::string name = ShownName(SerialCommandTable, DeviceId, Settings);
    SendReply((Line("VIEW", name, "\n") + Line("BLACK", BlackState(Settings), "\n")).c_str());
    return 0;
}

int SendNetworkPoll(const int32_t*) {
    const std::string name = ShownName(NetworkCommandTable, DeviceId, Settings);
    WriteToClient(name + "\r\n" + Line("BLACK", BlackState(Settings), "\r\n"));
    return 0;
}

int LanTest(const int32_t*) {
    Ipv4 address{};
    const bool linked =
        ReadFirstLine("ethtool eth0 | grep 'Link detected'").text.find("Link detected: yes") != std::string::npos;
    if (!linked || ReadIpConfig(address, Settings.Netmask, Settings.Gateway) != 0) {
        PrintOut("Not connected.\n");
        return 1;
    }
    PrintOut("IP Address: %s\n", Address(address, true)->c_str());
    return 0;
}
