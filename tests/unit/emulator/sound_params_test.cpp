// What programs and PCM devices agree on.
#include "sound/sound_params.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <climits>
#include <cstring>

static const SoundLimits kCodec = {.fewestChannels = 1, .mostChannels = 2, .rates = {8000, 16000, 44100, 48000}};

static constexpr int kChannels = SNDRV_PCM_HW_PARAM_CHANNELS, kRate = SNDRV_PCM_HW_PARAM_RATE,
                     kPeriodTime = SNDRV_PCM_HW_PARAM_PERIOD_TIME, kPeriodSize = SNDRV_PCM_HW_PARAM_PERIOD_SIZE,
                     kPeriods = SNDRV_PCM_HW_PARAM_PERIODS, kBufferTime = SNDRV_PCM_HW_PARAM_BUFFER_TIME,
                     kBufferBytes = SNDRV_PCM_HW_PARAM_BUFFER_BYTES;

struct Wish {
    int parameter;
    unsigned min, max;
};

static snd_pcm_hw_params Wishing(const std::vector<Wish>& wishes) {
    snd_pcm_hw_params params{};
    for (snd_mask& mask : params.masks) memset(&mask, 0xff, sizeof mask);
    for (snd_interval& range : params.intervals) range.max = UINT_MAX;
    for (const auto& [parameter, min, max] : wishes) {
        snd_interval& range = params.intervals[parameter - SNDRV_PCM_HW_PARAM_FIRST_INTERVAL];
        range.min = min;
        range.max = max;
    }
    params.rmask = ~0u;
    return params;
}

TEST(SoundParams, WishesAreMetOrRefused) {
    struct Case {
        const char* what;
        std::vector<Wish> wishes;
        std::vector<unsigned> choice;  // channels, rate, period and buffer in frames; empty: none
    };
    const Case cases[] = {
        {"10 ms periods in a buffer of 200 ms",
         {{kChannels, 2, 2}, {kRate, 48000, 48000}, {kBufferTime, 200000, 200000}, {kPeriodTime, 10000, 10000}},
         {2, 48000, 480, 9600}},
        {"sizes at 44.1 kHz, whose times are no whole numbers",
         {{kChannels, 2, 2}, {kRate, 44100, 44100}, {kPeriodSize, 1024, 1024}, {kPeriods, 4, 4}},
         {2, 44100, 1024, 4096}},
        {"the next rate it has",
         {{kRate, 16001, 47999}, {kPeriodSize, 441, 441}, {kPeriods, 2, 2}},
         {1, 44100, 441, 882}},
        {"a rate between two that it has", {{kRate, 22050, 22050}}, {}},
        {"more channels than it has", {{kChannels, 6, 6}}, {}},
        {"a buffer beyond its memory", {{kBufferBytes, kBufferBytesLimit + 4, UINT_MAX}}, {}},
        {"one period only", {{kPeriods, 1, 1}}, {}},
        {"size and time of a period that contradict",
         {{kRate, 48000, 48000}, {kPeriodTime, 10000, 10000}, {kPeriodSize, 512, 512}},
         {}},
        {"a range upside down", {{kRate, 48000, 16000}}, {}},
    };
    for (const Case& row : cases) {
        snd_pcm_hw_params params = Wishing(row.wishes);
        SoundFormat format;
        ASSERT_EQ(ChooseParams(kCodec, params, format), row.choice.empty() ? -EINVAL : 0) << row.what;
        if (row.choice.empty()) continue;
        EXPECT_THAT(row.choice,
                    testing::ElementsAre(format.channels, format.rate, format.periodFrames, format.bufferFrames));
        ASSERT_EQ(RefineParams(kCodec, params), 0);
        EXPECT_EQ(params.cmask, 0u) << "what is refined stays as it is";
    }
}
