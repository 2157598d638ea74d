// Which capture devices are attached, and what each can do: ten device nodes are queried, told apart by driver and bus,
// and the cameras' formats chosen. Video thread only; blocks while the drivers answer.
#pragma once

#include <linux/videodev2.h>

#include <cstdint>

#include "video/camera_formats.h"

inline constexpr int kVideoNodes = 10;  // /dev/video0 .. /dev/video9

struct VideoDeviceInfo {         // one device node
    uint8_t valid;               // opened and queried
    v4l2_capability capability;  // its texts are terminated
    v4l2_fmtdesc lastFormat;
    CameraOffer offer;
};

// USB input 1 or 2, rewritten by every scan. Other threads read `present` and the selected format at any time. The
// texts and the offer are stored only when they differ from what stands there, so that they change at plug events
// alone; a thread that reads them then may catch a mixture of two cameras and finds the true text on its next look.
struct CameraInput {
    Shared<uint32_t> present;
    char card[32];
    char devicePath[32];
    char busInfo[32];
    CameraOffer offer;
    SelectedFormat selected;
};

extern CameraInput CameraInputs[2];  // [0] USB input 1, [1] USB input 2
extern char CsiDevicePath[50];       // capture device behind the HDMI receiver; the last one found stays

void QueryVideoDevice(const char* devicePath, VideoDeviceInfo& info);

// Fills one CameraInput from a queried device; fullHdTaken is shared by the calls of one scan.
void SelectCameraFormat(const VideoDeviceInfo& info, int inputIndex, const char* devicePath, uint8_t& fullHdTaken);

int ScanVideoDevices();  // 0, or 1 when memory ran out

void AVerCAM550Workaround();  // wakes a camera that stays silent until somebody lists the devices
int ResetUsbInputs();         // unbinds and rebinds both USB hosts, so that all cameras re-enumerate; 0
