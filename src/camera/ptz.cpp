#include "camera/ptz.h"

#include <linux/videodev2.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "camera/camera_node.h"
#include "core/log.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"
#include "video/video_devices.h"

static constexpr useconds_t kStepPeriodUs = 150'000;
static constexpr int32_t kZoomWidest = 100, kZoomClosest = 500;
static constexpr int64_t kCoarseSteps = 100;  // a control with more of them is moved by hundredths of its range
static constexpr int kWorkerPriority = 99;

static constexpr const char* kSpeedPanModels[] = {"Rally", "VC520", "PTZ330", "CAM520", "CAM540", "AVer"};
constexpr CameraList SpeedPanModels = kSpeedPanModels;

struct AxisRow {
    uint32_t position, speed;  // control ids; speed 0: the axis has none
    const char* speedFailure;
    const char* threadOf[2];  // in the message of a thread that cannot be created, by count of numbers
    Shared<int32_t> DeviceSettings::*lastValue[2];  // by camera
};
static constexpr AxisRow kAxes[] = {
    {.position = V4L2_CID_PAN_ABSOLUTE,
     .speed = V4L2_CID_PAN_SPEED,
     .speedFailure = "Set V4L2_CID_PAN_SPEED failed!\n",
     .threadOf = {"", ""},
     .lastValue = {&DeviceSettings::PanCamera1, &DeviceSettings::PanCamera2}},
    {.position = V4L2_CID_TILT_ABSOLUTE,
     .speed = V4L2_CID_TILT_SPEED,
     .speedFailure = "Set V4L2_CID_TILT_SPEED failed!\n",
     .threadOf = {"", ""},
     .lastValue = {&DeviceSettings::TiltCamera1, &DeviceSettings::TiltCamera2}},
    {.position = V4L2_CID_ZOOM_ABSOLUTE,
     .speed = 0,
     .speedFailure = nullptr,
     .threadOf = {"zoom 1 param ", "zoom 2 params "},
     .lastValue = {&DeviceSettings::ZoomCamera1, &DeviceSettings::ZoomCamera2}},
};
static_assert(std::size(kAxes) == kZoom + 1);

// Axis and step change together: a worker never takes the step of one axis for another's.
struct alignas(sizeof(uint64_t)) AxisStep {
    uint32_t control;
    int32_t step;  // 0: stop
};

// Written by commands, followed by all workers of both cameras.
static struct {
    Shared<uint8_t> camera;
    Shared<AxisStep> order;
    Shared<double> lastPosition;  // set by a step, of any camera and control
} PtzMove;

// ---- Arithmetic ----

bool IsZoomPosition(uint32_t control, int32_t value) {
    return control == V4L2_CID_ZOOM_ABSOLUTE && value >= kZoomWidest && value <= kZoomClosest;
}

int32_t ZoomPosition(const ControlRange& range, int32_t value) {
    const double minimum = range.minimum, maximum = range.maximum;
    const double part = (value - kZoomWidest) / double{kZoomClosest - kZoomWidest};
    return static_cast<int32_t>(std::min(minimum + part * (maximum - minimum), maximum));
}

// A driver that states no step is taken for a fine one.
static bool IsCoarse(const ControlRange& range, int64_t width) {
    return range.step != 0 && width / range.step <= kCoarseSteps;
}

int32_t StepPosition(const ControlRange& range, int32_t current, int32_t value) {
    const int64_t width = int64_t{range.maximum} - range.minimum;
    const int64_t way = IsCoarse(range, width) ? int64_t{value} * range.step : value * width / 100;
    const int64_t target = std::max<int64_t>(std::min<int64_t>(current + way, range.maximum), range.minimum);
    return static_cast<int32_t>(target);
}

// ---- Controls ----

static int QueryRange(int device, uint32_t id, ControlRange& range) {
    v4l2_queryctrl query{};
    query.id = id;
    if (ioctl(device, VIDIOC_QUERYCTRL, &query) < 0) return -1;
    range = {.minimum = query.minimum, .maximum = query.maximum, .step = query.step};
    return 0;
}

static int ReadValue(int device, uint32_t id, int32_t& value) {
    v4l2_control control = {.id = id, .value = 0};
    if (ioctl(device, VIDIOC_G_CTRL, &control) < 0) return -1;
    value = control.value;
    return 0;
}

static int WriteValue(int device, uint32_t id, int32_t value) {
    v4l2_control control = {.id = id, .value = value};
    return ioctl(device, VIDIOC_S_CTRL, &control) < 0 ? -1 : 0;
}

int GetCameraControl(int device, uint32_t id, CameraControl& control) {
    if (QueryRange(device, id, control.range) != 0) return -1;
    return ReadValue(device, id, control.value);
}

static int Step(int device, uint32_t id, int32_t value, const ControlRange& range) {
    int32_t current = 0;
    if (ReadValue(device, id, current) != 0) return -1;
    if (current < range.minimum || current > range.maximum) return WriteValue(device, id, current);
    const int32_t target = StepPosition(range, current, value);
    if (target == PtzMove.lastPosition) return -1;
    PtzMove.lastPosition = target;
    return WriteValue(device, id, target);
}

static bool IsPosition(uint32_t id) {
    return std::ranges::any_of(kAxes, [id](const AxisRow& axis) { return axis.position == id; });
}

int SetCameraControl(int device, uint32_t id, int32_t value) {
    ControlRange range;
    if (QueryRange(device, id, range) != 0) return -1;
    if (IsZoomPosition(id, value)) return WriteValue(device, id, ZoomPosition(range, value));
    return IsPosition(id) ? Step(device, id, value, range) : WriteValue(device, id, value);
}

// ---- Workers ----

static void* PtzMoveWorker(void*) {
    pthread_setname_np(pthread_self(), "PTZ move");
    const CameraNode node(PtzMove.camera);
    for (AxisStep now = PtzMove.order; now.step != 0; now = PtzMove.order) {
        if (SetCameraControl(node.device, now.control, now.step) != 0) break;
        usleep(kStepPeriodUs);
    }
    return nullptr;
}

// Real-time, so that steps keep their pace beside the video threads. A system that grants no priority moves the camera
// all the same.
static int CreateWorker() {
    const sched_param priority = {.sched_priority = kWorkerPriority};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setschedpolicy(&attributes, SCHED_FIFO);
    pthread_attr_setschedparam(&attributes, &priority);
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_t thread;
    int error = pthread_create(&thread, &attributes, PtzMoveWorker, nullptr);
    if (error == EPERM) {
        pthread_attr_setinheritsched(&attributes, PTHREAD_INHERIT_SCHED);
        error = pthread_create(&thread, &attributes, PtzMoveWorker, nullptr);
    }
    pthread_attr_destroy(&attributes);
    return error;
}

static void StartWorker(const char* threadOf) {
    const int error = CreateWorker();
    if (error != 0) LogInfo("ERROR; %sreturn code from pthread_create() is %d\n", threadOf, error);
}

// ---- The camera of a command ----

static int ShownCamera(const PtzSelection& selection) {
    if (selection.deviceId != 0) return selection.input <= 2 ? selection.input : 0;
    const bool composed = (selection.view >= kViewSS && selection.view <= kViewPPBR) || selection.view == kViewTB;
    return selection.view == kViewS1 || (selection.swap == 0 && composed) ? 1 : 2;
}

PtzChoice ChoosePtzCamera(const PtzSelection& selection) {
    const int shown = ShownCamera(selection);
    if (shown != 0) return {.camera = shown, .shown = true};
    const uint8_t last = selection.lastCamera;
    const bool there = (last == 1 || last == 2) && selection.present[last - 1];
    return {.camera = there ? last : 0, .shown = false};
}

static PtzSelection SelectionNow() {
    return {.deviceId = DeviceId,
            .view = Settings.View,
            .swap = Settings.Swap,
            .input = Settings.Input,
            .lastCamera = Settings.PtzCamera,
            .present = {CameraInputs[0].present != 0, CameraInputs[1].present != 0}};
}

// 0 when there is none; an absent camera is remembered, too.
static int SelectPtzCamera(const AxisRow& axis, int32_t value) {
    const PtzSelection selection = SelectionNow();
    const PtzChoice choice = ChoosePtzCamera(selection);
    if (!choice.shown) return choice.camera;
    Settings.PtzCamera = static_cast<uint8_t>(choice.camera);
    Settings.*axis.lastValue[choice.camera - 1] = value;
    return selection.present[choice.camera - 1] ? choice.camera : 0;
}

// ---- Commands ----

static bool MovesBySpeed(const AxisRow& axis, const CameraNode& node) {
    if (axis.speed != 0 && OnCameraList(node.card, SpeedPanModels)) return true;
    CameraControl control;
    return GetCameraControl(node.device, axis.position, control) != 0;
}

static int SetSpeed(const AxisRow& axis, const CameraNode& node, int32_t speed) {
    if (axis.speed == 0) return 1;
    if (SetCameraControl(node.device, axis.speed, speed) == 0) return 0;
    LogInfo("%s", axis.speedFailure);
    return 1;
}

int MoveCamera(PtzAxis axisOf, std::span<const int32_t> numbers) {
    if (numbers.empty() || numbers.size() > 2) return 1;
    const AxisRow& axis = kAxes[axisOf];
    const bool named = numbers.size() == 2;
    const int32_t value = numbers.back();
    if (named && numbers[0] != 1 && numbers[0] != 2) return 1;

    const int camera = named ? numbers[0] : SelectPtzCamera(axis, value);
    const CameraNode node(camera);
    if (!named && node.device < 0) {
        LogInfo("Open failed!\n");
        return 1;
    }
    if (value == 0) PtzMove.order = AxisStep{};  // a stop is one for every worker, whatever moves this camera
    if (MovesBySpeed(axis, node)) return SetSpeed(axis, node, value);
    PtzMove.camera = static_cast<uint8_t>(camera);
    PtzMove.order = AxisStep{.control = axis.position, .step = value};
    if (IsZoomPosition(axis.position, value))
        SetCameraControl(node.device, axis.position, value);
    else if (value != 0)
        StartWorker(axis.threadOf[numbers.size() - 1]);
    return 0;
}
