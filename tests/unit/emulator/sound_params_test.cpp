// What programs and PCM devices agree on.
#include "sound_params.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <random>

static const SoundLimits kCodec = {.fewestChannels = 1, .mostChannels = 2, .rates = {8000, 16000, 44100, 48000}};

static snd_pcm_hw_params AnyParams() {
    snd_pcm_hw_params params{};
    for (snd_mask& mask : params.masks) memset(&mask, 0xff, sizeof mask);
    for (snd_interval& range : params.intervals)
        range = {.min = 0, .max = UINT_MAX, .openmin = 0, .openmax = 0, .integer = 0, .empty = 0};
    params.rmask = ~0u;
    return params;
}

static snd_interval& Range(snd_pcm_hw_params& params, int parameter) {
    return params.intervals[parameter - SNDRV_PCM_HW_PARAM_FIRST_INTERVAL];
}

struct Wish {
    int parameter;
    unsigned min, max;
};

static snd_pcm_hw_params Wishing(const std::vector<Wish>& wishes) {
    snd_pcm_hw_params params = AnyParams();
    for (const Wish& wish : wishes) {
        Range(params, wish.parameter).min = wish.min;
        Range(params, wish.parameter).max = wish.max;
    }
    return params;
}

TEST(SoundParams, ADeviceShowsItsLimits) {
    snd_pcm_hw_params params = AnyParams();
    ASSERT_EQ(RefineParams(kCodec, params), 0);
    EXPECT_EQ(params.masks[SNDRV_PCM_HW_PARAM_FORMAT].bits[0], 1u << SNDRV_PCM_FORMAT_S16_LE);
    EXPECT_EQ(Range(params, SNDRV_PCM_HW_PARAM_RATE).min, 8000u);
    EXPECT_EQ(Range(params, SNDRV_PCM_HW_PARAM_RATE).max, 48000u);
    EXPECT_EQ(Range(params, SNDRV_PCM_HW_PARAM_FRAME_BITS).min, 16u);
    EXPECT_EQ(Range(params, SNDRV_PCM_HW_PARAM_FRAME_BITS).max, 32u);
    EXPECT_EQ(Range(params, SNDRV_PCM_HW_PARAM_BUFFER_SIZE).max, kBufferBytesLimit / 2);
    EXPECT_TRUE(params.info & SNDRV_PCM_INFO_MMAP);
    EXPECT_FALSE(params.info & SNDRV_PCM_INFO_PAUSE);
    snd_pcm_hw_params again = params;
    ASSERT_EQ(RefineParams(kCodec, again), 0);
    EXPECT_EQ(again.cmask, 0u) << "what is refined stays as it is";
}

TEST(SoundParams, WishesAreMetOrRefused) {
    struct Case {
        const char* what;
        std::vector<Wish> wishes;
        int result;
        SoundFormat format;
    };
    const Case cases[] = {
        {"times at 48 kHz: 10 ms periods in a buffer of 200 ms",
         {{SNDRV_PCM_HW_PARAM_CHANNELS, 2, 2},
          {SNDRV_PCM_HW_PARAM_RATE, 48000, 48000},
          {SNDRV_PCM_HW_PARAM_BUFFER_TIME, 200000, 200000},
          {SNDRV_PCM_HW_PARAM_PERIOD_TIME, 10000, 10000}},
         0,
         {2, 48000, 480, 9600}},
        {"sizes at 44.1 kHz, whose times are no whole numbers",
         {{SNDRV_PCM_HW_PARAM_CHANNELS, 2, 2},
          {SNDRV_PCM_HW_PARAM_RATE, 44100, 44100},
          {SNDRV_PCM_HW_PARAM_PERIOD_SIZE, 1024, 1024},
          {SNDRV_PCM_HW_PARAM_PERIODS, 4, 4}},
         0,
         {2, 44100, 1024, 4096}},
        {"a rate between two that it has", {{SNDRV_PCM_HW_PARAM_RATE, 22050, 22050}}, -EINVAL, {}},
        {"the next rate it has",
         {{SNDRV_PCM_HW_PARAM_RATE, 16001, 47999},
          {SNDRV_PCM_HW_PARAM_PERIOD_SIZE, 441, 441},
          {SNDRV_PCM_HW_PARAM_PERIODS, 2, 2}},
         0,
         {1, 44100, 441, 882}},
        {"more channels than it has", {{SNDRV_PCM_HW_PARAM_CHANNELS, 6, 6}}, -EINVAL, {}},
        {"a buffer beyond its memory",
         {{SNDRV_PCM_HW_PARAM_BUFFER_BYTES, kBufferBytesLimit + 4, UINT_MAX}},
         -EINVAL,
         {}},
        {"one period only", {{SNDRV_PCM_HW_PARAM_PERIODS, 1, 1}}, -EINVAL, {}},
        {"a contradiction: size and time of a period",
         {{SNDRV_PCM_HW_PARAM_RATE, 48000, 48000},
          {SNDRV_PCM_HW_PARAM_PERIOD_TIME, 10000, 10000},
          {SNDRV_PCM_HW_PARAM_PERIOD_SIZE, 512, 512}},
         -EINVAL,
         {}},
        {"a range upside down", {{SNDRV_PCM_HW_PARAM_RATE, 48000, 16000}}, -EINVAL, {}},
    };
    for (const Case& row : cases) {
        snd_pcm_hw_params params = Wishing(row.wishes);
        SoundFormat format;
        ASSERT_EQ(ChooseParams(kCodec, params, format), row.result) << row.what;
        EXPECT_EQ(format.channels, row.format.channels) << row.what;
        EXPECT_EQ(format.rate, row.format.rate) << row.what;
        EXPECT_EQ(format.periodFrames, row.format.periodFrames) << row.what;
        EXPECT_EQ(format.bufferFrames, row.format.bufferFrames) << row.what;
    }
    snd_pcm_hw_params params = AnyParams();
    params.masks[SNDRV_PCM_HW_PARAM_FORMAT].bits[0] = 1u << SNDRV_PCM_FORMAT_S32_LE;
    EXPECT_EQ(RefineParams(kCodec, params), -EINVAL);
}

// Whatever a program asks for: a choice that succeeds is one the device can play, and no wish was overruled.
TEST(SoundParams, ChoicesAreConsistent) {
    std::mt19937 random(1);
    const auto from = [&random](unsigned min, unsigned max) {
        return std::uniform_int_distribution<unsigned>(min, max)(random);
    };
    int chosen = 0;
    for (int round = 0; round < 2000; ++round) {
        const unsigned rate = from(4000, 50000), period = from(1, 5000), buffer = from(1, 60000);
        const std::vector<Wish> wishes = {{SNDRV_PCM_HW_PARAM_RATE, rate, rate + from(0, 40000)},
                                          {SNDRV_PCM_HW_PARAM_PERIOD_SIZE, period, period + from(0, 300)},
                                          {SNDRV_PCM_HW_PARAM_BUFFER_TIME, buffer, buffer + from(0, 900000)}};
        snd_pcm_hw_params params = Wishing(wishes);
        SoundFormat format;
        if (ChooseParams(kCodec, params, format) != 0) continue;
        ++chosen;
        EXPECT_THAT(kCodec.rates, testing::Contains(format.rate));
        EXPECT_GE(format.bufferFrames, 2 * format.periodFrames);
        EXPECT_LE(format.bufferFrames * format.channels * kSampleBytes, kBufferBytesLimit);
        EXPECT_GE(format.rate, wishes[0].min);
        EXPECT_LE(format.rate, wishes[0].max);
        EXPECT_GE(format.periodFrames, wishes[1].min);
        EXPECT_LE(format.periodFrames, wishes[1].max);
        const double microseconds = 1e6 * format.bufferFrames / format.rate;
        EXPECT_GE(microseconds, wishes[2].min);
        EXPECT_LE(microseconds, wishes[2].max);
    }
    EXPECT_GT(chosen, 500);
}
