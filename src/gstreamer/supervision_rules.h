// What the video supervision decides from one pass to the next. Pure: what was, what is, what to do.
#pragma once

#include <array>
#include <cstdint>

#include "board/hdmi_receiver.h"
#include "gstreamer/pipeline_choices.h"
#include "settings/device_settings.h"

// The HDMI input as the last pass left it.
struct HdmiSnapshot {
    uint8_t signalDetect, inputValid, altValid;
    uint16_t width, height;
};
HdmiSnapshot TakeHdmiSnapshot(const HdmiInputStatus& status);

// The settings that the picture on the display was made from. They are noted before they are applied, so that a command
// that arrives in between, or while the supervision waits for frames, still differs and is followed in the next pass.
struct ShownSettings {
    uint8_t view, swap, swHdmi, input, black;
    std::array<uint8_t, 4> inversion;  // Inv1..Inv4
    bool operator==(const ShownSettings&) const = default;
};
ShownSettings NoteSettings(const DeviceSettings& record);

// A source appeared, changed its size or came back, so that the HDMI capture no longer fits it. A test pattern in place
// of an active input never fits.
bool HdmiInputChanged(const HdmiSnapshot& before, const HdmiSnapshot& now, bool syncLost, bool testPatternRuns);

// Whether the changed input needs another pipeline: restarting its source is enough while one side of the picture fits,
// unless that source is a test pattern.
bool HdmiNeedsNewPipeline(const HdmiSnapshot& now, const HdmiCapture& capture, bool testPatternRuns, uint8_t deviceId);

// Changes of the HDMI input that move no capture, but the layout: it disappeared, or the other port got a signal.
bool HdmiChangesLayout(const HdmiSnapshot& before, const HdmiSnapshot& now);

// Who shows in the second place of a layout on variant 0, USB input 2 or HDMI: choosing S2 again swaps them; where only
// one is there, it is that one.
struct SecondPlaceFacts {
    uint8_t deviceId, view, s2Count, swHdmi;
    uint8_t shownView, shownSwHdmi;  // on display: a command may be too fresh to be there
    bool hdmiActive, camera2Present;
};
struct SecondPlaceChoice {
    bool applyFirst;  // show the stored choice before it is swapped
    uint8_t swHdmi, s2Count;
};
SecondPlaceChoice ChooseSecondPlace(const SecondPlaceFacts& facts);

// How the selected input comes to the display.
enum class InputStep {
    kShow,          // place it and wait for frames
    kSwitchPort,    // the other HDMI port carries the same format: only the receiver switches
    kSwitchFormat,  // it carries another format: the capture restarts
    kShowHdmi,      // the receiver is on the right port: place it, end the switch
};
InputStep ChooseInputStep(uint8_t deviceId, uint8_t input, const HdmiInputStatus& hdmi, bool switchPending,
                          bool refresh);

// Receiver port behind Input 3 or 4 of variants 1..3.
inline constexpr bool IsHdmiInput(uint8_t input) { return input == 3 || input == 4; }
inline constexpr uint8_t HdmiPortOf(uint8_t input) { return input == 4 ? 1 : 0; }
