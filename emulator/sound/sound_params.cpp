#include "sound/sound_params.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

static constexpr unsigned kLeastPeriodBytes = 64, kMostPeriodBytes = 64 * 1024;
static constexpr unsigned kFewestPeriods = 2, kMostPeriods = 1024;
static constexpr unsigned kMicroseconds = 1'000'000;
static constexpr unsigned kInfo =
    SNDRV_PCM_INFO_MMAP | SNDRV_PCM_INFO_MMAP_VALID | SNDRV_PCM_INFO_INTERLEAVED | SNDRV_PCM_INFO_BLOCK_TRANSFER;

using Range = snd_interval;

// ---- One range. An open end belongs to the range only up to, not including, its number: (480, 481) is a size between
// 480 and 481 frames, which the kernel takes as 480.

static Range& RangeOf(snd_pcm_hw_params& params, int parameter) {
    return params.intervals[parameter - SNDRV_PCM_HW_PARAM_FIRST_INTERVAL];
}

static Range Closed(unsigned min, unsigned max) {
    return {.min = min, .max = max, .openmin = 0, .openmax = 0, .integer = 0, .empty = 0};
}

static Range Integers(unsigned min, unsigned max) {
    Range range = Closed(min, max);
    range.integer = 1;
    return range;
}

static bool IsEmpty(const Range& range) {
    return range.empty || range.min > range.max || (range.min == range.max && (range.openmin || range.openmax));
}

static bool IsSingle(const Range& range) {
    return range.min == range.max || (range.min + 1 == range.max && (range.openmin || range.openmax));
}

static unsigned ValueOf(const Range& range) { return range.openmin && !range.openmax ? range.max : range.min; }

static bool Same(const Range& a, const Range& b) {
    return a.min == b.min && a.max == b.max && a.openmin == b.openmin && a.openmax == b.openmax &&
           a.integer == b.integer;
}

static void TakeLowerEnd(Range& range, const Range& limit) {
    if (range.min < limit.min) {
        range.min = limit.min;
        range.openmin = limit.openmin;
    } else if (range.min == limit.min && limit.openmin) {
        range.openmin = 1;
    }
}

static void TakeUpperEnd(Range& range, const Range& limit) {
    if (range.max > limit.max) {
        range.max = limit.max;
        range.openmax = limit.openmax;
    } else if (range.max == limit.max && limit.openmax) {
        range.openmax = 1;
    }
}

static void CloseIntegerEnds(Range& range) {
    if (range.integer) {
        if (range.openmin) ++range.min;
        if (range.openmax) --range.max;
        range.openmin = range.openmax = 0;
    } else if (!range.openmin && !range.openmax && range.min == range.max) {
        range.integer = 1;
    }
}

// False: nothing is left.
static bool Narrow(Range& range, const Range& limit) {
    if (IsEmpty(range) || IsEmpty(limit)) return false;
    TakeLowerEnd(range, limit);
    TakeUpperEnd(range, limit);
    range.integer |= limit.integer;
    CloseIntegerEnds(range);
    return !IsEmpty(range);
}

static bool NarrowToList(Range& range, const std::vector<unsigned>& values) {
    const auto inside = [&range](unsigned value) {
        return !IsEmpty(range) && value >= range.min && value <= range.max && !(value == range.min && range.openmin) &&
               !(value == range.max && range.openmax);
    };
    const auto first = std::ranges::find_if(values, inside);
    const auto last = std::find_if(values.rbegin(), values.rend(), inside);
    return first != values.end() && Narrow(range, Closed(*first, *last));
}

// ---- Relations. Each computes what the range of one parameter can be, given those of two others.

struct Quotient {
    unsigned value;
    bool exact;
};

static Quotient Divide(uint64_t dividend, uint64_t divisor) {
    if (divisor == 0 || dividend / divisor >= UINT_MAX) return {UINT_MAX, true};
    return {static_cast<unsigned>(dividend / divisor), dividend % divisor == 0};
}

struct End {
    uint64_t dividend, divisor;
    bool open;
};

// The range between two quotients, rounded outwards; an end that had to be rounded is open.
static Range Between(const End& low, const End& high) {
    const Quotient min = Divide(low.dividend, low.divisor);
    const Quotient max = Divide(high.dividend, high.divisor);
    Range range = Closed(min.value, max.exact ? max.value : max.value + 1);
    range.openmin = !min.exact || low.open;
    range.openmax = high.divisor != 0 && (!max.exact || high.open);
    return range;
}

static Range Product(const Range& a, const Range& b, unsigned, unsigned divisor) {
    Range range = Between({uint64_t{a.min} * b.min, divisor, a.openmin || b.openmin},
                          {uint64_t{a.max} * b.max, divisor, a.openmax || b.openmax});
    range.integer = divisor == 1 && a.integer && b.integer;
    return range;
}

static Range Ratio(const Range& a, const Range& b, unsigned scale, unsigned) {
    return Between({uint64_t{a.min} * scale, b.max, a.openmin || b.openmax},
                   {uint64_t{a.max} * scale, b.min, a.openmax || b.openmin});
}

struct Relation {
    int result;
    Range (*of)(const Range& a, const Range& b, unsigned scale, unsigned divisor);
    int a, b;
    unsigned scale = 1, divisor = 1;
};

static constexpr int kSampleBits = SNDRV_PCM_HW_PARAM_SAMPLE_BITS, kFrameBits = SNDRV_PCM_HW_PARAM_FRAME_BITS,
                     kChannels = SNDRV_PCM_HW_PARAM_CHANNELS, kRate = SNDRV_PCM_HW_PARAM_RATE,
                     kPeriodTime = SNDRV_PCM_HW_PARAM_PERIOD_TIME, kPeriodSize = SNDRV_PCM_HW_PARAM_PERIOD_SIZE,
                     kPeriodBytes = SNDRV_PCM_HW_PARAM_PERIOD_BYTES, kPeriods = SNDRV_PCM_HW_PARAM_PERIODS,
                     kBufferTime = SNDRV_PCM_HW_PARAM_BUFFER_TIME, kBufferSize = SNDRV_PCM_HW_PARAM_BUFFER_SIZE,
                     kBufferBytes = SNDRV_PCM_HW_PARAM_BUFFER_BYTES, kTickTime = SNDRV_PCM_HW_PARAM_TICK_TIME;

static constexpr std::array kRelations = {
    Relation{.result = kSampleBits, .of = Ratio, .a = kFrameBits, .b = kChannels},
    Relation{.result = kFrameBits, .of = Product, .a = kSampleBits, .b = kChannels},
    Relation{.result = kFrameBits, .of = Ratio, .a = kPeriodBytes, .b = kPeriodSize, .scale = 8},
    Relation{.result = kFrameBits, .of = Ratio, .a = kBufferBytes, .b = kBufferSize, .scale = 8},
    Relation{.result = kChannels, .of = Ratio, .a = kFrameBits, .b = kSampleBits},
    Relation{.result = kRate, .of = Ratio, .a = kPeriodSize, .b = kPeriodTime, .scale = kMicroseconds},
    Relation{.result = kRate, .of = Ratio, .a = kBufferSize, .b = kBufferTime, .scale = kMicroseconds},
    Relation{.result = kPeriods, .of = Ratio, .a = kBufferSize, .b = kPeriodSize},
    Relation{.result = kPeriodSize, .of = Ratio, .a = kBufferSize, .b = kPeriods},
    Relation{.result = kPeriodSize, .of = Ratio, .a = kPeriodBytes, .b = kFrameBits, .scale = 8},
    Relation{.result = kPeriodSize, .of = Product, .a = kPeriodTime, .b = kRate, .divisor = kMicroseconds},
    Relation{.result = kBufferSize, .of = Product, .a = kPeriodSize, .b = kPeriods},
    Relation{.result = kBufferSize, .of = Ratio, .a = kBufferBytes, .b = kFrameBits, .scale = 8},
    Relation{.result = kBufferSize, .of = Product, .a = kBufferTime, .b = kRate, .divisor = kMicroseconds},
    Relation{.result = kPeriodBytes, .of = Product, .a = kPeriodSize, .b = kFrameBits, .divisor = 8},
    Relation{.result = kBufferBytes, .of = Product, .a = kBufferSize, .b = kFrameBits, .divisor = 8},
    Relation{.result = kPeriodTime, .of = Ratio, .a = kPeriodSize, .b = kRate, .scale = kMicroseconds},
    Relation{.result = kBufferTime, .of = Ratio, .a = kBufferSize, .b = kRate, .scale = kMicroseconds},
};

// ---- The device

struct DeviceRange {
    int parameter;
    Range range;
};

static bool NarrowToDevice(const SoundLimits& limits, snd_pcm_hw_params& params) {
    constexpr unsigned kBits = 8 * kSampleBytes;
    const std::array ranges = {
        DeviceRange{kSampleBits, Integers(kBits, kBits)},
        DeviceRange{kFrameBits, Integers(0, UINT_MAX)},
        DeviceRange{kChannels, Integers(limits.fewestChannels, limits.mostChannels)},
        DeviceRange{kPeriodBytes, Closed(kLeastPeriodBytes, kMostPeriodBytes)},
        DeviceRange{kPeriods, Integers(kFewestPeriods, kMostPeriods)},
        DeviceRange{kBufferSize, Integers(0, UINT_MAX)},
        DeviceRange{kBufferBytes, Integers(0, kBufferBytesLimit)},
    };
    bool good = true;
    for (const auto& [parameter, range] : ranges) good = good && Narrow(RangeOf(params, parameter), range);
    return good && NarrowToList(RangeOf(params, kRate), limits.rates);
}

static constexpr unsigned kAccesses = 1u << SNDRV_PCM_ACCESS_MMAP_INTERLEAVED | 1u << SNDRV_PCM_ACCESS_RW_INTERLEAVED;
static constexpr unsigned kFormats = 1u << SNDRV_PCM_FORMAT_S16_LE, kSubformats = 1u << SNDRV_PCM_SUBFORMAT_STD;

static bool NarrowMask(snd_mask& mask, unsigned able) {
    mask.bits[0] &= able;
    std::fill(std::begin(mask.bits) + 1, std::end(mask.bits), 0);
    return mask.bits[0] != 0;
}

static bool NarrowMasks(snd_pcm_hw_params& params) {
    return NarrowMask(params.masks[SNDRV_PCM_HW_PARAM_ACCESS], kAccesses) &&
           NarrowMask(params.masks[SNDRV_PCM_HW_PARAM_FORMAT], kFormats) &&
           NarrowMask(params.masks[SNDRV_PCM_HW_PARAM_SUBFORMAT], kSubformats);
}

// ---- The whole

// One round over all relations; `moved` when any range got smaller.
static bool NarrowByRelations(const SoundLimits& limits, snd_pcm_hw_params& params, bool& moved) {
    for (const Relation& row : kRelations) {
        Range& range = RangeOf(params, row.result);
        const Range before = range;
        if (!Narrow(range, row.of(RangeOf(params, row.a), RangeOf(params, row.b), row.scale, row.divisor)))
            return false;
        if (row.result == kRate && !NarrowToList(range, limits.rates)) return false;
        moved |= !Same(before, range);
    }
    return true;
}

static unsigned ChangedParameters(const snd_pcm_hw_params& before, const snd_pcm_hw_params& after) {
    unsigned changed = 0;
    for (unsigned i = 0; i < std::size(after.intervals); ++i)
        if (!Same(before.intervals[i], after.intervals[i])) changed |= 1u << (SNDRV_PCM_HW_PARAM_FIRST_INTERVAL + i);
    for (unsigned i = 0; i < std::size(after.masks); ++i)
        if (memcmp(&before.masks[i], &after.masks[i], sizeof(snd_mask)) != 0) changed |= 1u << i;
    return changed;
}

int RefineParams(const SoundLimits& limits, snd_pcm_hw_params& params) {
    const snd_pcm_hw_params before = params;
    if (!NarrowMasks(params) || !NarrowToDevice(limits, params)) return -EINVAL;
    for (bool moved = true; std::exchange(moved, false);)
        if (!NarrowByRelations(limits, params, moved)) return -EINVAL;
    params.cmask = ChangedParameters(before, params);
    params.rmask = 0;
    params.info = kInfo;
    params.msbits = 8 * kSampleBytes;
    params.fifo_size = 0;
    const Range& rate = RangeOf(params, kRate);
    params.rate_num = IsSingle(rate) ? ValueOf(rate) : 0;
    params.rate_den = IsSingle(rate) ? 1 : 0;
    return 0;
}

static void TakeFirst(Range& range) {
    if (IsSingle(range)) return;
    range.max = range.min;
    range.openmax = range.openmin;
    if (range.openmax) ++range.max;
}

static void TakeLast(Range& range) {
    if (IsSingle(range)) return;
    range.min = range.max;
    range.openmin = range.openmax;
    if (range.openmin) --range.min;
}

struct Choice {
    int parameter;
    void (*take)(Range& range);
};
static constexpr std::array kChoices = {Choice{kChannels, TakeFirst}, Choice{kRate, TakeFirst},
                                        Choice{kPeriodTime, TakeFirst}, Choice{kBufferSize, TakeLast},
                                        Choice{kTickTime, TakeFirst}};

int ChooseParams(const SoundLimits& limits, snd_pcm_hw_params& params, SoundFormat& format) {
    if (const int error = RefineParams(limits, params); error != 0) return error;
    unsigned& access = params.masks[SNDRV_PCM_HW_PARAM_ACCESS].bits[0];
    access &= ~access + 1;  // the lowest bit
    for (const Choice& choice : kChoices) {
        choice.take(RangeOf(params, choice.parameter));
        if (const int error = RefineParams(limits, params); error != 0) return error;
    }
    format = {.channels = ValueOf(RangeOf(params, kChannels)),
              .rate = ValueOf(RangeOf(params, kRate)),
              .periodFrames = ValueOf(RangeOf(params, kPeriodSize)),
              .bufferFrames = ValueOf(RangeOf(params, kBufferSize))};
    return 0;
}
