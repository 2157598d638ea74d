#include "video/edid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "video/hdmi_output.h"

namespace {

using Edid = std::array<uint8_t, kEdidBufferSize>;

// 1920x1080 at 60 Hz: 148.5 MHz, blanking 280 x 45, preferred.
Edid FullHdMonitor() {
    Edid edid{};
    constexpr uint8_t kHeader[] = {0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0};
    std::ranges::copy(kHeader, edid.begin());
    edid[8] = 0x10;  // "DEL"
    edid[9] = 0xAC;
    edid[24] = 0x02;
    constexpr uint8_t kTiming[] = {0x02, 0x3A, 0x80, 0x18, 0x71, 0x38, 0x2D, 0x40};
    std::ranges::copy(kTiming, edid.begin() + 54);
    return edid;
}

void SetClock(Edid& edid, unsigned tenKilohertz) {
    edid[54] = tenKilohertz & 0xFF;
    edid[55] = static_cast<uint8_t>(tenKilohertz >> 8);
}

// The table row that the monitor asks for, kOutputTimings for none.
uint8_t RowOf(const Edid& edid) {
    const auto timing = EdidPreferredTiming(edid);
    return timing ? FindOutputTiming(timing->width, timing->height, timing->refresh) : kOutputTimings;
}

}  // namespace

TEST(Edid, VendorAndHeader) {
    Edid edid = FullHdMonitor();
    EXPECT_TRUE(HasEdidHeader(edid));
    EXPECT_EQ(EdidVendor(edid), (std::array{'D', 'E', 'L'}));
    edid[8] = 0x84;  // the top bit is not part of the letters
    edid[9] = 0x43;
    EXPECT_EQ(EdidVendor(edid), (std::array{'A', 'B', 'C'}));
    edid[7] = 1;
    EXPECT_FALSE(HasEdidHeader(edid));
    EXPECT_FALSE(HasEdidHeader(Edid{}));
}

TEST(Edid, PreferredTimingSelectsItsRow) {
    Edid edid = FullHdMonitor();
    EXPECT_EQ(RowOf(edid), 1);
    SetClock(edid, 7425);
    EXPECT_EQ(RowOf(edid), 5);
    SetClock(edid, 14835);  // 59.94 Hz
    EXPECT_EQ(RowOf(edid), kOutputTimings);

    edid = FullHdMonitor();
    edid[57] = 0xD0;  // 2640 in a line: 50 Hz
    edid[58] = 0x72;
    EXPECT_EQ(RowOf(edid), 2);

    edid = FullHdMonitor();
    constexpr uint8_t k720p[] = {0x01, 0x1D, 0x00, 0x72, 0x51, 0xD0, 0x1E, 0x20};
    std::ranges::copy(k720p, edid.begin() + 54);
    EXPECT_EQ(RowOf(edid), 3);
    edid[57] = 0xBC;  // 1980 in a line: 50 Hz
    edid[58] = 0x52;
    EXPECT_EQ(RowOf(edid), 4);
}

TEST(Edid, NothingWithoutADeclaredTiming) {
    Edid edid = FullHdMonitor();
    edid[24] = 0xFD;
    EXPECT_FALSE(EdidPreferredTiming(edid));

    edid = FullHdMonitor();
    SetClock(edid, 0);
    EXPECT_TRUE(IsDisplayDescriptor(FirstDescriptor(edid)));
    EXPECT_FALSE(EdidPreferredTiming(edid));

    edid = FullHdMonitor();
    std::fill_n(edid.begin() + 56, 6, uint8_t{0});  // a clock, but no lines and no pixels
    EXPECT_FALSE(EdidPreferredTiming(edid));
}

TEST(OutputTiming, WithoutTheStrapThe50HzRowStandsIn) {
    constexpr uint8_t kPermitted[] = {0, 2, 2, 4, 4, 5};
    for (uint8_t index = 0; index < kOutputTimings; ++index) {
        EXPECT_EQ(PermittedTiming(index, true), index);
        EXPECT_EQ(PermittedTiming(index, false), kPermitted[index]);
    }
    EXPECT_EQ(PermittedTiming(6, true), 1);
    EXPECT_EQ(PermittedTiming(255, false), 2);
}

TEST(OutputTiming, StandInsDifferInRateAlone) {
    for (uint8_t index = 1; index <= 3; index += 2) {
        const OutputTimingRow& at60 = OutputTimingTable[index];
        const OutputTimingRow& at50 = OutputTimingTable[PermittedTiming(index, false)];
        EXPECT_EQ(at50.refresh, 50);
        EXPECT_EQ(at50.xres, at60.xres);
        EXPECT_EQ(at50.yres, at60.yres);
        EXPECT_EQ(at50.pixclock, at60.pixclock);
    }
}

TEST(OutputTiming, OnlyAnExactModeIsFound) {
    EXPECT_EQ(FindOutputTiming(1920, 1080, 60.0), 1);
    EXPECT_EQ(FindOutputTiming(1920, 1080, 60.0000001), kOutputTimings);
    EXPECT_EQ(FindOutputTiming(1366, 768, 60.0), kOutputTimings);
    EXPECT_EQ(FindOutputTiming(1920, 1080, std::numeric_limits<double>::quiet_NaN()), kOutputTimings);
}

TEST(OutputTiming, ModeLineOfTheTool) {
    EXPECT_EQ(ParseModeLine("mode \"1280x720-60\"\n"), (OutputMode{1280, 720, 60}));
    EXPECT_EQ(ParseModeLine("mode \"1920x1080-50\""), (OutputMode{1920, 1080, 50}));
    for (const char* damaged :
         {"mode 1280x720-60", "mode \"", "mode \"1280x720\"", "mode \"x-\"", "\"99999999999x1-1\"", ""})
        EXPECT_FALSE(ParseModeLine(damaged)) << damaged;
}
