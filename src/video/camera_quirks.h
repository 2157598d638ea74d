// Camera models that need special treatment, recognised by fragments of their card text (case-sensitive). An absent
// camera has an empty card and is on no list.
#pragma once

#include <span>

using CameraList = std::span<const char* const>;

extern const CameraList NoFullHdMjpegCameras;      // never 1920x1080, decoded in software
extern const CameraList LowFrameRateCameras;       // deliver fewer frames than they say: the compositor waits 50 ms
extern const CameraList TimestampOverrideCameras;  // wrong time stamps: sources stamp anew, the compositor waits 500 ms
extern const CameraList StillImageCameras;         // so slow that the picture goes through a still image
extern const CameraList JpegParseCameras;          // their JPEG stream needs a parser before the decoder

bool OnCameraList(const char* card, CameraList list);
