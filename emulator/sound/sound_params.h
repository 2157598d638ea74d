// The negotiation between a program and a PCM device about format, channels, rate, periods and buffer, as the kernel
// leads it: every parameter is a set or a range, narrowed by what the device can and by its relations to the others
// (buffer size = periods x period size, ...), until nothing moves any more.
//
// Pure. Failure is -EINVAL: the wishes contradict each other or the device.
#pragma once

#include <sound/asound.h>
#include <cstdint>
#include <vector>

struct SoundLimits {
    unsigned fewestChannels = 0, mostChannels = 0;
    std::vector<unsigned> rates;  // frames a second, rising
};

// Samples are S16_LE, interleaved, on every device.
inline constexpr unsigned kSampleBytes = 2;
inline constexpr unsigned kBufferBytesLimit = 256 * 1024;

struct SoundFormat {
    unsigned channels = 0, rate = 0;
    unsigned periodFrames = 0, bufferFrames = 0;
};

int RefineParams(const SoundLimits& limits, snd_pcm_hw_params& params);

// Narrows further to one value each. On success `format` holds them.
int ChooseParams(const SoundLimits& limits, snd_pcm_hw_params& params, SoundFormat& format);
