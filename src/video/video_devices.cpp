#include "video/video_devices.h"

#include <fcntl.h>
#include <libv4l2.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "core/log.h"
#include "core/shell.h"
#include "settings/device_settings.h"
#include "video/camera_quirks.h"

CameraInput CameraInputs[2];
char CsiDevicePath[50];

static constexpr const char* kCsiDriver = "mxc_v4l2";
static constexpr const char* kUsbPorts[2] = {"usb-ci_hdrc.0-1", "usb-ci_hdrc.1-1"};  // of USB inputs 1 and 2

// No camera lists so many formats; one whose list never ends must not hold up the scan.
static constexpr uint32_t kFormatLimit = 64;

// ---- One device ----

static FormatOffer* OfferOf(CameraOffer& offer, uint32_t fourcc) {
    switch (fourcc) {
        case kYuyv:
            return &offer.yuyv;
        case kMjpg:
            return &offer.mjpg;
        case kH264:
            return &offer.h264;
        default:
            return nullptr;
    }
}

static void QueryRates(int device, uint32_t fourcc, FrameSizeEntry& entry) {
    for (uint32_t index = 0; index < kRateLimit; ++index) {
        v4l2_frmivalenum interval{};
        interval.index = index;
        interval.pixel_format = fourcc;
        interval.width = entry.width;
        interval.height = entry.height;
        if (v4l2_ioctl(device, VIDIOC_ENUM_FRAMEINTERVALS, &interval) < 0) return;
        entry.rates[index] = interval.discrete.denominator;
    }
}

// A range of sizes is taken at its maximum. False for a kind that says nothing usable.
static bool SizeOf(const v4l2_frmsizeenum& size, FrameSizeEntry& entry) {
    switch (size.type) {
        case V4L2_FRMSIZE_TYPE_DISCRETE:
            entry = {size.discrete.width, size.discrete.height, {}};
            return true;
        case V4L2_FRMSIZE_TYPE_STEPWISE:
            entry = {size.stepwise.max_width, size.stepwise.max_height, {}};
            return true;
        default:
            return false;
    }
}

static void QuerySizes(int device, uint32_t fourcc, FormatOffer& offer) {
    offer = {};
    offer.offered = 1;
    for (uint32_t index = 0; index < kSizeLimit; ++index) {
        v4l2_frmsizeenum size{};
        size.index = index;
        size.pixel_format = fourcc;
        if (v4l2_ioctl(device, VIDIOC_ENUM_FRAMESIZES, &size) < 0) return;
        if (!SizeOf(size, offer.sizes[index])) continue;
        ++offer.count;
        QueryRates(device, fourcc, offer.sizes[index]);
    }
}

static void QueryFormats(int device, VideoDeviceInfo& info) {
    for (uint32_t index = 0; index < kFormatLimit; ++index) {
        v4l2_fmtdesc format{};
        format.index = index;
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        if (v4l2_ioctl(device, VIDIOC_ENUM_FMT, &format) < 0) return;
        info.lastFormat = format;
        if (FormatOffer* offer = OfferOf(info.offer, format.pixelformat))
            QuerySizes(device, format.pixelformat, *offer);
    }
}

static void TerminateTexts(v4l2_capability& capability) {
    capability.driver[sizeof capability.driver - 1] = 0;
    capability.card[sizeof capability.card - 1] = 0;
    capability.bus_info[sizeof capability.bus_info - 1] = 0;
}

void QueryVideoDevice(const char* devicePath, VideoDeviceInfo& info) {
    info.valid = 0;
    const int device = v4l2_open(devicePath, O_RDWR | O_CLOEXEC);
    if (device < 0) return;
    if (v4l2_ioctl(device, VIDIOC_QUERYCAP, &info.capability) == 0) {
        TerminateTexts(info.capability);
        QueryFormats(device, info);
        info.valid = 1;
    }
    v4l2_close(device);
}

// ---- One input ----

static const char* TextOf(const uint8_t* text) { return reinterpret_cast<const char*>(text); }

// Other threads may be reading: what is already there is not stored again. Other padding costs no more than a store.
template <typename T>
static void StoreChange(T& stored, const T& value) {
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
    if (memcmp(&stored, &value, sizeof value) != 0) CopySharedBytes(&stored, &value, sizeof value);
}

static void StoreText(char (&stored)[32], const char* text) {
    char padded[32] = {};
    memcpy(padded, text, strnlen(text, sizeof padded - 1));
    StoreChange(stored, padded);
}

static void StoreCamera(CameraInput& input, const char* card, const char* busInfo, const char* devicePath,
                        const CameraOffer& offer) {
    StoreText(input.card, card);
    StoreText(input.busInfo, busInfo);
    StoreText(input.devicePath, devicePath);
    StoreChange(input.offer, offer);
}

void SelectCameraFormat(const VideoDeviceInfo& info, int inputIndex, const char* devicePath, uint8_t& fullHdTaken) {
    CameraInput& input = CameraInputs[inputIndex];
    StoreCamera(input, TextOf(info.capability.card), TextOf(info.capability.bus_info), devicePath, info.offer);
    const bool listed = OnCameraList(input.card, NoFullHdMjpegCameras);
    ChooseCameraFormat(info.offer, listed, TargetFrameRate(Settings.OutputRefresh100), fullHdTaken, input.selected);
}

static void StoreAbsence(CameraInput& input) {
    static constexpr CameraOffer kNothing{};
    StoreCamera(input, "", "", "", kNothing);
    ChooseAbsentCamera(input.selected);
}

// ---- The scan ----

using NodePath = char[32];
using Nodes = std::span<const VideoDeviceInfo, kVideoNodes>;

static void MakeNodePath(NodePath& path, int node) { snprintf(path, sizeof path, "/dev/video%d", node); }

// The first valid device whose text contains `fragment`, or -1: the lower node wins where two share a port.
template <typename Text>
static int FindNode(Nodes nodes, Text v4l2_capability::*text, const char* fragment) {
    for (int node = 0; node < kVideoNodes; ++node) {
        const VideoDeviceInfo& info = nodes[static_cast<size_t>(node)];
        if (info.valid && strstr(TextOf(info.capability.*text), fragment)) return node;
    }
    return -1;
}

static void FindCsiDevice(Nodes nodes) {
    const int node = FindNode(nodes, &v4l2_capability::driver, kCsiDriver);
    if (node >= 0) snprintf(CsiDevicePath, sizeof CsiDevicePath, "/dev/video%d", node);
}

static void FindCamera(Nodes nodes, int inputIndex, uint8_t& fullHdTaken) {
    CameraInput& input = CameraInputs[inputIndex];
    const int node = FindNode(nodes, &v4l2_capability::bus_info, kUsbPorts[inputIndex]);
    if (node >= 0) {
        NodePath path;
        MakeNodePath(path, node);
        SelectCameraFormat(nodes[static_cast<size_t>(node)], inputIndex, path, fullHdTaken);
    } else {
        StoreAbsence(input);
    }
    input.present = node >= 0;
}

int ScanVideoDevices() {
    const std::unique_ptr<VideoDeviceInfo[]> nodes(new (std::nothrow) VideoDeviceInfo[kVideoNodes]());
    if (!nodes) return 1;
    AVerCAM550Workaround();
    for (int node = 0; node < kVideoNodes; ++node) {
        NodePath path;
        MakeNodePath(path, node);
        QueryVideoDevice(path, nodes[static_cast<size_t>(node)]);
    }
    const Nodes found(nodes.get(), kVideoNodes);
    FindCsiDevice(found);
    uint8_t fullHdTaken = 0;
    FindCamera(found, 0, fullHdTaken);  // input 1 has the first claim on 1920x1080
    FindCamera(found, 1, fullHdTaken);
    return 0;
}

// ---- USB work-arounds ----

void AVerCAM550Workaround() {
    static constexpr const char* kCommand = "lsusb | grep 2574:0a90";
    const ToolAnswer answer = ReadFirstLine(kCommand, "AVerCAM550Workaround: pclose failed");
    if (!answer.started) {
        LogInfo("Failed to run command: %s\n", kCommand);
        return;
    }
    if (answer.text.find("2574:0a90") == std::string::npos) return;
    LogInfo("=======> FIX: AVer CAM550 found, waking up V4L2!\n");
    RunShell("v4l2-ctl --list-devices > /dev/null");
}

int ResetUsbInputs() {
    LogInfo("Resetting USB inputs...\n");
    for (const char* file : {"unbind", "bind"})
        for (const char* host : {"ci_hdrc.0", "ci_hdrc.1"})
            RunShell("echo %s > /sys/bus/platform/drivers/ci_hdrc/%s", host, file);
    return 0;
}
