#include "board/hdmi_receiver.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace {

struct Timing {
    unsigned width, height, interlaced;
    bool operator==(const Timing&) const = default;
};

// Registers 0x07 to 0x0B; the rest of the block is of no interest.
Timing Decode(std::array<uint8_t, 5> registers) {
    std::array<uint8_t, kTimingRegisters> from07;
    from07.fill(0xFF);
    std::ranges::copy(registers, from07.begin());
    HdmiInputStatus status{};
    DecodeTiming(from07, status);
    EXPECT_EQ(status.HeightCopy, status.Height);
    return {status.Width, status.Height, status.Interlaced};
}

bool Large(std::array<uint8_t, 4> from07) { return IsLargeFormat(from07); }

}  // namespace

TEST(HdmiReceiver, TimingIgnoresTheFlagsBesideIt) {
    EXPECT_EQ(Decode({0x07, 0x80, 0x04, 0x38, 0x00}), (Timing{1920, 1080, 0}));
    EXPECT_EQ(Decode({0xF7, 0x80, 0xE4, 0x38, 0xDF}), (Timing{1920, 1080, 0}));
    EXPECT_EQ(Decode({0x05, 0x00, 0x02, 0xD0, 0x00}), (Timing{1280, 720, 0}));
    EXPECT_EQ(Decode({0xA0, 0x00, 0x00, 0x00, 0x00}), (Timing{0, 0, 0}));
}

TEST(HdmiReceiver, InterlacedBySayingSoOrByFieldHeight) {
    EXPECT_EQ(Decode({0x07, 0x80, 0x02, 0x1C, 0x00}), (Timing{1920, 540, 1}));
    EXPECT_EQ(Decode({0x02, 0xD0, 0x01, 0x20, 0x00}), (Timing{720, 288, 1}));
    EXPECT_EQ(Decode({0x02, 0xD0, 0x00, 0xF0, 0x00}), (Timing{720, 240, 1}));
    EXPECT_EQ(Decode({0x07, 0x80, 0x04, 0x38, 0x20}), (Timing{1920, 1080, 1}));
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

TEST(HdmiReceiver, TmdsClock) {
    EXPECT_EQ(DecodeTmdsMhz(74, 0x00), 148);
    EXPECT_EQ(DecodeTmdsMhz(74, 0x7F), 148);
    EXPECT_EQ(DecodeTmdsMhz(74, 0x80), 150);
    EXPECT_EQ(DecodeTmdsMhz(255, 0x80), 510);
}

TEST(HdmiReceiver, ClockLimitDependsOnTheKernel) {
    EXPECT_TRUE(ClockCanBeCaptured(129, false));
    EXPECT_FALSE(ClockCanBeCaptured(130, false));
    EXPECT_FALSE(ClockCanBeCaptured(150, false));
    EXPECT_TRUE(ClockCanBeCaptured(169, true));
    EXPECT_FALSE(ClockCanBeCaptured(170, true));
}

TEST(HdmiReceiver, LargeFormats) {
    EXPECT_TRUE(Large({0x0F, 0x00, 0x08, 0x70}));   // 3840x2160
    EXPECT_TRUE(Large({0xF0, 0x00, 0x04, 0x38}));   // 4096 wide
    EXPECT_TRUE(Large({0x0A, 0x00, 0x04, 0x38}));   // 2560 wide
    EXPECT_TRUE(Large({0x07, 0x80, 0x05, 0xA0}));   // 1440 high
    EXPECT_FALSE(Large({0x07, 0x80, 0x04, 0x38}));  // 1920x1080
    EXPECT_FALSE(Large({0x0A, 0x01, 0x04, 0x38}));
    EXPECT_FALSE(Large({0x07, 0x80, 0x28, 0x70}));  // a flag beside the height: not these lines
}
