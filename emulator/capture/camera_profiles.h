// Camera models as data: one JSON file each in the folder `cameras` beside the emulator, named as the profile.
//
//     {
//         "description": "one line for `tessel-emulator profiles`",
//         "card": "HD Webcam C270",                    name that the driver reports
//         "usbId": "046d:0825",
//         "formats": {
//             "MJPG": {                                fourcc; sizes in the order of enumeration
//                 "1280x720": [30, 15, "30000/1001"],  rates in frames a second
//                 "160x120..1920x1080": "5..30",       continuous size, continuous rate
//                 "160x120..640x480 step 16x8": [30]   stepwise size
//             }
//         },
//         "repeats": 1000,                             optional: each format's last size is enumerated so often again
//         "controls": [{"id": "0x009a0908", "name": "Pan, Absolute", "minimum": -36000, "maximum": 36000, "step": 3600,
//                       "default": 0, "type": "integer"}],   type: integer (if absent), boolean, menu (with "menu"),
//                       button; a speed also has "moves": {"from": -170, "to": 170, "perSecond": 4}: the end stops of
//                       what it drives, and the way in a second for each unit of speed
//         "extensionUnits": [{"unit": 11, "selector": 2, "data": [0]}],
//         "recording": "film.mkv",                     optional, beside this file or the program: played instead
//         "microphone": {"channels": 2, "rates": [48000], "ppm": -30}, "speaker": {...}
//     }                                                optional; "ppm" if its clock is not exact
//
// Supervisor's thread or before it runs; reads files.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "capture/v4l2_capture.h"

struct SoundProfile {
    bool present = false;
    unsigned channels = 0;
    std::vector<unsigned> rates;  // rising
    int ppm = 0;                  // how much too fast the clock is
};

struct CameraProfile {
    std::string name, description;
    std::string driver = "uvcvideo", card, usbId;
    std::vector<CaptureFormat> formats;
    std::vector<CaptureControl> controls;
    std::vector<ExtensionControl> extensionControls;
    std::string recording;  // absolute path
    SoundProfile microphone, speaker;
};

// Either the profile, or what is wrong with it.
struct CameraProfileResult {
    CameraProfile profile;
    std::string error;  // empty: good
};

// A microphone or speaker in a profile of any kind; throws when it is malformed.
SoundProfile ReadSound(const nlohmann::ordered_json& json, const char* name);

CameraProfileResult ParseCameraProfile(std::string_view json, const std::filesystem::path& file);

// A name of the folder, a path (with a '/'), or "recording:/path": the profile `recording` with that film.
CameraProfileResult LoadCameraProfile(const std::string& name);

// The parts of a format's texts; nothing when malformed.
std::optional<CaptureSize> ParseCaptureSize(std::string_view text);
std::optional<v4l2_fract> ParseRate(std::string_view rate);  // "30", "30000/1001": the interval 1/30, 1001/30000

std::vector<CameraProfile> ListCameraProfiles();  // those of the folder that are good, by name

std::filesystem::path CameraProfileFolder();
