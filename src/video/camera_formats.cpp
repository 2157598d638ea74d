#include "video/camera_formats.h"

#include <span>

static constexpr ResolutionPreference kFullHd = ResolutionPreferenceTable[0];
static constexpr uint32_t kAbsentCameraRate = 30;

static constexpr int kRatesConsidered = 10;  // the last slot of a size has no say
static constexpr int64_t kRateTolerance = 2;

// The first format that a camera offers is taken; the last one also when it offers none of them. Uncompressed pictures
// fill the bus, so they are taken at small sizes only.
struct FormatRule {
    uint32_t fourcc;
    FormatOffer CameraOffer::*offer;
    size_t firstPreference;  // row of the preference table
    bool heedsList;          // cameras unfit for 1920x1080 are known by the compressed streams they break
};
static constexpr FormatRule kFormatRules[] = {
    {.fourcc = kMjpg, .offer = &CameraOffer::mjpg, .firstPreference = 0, .heedsList = true},
    {.fourcc = kH264, .offer = &CameraOffer::h264, .firstPreference = 0, .heedsList = true},
    {.fourcc = kYuyv, .offer = &CameraOffer::yuyv, .firstPreference = 5, .heedsList = false},
};

static bool IsFullHd(const ResolutionPreference& size) {
    return size.width == kFullHd.width && size.height == kFullHd.height;
}

static bool BelowFullHd(const ResolutionPreference& size) {
    return size.width < kFullHd.width && size.height < kFullHd.height;
}

uint32_t TargetFrameRate(uint16_t outputRefresh100) {
    const uint32_t divisor = outputRefresh100 < 3100 ? 1 : 2;
    return outputRefresh100 / 100u / divisor;
}

// The last rate close to the target wins; a camera that has none gets its first.
static uint32_t ChooseRate(const FrameSizeEntry& entry, uint32_t targetRate) {
    uint32_t chosen = entry.rates[0];
    for (uint32_t rate : std::span(entry.rates).first<kRatesConsidered>()) {
        const int64_t distance = int64_t{rate} - int64_t{targetRate};
        if (rate && distance >= -kRateTolerance && distance <= kRateTolerance) chosen = rate;
    }
    return chosen;
}

static void StoreSelection(SelectedFormat& selected, uint32_t width, uint32_t height, uint32_t fps, uint32_t fourcc) {
    selected.width = width;
    selected.height = height;
    selected.fps = fps;
    selected.fourcc = fourcc;
}

int MatchFrameSize(SelectedFormat& selected, bool listed, uint32_t fourcc, const FrameSizeEntry& entry,
                   const ResolutionPreference& preference, uint32_t targetRate) {
    if (entry.width != preference.width || entry.height != preference.height) return 0;
    if (listed && IsFullHd(preference)) return 0;
    StoreSelection(selected, entry.width, entry.height, ChooseRate(entry, targetRate), fourcc);
    return 1;
}

static const FormatRule& ChooseRule(const CameraOffer& offer) {
    for (const FormatRule& rule : kFormatRules)
        if ((offer.*rule.offer).offered) return rule;
    return kFormatRules[std::size(kFormatRules) - 1];
}

// The preference row that was taken, or null when no size of the camera is in the table.
static const ResolutionPreference* MatchPreferences(const FormatRule& rule, const FormatOffer& offer, bool listed,
                                                    uint32_t targetRate, bool fullHdTaken, SelectedFormat& selected) {
    for (const ResolutionPreference& preference : std::span(ResolutionPreferenceTable).subspan(rule.firstPreference)) {
        if (fullHdTaken && !BelowFullHd(preference)) continue;
        for (const FrameSizeEntry& entry : offer.sizes)
            if (MatchFrameSize(selected, listed, rule.fourcc, entry, preference, targetRate)) return &preference;
    }
    return nullptr;
}

void ChooseCameraFormat(const CameraOffer& offer, bool listed, uint32_t targetRate, uint8_t& fullHdTaken,
                        SelectedFormat& selected) {
    const FormatRule& rule = ChooseRule(offer);
    const FormatOffer& sizes = offer.*rule.offer;
    const auto* taken = MatchPreferences(rule, sizes, listed && rule.heedsList, targetRate, fullHdTaken != 0, selected);
    if (!taken)
        StoreSelection(selected, kFullHd.width, kFullHd.height, sizes.sizes[0].rates[0], rule.fourcc);
    else if (IsFullHd(*taken))
        fullHdTaken = 1;
}

void ChooseAbsentCamera(SelectedFormat& selected) {
    const ResolutionPreference& size = ResolutionPreferenceTable[kAbsentCameraPreference];
    StoreSelection(selected, size.width, size.height, kAbsentCameraRate, 0);
}

const char* FourccName(uint32_t fourcc) {
    switch (fourcc) {
        case kMjpg:
            return "MJPEG";
        case kH264:
            return "H264";
        case kYuyv:
            return "YUYV";
        default:
            return "Unknown format";
    }
}
