#include "board/hdmi_receiver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <utility>

// An input is interlaced when it says so, or by the height of its fields.
TEST(HdmiReceiver, TimingIgnoresTheFlagsBesideIt) {
    static constexpr struct {
        std::array<uint8_t, 5> registers;  // 0x07 to 0x0B; the rest of the block is of no interest
        int width, height, interlaced;
    } kCases[] = {
        {{0x07, 0x80, 0x04, 0x38, 0x00}, 1920, 1080, 0}, {{0xF7, 0x80, 0xE4, 0x38, 0xDF}, 1920, 1080, 0},
        {{0xA0, 0x00, 0x00, 0x00, 0x00}, 0, 0, 0},       {{0x07, 0x80, 0x02, 0x1C, 0x00}, 1920, 540, 1},
        {{0x02, 0xD0, 0x01, 0x20, 0x00}, 720, 288, 1},   {{0x02, 0xD0, 0x00, 0xF0, 0x00}, 720, 240, 1},
        {{0x07, 0x80, 0x04, 0x38, 0x20}, 1920, 1080, 1}, {{0x05, 0x00, 0x02, 0xD0, 0x00}, 1280, 720, 0},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0x00}, 4095, 8191, 0},
    };
    for (const auto& row : kCases) {
        std::array<uint8_t, kTimingRegisters> from07;
        from07.fill(0xFF);
        std::ranges::copy(row.registers, from07.begin());
        HdmiInputStatus status{};
        DecodeTiming(from07, status);
        EXPECT_EQ(status.Width, row.width);
        EXPECT_EQ(status.Height, row.height);
        EXPECT_EQ(status.HeightCopy, row.height);
        EXPECT_EQ(status.Interlaced, row.interlaced) << row.width << "x" << row.height;
    }
}

TEST(HdmiReceiver, AlternateTimingIsValidWithBothMeasurements) {
    HdmiInputStatus status{};
    std::array<uint8_t, kAlternateRegisters> fromE2 = {0xE7, 0x80, 0x11, 0x22, 0xE4, 0x38, 0x33, 0x44, 0xFF, 0x55};
    DecodeAlternateTiming(fromE2, status);
    EXPECT_EQ(status.AltWidth, 1920);
    EXPECT_EQ(status.AltHeight, 1080);
    EXPECT_EQ(status.AltValid, 1);
    EXPECT_EQ(status.AltFlag, 1);
    fromE2[4] = 0xE0;
    fromE2[5] = 0;
    fromE2[8] = 0xFE;
    DecodeAlternateTiming(fromE2, status);
    EXPECT_EQ(status.AltValid, 0);
    EXPECT_EQ(status.AltFlag, 0);
}

TEST(HdmiReceiver, ClockLimitDependsOnTheKernel) {
    EXPECT_EQ(DecodeTmdsMhz(74, 0x7F), 148);
    EXPECT_EQ(DecodeTmdsMhz(74, 0x80), 150);
    EXPECT_EQ(DecodeTmdsMhz(255, 0x80), 510);
    EXPECT_TRUE(ClockCanBeCaptured(129, false));
    EXPECT_FALSE(ClockCanBeCaptured(130, false));
    EXPECT_TRUE(ClockCanBeCaptured(169, true));
    EXPECT_FALSE(ClockCanBeCaptured(170, true));
}

TEST(HdmiReceiver, LargeFormats) {
    static constexpr std::pair<std::array<uint8_t, 4>, bool> kCases[] = {
        {{0x0F, 0x00, 0x08, 0x70}, true},   // 3840x2160
        {{0xF0, 0x00, 0x04, 0x38}, true},   // 4096 wide
        {{0x0A, 0x00, 0x04, 0x38}, true},   // 2560 wide
        {{0x07, 0x80, 0x05, 0xA0}, true},   // 1440 high
        {{0x07, 0x80, 0x04, 0x38}, false},  // 1920x1080
        {{0x0A, 0x01, 0x04, 0x38}, false},
        {{0x07, 0x80, 0x28, 0x70}, false},  // a flag beside the height: not these lines
    };
    for (const auto& [from07, large] : kCases) EXPECT_EQ(IsLargeFormat(from07), large) << int(from07[0]);
}
