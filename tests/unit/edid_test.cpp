#include "video/edid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "video/hdmi_output.h"

namespace {

using Edid = std::array<uint8_t, kEdidBufferSize>;

// Without a timing, of which it says that it is preferred.
Edid Monitor() {
    Edid edid{};
    constexpr uint8_t kBegin[] = {0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0x10, 0xAC};  // "DEL"
    std::ranges::copy(kBegin, edid.begin());
    edid[24] = 0x02;
    return edid;
}

}  // namespace

TEST(Edid, VendorAndHeader) {
    Edid edid = Monitor();
    EXPECT_TRUE(HasEdidHeader(edid));
    EXPECT_EQ(EdidVendor(edid), (std::array{'D', 'E', 'L'}));
    edid[8] = 0x84;  // the top bit is not part of the letters
    edid[9] = 0x43;
    EXPECT_EQ(EdidVendor(edid), (std::array{'A', 'B', 'C'}));
    edid[7] = 1;
    EXPECT_FALSE(HasEdidHeader(edid));
}

TEST(Edid, PreferredTimingSelectsItsRow) {
    using Timing = std::array<uint8_t, 8>;  // bytes 54 to 61
    static constexpr std::pair<Timing, uint8_t> kRows[] = {
        {{0x02, 0x3A, 0x80, 0x18, 0x71, 0x38, 0x2D, 0x40}, 1},
        {{0x02, 0x3A, 0x80, 0xD0, 0x72, 0x38, 0x2D, 0x40}, 2},  // 2640 in a line: 50 Hz
        {{0x01, 0x1D, 0x00, 0x72, 0x51, 0xD0, 0x1E, 0x20}, 3},
        {{0x01, 0x1D, 0x00, 0xBC, 0x52, 0xD0, 0x1E, 0x20}, 4},               // 1980 in a line: 50 Hz
        {{0x01, 0x1D, 0x80, 0x18, 0x71, 0x38, 0x2D, 0x40}, 5},               // 74.25 MHz: 30 Hz
        {{0xF3, 0x39, 0x80, 0x18, 0x71, 0x38, 0x2D, 0x40}, kOutputTimings},  // 59.94 Hz
        {{0x00, 0x00, 0x80, 0x18, 0x71, 0x38, 0x2D, 0x40}, kOutputTimings},  // no clock: another descriptor
        {{0x02, 0x3A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}, kOutputTimings},  // a clock, but no lines and no pixels
    };
    Edid edid = Monitor();
    for (const auto& [timing, row] : kRows) {
        std::ranges::copy(timing, edid.begin() + 54);
        const auto wanted = EdidPreferredTiming(edid);
        EXPECT_EQ(wanted ? FindOutputTiming(wanted->width, wanted->height, wanted->refresh) : kOutputTimings, row);
    }
    std::ranges::copy(kRows[0].first, edid.begin() + 54);
    edid[24] = 0xFD;
    EXPECT_FALSE(EdidPreferredTiming(edid)) << "not declared";
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

TEST(OutputTiming, ModeLineOfTheTool) {
    EXPECT_EQ(ParseModeLine("mode \"1280x720-60\"\n"), (OutputMode{1280, 720, 60}));
    EXPECT_EQ(ParseModeLine("mode \"1920x1080-50\""), (OutputMode{1920, 1080, 50}));
    for (const char* damaged :
         {"mode 1280x720-60", "mode \"", "mode \"1280x720\"", "mode \"x-\"", "\"99999999999x1-1\"", ""})
        EXPECT_FALSE(ParseModeLine(damaged)) << damaged;
}
