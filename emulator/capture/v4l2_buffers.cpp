// Buffers, the queue, and the pace at which frames come.
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include "capture/v4l2_device.h"

static constexpr size_t kPageBytes = 4096;
static constexpr size_t kQueueBytesLimit = 512u << 20;
static constexpr int64_t kShortestInterval = 1000, kLongestInterval = 10'000'000;  // microseconds
static constexpr int64_t kMicroseconds = 1'000'000;

// ---- Buffers

static size_t SlotStride(const CaptureDevice& device) {
    return (device.format.sizeimage + kPageBytes - 1) / kPageBytes * kPageBytes;
}

static bool IsOurs(uint32_t type, uint32_t memory) {
    return type == V4L2_BUF_TYPE_VIDEO_CAPTURE && memory == V4L2_MEMORY_MMAP;
}

static void EndStreaming(CaptureDevice& device) {
    StopFilm(device);
    device.streaming = false;
    device.queued.clear();
    device.done.clear();
    for (BufferSlot& slot : device.slots) slot.state = SlotState::kDequeued;
    if (device.owner != nullptr) Wake(*device.owner);
}

// The pages go, the file keeps its length: a program that still has the buffers mapped reads zeros, not a bus error.
void FreeBuffers(CaptureDevice& device) {
    EndStreaming(device);
    for (BufferSlot& slot : device.slots) munmap(slot.frame.bytes.data(), slot.frame.bytes.size());
    if (device.owner != nullptr && !device.slots.empty()) {
        const auto bytes = static_cast<off_t>(device.slots.size() * SlotStride(device));
        fallocate(device.owner->descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, bytes);
    }
    device.slots.clear();
    device.owner = nullptr;
}

static bool AddSlot(CaptureDevice& device, const OpenFile& file, size_t stride) {
    const auto offset = static_cast<off_t>(device.slots.size() * stride);
    if (ftruncate(file.descriptor, offset + static_cast<off_t>(stride)) != 0) return false;
    void* memory = mmap(nullptr, stride, PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor, offset);
    if (memory == MAP_FAILED) return false;
    device.slots.push_back({.frame = {.bytes = {static_cast<uint8_t*>(memory), stride}}});
    return true;
}

// The memory type is judged before the owner, as programs find out that way what is supported.
int RequestBuffers(const CaptureCall& call, v4l2_requestbuffers& request) {
    CaptureDevice& device = call.device;
    OpenFile& file = call.ioctl.file;
    if (!IsOurs(request.type, request.memory)) return -EINVAL;
    if (device.owner != nullptr && device.owner != &file) return -EBUSY;
    if (device.streaming) return -EBUSY;
    FreeBuffers(device);
    const size_t stride = SlotStride(device);
    const size_t count = std::min<size_t>(request.count, VIDEO_MAX_FRAME);
    if (count > 0 && device.format.sizeimage == 0) return -EINVAL;
    if (count > 0 && (stride > kFrameBytesLimit || stride * count > kQueueBytesLimit)) return -ENOMEM;
    while (device.slots.size() < count && AddSlot(device, file, stride)) {
    }
    if (count > 0 && device.slots.empty()) return -ENOMEM;
    if (count > 0) device.owner = &file;
    request = {.count = static_cast<uint32_t>(device.slots.size()),
               .type = request.type,
               .memory = request.memory,
               .capabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS};
    return 0;
}

static uint32_t StateFlags(const BufferSlot& slot) {
    if (slot.state == SlotState::kQueued) return V4L2_BUF_FLAG_QUEUED;
    return slot.state == SlotState::kDone ? V4L2_BUF_FLAG_DONE : 0;
}

static void Describe(const CaptureDevice& device, uint32_t index, v4l2_buffer& buffer) {
    const BufferSlot& slot = device.slots[index];
    buffer = {.index = index,
              .type = V4L2_BUF_TYPE_VIDEO_CAPTURE,
              .bytesused = static_cast<uint32_t>(slot.bytesUsed),
              .flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | V4L2_BUF_FLAG_TSTAMP_SRC_SOE | StateFlags(slot),
              .field = V4L2_FIELD_NONE,
              .timestamp = {.tv_sec = slot.capturedAt / kMicroseconds, .tv_usec = slot.capturedAt % kMicroseconds},
              .sequence = slot.sequence,
              .memory = V4L2_MEMORY_MMAP,
              .m = {.offset = static_cast<uint32_t>(index * SlotStride(device))},
              .length = static_cast<uint32_t>(SlotStride(device))};
}

int QueryBuffer(const CaptureCall& call, v4l2_buffer& buffer) {
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.index >= call.device.slots.size()) return -EINVAL;
    Describe(call.device, buffer.index, buffer);
    return 0;
}

static bool OwnedByOther(const CaptureCall& call) {
    return call.device.owner != nullptr && call.device.owner != &call.ioctl.file;
}

int QueueBuffer(const CaptureCall& call, v4l2_buffer& buffer) {
    CaptureDevice& device = call.device;
    if (OwnedByOther(call)) return -EBUSY;
    if (!IsOurs(buffer.type, buffer.memory) || buffer.index >= device.slots.size()) return -EINVAL;
    BufferSlot& slot = device.slots[buffer.index];
    if (slot.state != SlotState::kDequeued) return -EINVAL;
    slot.state = SlotState::kQueued;
    slot.bytesUsed = 0;
    slot.sequence = 0;
    slot.capturedAt = 0;
    device.queued.push_back(buffer.index);
    Describe(device, buffer.index, buffer);
    return 0;
}

int DequeueBuffer(const CaptureCall& call, v4l2_buffer& buffer) {
    CaptureDevice& device = call.device;
    if (OwnedByOther(call)) return -EBUSY;
    if (!IsOurs(buffer.type, buffer.memory) || !device.streaming) return -EINVAL;
    if (device.done.empty()) return call.ioctl.nonBlocking ? -EAGAIN : kHold;
    const uint32_t index = device.done.front();
    device.done.pop_front();
    device.slots[index].state = SlotState::kDequeued;
    Describe(device, index, buffer);
    return 0;
}

int StreamOn(const CaptureCall& call, int& type) {
    CaptureDevice& device = call.device;
    if (OwnedByOther(call)) return -EBUSY;
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE || device.slots.empty()) return -EINVAL;
    if (device.streaming) return 0;
    Trace("ioctl", {{"node", device.path}, {"request", "VIDIOC_STREAMON"}});
    device.streaming = true;
    device.sequence = 0;
    StartFilm(device);
    return 0;
}

int StreamOff(const CaptureCall& call, int& type) {
    CaptureDevice& device = call.device;
    if (OwnedByOther(call)) return -EBUSY;
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return -EINVAL;
    if (device.streaming) Trace("ioctl", {{"node", device.path}, {"request", "VIDIOC_STREAMOFF"}});
    EndStreaming(device);
    return 0;
}

// As videobuf2 has it: polling a queue that cannot bring anything is an error, not a wait.
unsigned ReadyEvents(const CaptureDevice& device) {
    if (device.gone) return POLLERR | POLLHUP;
    if (!device.streaming) return POLLERR;
    if (!device.done.empty()) return POLLIN | POLLRDNORM;
    return 0;
}

// ---- Pace

static int64_t IntervalMicroseconds(const v4l2_fract& interval) {
    const int64_t exact = kMicroseconds * interval.numerator / interval.denominator;
    return std::clamp(exact, kShortestInterval, kLongestInterval);
}

// Without the drift of a rounded interval, unless that had to be limited.
static int64_t DueTime(const CaptureDevice& device, int64_t frame) {
    const v4l2_fract& interval = device.filming.interval;
    const int64_t rounded = IntervalMicroseconds(interval);
    if (rounded == kShortestInterval || rounded == kLongestInterval) return device.firstDue + frame * rounded;
    return device.firstDue + frame * kMicroseconds * interval.numerator / interval.denominator;
}

static FrameStamp StampOf(const CaptureDevice& device, int64_t ahead) {
    return {.counter = static_cast<uint16_t>(device.sequence + ahead),
            .microseconds = DueTime(device, device.frameNumber + ahead)};
}

// Fills the oldest queued buffer. A source that has nothing ready leaves it queued.
static void Deliver(CaptureDevice& device) {
    if (device.delivery == Delivery::kStalled) return;
    if (device.queued.empty()) {
        ++device.sequence;
        return;
    }
    const uint32_t index = device.queued.front();
    BufferSlot& slot = device.slots[index];
    const FrameStamp now = StampOf(device, 0);
    const auto fill = device.delivery == Delivery::kGarbage ? FillGarbage : FillFrame;
    slot.bytesUsed = fill(*device.maker, slot.frame, now, StampOf(device, 1));
    if (slot.bytesUsed == 0) return;
    slot.state = SlotState::kDone;
    slot.sequence = device.sequence++;
    slot.capturedAt = now.microseconds;
    device.queued.pop_front();
    device.done.push_back(index);
    Wake(*device.owner);
}

static void FrameDue(CaptureDevice& device);

static void ScheduleFrame(CaptureDevice& device) {
    device.timer = CallAt(DueTime(device, device.frameNumber), [&device] { FrameDue(device); });
}

static void FrameDue(CaptureDevice& device) {
    Deliver(device);
    ++device.frameNumber;
    const int64_t interval = IntervalMicroseconds(device.filming.interval);
    const int64_t missed = (NowMicroseconds() - DueTime(device, device.frameNumber)) / interval;
    if (missed > 0) {  // the PC was busy elsewhere: these frames are lost, not late
        device.frameNumber += missed;
        device.sequence += static_cast<uint32_t>(missed);
    }
    ScheduleFrame(device);
}

void StartFilm(CaptureDevice& device) {
    const auto order = device.order(device.source, device.format, device.interval);
    if (!order) return;
    device.filming = *order;
    if (device.filming.interval.numerator == 0 || device.filming.interval.denominator == 0)
        device.filming.interval = {1, 30};
    device.maker = StartFrames(device.filming);
    device.firstDue = NowMicroseconds() + IntervalMicroseconds(device.filming.interval);
    device.frameNumber = 0;
    ScheduleFrame(device);
}

void StopFilm(CaptureDevice& device) {
    if (device.timer != 0) CancelCall(device.timer);
    device.timer = 0;
    device.maker.reset();
}

void RestartCapture(CaptureDevice& device) {
    if (!device.streaming) return;
    const auto order = device.order(device.source, device.format, device.interval);
    if (device.maker && order && *order == device.filming) return;
    StopFilm(device);
    StartFilm(device);
}
