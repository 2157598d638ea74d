// Hands on the front panel: any sequence of port readings, each followed by what its key does. The first byte chooses
// the board's variant, a byte with the top bit set repeats the reading before it.
#include "board/keypad.h"
#include "board/panel_expander.h"
#include "fuzz.h"
#include "settings/device_identity.h"

static bool IsView(uint8_t view) { return view <= kViewPPBR || view == kViewTB; }

static uint8_t Step(PanelGestures& state, uint8_t port, uint8_t& everHeld) {
    const PanelGestures before = state;
    const PanelWishes wishes = StepPanel(state, port);
    everHeld |= wishes.pressed;
    if (wishes.key == 0) return 0;
    Require(wishes.key == before.pressed && (wishes.key & ~everHeld) == 0, "a key was held");
    Require(wishes.pressed == 0 || wishes.pressed == kMuteKey, "it counts when it is lifted");
    Require(!before.locked && !before.consumed, "a locked panel has no keys");
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
    Input input{.data = data, .left = size};
    const uint8_t deviceId = input.Byte() & 3;
    record.Sbtn = input.Byte();
    uint8_t everHeld = 0, port = kNothingHeld;
    while (input.left > 0) {
        const uint8_t byte = input.Byte();
        if (byte < 0x80) port = byte;
        for (int passes = byte < 0x80 ? 1 : byte & 0x7F; passes > 0; --passes) {
            const uint8_t key = Step(state, port, everHeld);
            if (key != 0) ApplyKey(key, deviceId, record, muteIn);
            CheckSettings(record, muteIn);
        }
    }
    for (int pass = 0; pass <= 2 * kDebouncePasses; ++pass) Step(state, kNothingHeld, everHeld);
    Require(state.pressed == 0 && !state.shifted && !state.consumed, "released");
    return 0;
}
