#include "gstreamer/pipeline_choices.h"

#include <cstdio>

#include "video/camera_quirks.h"

static constexpr uint32_t kImplausibleRate = 2000;

PipelineTraits ChooseTraits(const char* card1, const char* card2) {
    const auto either = [&](CameraList list) { return OnCameraList(card1, list) || OnCameraList(card2, list); };
    return {.lowFrameRate = either(LowFrameRateCameras),
            .timestampOverride = either(TimestampOverrideCameras),
            .stillImage = {OnCameraList(card1, StillImageCameras), OnCameraList(card2, StillImageCameras)}};
}

const char* CompositorLatency(const PipelineTraits& traits) {
    if (traits.timestampOverride) return "500000000";
    return traits.lowFrameRate ? "50000000" : "0";
}

static std::string Size(const char* media, unsigned width, unsigned height) {
    char text[80];
    std::snprintf(text, sizeof text, "%s, width=(int)%u, height=(int)%u", media, width, height);
    return text;
}

static std::string Rate(uint32_t fps) { return ", framerate=(fraction)" + std::to_string(fps) + "/1"; }

std::string CameraCaps(SelectedFormat& format) {
    if (format.width == 0 || format.height == 0) return kIdleCaps;
    switch (format.fourcc) {
        case kMjpg:
            if (format.fps < kImplausibleRate)
                return Size("image/jpeg", format.width, format.height) + Rate(format.fps);
            format.fps = format.fps / 100;
            return Size("image/jpeg", format.width, format.height);
        case kH264:
            return Size("video/x-h264", format.width, format.height) + Rate(format.fps);
        case kYuyv:
            return Size("video/x-raw", format.width, format.height) + Rate(format.fps);
        default:
            return kIdleCaps;
    }
}

static HdmiCapture Capture(uint16_t width, uint16_t fieldHeight, bool interlaced) {
    if (!interlaced) return {width, fieldHeight, 0};
    return {width, static_cast<uint16_t>(2 * fieldHeight), fieldHeight};
}

HdmiCapture ChooseHdmiCapture(const HdmiInputStatus& status) {
    return Capture(status.Width, status.Height, status.Interlaced);
}

HdmiCapture ChooseAlternateCapture(const HdmiInputStatus& status) {
    return Capture(status.AltWidth, status.AltHeight, status.AltFlag);
}

std::string HdmiCaps(const HdmiCapture& capture) {
    return Size("video/x-raw", capture.width, capture.height) + ", format=(string)YUY2";
}

ParserChoice ChooseParser(const ParserFacts& facts) {
    const bool rateMismatch = facts.otherPresent && facts.otherFps < facts.fps / 2.0;
    return {.useParse = facts.listed || facts.enabled || rateMismatch, .rateMismatch = rateMismatch};
}
