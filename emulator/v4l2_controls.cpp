// Controls of the V4L2 interface, and the extension units of a UVC camera.
#include <linux/usb/video.h>
#include <linux/uvcvideo.h>

#include "v4l2_device.h"

static constexpr uint32_t kExtendedLimit = 1024;  // controls in one request
static constexpr uint8_t kSupportsGetAndSet = 3;  // answer to UVC_GET_INFO

static CaptureControl* ControlOf(CaptureDevice& device, uint32_t id) {
    const auto control = std::ranges::find(device.traits.controls, id, &CaptureControl::id);
    return control == device.traits.controls.end() ? nullptr : &*control;
}

// A heading for each class of controls, before the first of them, as enumerating programs expect.
void AddControlClasses(CaptureTraits& traits) {
    std::vector<uint32_t> classes;
    for (const CaptureControl& control : traits.controls) classes.push_back(V4L2_CTRL_ID2CLASS(control.id));
    std::ranges::sort(classes);
    classes.erase(std::unique(classes.begin(), classes.end()), classes.end());
    for (const uint32_t which : classes) {
        traits.controls.push_back({.id = which | 1,
                                   .type = V4L2_CTRL_TYPE_CTRL_CLASS,
                                   .name = which == V4L2_CTRL_CLASS_CAMERA ? "Camera Controls" : "User Controls",
                                   .step = 0,
                                   .flags = V4L2_CTRL_FLAG_READ_ONLY | V4L2_CTRL_FLAG_WRITE_ONLY,
                                   .menu = {}});
    }
    std::ranges::sort(traits.controls, {}, &CaptureControl::id);
}

// ---- Queries

// The control itself, or with a "next" flag the first one after it. All of ours are simple, none is compound.
static CaptureControl* Sought(CaptureDevice& device, uint32_t id) {
    const uint32_t bare = id & V4L2_CTRL_ID_MASK;
    if ((id & ~V4L2_CTRL_ID_MASK) == 0) return ControlOf(device, bare);
    if ((id & V4L2_CTRL_FLAG_NEXT_CTRL) == 0) return nullptr;
    for (CaptureControl& control : device.traits.controls) {
        if (control.id > bare) return &control;
    }
    return nullptr;
}

int QueryControl(const CaptureCall& call, v4l2_queryctrl& query) {
    const CaptureControl* control = Sought(call.device, query.id);
    if (control == nullptr) return -EINVAL;
    query = {.id = control->id,
             .type = control->type,
             .minimum = control->minimum,
             .maximum = control->maximum,
             .step = control->step,
             .default_value = control->defaultValue,
             .flags = control->flags};
    CopyText(query.name, sizeof query.name, control->name);
    return 0;
}

int QueryExtendedControl(const CaptureCall& call, v4l2_query_ext_ctrl& query) {
    const CaptureControl* control = Sought(call.device, query.id);
    if (control == nullptr) return -EINVAL;
    query = {.id = control->id,
             .type = control->type,
             .minimum = control->minimum,
             .maximum = control->maximum,
             .step = static_cast<uint64_t>(control->step),
             .default_value = control->defaultValue,
             .flags = control->flags,
             .elem_size = sizeof(int32_t),
             .elems = 1};
    CopyText(query.name, sizeof query.name, control->name);
    return 0;
}

int QueryMenu(const CaptureCall& call, v4l2_querymenu& query) {
    const CaptureControl* control = ControlOf(call.device, query.id);
    if (control == nullptr || control->type != V4L2_CTRL_TYPE_MENU) return -EINVAL;
    const int64_t row = int64_t{query.index} - control->minimum;
    if (row < 0 || query.index > static_cast<uint32_t>(control->maximum)) return -EINVAL;
    if (static_cast<size_t>(row) >= control->menu.size()) return -EINVAL;
    query = {.id = query.id, .index = query.index};
    CopyText(query.name, sizeof query.name, control->menu[static_cast<size_t>(row)]);
    return 0;
}

// ---- Values

static int CheckReadable(const CaptureControl* control) {
    if (control == nullptr) return -EINVAL;
    return (control->flags & V4L2_CTRL_FLAG_WRITE_ONLY) != 0 ? -EACCES : 0;
}

// What the device would take for this value. Numbers are limited and rounded to a step; there is no nearest menu row.
static int FitValue(const CaptureControl* control, int32_t& value) {
    if (control == nullptr) return -EINVAL;
    if ((control->flags & V4L2_CTRL_FLAG_READ_ONLY) != 0) return -EACCES;
    if (control->type == V4L2_CTRL_TYPE_MENU) return value < control->minimum || value > control->maximum ? -ERANGE : 0;
    int64_t fit = std::clamp<int64_t>(value, control->minimum, control->maximum);
    if (control->step > 1)
        fit = control->minimum + (fit - control->minimum + control->step / 2) / control->step * control->step;
    value = static_cast<int32_t>(std::min<int64_t>(fit, control->maximum));
    return 0;
}

static void Store(CaptureDevice& device, CaptureControl& control, int32_t value) {
    if (control.type != V4L2_CTRL_TYPE_BUTTON) control.value = value;
    Trace("ioctl", {{"node", device.path},
                    {"request", "VIDIOC_S_CTRL"},
                    {"id", control.id},
                    {"name", control.name},
                    {"value", value}});
}

int GetControl(const CaptureCall& call, v4l2_control& control) {
    const CaptureControl* known = ControlOf(call.device, control.id);
    if (const int error = CheckReadable(known); error != 0) return error;
    control.value = known->value;
    return 0;
}

int SetControl(const CaptureCall& call, v4l2_control& control) {
    CaptureControl* known = ControlOf(call.device, control.id);
    if (const int error = FitValue(known, control.value); error != 0) return error;
    Store(call.device, *known, control.value);
    return 0;
}

// ---- Several at once. `error_idx` tells the control that failed, or the count when none was touched yet.

struct ExtendedRequest {
    std::vector<v4l2_ext_control> rows;
    int error = 0;
};

static ExtendedRequest ReadRows(const CaptureCall& call, const v4l2_ext_controls& controls) {
    if (controls.which == V4L2_CTRL_WHICH_REQUEST_VAL || controls.count > kExtendedLimit)
        return {.rows = {}, .error = -EINVAL};
    ExtendedRequest request = {.rows = std::vector<v4l2_ext_control>(controls.count)};
    const size_t bytes = controls.count * sizeof(v4l2_ext_control);
    const auto address = reinterpret_cast<uint64_t>(controls.controls);
    if (bytes > 0 && !call.ioctl.memory.Read(address, request.rows.data(), bytes)) request.error = -EFAULT;
    return request;
}

static int WriteRows(const CaptureCall& call, const v4l2_ext_controls& controls, const ExtendedRequest& request) {
    const size_t bytes = request.rows.size() * sizeof(v4l2_ext_control);
    const auto address = reinterpret_cast<uint64_t>(controls.controls);
    return bytes > 0 && !call.ioctl.memory.Write(address, request.rows.data(), bytes) ? -EFAULT : 0;
}

static bool NamesClass(const v4l2_ext_controls& controls) {
    return controls.which != V4L2_CTRL_WHICH_CUR_VAL && controls.which != V4L2_CTRL_WHICH_DEF_VAL;
}

static int CheckClass(const CaptureCall& call, const v4l2_ext_controls& controls, uint32_t id) {
    if (NamesClass(controls) && V4L2_CTRL_ID2CLASS(id) != controls.which) return -EINVAL;
    return ControlOf(call.device, id) == nullptr ? -EINVAL : 0;
}

static int CheckEmpty(const CaptureCall& call, const v4l2_ext_controls& controls) {
    return NamesClass(controls) && ControlOf(call.device, controls.which | 1) == nullptr ? -EINVAL : 0;
}

int GetExtendedControls(const CaptureCall& call, v4l2_ext_controls& controls) {
    ExtendedRequest request = ReadRows(call, controls);
    controls.error_idx = controls.count;
    if (request.error != 0) return request.error;
    if (request.rows.empty()) return CheckEmpty(call, controls);
    for (v4l2_ext_control& row : request.rows) {
        const CaptureControl* control = ControlOf(call.device, row.id);
        if (const int error = CheckClass(call, controls, row.id); error != 0) return error;
        if (const int error = CheckReadable(control); error != 0) return error;
        row.value = controls.which == V4L2_CTRL_WHICH_DEF_VAL ? control->defaultValue : control->value;
    }
    return WriteRows(call, controls, request);
}

// Checks all values and puts in what would be set. `tried`: a failure is told by its row.
static int FitRows(const CaptureCall& call, v4l2_ext_controls& controls, ExtendedRequest& request, bool tried) {
    controls.error_idx = controls.count;
    if (controls.which == V4L2_CTRL_WHICH_DEF_VAL) return -EINVAL;
    if (request.error != 0) return request.error;
    if (request.rows.empty()) return CheckEmpty(call, controls);
    for (size_t row = 0; row < request.rows.size(); ++row) {
        v4l2_ext_control& wanted = request.rows[row];
        int32_t value = wanted.value;
        int error = CheckClass(call, controls, wanted.id);
        if (error == 0) error = FitValue(ControlOf(call.device, wanted.id), value);
        if (error != 0 && tried) controls.error_idx = static_cast<uint32_t>(row);
        if (error != 0) return error;
        wanted.value = value;
    }
    return 0;
}

int TryExtendedControls(const CaptureCall& call, v4l2_ext_controls& controls) {
    ExtendedRequest request = ReadRows(call, controls);
    const int error = FitRows(call, controls, request, true);
    return error != 0 ? error : WriteRows(call, controls, request);
}

int SetExtendedControls(const CaptureCall& call, v4l2_ext_controls& controls) {
    ExtendedRequest request = ReadRows(call, controls);
    if (const int error = FitRows(call, controls, request, false); error != 0) return error;
    for (const v4l2_ext_control& row : request.rows) Store(call.device, *ControlOf(call.device, row.id), row.value);
    return WriteRows(call, controls, request);
}

// ---- Extension units

static int AnswerUnit(const CaptureCall& call, const uvc_xu_control_query& query, const std::vector<uint8_t>& bytes) {
    if (query.size != bytes.size()) return -ENOBUFS;
    const auto address = reinterpret_cast<uint64_t>(query.data);
    return call.ioctl.memory.Write(address, bytes.data(), bytes.size()) ? 0 : -EFAULT;
}

static int StoreUnit(const CaptureCall& call, const uvc_xu_control_query& query, std::vector<uint8_t>& current) {
    if (query.size != current.size()) return -ENOBUFS;
    std::vector<uint8_t> bytes(query.size);
    if (!call.ioctl.memory.Read(reinterpret_cast<uint64_t>(query.data), bytes.data(), bytes.size())) return -EFAULT;
    current = bytes;
    Trace("ioctl", {{"node", call.device.path},
                    {"request", "UVCIOC_CTRL_QUERY"},
                    {"unit", query.unit},
                    {"selector", query.selector},
                    {"data", bytes}});
    return 0;
}

int QueryExtensionUnit(const CaptureCall& call, uvc_xu_control_query& query) {
    const auto sameControl = [&](const ExtensionControl& control) {
        return control.unit == query.unit && control.selector == query.selector;
    };
    auto& known = call.device.traits.extensionControls;
    const auto control = std::ranges::find_if(known, sameControl);
    if (control == known.end()) return -ENOENT;
    const std::vector<uint8_t> zeros(control->current.size()), ones(control->current.size(), 1),
        most(control->current.size(), 0xff);
    const auto size = static_cast<uint16_t>(control->current.size());
    switch (query.query) {
        case UVC_GET_LEN:
            return AnswerUnit(call, query, {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8)});
        case UVC_GET_INFO:
            return AnswerUnit(call, query, {kSupportsGetAndSet});
        case UVC_GET_CUR:
            return AnswerUnit(call, query, control->current);
        case UVC_GET_DEF:
            return AnswerUnit(call, query, control->initial);
        case UVC_GET_MIN:
            return AnswerUnit(call, query, zeros);
        case UVC_GET_MAX:
            return AnswerUnit(call, query, most);
        case UVC_GET_RES:
            return AnswerUnit(call, query, ones);
        case UVC_SET_CUR:
            return StoreUnit(call, query, control->current);
        default:
            return -EINVAL;
    }
}
