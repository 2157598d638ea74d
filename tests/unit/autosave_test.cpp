// Which changes of the settings make the periodic save write to flash.
#include "gstreamer/autosave.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>

static uint8_t* Bytes(DeviceSettings& record) { return reinterpret_cast<uint8_t*>(&record); }

class AutosaveTest : public testing::Test {
protected:
    void SetUp() override {
        std::memset(static_cast<void*>(&live), 0, sizeof live);
        CopySettings(shadow, live);
    }
    DeviceSettings live, shadow;
};

TEST_F(AutosaveTest, ComparesExactlyTheBytesThatAreWorthAWrite) {
    std::set<size_t> expected;
    for (auto [first, last] : {std::pair{0, 7}, {8, 10}, {12, 35}, {40, 44}, {50, 53}, {120, 123}})
        for (int i = first; i <= last; ++i) expected.insert(size_t(i));

    std::set<size_t> compared;
    for (size_t i = 0; i < sizeof live; ++i) {
        Bytes(live)[i] ^= 0x80;
        if (DiffersFromShadow(shadow, live)) compared.insert(i);
        Bytes(live)[i] ^= 0x80;
    }
    EXPECT_EQ(compared, expected);
}

TEST_F(AutosaveTest, ALayoutAndItsWindowsAreCarriedButNothingElse) {
    live.View = kViewSS;
    live.Swap = 1;
    live.SwHdmi = 1;
    live.Input = 4;
    live.Black = 1;
    CarryLayout(shadow, live);
    EXPECT_FALSE(DiffersFromShadow(shadow, live));

    live.Pad0Rect.right = 960;
    live.Pad2Rect.bottom = 1080;
    EXPECT_TRUE(DiffersFromShadow(shadow, live));
    CarryWindows(shadow, live);
    EXPECT_FALSE(DiffersFromShadow(shadow, live));

    live.AudioJack = 1;
    CarryLayout(shadow, live);
    CarryWindows(shadow, live);
    EXPECT_TRUE(DiffersFromShadow(shadow, live));
}

TEST_F(AutosaveTest, ARebuildNeitherForgetsNorInventsAChange) {
    std::memset(static_cast<void*>(&live), 0x55, sizeof live);
    CopySettings(shadow, live);
    live.Inv1 = 2;
    live.View = kViewTB;
    live.AoutHdmi = 3;
    CarryUncompared(shadow, live);
    EXPECT_EQ(shadow.Inv1, 2);
    EXPECT_EQ(shadow.View, kViewTB);
    EXPECT_EQ(shadow.AoutHdmi, 0x55) << "not saved yet";
    EXPECT_TRUE(DiffersFromShadow(shadow, live));

    live.AoutHdmi = 0x55;
    EXPECT_FALSE(DiffersFromShadow(shadow, live));
}

TEST_F(AutosaveTest, ChecksOnlyOnceAPeriodAndThenTakesTheWholeRecord) {
    const SteadyTime start{};
    SteadyTime lastCheck = start;
    live.AoutUsb1 = 2;
    live.Ain1 = 7;

    AutosaveWhenDue(shadow, live, start + kAutosavePeriod, lastCheck);
    EXPECT_EQ(lastCheck, start) << "not more than the period";
    EXPECT_TRUE(DiffersFromShadow(shadow, live));

    const SteadyTime due = start + kAutosavePeriod + std::chrono::milliseconds(1);
    testing::internal::CaptureStdout();
    AutosaveWhenDue(shadow, live, due, lastCheck);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::StartsWith("Saving configuration.\n"));
    EXPECT_EQ(lastCheck, due);
    EXPECT_EQ(shadow.Ain1, 7);
    EXPECT_EQ(std::memcmp(&shadow, &live, sizeof live), 0) << "the stamp of the save is no change either";
}
