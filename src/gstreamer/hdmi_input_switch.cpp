#include "gstreamer/hdmi_input_switch.h"

#include <chrono>
#include <thread>

#include "gstreamer/supervision_rules.h"

static constexpr std::chrono::milliseconds kReceiverSettles{100};

void SelectPortOfInput(uint8_t input) {
    if (!IsHdmiInput(input)) return;
    HdmiRxSelectPort(HdmiPortOf(input), HdmiInput);
    std::this_thread::sleep_for(kReceiverSettles);
}

void SetValve(const VideoPipeline& pipeline, bool open) {
    g_object_set(pipeline.valve, "drop-probability", open ? 0.0 : 1.0, nullptr);
}

void RestartHdmiSource(const VideoPipeline& pipeline) {
    gst_element_set_state(pipeline.src3, GST_STATE_NULL);
    gst_element_set_state(pipeline.src3, GST_STATE_PLAYING);
}

// A receiver that has not locked on the new source yet measures nothing; then what it measured there before must do.
void SwitchHdmiFormat(VideoPipeline& pipeline, uint8_t input) {
    const HdmiCapture measuredBefore = ChooseAlternateCapture(HdmiInput);
    gst_element_set_state(pipeline.src3, GST_STATE_NULL);
    gst_element_set_state(pipeline.capsfilter3, GST_STATE_NULL);
    SelectPortOfInput(input);
    if (ReadHdmiInputFormat(HdmiInput) == 0)
        CropHdmiInput(pipeline, HdmiInput.InputValid ? ChooseHdmiCapture(HdmiInput) : measuredBefore);
    gst_element_set_state(pipeline.src3, GST_STATE_PLAYING);
    gst_element_set_state(pipeline.capsfilter3, GST_STATE_PLAYING);
}
