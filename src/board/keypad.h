// The front panel's keys and LEDs. A key report comes from the keypad controller, a microcontroller on I2C bus 2, or is
// made up from what the panel's expander saw; it is applied to the settings, and what the LEDs show follows from the
// settings. LED thread only, except for KeypadVersion, which the status report reads. Blocks for the time on the wire.
//
// A key is one bit, and the LED beside it the same bit.
#pragma once

#include <array>
#include <cstdint>

#include "settings/device_settings.h"
#include "settings/shared_field.h"

inline constexpr int kPanelBus = 2;
inline constexpr uint8_t kSwapKey = 32;  // the expander panel's lock key, too, when it is held
inline constexpr uint8_t kMuteKey = 64;  // with another key it is a shift

enum ReportType : uint8_t { kReportKey = 235, kReportSwap = 238, kReportDirectView = 239 };

// As the controller sends it. The sequence number changes with every event: a report with that of the one before it is
// the same event, read again.
struct KeyReport {
    uint8_t sequence;
    uint8_t type;        // ReportType, others are ignored
    uint8_t payload[2];  // key: firmware version, both numbers; direct view: [0] is the view's code
    uint8_t key;         // code of the key
    uint8_t rest[20];
};
static_assert(sizeof(KeyReport) == 25);

struct FrontPanelState {
    uint32_t ExpanderPresent = 0;      // 1: the expander answered at start
    uint32_t KeypadPresent = 0;        // 1: reports come from the controller and frames go to it
    uint8_t KeySequence = 255;         // of the last event at the expander
    uint8_t KeyCode = 0;               // key of that event until it is handled; 0: none
    uint8_t LastReportSequence = 255;  // of the last report handled
    uint8_t PanelLeds = 0;             // what the expander's LEDs show while nothing is pressed
};

extern FrontPanelState FrontPanel;
extern Shared<uint8_t> KeypadVersion;  // firmware: first number in the high half, second in the low; 0: none answered

void ProbeKeypad();                  // takes the controller for present even if it is silent now: it may be starting
void HandleKeyReport(bool initial);  // initial: the report that waits since before the start is not acted on
void SendPanelLeds();

// Decisions; no access. `muteIn` is 0 or 1, toggled by the mute key while Sbtn is 1.
using LedFrame = std::array<uint8_t, 10>;

void ApplyKey(uint8_t key, uint8_t deviceId, DeviceSettings& record, Shared<uint8_t>& muteIn);
void ApplyDirectView(uint8_t code, DeviceSettings& record);
void ApplyKeyReport(const KeyReport& report, uint8_t deviceId, DeviceSettings& record, Shared<uint8_t>& muteIn);
uint8_t PanelLedBits(uint8_t deviceId, const DeviceSettings& record, uint8_t muteIn);
LedFrame MakeLedFrame(uint8_t bits);
