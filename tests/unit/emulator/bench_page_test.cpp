// What the bench page serves to whom, and the settings record as it shows it.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <utility>

#include "bench/daemon_memory.h"
#include "bench/settings_record.h"
#include "page/page_server.h"
#include "settings/device_settings.h"

TEST(BenchPage, ServesItsOwnPageOnly) {
    struct Request {
        const char *host, *origin, *fetchSite;
        bool own;
    };
    for (const Request& row : {Request{"127.0.0.1:8090", "", "", true},
                               {"localhost:8090", "http://localhost:8090", "same-origin", true},
                               {"127.0.0.1:8090", "", "none", true},  // an address typed by hand
                               {"127.0.0.1", "", "", false},
                               {"127.0.0.1:80901", "", "", false},
                               {"127.0.0.1:8090.evil.example", "", "", false},
                               {"evil.example:8090", "http://evil.example:8090", "same-origin", false},
                               {"127.0.0.1:8090", "http://localhost:8090", "", false},
                               {"127.0.0.1:8090", "null", "", false},
                               {"127.0.0.1:8090", "", "same-site", false}})  // another port of this computer
        EXPECT_EQ(IsOwnRequest(row.host, row.origin, row.fetchSite, 8090), row.own) << row.host << row.origin;
}

// One field of each form, and of each run without a gap the last one.
TEST(SettingsRecord, ShowsTheDaemonsFields) {
    DeviceSettings settings{};
    settings.View = 21;
    settings.SwHdmi = 1;
    settings.Input = 4;
    settings.Pad2Rect.left = 1920;
    settings.IpAddress[0] = 10;
    settings.IpAddress[3] = 255;
    settings.Dhcp = 3;
    settings.OutputTiming = 5;
    settings.Black = 6;
    for (size_t i = 0; i < 3; ++i) settings.MonitorVendor[i] = uint8_t("TSL"[i]);
    settings.PtzCamera = 2;
    settings.PanCamera1 = -1;
    settings.MacAddress[0] = 0xAB;
    settings.EnJpegParse = 7;
    std::array<uint8_t, kSettingsBytes> record;
    static_assert(sizeof settings == sizeof record);
    memcpy(record.data(), &settings, sizeof record);
    const std::pair<const char*, Json> expected[] = {{"View", 21},
                                                     {"SwHdmi", 1},
                                                     {"Input", 4},
                                                     {"Pad2Rect", {1920, 0, 0, 0}},
                                                     {"Dhcp", 3},
                                                     {"OutputTiming", 5},
                                                     {"Black", 6},
                                                     {"IpAddress", "10.0.0.255"},
                                                     {"PtzCamera", 2},
                                                     {"PanCamera1", -1},
                                                     {"Blank", 0},
                                                     {"MacAddress", "AB:00:00:00:00:00"},
                                                     {"MonitorVendor", "TSL"},
                                                     {"EnJpegParse", 7}};
    const Json shown = DescribeSettings(record);
    for (const auto& [name, value] : expected) EXPECT_EQ(shown[name], value) << name;
    EXPECT_TRUE(DescribeSettings(std::span(record).first(135)).is_null());
}

[[gnu::used]] int symbolOfThisTest = 42;

TEST(DaemonMemory, FindsSymbolsOfPrograms) {
    EXPECT_GT(SymbolOffset("/proc/self/exe", "symbolOfThisTest"), 0);
    EXPECT_EQ(SymbolOffset("/proc/self/exe", "symbolOf"), 0);
    EXPECT_EQ(SymbolOffset("/proc/self/status", "symbolOfThisTest"), 0) << "no program";
}
