#include "bench/settings_record.h"

#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "bench/daemon_memory.h"
#include "system/board.h"
#include "text.h"

static constexpr const char* kFile = "/home/root/config.bin";

enum FieldForm { kByte, kWord, kSigned, kHex, kAddress, kMac, kWindow, kText };

// In the order of the record; reserved bytes have no row.
struct SettingsField {
    std::string_view name;
    size_t offset;
    FieldForm form;
};

// clang-format off
static constexpr std::array kFields{
    SettingsField{"Checksum",         0, kHex},     SettingsField{"Signature",        1, kHex},
    SettingsField{"View",             6, kByte},    SettingsField{"Swap",             7, kByte},
    SettingsField{"SwHdmi",           8, kByte},    SettingsField{"Input",           10, kByte},
    SettingsField{"Pad0Rect",        12, kWindow},  SettingsField{"Pad1Rect",        20, kWindow},
    SettingsField{"Pad2Rect",        28, kWindow},  SettingsField{"IpAddress",       36, kAddress},
    SettingsField{"Dhcp",            40, kByte},    SettingsField{"OutputHz",        44, kByte},
    SettingsField{"OutputTiming",    45, kByte},    SettingsField{"Black",           50, kByte},
    SettingsField{"S2Count",         52, kByte},    SettingsField{"AudioJack",       53, kByte},
    SettingsField{"OutputWidth",     54, kWord},    SettingsField{"OutputHeight",    56, kWord},
    SettingsField{"OutputRefresh100", 58, kWord},   SettingsField{"VideoRefresh",    60, kByte},
    SettingsField{"Allow60",         61, kByte},    SettingsField{"MonitorVendor",   62, kText},
    SettingsField{"PtzCamera",       72, kByte},    SettingsField{"PanCamera1",      76, kSigned},
    SettingsField{"TiltCamera1",     80, kSigned},  SettingsField{"ZoomCamera1",     84, kSigned},
    SettingsField{"PanCamera2",      88, kSigned},  SettingsField{"TiltCamera2",     92, kSigned},
    SettingsField{"ZoomCamera2",     96, kSigned},  SettingsField{"Inv1",           100, kByte},
    SettingsField{"Inv2",           101, kByte},    SettingsField{"Ain1",           102, kByte},
    SettingsField{"Ain2",           103, kByte},    SettingsField{"Ain3",           104, kByte},
    SettingsField{"Ain4",           105, kByte},    SettingsField{"Aout1",          106, kByte},
    SettingsField{"Acfg",           107, kByte},    SettingsField{"MacAddress",     108, kMac},
    SettingsField{"Sbtn",           114, kByte},    SettingsField{"Aout2",          115, kByte},
    SettingsField{"Aout3",          116, kByte},    SettingsField{"Aout4",          117, kByte},
    SettingsField{"Inv3",           118, kByte},    SettingsField{"Inv4",           119, kByte},
    SettingsField{"AoutHdmi",       120, kByte},    SettingsField{"AoutAnalog",     121, kByte},
    SettingsField{"AoutUsb1",       122, kByte},    SettingsField{"AoutUsb2",       123, kByte},
    SettingsField{"UsbStream",      124, kByte},    SettingsField{"Netmask",        125, kAddress},
    SettingsField{"Blank",          129, kByte},    SettingsField{"Gateway",        130, kAddress},
    SettingsField{"EnLog",          134, kByte},    SettingsField{"EnJpegParse",    135, kByte},
};
// clang-format on

template <typename T>
static T Number(const uint8_t* bytes) {
    T number;
    memcpy(&number, bytes, sizeof number);
    return number;
}

static Json Value(const uint8_t* at, FieldForm form) {
    switch (form) {
        case kByte:
            return *at;
        case kWord:
            return Number<uint16_t>(at);
        case kSigned:
            return Number<int32_t>(at);
        case kHex:
            return Text("%02X", *at);
        case kAddress:
            return Text("%u.%u.%u.%u", at[0], at[1], at[2], at[3]);
        case kMac:
            return Text("%02X:%02X:%02X:%02X:%02X:%02X", at[0], at[1], at[2], at[3], at[4], at[5]);
        case kWindow:
            return {Number<uint16_t>(at), Number<uint16_t>(at + 2), Number<uint16_t>(at + 4), Number<uint16_t>(at + 6)};
        case kText:
            return std::string(reinterpret_cast<const char*>(at), strnlen(reinterpret_cast<const char*>(at), 3));
    }
    return nullptr;
}

Json DescribeSettings(std::span<const uint8_t> record) {
    if (record.size() != kSettingsBytes) return nullptr;
    Json fields = Json::object();
    for (const SettingsField& field : kFields)
        fields[std::string(field.name)] = Value(record.data() + field.offset, field.form);
    return fields;
}

static std::vector<uint8_t> SavedRecord() {
    std::ifstream file(HostPath(kFile), std::ios::binary);
    std::vector<uint8_t> record(std::istreambuf_iterator<char>(file), {});
    record.resize(std::min(record.size(), kSettingsBytes));
    return record;
}

Json SettingsNow() {
    const std::vector<uint8_t> live = DaemonVariable("Settings", kSettingsBytes);
    if (!live.empty()) return {{"from", "memory"}, {"fields", DescribeSettings(live)}};
    return {{"from", "file"}, {"fields", DescribeSettings(SavedRecord())}};
}

VerbAnswer SettingsVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("settings");
    // The vendor's letters may be any bytes.
    return {.text = SettingsNow().dump(4, ' ', false, Json::error_handler_t::replace)};
}
