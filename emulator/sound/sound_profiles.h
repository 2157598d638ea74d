// USB sound devices as data: one JSON file each in the folder `sounds` beside the emulator, named as the profile.
//
//     {
//         "description": "one line for `tessel-emulator profiles`",
//         "card": "Conference Speakerphone",   name that the driver reports
//         "hubPort": 3,                        optional: it hangs on that port of a hub on the board's port
//         "microphone": {"channels": 1, "rates": [16000, 48000], "ppm": 120},   optional, as in camera profiles
//         "speaker": {...}
//     }
//
// Supervisor's thread or before it runs; reads files.
#pragma once

#include <string>
#include <vector>

#include "capture/camera_profiles.h"

struct SoundDeviceProfile {
    std::string name, description, card;
    int hubPort = 0;  // 0: plugged directly
    SoundProfile microphone, speaker;
};

// Either the profile, or what is wrong with it.
struct SoundDeviceResult {
    SoundDeviceProfile profile;
    std::string error;  // empty: good
};

SoundDeviceResult LoadSoundProfile(const std::string& name);  // of the folder, or a path (with a '/')
std::vector<SoundDeviceProfile> ListSoundProfiles();          // those of the folder that are good, by name
