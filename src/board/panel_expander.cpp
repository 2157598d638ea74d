#include "board/panel_expander.h"

#include <array>

#include "board/i2c.h"
#include "board/keypad.h"

static constexpr uint8_t kExpanderAddress = 0x21;

enum Register : uint8_t { kInput1 = 1, kOutput0 = 2, kConfiguration0 = 6, kSetup = 0x40 };
static constexpr std::array<uint8_t, 2> kSetupBytes = {0, 0};
static constexpr uint8_t kAllOutputs = 0;
static constexpr uint8_t kLostConfiguration = 255;

// ---- Gestures ----

static void CountUp(uint8_t& timer, uint8_t limit) {
    if (timer < limit) ++timer;
}

static void TickTimers(PanelGestures& state) {
    CountUp(state.holdTimer, kLongPressPasses);
    CountUp(state.blinkTimer, kBlinkPasses);
    CountUp(state.debounceTimer, kDebouncePasses);
    CountUp(state.startUpTimer, kStartUpPasses);
    if (state.ledHoldOff > 0) --state.ledHoldOff;
}

// A new level is taken in the third pass that reads it again.
static void Debounce(PanelGestures& state, uint8_t port) {
    if (port != state.raw) {
        state.raw = port;
        state.debounceTimer = 0;
        state.armed = false;
        return;
    }
    if (state.debounceTimer < kDebouncePasses) return;
    if (state.armed) state.stable = state.raw;
    state.armed = true;
}

static uint8_t PressedButtons(uint8_t stable) { return static_cast<uint8_t>((stable & kButtons) ^ kNothingHeld); }

// The key that counts because `before` became `now`, or 0.
static uint8_t KeyOfChange(PanelGestures& state, uint8_t before, uint8_t now) {
    if (state.locked || state.consumed) return 0;
    if (now == kMuteKey && (before & kMuteKey)) {
        state.shifted = true;
        return before;
    }
    return now == 0 && !state.shifted ? before : 0;
}

static uint8_t FollowChange(PanelGestures& state, uint8_t now) {
    const uint8_t key = KeyOfChange(state, state.pressed, now);
    state.pressed = now;
    state.holdTimer = 0;
    state.ledHoldOff = kLedHoldOffPasses;
    if (now == 0) state.shifted = state.consumed = false;
    return key;
}

static void FollowLongPress(PanelGestures& state) {
    if (state.pressed == 0 || state.consumed || state.holdTimer < kLongPressPasses) return;
    if (state.pressed & kSwapKey) {
        state.locked = !state.locked;
        state.consumed = true;
        if (state.locked) state.fastBlink = false;
    } else if (state.locked) {
        state.fastBlink = true;
    }
}

static bool BlinkNow(PanelGestures& state) {
    if (!state.locked || state.blinkTimer < (state.fastBlink ? kFastBlinkPasses : kBlinkPasses)) return false;
    state.blinkTimer = 0;
    return true;
}

PanelWishes StepPanel(PanelGestures& state, uint8_t port) {
    PanelWishes wishes;
    TickTimers(state);
    Debounce(state, port);
    const uint8_t now = PressedButtons(state.stable);
    if (now != state.pressed) wishes.key = FollowChange(state, now);
    FollowLongPress(state);

    wishes.pressed = state.pressed;
    wishes.showLeds = state.startUpTimer == kStartUpPasses && state.ledHoldOff == 0;
    wishes.keepLockLed = state.locked;
    wishes.invertLockLed = BlinkNow(state);
    return wishes;
}

// ---- The chip ----

static PanelGestures gestures;

static int Read(Register reg, uint8_t& value) { return I2cRead(kPanelBus, kExpanderAddress, reg, &value, 1); }
static int Write(Register reg, uint8_t value) { return I2cWrite(kPanelBus, kExpanderAddress, reg, &value, 1); }
static int WriteSetup() {
    return I2cWrite(kPanelBus, kExpanderAddress, kSetup, kSetupBytes.data(), kSetupBytes.size());
}

uint32_t ProbeExpander() {
    FrontPanel.KeySequence = 255;
    FrontPanel.KeyCode = 0;
    FrontPanel.PanelLeds = 0;
    FrontPanel.ExpanderPresent = WriteSetup() == 0 && Write(kConfiguration0, kAllOutputs) == 0 ? 1 : 0;
    return FrontPanel.ExpanderPresent;
}

static void PostKey(uint8_t key) {
    FrontPanel.KeyCode = key;
    ++FrontPanel.KeySequence;
}

// With LED 32 unknown nothing is written.
static void WriteLeds(const PanelWishes& wishes) {
    uint8_t leds = wishes.pressed != 0 ? wishes.pressed : FrontPanel.PanelLeds;
    if (wishes.keepLockLed) {
        uint8_t shown;
        if (Read(kOutput0, shown) != 0) return;
        leds = static_cast<uint8_t>((leds & ~kSwapKey) | (shown & kSwapKey));
    }
    Write(kOutput0, leds);
}

static void RestoreLostConfiguration() {
    uint8_t configuration = 0;
    WriteSetup();
    Read(kConfiguration0, configuration);
    if (configuration != kLostConfiguration) return;
    Write(kOutput0, 0);
    Write(kConfiguration0, kAllOutputs);
}

static void ExpanderLeds(const PanelWishes& wishes) {
    if (!wishes.showLeds) return;
    WriteLeds(wishes);
    RestoreLostConfiguration();
}

static void ExpanderBlink(const PanelWishes& wishes) {
    uint8_t leds;
    if (wishes.invertLockLed && Read(kOutput0, leds) == 0) Write(kOutput0, leds ^ kSwapKey);
}

void ScanExpanderKeys() {
    uint8_t port;
    if (FrontPanel.ExpanderPresent == 0 || Read(kInput1, port) != 0) return;
    const PanelWishes wishes = StepPanel(gestures, port);
    if (wishes.key != 0) PostKey(wishes.key);
    ExpanderLeds(wishes);
    ExpanderBlink(wishes);
}
