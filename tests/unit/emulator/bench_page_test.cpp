// What the bench page serves to whom, and the settings record as it shows it.
#include <gmock/gmock.h>

#include <array>
#include <cstddef>

#include "control.h"
#include "daemon_memory.h"
#include "page_server.h"
#include "settings/device_settings.h"
#include "settings_record.h"

using testing::ElementsAre;

TEST(BenchPage, ServesItsOwnPageOnly) {
    EXPECT_TRUE(IsOwnRequest("127.0.0.1:8090", "", "", 8090));
    EXPECT_TRUE(IsOwnRequest("localhost:8090", "http://localhost:8090", "same-origin", 8090));
    EXPECT_TRUE(IsOwnRequest("127.0.0.1:8090", "", "none", 8090)) << "an address typed by hand";

    EXPECT_FALSE(IsOwnRequest("", "", "", 8090));
    EXPECT_FALSE(IsOwnRequest("127.0.0.1", "", "", 8090));
    EXPECT_FALSE(IsOwnRequest("127.0.0.1:80901", "", "", 8090));
    EXPECT_FALSE(IsOwnRequest("127.0.0.1:8090.evil.example", "", "", 8090));
    EXPECT_FALSE(IsOwnRequest("evil.example:8090", "http://evil.example:8090", "same-origin", 8090));
    EXPECT_FALSE(IsOwnRequest("127.0.0.1:8090", "http://localhost:8090", "", 8090));
    EXPECT_FALSE(IsOwnRequest("127.0.0.1:8090", "https://127.0.0.1:8090", "", 8090));
    EXPECT_FALSE(IsOwnRequest("127.0.0.1:8090", "null", "", 8090));
    EXPECT_FALSE(IsOwnRequest("127.0.0.1:8090", "", "same-site", 8090)) << "another port of this computer";
}

static size_t OffsetOf(std::string_view name) {
    for (const SettingsField& field : SettingsFields())
        if (field.name == name) return field.offset;
    return kSettingsBytes;
}

TEST(SettingsRecord, FieldsLieWhereTheDaemonHasThem) {
#define FIELD(name) \
    Field { #name, offsetof(DeviceSettings, name) }
    struct Field {
        const char* name;
        size_t offset;
    };
    constexpr std::array kFields{
        FIELD(Checksum),     FIELD(View),         FIELD(Swap),
        FIELD(SwHdmi),       FIELD(Input),        FIELD(Pad0Rect),
        FIELD(Pad1Rect),     FIELD(Pad2Rect),     FIELD(IpAddress),
        FIELD(Dhcp),         FIELD(OutputHz),     FIELD(OutputTiming),
        FIELD(Black),        FIELD(S2Count),      FIELD(AudioJack),
        FIELD(OutputWidth),  FIELD(OutputHeight), FIELD(OutputRefresh100),
        FIELD(VideoRefresh), FIELD(Allow60),      FIELD(MonitorVendor),
        FIELD(PtzCamera),    FIELD(PanCamera1),   FIELD(TiltCamera1),
        FIELD(ZoomCamera1),  FIELD(PanCamera2),   FIELD(TiltCamera2),
        FIELD(ZoomCamera2),  FIELD(Inv1),         FIELD(Inv2),
        FIELD(Ain1),         FIELD(Ain2),         FIELD(Ain3),
        FIELD(Ain4),         FIELD(Aout1),        FIELD(Acfg),
        FIELD(MacAddress),   FIELD(Sbtn),         FIELD(Aout2),
        FIELD(Aout3),        FIELD(Aout4),        FIELD(Inv3),
        FIELD(Inv4),         FIELD(AoutHdmi),     FIELD(AoutAnalog),
        FIELD(AoutUsb1),     FIELD(AoutUsb2),     FIELD(UsbStream),
        FIELD(Netmask),      FIELD(Blank),        FIELD(Gateway),
        FIELD(EnLog),        FIELD(EnJpegParse),
    };
#undef FIELD
    EXPECT_EQ(kSettingsBytes, sizeof(DeviceSettings));
    for (const Field& field : kFields) EXPECT_EQ(OffsetOf(field.name), field.offset) << field.name;
    EXPECT_EQ(SettingsFields().size(), kFields.size() + 1) << "and the signature";
}

TEST(SettingsRecord, ShowsFieldsByTheirForm) {
    std::array<uint8_t, kSettingsBytes> record{};
    record[6] = 21;
    record[28] = 0x80, record[29] = 7;  // left of the third window, little-endian
    record[36] = 10, record[39] = 255;
    record[62] = 'T', record[63] = 'S', record[64] = 'L';
    for (size_t at = 76; at < 80; ++at) record[at] = 0xFF;
    record[108] = 0xAB;
    const Json shown = DescribeSettings(record);
    EXPECT_EQ(shown["View"], 21);
    EXPECT_THAT(shown["Pad2Rect"], ElementsAre(1920, 0, 0, 0));
    EXPECT_EQ(shown["IpAddress"], "10.0.0.255");
    EXPECT_EQ(shown["MonitorVendor"], "TSL");
    EXPECT_EQ(shown["PanCamera1"], -1);
    EXPECT_EQ(shown["MacAddress"], "AB:00:00:00:00:00");
    EXPECT_TRUE(DescribeSettings(std::span(record).first(135)).is_null());
}

[[gnu::used]] int symbolOfThisTest = 42;

TEST(DaemonMemory, FindsSymbolsOfPrograms) {
    EXPECT_GT(SymbolOffset("/proc/self/exe", "symbolOfThisTest"), 0);
    EXPECT_EQ(SymbolOffset("/proc/self/exe", "symbolOf"), 0);
    EXPECT_EQ(SymbolOffset("/proc/self/status", "symbolOfThisTest"), 0) << "no program";
    EXPECT_EQ(SymbolOffset("/nowhere", "symbolOfThisTest"), 0);
}

TEST(ControlVerbs, Listings) {
    const auto listing = ParseListing({"--last", "20", "--follow"});
    ASSERT_TRUE(listing);
    EXPECT_EQ(listing->newest, 20);
    EXPECT_TRUE(listing->follow);
    EXPECT_FALSE(listing->clear);
    EXPECT_EQ(ParseListing({})->newest, SIZE_MAX);
    for (const VerbWords& words : {VerbWords{"--last"}, {"--last", "x"}, {"--last", "-1"}, {"20"}})
        EXPECT_FALSE(ParseListing(words)) << words[0];
}
