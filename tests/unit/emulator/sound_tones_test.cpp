// Tones that tell sources apart.
#include "sound/sound_tones.h"

#include <gmock/gmock.h>

static std::vector<int16_t> Sound(const std::vector<std::pair<unsigned, double>>& tones, unsigned rate, size_t count) {
    std::vector<int16_t> sum(count);
    for (const auto& [frequency, level] : tones) {
        const std::vector<int16_t> tone = MakeTone(frequency, rate, level);
        for (size_t i = 0; i < count; ++i) sum[i] = static_cast<int16_t>(sum[i] + tone[i % tone.size()]);
    }
    return sum;
}

// At every rate that a device of ours has, with all tones sounding but the one that is looked for.
TEST(SoundTones, SpectrumMeasuresEachToneAlone) {
    for (const unsigned rate : {8000u, 16000u, 44100u, 48000u, 96000u}) {
        const auto sound = Sound({{410, -20}, {610, -40}, {1270, -6}}, rate, rate / kBinHertz);
        const std::vector<float> spectrum = Spectrum(sound);
        const auto level = [&](unsigned frequency) { return Decibels(spectrum[frequency / kBinHertz]); };
        EXPECT_NEAR(level(410), -20, 0.02) << rate;
        EXPECT_NEAR(level(610), -40, 0.05) << rate;
        EXPECT_NEAR(level(1270), -6, 0.02) << rate;
        EXPECT_LT(level(790), -90) << rate;
        EXPECT_LT(level(1000), -90) << rate;
    }
    EXPECT_EQ(Decibels(0), kSilence);
}

// A short window: loud neighbours must not hide that a tone is absent, nor its presence.
TEST(SoundTones, ShortWindowKeepsNeighboursApart) {
    constexpr unsigned kRate = 48000;
    const auto sound = Sound({{790, -10}, {1270, -10}}, kRate, kRate / 50);
    EXPECT_NEAR(ToneLevel(sound, 790, kRate), -10, 0.5);
    EXPECT_LT(ToneLevel(sound, 610, kRate), -10 - 35);
    EXPECT_LT(ToneLevel(sound, 1000, kRate), -10 - 35);
    EXPECT_NEAR(Level(sound), -7, 0.3);
    EXPECT_EQ(Level({}), kSilence);
}
