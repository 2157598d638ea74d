// The settings record as the bench shows it, and how it is found in the daemon.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <numeric>
#include <utility>

#include "bench/daemon_memory.h"
#include "bench/settings_record.h"

// The board tells its bytes by their places; one field of each form, and of each run without a gap the last one.
TEST(SettingsRecord, ShowsEachFieldFromItsPlace) {
    std::array<uint8_t, kSettingsBytes> record;
    std::iota(record.begin(), record.end(), uint8_t{0});
    memcpy(&record[62], "TSL", 4);
    const std::pair<const char*, Json> expected[] = {{"View", 6},
                                                     {"Swap", 7},
                                                     {"SwHdmi", 8},
                                                     {"Input", 10},
                                                     {"Dhcp", 40},
                                                     {"OutputTiming", 45},
                                                     {"Black", 50},
                                                     {"S2Count", 52},
                                                     {"OutputWidth", 0x3736},
                                                     {"MonitorVendor", "TSL"},
                                                     {"PtzCamera", 72},
                                                     {"PanCamera1", 0x4F4E4D4C},
                                                     {"Blank", 129},
                                                     {"EnJpegParse", 135},
                                                     {"IpAddress", "36.37.38.39"},
                                                     {"MacAddress", "6C:6D:6E:6F:70:71"},
                                                     {"Pad2Rect", {0x1D1C, 0x1F1E, 0x2120, 0x2322}}};
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
