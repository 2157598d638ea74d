#include "gstreamer/supervision_rules.h"

HdmiSnapshot TakeHdmiSnapshot(const HdmiInputStatus& status) {
    return {.signalDetect = status.SignalDetect,
            .inputValid = status.InputValid,
            .altValid = status.AltValid,
            .width = status.Width,
            .height = status.Height};
}

ShownSettings NoteSettings(const DeviceSettings& record) {
    return {.view = record.View,
            .swap = record.Swap,
            .swHdmi = record.SwHdmi,
            .input = record.Input,
            .black = record.Black,
            .inversion = {record.Inv1, record.Inv2, record.Inv3, record.Inv4}};
}

bool HdmiInputChanged(const HdmiSnapshot& before, const HdmiSnapshot& now, bool syncLost, bool testPatternRuns) {
    if (!now.inputValid) return false;
    const bool newSize = now.width != before.width || now.height != before.height;
    const bool newSignal = now.signalDetect && !before.signalDetect;
    return (!before.inputValid && newSize) || newSignal || syncLost || testPatternRuns;
}

bool HdmiNeedsNewPipeline(const HdmiSnapshot& now, const HdmiCapture& capture, bool testPatternRuns, uint8_t deviceId) {
    const bool nothingFits = now.width != capture.width && now.height != capture.height;
    return deviceId == 2 || (now.inputValid && (nothingFits || testPatternRuns));
}

bool HdmiChangesLayout(const HdmiSnapshot& before, const HdmiSnapshot& now) {
    return (before.inputValid && !now.inputValid) || (!before.altValid && now.altValid);
}

SecondPlaceChoice ChooseSecondPlace(const SecondPlaceFacts& facts) {
    SecondPlaceChoice choice = {.applyFirst = false, .swHdmi = facts.swHdmi, .s2Count = facts.s2Count};
    if (facts.view != kViewS2) {
        choice.s2Count = 0;
    } else if (facts.s2Count != 0 && facts.hdmiActive && facts.camera2Present) {
        choice.applyFirst = facts.swHdmi != facts.shownSwHdmi;
        if (facts.shownView == kViewS2) choice.swHdmi = facts.swHdmi ? 0 : 1;
        choice.s2Count = 0;
    }
    if (facts.deviceId != 0) return choice;
    if (!facts.hdmiActive)
        choice.swHdmi = 0;
    else if (!facts.camera2Present)
        choice.swHdmi = 1;
    return choice;
}

InputStep ChooseInputStep(uint8_t deviceId, uint8_t input, const HdmiInputStatus& hdmi, bool switchPending,
                          bool refresh) {
    if (deviceId == 0 || !IsHdmiInput(input)) return InputStep::kShow;
    if (hdmi.Port == HdmiPortOf(input) || (switchPending && !refresh)) return InputStep::kShowHdmi;
    if (!hdmi.AltValid) return InputStep::kShow;
    const bool sameFormat = hdmi.Height == hdmi.AltHeight && hdmi.Width == hdmi.AltWidth;
    return sameFormat ? InputStep::kSwitchPort : InputStep::kSwitchFormat;
}
