// Hands on the front panel: any sequence of port readings, each followed by what its key does. The first byte chooses
// the board's variant, a byte with the top bit set repeats the reading before it.
#include <algorithm>

#include "board/keypad.h"
#include "board/panel_expander.h"
#include "fuzz.h"
#include "settings/device_identity.h"

static constexpr size_t kReadings = 256;  // longer inputs only repeat themselves

static bool IsView(uint8_t view) { return view <= kViewPPBR || view == kViewTB; }

// Since all buttons were up.
struct Seen {
    uint8_t held = 0;
    int keys = 0, locks = 0;
};

static uint8_t Step(PanelGestures& state, uint8_t port, Seen& seen) {
    const PanelGestures before = state;
    const PanelWishes wishes = StepPanel(state, port);
    if (before.pressed == 0) seen = {};
    seen.held |= wishes.pressed;
    if (state.locked != before.locked) Require(++seen.locks == 1 && (state.pressed & kSwapKey), "locked once a hold");
    if (wishes.key == 0) return 0;
    Require(wishes.key == before.pressed && (wishes.key & ~seen.held) == 0, "a key was held");
    Require(wishes.pressed == kMuteKey || (wishes.pressed == 0 && seen.keys == 0), "it counts once, when it is lifted");
    Require(!before.locked && !before.consumed && seen.locks == 0, "a locked panel has no keys");
    ++seen.keys;
    return wishes.key;
}

static void CheckSettings(const DeviceSettings& record, uint8_t muteIn) {
    Require(IsView(record.View) && record.Swap <= 1 && record.Black <= 1, "layout");
    Require(record.Input >= 1 && record.Input <= 4 && muteIn <= 1, "input");
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    PanelGestures state;
    DeviceSettings record;
    CopySettings(record, DefaultSettings);
    Shared<uint8_t> muteIn{0};
    Input input{.data = data, .left = std::min(size, kReadings)};
    const uint8_t deviceId = input.Byte() & 3;
    record.Sbtn = input.Byte();
    Seen seen;
    uint8_t port = kNothingHeld;
    while (input.left > 0) {
        const uint8_t byte = input.Byte();
        if (byte < 0x80) port = byte;
        for (int passes = byte < 0x80 ? 1 : byte & 0x7F; passes > 0; --passes) {
            const uint8_t key = Step(state, port, seen);
            if (key == 0) continue;
            ApplyKey(key, deviceId, record, muteIn);
            CheckSettings(record, muteIn);
        }
    }
    for (int pass = 0; pass <= 2 * kDebouncePasses; ++pass) Step(state, kNothingHeld, seen);
    Require(state.pressed == 0 && !state.shifted && !state.consumed, "released");
    return 0;
}
