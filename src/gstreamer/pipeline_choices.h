// What the build of the video pipeline decides before it makes an element: special treatment of camera models, the caps
// of every source, the JPEG parser. Pure: records in, texts and answers out. Caps are texts, as gst_caps_from_string
// reads them.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "board/hdmi_receiver.h"
#include "video/camera_formats.h"

inline constexpr const char* kIdleCaps = "video/x-raw, width=(int)160, height=(int)120";  // of a camera's test pattern

// What the attached camera models ask of the pipeline.
struct PipelineTraits {
    bool lowFrameRate;               // the compositor waits for late frames
    bool timestampOverride;          // sources stamp their buffers themselves
    std::array<bool, 2> stillImage;  // this input goes through a file
};
PipelineTraits ChooseTraits(const char* card1, const char* card2);
const char* CompositorLatency(const PipelineTraits& traits);  // ns

// Caps that a camera's source must deliver. A rate from 2000 on is one that the camera counts in other units: it is
// divided by 100 where it is stored, and the caps name none. Only MJPG cameras are known to do that.
std::string CameraCaps(SelectedFormat& format);

// What is captured of the HDMI input: an interlaced source arrives as both fields, one above the other, of which the
// upper one is kept.
struct HdmiCapture {
    uint16_t width, height;
    uint16_t cropBottom;
};
inline constexpr HdmiCapture kIdleHdmiCapture = {160, 120, 0};
HdmiCapture ChooseHdmiCapture(const HdmiInputStatus& status);
HdmiCapture ChooseAlternateCapture(const HdmiInputStatus& status);  // of the port that is not selected
std::string HdmiCaps(const HdmiCapture& capture);

// Whether a compressed stream passes a JPEG parser, and why.
struct ParserFacts {
    bool listed;   // the camera model needs it
    bool enabled;  // the operator wants it for all
    bool otherPresent;
    uint32_t fps, otherFps;
};
struct ParserChoice {
    bool useParse;
    bool rateMismatch;  // the other camera delivers less than half of our frames
};
ParserChoice ChooseParser(const ParserFacts& facts);
