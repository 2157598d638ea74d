#include "audio/audio_levels.h"

#include <gtest/gtest.h>

#include <cmath>

#include "settings/device_settings.h"

TEST(AudioLevels, GainBytesAreSignedDecibels) {
    struct {
        uint8_t byte;
        double decibels;
    } static constexpr kCases[] = {{0, 0}, {1, 1}, {20, 20}, {100, 100}, {101, -155}, {166, -90}, {250, -6}, {255, -1}};
    for (const auto& [byte, decibels] : kCases)
        EXPECT_NEAR(20 * std::log10(DbToGain(byte)), decibels, 1e-3) << int(byte);
    EXPECT_EQ(DbToGain(0), 1.0F);
    EXPECT_FLOAT_EQ(DbToGain(kMuteByte), kMuteGain);
}

struct Policy {
    uint8_t acfg, jack, view;
    bool usb1, usb2, analog;  // at its own gain, otherwise left out
};
static constexpr Policy kPolicies[] = {
    {0, 0, kViewS1, true, false, false}, {0, 0, kViewS2, false, true, false},   {0, 0, kViewSS, true, true, false},
    {0, 0, kViewTB, true, true, false},  {0, 0, kViewPPBR, true, true, false},  {0, 1, kViewS1, false, false, true},
    {0, 1, kViewS2, false, false, true}, {0, 255, kViewSS, false, false, true}, {2, 0, kViewS1, true, true, false},
    {2, 1, kViewS2, true, true, true},
};

TEST(AudioLevels, InputsFollowPolicyJackAndView) {
    AudioLevels levels{};
    InputGains gains{};
    for (const Policy& policy : kPolicies)
        for (const bool muted : {false, true}) {
            levels = FreshAudioLevels(policy.jack);
            levels.acfg = policy.acfg;
            levels.view = policy.view;
            levels.ain1 = 250, levels.ain2 = 6, levels.ain4 = 200;
            levels.muteIn = muted;
            ASSERT_TRUE(ChooseInputGains(levels, gains));
            const auto expected = [muted](bool used, uint8_t byte) -> double {
                return used ? (muted ? kMuteGain : DbToGain(byte)) : 0;
            };
            const InputGains want = {expected(policy.usb1, 250), expected(policy.usb2, 6),
                                     expected(policy.analog, 200)};
            EXPECT_EQ(gains, want) << int(policy.acfg) << " jack " << int(policy.jack) << " view " << int(policy.view);
        }
    const InputGains before = gains;
    for (const int acfg : {1, 3, 255}) {
        levels.acfg = uint8_t(acfg);
        levels.ain1 = 1;
        EXPECT_FALSE(ChooseInputGains(levels, gains)) << "other policies leave the inputs alone";
        EXPECT_EQ(gains, before);
    }
}
