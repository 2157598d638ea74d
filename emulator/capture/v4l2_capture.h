// The V4L2 capture engine: what a kernel driver with its videobuf2 queue does, for any emulated capture device.
//
// A device is described by CaptureTraits (formats, sizes, rates, controls as data); the engine answers its ioctls,
// holds DQBUF until a frame is due, and writes each frame into a queued buffer at its due time, with CLOCK_MONOTONIC
// time stamps. Frames for which no buffer is queued are lost but counted. Single-planar, memory-mapped buffers only;
// other memory is refused as by a driver without it. One file at a time owns the queue, others get EBUSY.
//
// Supervisor's thread; nothing blocks. Errors are negative errno values.
#pragma once

#include <linux/videodev2.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/trace.h"
#include "capture/frame_makers.h"
#include "kernel/supervisor.h"
#include "kernel/udev_events.h"

// Enumerated as they stand; a discrete size has equal ends. Intervals are seconds from frame to frame: each one, or for
// a continuous or stepwise list the shortest, the longest and the step.
struct CaptureSize {
    uint32_t type = V4L2_FRMSIZE_TYPE_DISCRETE;
    v4l2_frmsize_stepwise range{};
    uint32_t intervalType = V4L2_FRMIVAL_TYPE_DISCRETE;
    std::vector<v4l2_fract> intervals;
};

struct CaptureFormat {
    uint32_t fourcc = 0;
    std::string description;
    std::vector<CaptureSize> sizes;
    uint32_t repeats = 0;  // how often the last size is enumerated again: a camera that does not find an end
};

// What a speed control drives: a position between two end stops, in degrees or whatever the profile counts in.
struct ControlMotion {
    double from = 0, to = 0;
    double perSecond = 1;  // and unit of speed
    double position = 0;   // when the speed was set last
};

struct CaptureControl {
    uint32_t id = 0, type = V4L2_CTRL_TYPE_INTEGER;
    std::string name;
    int32_t minimum = 0, maximum = 0, step = 1, defaultValue = 0;
    uint32_t flags = 0;
    std::vector<std::string> menu;  // V4L2_CTRL_TYPE_MENU: from `minimum` on
    int32_t value = 0;
    std::optional<ControlMotion> motion = {};
    int64_t movedAt = 0;  // microseconds, when the value was set
};

struct ExtensionControl {  // of a UVC extension unit
    uint8_t unit = 0, selector = 0;
    std::vector<uint8_t> initial, current;
};

struct CaptureTraits {
    std::string driver, card, busInfo;  // cut at the length of their fields, then without a terminator
    std::string inputName;
    uint32_t colorspace = V4L2_COLORSPACE_SRGB;
    std::vector<CaptureFormat> formats;
    std::vector<CaptureControl> controls;
    std::vector<ExtensionControl> extensionControls;
    std::string sysfsFolder;  // "/devices/platform/ci_hdrc.0/usb1/1-1/1-1:1.0": its parent device
};

// Queries, readings or settings of controls fail with EIO; or settings have no effect, as with a blocked motor.
enum class ControlFault { kNone, kQuery, kRead, kWrite, kStuck };

enum class Delivery { kNormal, kStalled, kGarbage, kWrongSize };

struct CaptureDevice;

// What the source behind a device gives for this format now; nothing while it is silent.
using SourceOrder = std::optional<FrameOrder> (*)(int source, const v4l2_pix_format& format,
                                                  const v4l2_fract& interval);

// Appears as the lowest free /dev/videoN, in /sys, and to udev. Null when no number is free.
std::shared_ptr<CaptureDevice> AddCaptureDevice(CaptureTraits traits, SourceOrder order, int source);

// Gone: node, /sys and udev at once; programs that still hold it get ENODEV; its number stays taken until they close
// it.
void RemoveCaptureDevice(CaptureDevice& device);

// The source changed: ask `order` again, for a device that streams.
void RestartCapture(CaptureDevice& device);

// Stalled: no frame any more, all calls stay alive. Garbage: frames of noise, or cut short. Wrong size: the source is
// to see to it (DeliveryOf), it is asked again.
void SetDelivery(CaptureDevice& device, Delivery delivery);

void SetControlFault(CaptureDevice& device, ControlFault fault);

bool IsStreaming(const CaptureDevice& device);
Delivery DeliveryOf(const CaptureDevice& device);

// Node, controls with their values, ranges and positions, data of the extension units.
Json DescribeCapture(const CaptureDevice& device);

// "/dev/video0".
const std::string& CapturePath(const CaptureDevice& device);

// After a board reset: no file is open any more, every number is free.
void ForgetCaptureDevices();
