// What a camera offers and which of it we take. Pure: plain records in, a choice out.
//
// The preference table is tried from the best size down; the first camera of a scan that gets 1920x1080 keeps the
// second one from it, because the bus and the decoder carry only one such stream.
#pragma once

#include <array>
#include <cstdint>

#include "settings/shared_field.h"

inline constexpr int kSizeLimit = 50;  // stored sizes of one format; further ones are ignored
inline constexpr int kRateLimit = 11;  // stored rates of one size

inline constexpr uint32_t Fourcc(char a, char b, char c, char d) {
    return uint32_t(uint8_t(a)) | uint32_t(uint8_t(b)) << 8 | uint32_t(uint8_t(c)) << 16 | uint32_t(uint8_t(d)) << 24;
}
inline constexpr uint32_t kMjpg = Fourcc('M', 'J', 'P', 'G');
inline constexpr uint32_t kYuyv = Fourcc('Y', 'U', 'Y', 'V');
inline constexpr uint32_t kH264 = Fourcc('H', '2', '6', '4');

struct FrameSizeEntry {
    uint32_t width, height;
    uint32_t rates[kRateLimit];  // denominators of the frame intervals; 0: none
};

struct FormatOffer {                   // one pixel format of a camera
    uint8_t offered;                   // the format was enumerated
    uint8_t count;                     // sizes stored
    FrameSizeEntry sizes[kSizeLimit];  // by their index at the camera; a size that was not stored is all zero
};

struct CameraOffer {
    FormatOffer yuyv, mjpg, h264;
};

// Read by the audio thread and the status report while the video thread scans, hence Shared.
struct SelectedFormat {
    Shared<uint32_t> width, height, fps;
    Shared<uint32_t> gap[9];
    Shared<uint32_t> fourcc;  // 0 for an absent camera
};
static_assert(sizeof(SelectedFormat) == 13 * sizeof(uint32_t));

struct ResolutionPreference {
    uint32_t width, height;
};
inline constexpr std::array<ResolutionPreference, 9> ResolutionPreferenceTable = {{
    {.width = 1920, .height = 1080},
    {.width = 1280, .height = 720},
    {.width = 1024, .height = 576},
    {.width = 960, .height = 540},
    {.width = 848, .height = 480},
    {.width = 640, .height = 360},
    {.width = 640, .height = 480},
    {.width = 320, .height = 180},
    {.width = 160, .height = 90},
}};
inline constexpr int kAbsentCameraPreference = 5;  // 640x360, the size that an absent camera is given

// Frames a second that a camera should deliver on this output mode (refresh in Hz times 100).
uint32_t TargetFrameRate(uint16_t outputRefresh100);

// 1 and `selected` written when the entry is the preferred size; a camera listed as unfit for it never takes 1920x1080.
int MatchFrameSize(SelectedFormat& selected, bool listed, uint32_t fourcc, const FrameSizeEntry& entry,
                   const ResolutionPreference& preference, uint32_t targetRate);

// Chooses format, size and rate of one camera; fullHdTaken is shared by the two calls of a scan and starts at 0.
void ChooseCameraFormat(const CameraOffer& offer, bool listed, uint32_t targetRate, uint8_t& fullHdTaken,
                        SelectedFormat& selected);

void ChooseAbsentCamera(SelectedFormat& selected);

const char* FourccName(uint32_t fourcc);  // "MJPEG", "H264", "YUYV" or "Unknown format"
