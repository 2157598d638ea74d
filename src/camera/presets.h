// Positions that the cameras keep themselves, recalled and stored through the extension units of two makers. Runs on
// the thread of the command's channel; blocks as long as USB takes.
#pragma once

#include <cstdint>

enum PresetMaker : uint8_t { kNoMaker = 0, kLogitech = 1, kAVer = 2 };

// By fragments of the driver's name for the camera; kNoMaker: one without presets.
PresetMaker FindPresetMaker(const char* card);

// Camera 1 or 2, preset 1..3 (Logitech) or 1..10 (AVer). 0, or 1 when the camera is absent, of another maker or of an
// unknown kind, or has no such preset. Whether the camera obeyed is not known.
int RecallPreset(int32_t camera, int32_t preset);
int StorePreset(int32_t camera, int32_t preset);
