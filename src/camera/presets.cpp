#include "camera/presets.h"

#include <linux/usb/video.h>
#include <linux/uvcvideo.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "camera/camera_node.h"
#include "core/log.h"
#include "video/video_devices.h"

// The first row whose name is part of the camera's decides.
struct MakerRow {
    const char* name;
    PresetMaker kind;
};
static constexpr MakerRow PresetMakerTable[] = {
    {.name = "Unknown", .kind = kNoMaker},    {.name = "Logi", .kind = kLogitech},
    {.name = "AVer", .kind = kAVer},          {.name = "Logitech", .kind = kLogitech},
    {.name = "PTZ Pro 2", .kind = kLogitech}, {.name = "CAM520", .kind = kAVer},
};

enum PresetAction : uint8_t { kRecall, kStore };

static constexpr size_t kLongestContents = 3;

// One byte of the control's contents is replaced by the preset plus `offset`.
struct PresetControl {
    PresetAction action;
    PresetMaker maker;
    int32_t presets;  // numbered from 1
    uint8_t unit, selector;
    uint16_t length;  // bytes
    uint8_t place;
    int32_t offset;
};
// clang-format off
static constexpr PresetControl kPresetControls[] = {
    {.action = kRecall, .maker = kLogitech, .presets = 3,  .unit = 0x0B, .selector = 0x02, .length = 1, .place = 0, .offset = 11},
    {.action = kRecall, .maker = kAVer,     .presets = 10, .unit = 0x08, .selector = 0x05, .length = 1, .place = 0, .offset = -1},
    {.action = kStore,  .maker = kLogitech, .presets = 3,  .unit = 0x0B, .selector = 0x02, .length = 1, .place = 0, .offset = 3},
    {.action = kStore,  .maker = kAVer,     .presets = 10, .unit = 0x05, .selector = 0x12, .length = 3, .place = 1, .offset = -1},
};
// clang-format on
static_assert(std::ranges::all_of(kPresetControls, [](const PresetControl& control) {
    return control.place < control.length && control.length <= kLongestContents;
}));

PresetMaker FindPresetMaker(const char* card) {
    const auto row =
        std::ranges::find_if(PresetMakerTable, [card](const MakerRow& maker) { return strstr(card, maker.name); });
    return row == std::end(PresetMakerTable) ? kNoMaker : row->kind;
}

static const PresetControl* FindControl(PresetAction action, PresetMaker maker) {
    for (const PresetControl& control : kPresetControls)
        if (control.action == action && control.maker == maker) return &control;
    return nullptr;
}

static void QueryUnit(int device, const PresetControl& control, uint8_t request, std::span<uint8_t> data) {
    uvc_xu_control_query query = {.unit = control.unit,
                                  .selector = control.selector,
                                  .query = request,
                                  .size = static_cast<uint16_t>(data.size()),
                                  .data = data.data()};
    ioctl(device, UVCIOC_CTRL_QUERY, &query);  // a failure leaves the data as it was
}

static int WritePreset(int device, const PresetControl& control, int32_t preset) {
    std::array<uint8_t, 2> size{};
    QueryUnit(device, control, UVC_GET_LEN, size);
    const unsigned length = size[0] | unsigned{size[1]} << 8;
    if (length != control.length) {
        LogInfo("some thing is wrong, len=%u\n", length);
        return 1;
    }
    std::array<uint8_t, kLongestContents> bytes{};
    const std::span contents = std::span(bytes).first(length);
    QueryUnit(device, control, UVC_GET_CUR, contents);
    contents[control.place] = static_cast<uint8_t>(preset + control.offset);
    QueryUnit(device, control, UVC_SET_CUR, contents);
    return 0;
}

static int UsePreset(PresetAction action, int32_t camera, int32_t preset) {
    if ((camera != 1 && camera != 2) || CameraInputs[camera - 1].present == 0) return 1;
    const CameraNode node(camera);
    const PresetControl* control = FindControl(action, FindPresetMaker(node.card));
    if (control == nullptr) {
        LogInfo("Camera manufacturer not found\n");
        return 1;
    }
    if (preset < 1 || preset > control->presets) {
        LogInfo("Bad preset command. Try again.\n");
        return 1;
    }
    return WritePreset(node.device, *control, preset);
}

int RecallPreset(int32_t camera, int32_t preset) { return UsePreset(kRecall, camera, preset); }

int StorePreset(int32_t camera, int32_t preset) { return UsePreset(kStore, camera, preset); }
