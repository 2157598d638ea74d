#include "gstreamer/autosave.h"

#include <array>
#include <cstring>

#include "core/log.h"

struct ByteRange {
    size_t begin, end;  // end is exclusive
};
static constexpr std::array<ByteRange, 6> kCompared = {{
    {0, 8},      // stamp, View, Swap
    {8, 11},     // SwHdmi, Reserved9, Input
    {12, 36},    // windows
    {40, 45},    // Dhcp .. OutputHz
    {50, 54},    // Black, S2Count, AudioJack
    {120, 124},  // source of each audio output
}};
static constexpr size_t kStampSize = offsetof(DeviceSettings, reserved4);

static void CopyRange(DeviceSettings& to, const DeviceSettings& from, size_t begin, size_t end) {
    CopySharedBytes(reinterpret_cast<uint8_t*>(&to) + begin, reinterpret_cast<const uint8_t*>(&from) + begin,
                    end - begin);
}

void CarryLayout(DeviceSettings& shadow, const DeviceSettings& live) {
    shadow.View = live.View.Load();
    shadow.Swap = live.Swap.Load();
    shadow.SwHdmi = live.SwHdmi.Load();
    shadow.Input = live.Input.Load();
    shadow.Black = live.Black.Load();
}

void CarryWindows(DeviceSettings& shadow, const DeviceSettings& live) {
    CopyRange(shadow, live, offsetof(DeviceSettings, Pad0Rect), offsetof(DeviceSettings, IpAddress));
}

void CarryUncompared(DeviceSettings& shadow, const DeviceSettings& live) {
    size_t begin = 0;
    for (const ByteRange& range : kCompared) {
        CopyRange(shadow, live, begin, range.begin);
        begin = range.end;
    }
    CopyRange(shadow, live, begin, sizeof shadow);
    CarryLayout(shadow, live);
    CarryWindows(shadow, live);
}

bool DiffersFromShadow(const DeviceSettings& shadow, const DeviceSettings& live) {
    DeviceSettings now;
    CopySettings(now, live);
    const auto* a = reinterpret_cast<const uint8_t*>(&shadow);
    const auto* b = reinterpret_cast<const uint8_t*>(&now);
    for (const ByteRange& range : kCompared)
        if (std::memcmp(a + range.begin, b + range.begin, range.end - range.begin) != 0) return true;
    return false;
}

// The shadow is taken before the save: what changes meanwhile is at worst saved twice, never missed.
static void Save(DeviceSettings& shadow, DeviceSettings& live) {
    LogInfo("Saving configuration.\n");
    CopySettings(shadow, live);
    SaveSettings(live);
    CopyRange(shadow, live, 0, kStampSize);
}

void AutosaveWhenDue(DeviceSettings& shadow, DeviceSettings& live, SteadyTime now, SteadyTime& lastCheck) {
    if (now - lastCheck <= kAutosavePeriod) return;
    if (DiffersFromShadow(shadow, live)) Save(shadow, live);
    lastCheck = now;
}
