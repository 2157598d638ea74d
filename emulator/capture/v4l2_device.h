// The inside of the V4L2 capture engine: its records, and the ioctls by theme. Included by the v4l2_*.cpp files only.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>

#include "bench/trace.h"
#include "capture/v4l2_capture.h"

// An answer in a kernel record names what it tells; everything else, reserved fields too, is to be 0.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

// Into a cleared text field of the kernel, always with a terminator.
inline void CopyText(void* to, size_t size, std::string_view from) {
    memcpy(to, from.data(), std::min(from.size(), size - 1));
}

enum class SlotState { kDequeued, kQueued, kDone };

struct BufferSlot {
    FrameBuffer frame;  // the supervisor's own mapping
    SlotState state = SlotState::kDequeued;
    size_t bytesUsed = 0;
    uint32_t sequence = 0;
    int64_t capturedAt = 0;  // microseconds
};

inline constexpr size_t kPriorities = V4L2_PRIORITY_RECORD + 1;

struct CaptureDevice {
    CaptureTraits traits;
    SourceOrder order = nullptr;
    int source = 0;
    int number = -1;  // of /dev/videoN
    std::string path;
    UdevDevice udev;
    bool gone = false;
    Delivery delivery = Delivery::kNormal;
    ControlFault controlFault = ControlFault::kNone;

    v4l2_pix_format format{};
    v4l2_fract interval{1, 30};
    std::array<unsigned, kPriorities> filesOfPriority{};

    // The queue. Whoever asked for buffers owns it until it gives them back or closes.
    OpenFile* owner = nullptr;
    std::vector<BufferSlot> slots;
    std::deque<uint32_t> queued, done;  // slot indices
    bool streaming = false;
    uint32_t sequence = 0;  // of the next frame, since STREAMON

    // The film, while streaming and the source gives something. Frame n is due at firstDue + n intervals.
    std::shared_ptr<FrameMaker> maker;
    FrameOrder filming;
    int64_t firstDue = 0;
    int64_t frameNumber = 0;
    TimerId timer = 0;
};

struct CaptureSession {  // one open file
    std::shared_ptr<CaptureDevice> device;
    uint32_t priority = V4L2_PRIORITY_DEFAULT;
};

struct CaptureCall {
    CaptureDevice& device;
    CaptureSession& session;
    const IoctlCall& ioctl;
};

inline bool HasFault(const CaptureCall& call, ControlFault fault) { return call.device.controlFault == fault; }

// Puts a request about controls into the trace, with the name of its error, and returns its result.
int TellRequest(const CaptureCall& call, const char* request, const Json& fields, int result);

// Each gets the caller's record and leaves the answer in it: 0 (or what the ioctl returns), -errno or kHold.
// Formats:
void ChooseDefaultFormat(CaptureDevice& device);
int EnumFormat(const CaptureCall& call, v4l2_fmtdesc& description);
int EnumFrameSizes(const CaptureCall& call, v4l2_frmsizeenum& answer);
int EnumFrameIntervals(const CaptureCall& call, v4l2_frmivalenum& answer);
int GetFormat(const CaptureCall& call, v4l2_format& format);
int TryFormat(const CaptureCall& call, v4l2_format& format);
int SetFormat(const CaptureCall& call, v4l2_format& format);
int GetParameters(const CaptureCall& call, v4l2_streamparm& parameters);
int SetParameters(const CaptureCall& call, v4l2_streamparm& parameters);

// Controls:
void AddControlClasses(CaptureTraits& traits);
int QueryControl(const CaptureCall& call, v4l2_queryctrl& query);
int QueryExtendedControl(const CaptureCall& call, v4l2_query_ext_ctrl& query);
int QueryMenu(const CaptureCall& call, v4l2_querymenu& query);
int GetControl(const CaptureCall& call, v4l2_control& control);
int SetControl(const CaptureCall& call, v4l2_control& control);
int GetExtendedControls(const CaptureCall& call, v4l2_ext_controls& controls);
int SetExtendedControls(const CaptureCall& call, v4l2_ext_controls& controls);
int TryExtendedControls(const CaptureCall& call, v4l2_ext_controls& controls);
Json DescribeControls(const CaptureDevice& device);

// Extension units:
struct uvc_xu_control_query;
int QueryExtensionUnit(const CaptureCall& call, uvc_xu_control_query& query);
Json DescribeUnits(const CaptureDevice& device);

// Buffers and streaming:
int RequestBuffers(const CaptureCall& call, v4l2_requestbuffers& request);
int QueryBuffer(const CaptureCall& call, v4l2_buffer& buffer);
int QueueBuffer(const CaptureCall& call, v4l2_buffer& buffer);
int DequeueBuffer(const CaptureCall& call, v4l2_buffer& buffer);
int StreamOn(const CaptureCall& call, int& type);
int StreamOff(const CaptureCall& call, int& type);
unsigned ReadyEvents(const CaptureDevice& device);
void FreeBuffers(CaptureDevice& device);  // and end streaming

// Pace:
void StartFilm(CaptureDevice& device);
void StopFilm(CaptureDevice& device);
