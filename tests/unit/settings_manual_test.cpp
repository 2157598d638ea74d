// The manual page of the settings file and the record say the same, byte by byte; packages carry the daemon's version.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "settings/device_identity.h"
#include "settings/device_settings.h"

struct Place {
    size_t offset, bytes;
    std::string defaults;
    bool operator==(const Place&) const = default;
};
static std::ostream& operator<<(std::ostream& out, const Place& place) {
    return out << place.bytes << " bytes at " << place.offset << ", default " << place.defaults;
}
using Fields = std::map<std::string, Place>;

// ---- What the record says

static uint8_t DefaultByte(size_t offset) { return reinterpret_cast<const uint8_t*>(&DefaultSettings)[offset]; }

// As the page writes it: addresses with dots, the signature in hexadecimal, all else decimal.
static std::string DefaultText(std::string_view field, size_t offset, size_t bytes) {
    const bool isAddress = field == "IpAddress" || field == "Netmask" || field == "Gateway";
    std::ostringstream text;
    uint64_t number = 0;
    for (size_t i = 0; i < bytes; ++i) {
        if (isAddress) text << (i > 0 ? "." : "") << int{DefaultByte(offset + i)};
        number |= uint64_t{DefaultByte(offset + i)} << (8 * i);
    }
    if (field == "Signature") text << "0x0" << std::hex << std::uppercase << number;
    return text.str().empty() ? std::to_string(number) : text.str();
}

// clang-format off
#define ROW(field) \
    {#field, {offsetof(DeviceSettings, field), sizeof(DeviceSettings::field), \
              DefaultText(#field, offsetof(DeviceSettings, field), sizeof(DeviceSettings::field))}}
static Fields InRecord() {
    return {
        ROW(Checksum), ROW(Signature), ROW(Reserved3), ROW(View), ROW(Swap), ROW(SwHdmi), ROW(Reserved9), ROW(Input),
        ROW(Pad0Rect), ROW(Pad1Rect), ROW(Pad2Rect), ROW(IpAddress), ROW(Dhcp), ROW(OutputHz), ROW(OutputTiming),
        ROW(Black), ROW(S2Count), ROW(AudioJack), ROW(OutputWidth), ROW(OutputHeight), ROW(OutputRefresh100),
        ROW(VideoRefresh), ROW(Allow60), ROW(MonitorVendor), ROW(PtzCamera), ROW(PanCamera1), ROW(TiltCamera1),
        ROW(ZoomCamera1), ROW(PanCamera2), ROW(TiltCamera2), ROW(ZoomCamera2), ROW(Inv1), ROW(Inv2), ROW(Ain1),
        ROW(Ain2), ROW(Ain3), ROW(Ain4), ROW(Aout1), ROW(Acfg), ROW(MacAddress), ROW(Sbtn), ROW(Aout2), ROW(Aout3),
        ROW(Aout4), ROW(Inv3), ROW(Inv4), ROW(AoutHdmi), ROW(AoutAnalog), ROW(AoutUsb1), ROW(AoutUsb2),
        ROW(UsbStream), ROW(Netmask), ROW(Blank), ROW(Gateway), ROW(EnLog), ROW(EnJpegParse),
    };
}
// clang-format on

// ---- What the page says

static const std::string kManual = PACKAGING_PATH "/man/tesselvisor.conf.5";

// A field's row: offset, bytes, name, default and meaning, between tabulators.
static Fields InManual() {
    std::ifstream file(kManual);
    Fields fields;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || isdigit(static_cast<unsigned char>(line[0])) == 0 || line.find('\t') == line.npos) continue;
        std::istringstream row(line);
        std::string name;
        Place place{};
        row >> place.offset >> place.bytes >> name >> place.defaults;
        EXPECT_TRUE(row) << line;
        EXPECT_TRUE(fields.try_emplace(name, place).second) << name << " stands twice";
    }
    return fields;
}

TEST(SettingsManual, SaysWhatTheRecordIs) {
    static constexpr size_t kReserved = 20;
    const Fields record = InRecord();
    size_t bytes = kReserved;
    for (const auto& [name, place] : record) bytes += place.bytes;
    EXPECT_EQ(bytes, sizeof(DeviceSettings)) << "a field has no row in this test";
    EXPECT_THAT(InManual(), testing::ContainerEq(record));
}

TEST(Version, IsTheSameOnTheWireAndInPackages) {
    std::ostringstream wire;
    wire << kVersion[0] << '.' << kVersion[1] << '.' << kVersion[2];
    EXPECT_EQ(wire.str(), PACKAGE_VERSION);
    const std::string recipe = PACKAGING_PATH "/yocto/recipes-multimedia/tesselvisor/tesselvisor_" + wire.str() + ".bb";
    EXPECT_TRUE(std::filesystem::exists(recipe)) << recipe;
    std::ifstream file(CHANGELOG_PATH);
    std::string line;
    while (std::getline(file, line) && !line.starts_with("## ")) continue;
    EXPECT_TRUE(line.starts_with("## " + wire.str() + " (")) << line;
}
