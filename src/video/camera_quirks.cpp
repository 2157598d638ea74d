#include "video/camera_quirks.h"

#include <algorithm>
#include <cstring>

static constexpr const char* kNoFullHdMjpeg[] = {
    "Huddly Canvas", "Huddly GO",       "Logitech C310",        "C270",
    "UVC Camera",    "Meeting Owl Pro", "AVerMedia USB Device", "AW-UE50",
};
static constexpr const char* kLowFrameRate[] = {"HD Pro Webcam C920"};
static constexpr const char* kTimestampOverride[] = {
    "Brio 305", "HD Camera", "Huddly Canvas", "Huddly Go", "Logitech Webcam C930e",
};
static constexpr const char* kStillImage[] = {"Huddly Canvas"};
static constexpr const char* kJpegParse[] = {
    "Logitech Webcam C930e",
    "C93",
    "PTZ Optics Camera",
    "EEDII",
    "FHD Camera",
    "HD Camera",
    "PTZ Optics Camera",
    "UVC30",
    "UVC84",
    "Lumens VC-TR1 Video Camera",
    "Lumens VC-B30U USB 2.0",
    "AVer CAM520 Pro2",
    "AT-HDVS-CAM",
    "Webcam gadget",
    "AVer VB342 Pro",
    "DVY23",
    "UVC86",
    "TC-4Y20",
    "USBCamera",
    "Huddly Canvas",
    "BirdDog P1xx",
    "BirdDog",
    "ALF-CAM",
    "Meeting Owl 3",
    "AW-UE",
};

constexpr CameraList NoFullHdMjpegCameras = kNoFullHdMjpeg;
constexpr CameraList LowFrameRateCameras = kLowFrameRate;
constexpr CameraList TimestampOverrideCameras = kTimestampOverride;
constexpr CameraList StillImageCameras = kStillImage;
constexpr CameraList JpegParseCameras = kJpegParse;

bool OnCameraList(const char* card, CameraList list) {
    return std::ranges::any_of(list, [card](const char* fragment) { return strstr(card, fragment) != nullptr; });
}
