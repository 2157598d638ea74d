// The front panel without a controller: a 16-bit I/O expander on I2C bus 2 whose port 1 reads seven buttons and whose
// port 0 drives their LEDs. What the buttons mean is decided here; the keys go on as synthetic key reports. LED thread
// only. Blocks for the time on the wire.
//
// A key counts when the last button is lifted. Button 64 with others is a shift: the shifted key counts when only 64 is
// left. A combination with button 32 that is held for 1.5 s locks the panel, or unlocks it; while it is locked, no key
// counts and LED 32 blinks. Times are counted in passes of 25 ms.
#pragma once

#include <cstdint>

inline constexpr uint8_t kButtons = 0x7F;      // bits of the port that are buttons
inline constexpr uint8_t kNothingHeld = 0x3F;  // the port at rest: 1..32 are active low, 64 is active high

inline constexpr uint8_t kDebouncePasses = 2;  // without a change until the port counts as quiet
inline constexpr uint8_t kLongPressPasses = 60;
inline constexpr uint8_t kBlinkPasses = 11;
inline constexpr uint8_t kFastBlinkPasses = 2;   // while locked, once a combination without button 32 was held long
inline constexpr uint8_t kStartUpPasses = 40;    // before the LEDs are driven
inline constexpr uint8_t kLedHoldOffPasses = 1;  // behind a change: the settings' LEDs follow the key one pass later

// Between two passes. Every timer stops at its limit.
struct PanelGestures {
    uint8_t raw = kNothingHeld;     // port as last read
    uint8_t stable = kNothingHeld;  // port once it was quiet
    bool armed = false;             // quiet for one pass: the next one takes it
    uint8_t pressed = 0;            // buttons held, one bit each
    bool shifted = false;           // a shifted key counted since all buttons were up
    bool consumed = false;          // the lock changed since all buttons were up: nothing counts until they are
    bool locked = false;
    bool fastBlink = false;

    uint8_t debounceTimer = 0;  // 0..kDebouncePasses, since raw changed
    uint8_t holdTimer = 0;      // 0..kLongPressPasses, since pressed changed
    uint8_t blinkTimer = 0;     // 0..kBlinkPasses, since LED 32 was inverted
    uint8_t ledHoldOff = 0;     // down from kLedHoldOffPasses
    uint8_t startUpTimer = 0;   // 0..kStartUpPasses
};

// What a pass asks for.
struct PanelWishes {
    uint8_t key = 0;           // key that counts now, 0: none
    uint8_t pressed = 0;       // buttons held, which light up; with none held the LEDs show the settings
    bool showLeds = false;     // the LEDs are to be written
    bool keepLockLed = false;  // LED 32 belongs to the blinking
    bool invertLockLed = false;
};

// One pass with what port 1 read. Pure.
PanelWishes StepPanel(PanelGestures& state, uint8_t port);

uint32_t ProbeExpander();  // sets the expander up; 1 when it answered

// One pass: buttons read, key posted, LEDs written. A pass whose read fails does not count. An expander that lost its
// configuration gets it back.
void ScanExpanderKeys();
