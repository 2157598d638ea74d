// Which changes of the settings make the periodic save write to flash.
#include "gstreamer/autosave.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>

TEST(AutosaveTest, ComparesExactlyTheBytesThatAreWorthAWrite) {
    std::set<size_t> expected, compared;
    for (auto [first, last] : {std::pair{0, 7}, {8, 10}, {12, 35}, {40, 44}, {50, 53}, {120, 123}})
        for (int i = first; i <= last; ++i) expected.insert(size_t(i));

    DeviceSettings live{}, shadow{};
    auto* bytes = reinterpret_cast<uint8_t*>(&live);
    for (size_t i = 0; i < sizeof live; ++i) {
        bytes[i] ^= 0x80;
        if (DiffersFromShadow(shadow, live)) compared.insert(i);
        bytes[i] ^= 0x80;
    }
    EXPECT_EQ(compared, expected);
}

TEST(AutosaveTest, ARebuildNeitherForgetsNorInventsAChange) {
    DeviceSettings live{}, shadow{};
    live.Inv1 = 2;
    live.View = kViewTB;
    live.AoutHdmi = 3;
    CarryUncompared(shadow, live);
    EXPECT_EQ(shadow.Inv1, 2);
    EXPECT_EQ(shadow.View, kViewTB);
    EXPECT_EQ(shadow.AoutHdmi, 0) << "not saved yet";
    EXPECT_TRUE(DiffersFromShadow(shadow, live));
    live.AoutHdmi = 0;
    EXPECT_FALSE(DiffersFromShadow(shadow, live));
}

TEST(AutosaveTest, ChecksOnlyOnceAPeriodAndThenTakesTheWholeRecord) {
    DeviceSettings live{}, shadow{};
    const SteadyTime start{};
    SteadyTime lastCheck = start;
    live.AoutUsb1 = 2;
    live.Ain1 = 7;
    AutosaveWhenDue(shadow, live, start + kAutosavePeriod, lastCheck);
    EXPECT_EQ(lastCheck, start) << "not more than the period";

    const SteadyTime due = start + kAutosavePeriod + std::chrono::milliseconds(1);
    testing::internal::CaptureStdout();
    AutosaveWhenDue(shadow, live, due, lastCheck);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::StartsWith("Saving configuration.\n"));
    EXPECT_EQ(lastCheck, due);
    EXPECT_EQ(std::memcmp(&shadow, &live, sizeof live), 0) << "the stamp of the save is no change either";
}
