// Controls of the V4L2 interface. Each request is told in the trace, with its values.
#include <cmath>

#include "capture/v4l2_device.h"

static constexpr uint32_t kExtendedLimit = 1024;  // controls in one request

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

static int FindRange(const CaptureCall& call, v4l2_queryctrl& query) {
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

static int FindRange(const CaptureCall& call, v4l2_query_ext_ctrl& query) {
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

template <typename Query>
static int TellRange(const CaptureCall& call, const char* request, Query& query) {
    const uint32_t asked = query.id;
    const bool next = (asked & V4L2_CTRL_FLAG_NEXT_CTRL) != 0;  // a program that lists them all
    Json fields = {{next ? "after" : "id", asked & V4L2_CTRL_ID_MASK}};
    const int result = HasFault(call, ControlFault::kQuery) ? -EIO : FindRange(call, query);
    if (result == 0)
        fields.update({{next ? "found" : "id", query.id},
                       {"name", reinterpret_cast<const char*>(query.name)},
                       {"minimum", query.minimum},
                       {"maximum", query.maximum},
                       {"step", query.step}});
    return TellRequest(call, request, fields, result);
}

int QueryControl(const CaptureCall& call, v4l2_queryctrl& query) { return TellRange(call, "VIDIOC_QUERYCTRL", query); }

int QueryExtendedControl(const CaptureCall& call, v4l2_query_ext_ctrl& query) {
    return TellRange(call, "VIDIOC_QUERY_EXT_CTRL", query);
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

// Where a speed has brought the camera by now.
static double PositionOf(const CaptureControl& control) {
    const ControlMotion& motion = *control.motion;
    const double seconds = double(NowMicroseconds() - control.movedAt) / 1e6;
    return std::clamp(motion.position + control.value * motion.perSecond * seconds, motion.from, motion.to);
}

static void Store(CaptureDevice& device, CaptureControl& control, int32_t value) {
    if (device.controlFault == ControlFault::kStuck) return;
    if (control.motion) control.motion->position = PositionOf(control);
    control.movedAt = NowMicroseconds();
    if (control.type != V4L2_CTRL_TYPE_BUTTON) control.value = value;
}

static Json NamedValue(const CaptureControl* control, const v4l2_control& asked) {
    return {{"id", asked.id}, {"name", control ? Json(control->name) : Json(nullptr)}, {"value", asked.value}};
}

int GetControl(const CaptureCall& call, v4l2_control& control) {
    const CaptureControl* known = ControlOf(call.device, control.id);
    const int result = HasFault(call, ControlFault::kRead) ? -EIO : CheckReadable(known);
    if (result == 0) control.value = known->value;
    const Json fields = result == 0 ? NamedValue(known, control) : Json{{"id", control.id}};
    return TellRequest(call, "VIDIOC_G_CTRL", fields, result);
}

// Told with the value that was asked for; what the camera makes of it is in the next reading.
int SetControl(const CaptureCall& call, v4l2_control& control) {
    CaptureControl* known = ControlOf(call.device, control.id);
    const Json asked = NamedValue(known, control);
    const int result = HasFault(call, ControlFault::kWrite) ? -EIO : FitValue(known, control.value);
    if (result == 0) Store(call.device, *known, control.value);
    return TellRequest(call, "VIDIOC_S_CTRL", asked, result);
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

static int TellRows(const CaptureCall& call, const char* name, const ExtendedRequest& request, int result) {
    Json values = Json::array();
    for (const v4l2_ext_control& row : request.rows) values.push_back({{"id", row.id}, {"value", row.value}});
    return TellRequest(call, name, {{"controls", values}}, result);
}

static int GetRows(const CaptureCall& call, v4l2_ext_controls& controls, ExtendedRequest& request) {
    controls.error_idx = controls.count;
    if (HasFault(call, ControlFault::kRead)) return -EIO;
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

int GetExtendedControls(const CaptureCall& call, v4l2_ext_controls& controls) {
    ExtendedRequest request = ReadRows(call, controls);
    const int result = GetRows(call, controls, request);
    return TellRows(call, "VIDIOC_G_EXT_CTRLS", request, result);
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

static int SetRows(const CaptureCall& call, v4l2_ext_controls& controls, ExtendedRequest& request) {
    if (const int error = FitRows(call, controls, request, false); error != 0) return error;
    if (HasFault(call, ControlFault::kWrite)) return -EIO;
    for (const v4l2_ext_control& row : request.rows) Store(call.device, *ControlOf(call.device, row.id), row.value);
    return WriteRows(call, controls, request);
}

int SetExtendedControls(const CaptureCall& call, v4l2_ext_controls& controls) {
    ExtendedRequest request = ReadRows(call, controls);
    const int result = SetRows(call, controls, request);
    return TellRows(call, "VIDIOC_S_EXT_CTRLS", request, result);
}

// ---- What a person sees

static Json DescribeControl(const CaptureControl& control) {
    Json text = {
        {"value", control.value}, {"minimum", control.minimum}, {"maximum", control.maximum}, {"step", control.step}};
    if (control.motion) text["position"] = std::round(PositionOf(control) * 100) / 100;
    return text;
}

Json DescribeControls(const CaptureDevice& device) {
    Json controls = Json::object();
    for (const CaptureControl& control : device.traits.controls)
        if (control.type != V4L2_CTRL_TYPE_CTRL_CLASS) controls[control.name] = DescribeControl(control);
    return controls;
}
