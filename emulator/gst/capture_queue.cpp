#include "gst/capture_queue.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>

namespace {

struct FormatRow {
    uint32_t fourcc;
    GstVideoFormat format;
};

constexpr FormatRow kFormats[] = {
    {V4L2_PIX_FMT_YUYV, GST_VIDEO_FORMAT_YUY2},   {V4L2_PIX_FMT_UYVY, GST_VIDEO_FORMAT_UYVY},
    {V4L2_PIX_FMT_YVYU, GST_VIDEO_FORMAT_YVYU},   {V4L2_PIX_FMT_NV12, GST_VIDEO_FORMAT_NV12},
    {V4L2_PIX_FMT_YUV420, GST_VIDEO_FORMAT_I420}, {V4L2_PIX_FMT_YUV422P, GST_VIDEO_FORMAT_Y42B},
    {V4L2_PIX_FMT_GREY, GST_VIDEO_FORMAT_GRAY8},  {V4L2_PIX_FMT_XBGR32, GST_VIDEO_FORMAT_BGRx},
};

constexpr uint32_t kType = V4L2_BUF_TYPE_VIDEO_CAPTURE;
constexpr size_t kReserve = 2;  // buffers that the device needs to go on capturing

// Goes with a frame through the pipeline.
struct Ticket {
    std::shared_ptr<CaptureQueue> queue;
    uint32_t index;
};

}  // namespace

static int Control(const CaptureQueue& queue, unsigned long request, void* argument) {
    int result;
    do {
        result = ioctl(queue.descriptor, request, argument);
    } while (result < 0 && errno == EINTR);
    return result < 0 ? -errno : 0;
}

static void Unmap(CaptureQueue& queue) {
    for (const CaptureBuffer& buffer : queue.buffers) munmap(buffer.start, buffer.length);
    queue.buffers.clear();
}

CaptureQueue::~CaptureQueue() {
    EndCapture(*this);
    Unmap(*this);
}

int OpenCapture(CaptureQueue& queue, const char* path) {
    queue.descriptor = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (queue.descriptor < 0) return -errno;
    v4l2_capability capability{};
    if (const int error = Control(queue, VIDIOC_QUERYCAP, &capability)) return error;
    const uint32_t able =
        capability.capabilities & V4L2_CAP_DEVICE_CAPS ? capability.device_caps : capability.capabilities;
    constexpr uint32_t kNeeded = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    return (able & kNeeded) == kNeeded ? 0 : -ENODEV;
}

// --- formats ---

static const FormatRow* FindFormat(uint32_t fourcc) {
    for (const FormatRow& row : kFormats)
        if (row.fourcc == fourcc) return &row;
    return nullptr;
}

// Without it, a picture of HD size would count as BT.709.
static const char* Colorimetry(const v4l2_pix_format& format) {
    switch (format.colorspace) {
        case V4L2_COLORSPACE_REC709:
            return GST_VIDEO_COLORIMETRY_BT709;
        case V4L2_COLORSPACE_BT2020:
            return GST_VIDEO_COLORIMETRY_BT2020;
        default:
            return GST_VIDEO_COLORIMETRY_BT601;
    }
}

static v4l2_format PresentFormat(const CaptureQueue& queue) {
    v4l2_format format{};
    format.type = kType;
    if (Control(queue, VIDIOC_G_FMT, &format) != 0) format.fmt.pix = {};
    return format;
}

static void SetRange(GstStructure* structure, const char* field, uint32_t minimum, uint32_t maximum) {
    if (minimum == maximum)
        gst_structure_set(structure, field, G_TYPE_INT, static_cast<int>(minimum), nullptr);
    else
        gst_structure_set(structure, field, GST_TYPE_INT_RANGE, static_cast<int>(minimum), static_cast<int>(maximum),
                          nullptr);
}

static GstStructure* MakeStructure(const FormatRow& row, const char* colorimetry, const v4l2_frmsize_stepwise& size) {
    GstStructure* const structure =
        gst_structure_new("video/x-raw", "format", G_TYPE_STRING, gst_video_format_to_string(row.format), "framerate",
                          GST_TYPE_FRACTION_RANGE, 0, 1, G_MAXINT, 1, nullptr);
    SetRange(structure, "width", size.min_width, size.max_width);
    SetRange(structure, "height", size.min_height, size.max_height);
    if (GST_VIDEO_FORMAT_INFO_IS_YUV(gst_video_format_get_info(row.format)))
        gst_structure_set(structure, "colorimetry", G_TYPE_STRING, colorimetry, nullptr);
    return structure;
}

static void AppendSizes(const CaptureQueue& queue, const FormatRow& row, const char* colorimetry, GstCaps* caps) {
    v4l2_frmsizeenum size{};
    size.pixel_format = row.fourcc;
    for (; Control(queue, VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
        v4l2_frmsize_stepwise range = size.stepwise;
        if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE)
            range = {size.discrete.width, size.discrete.width, 1, size.discrete.height, size.discrete.height, 1};
        gst_caps_append_structure(caps, MakeStructure(row, colorimetry, range));
        if (size.type != V4L2_FRMSIZE_TYPE_DISCRETE) return;
    }
    if (size.index == 0) gst_caps_append_structure(caps, MakeStructure(row, colorimetry, {1, 4096, 1, 1, 4096, 1}));
}

static GstCaps* PresentCaps(const CaptureQueue& queue) {
    const v4l2_pix_format now = PresentFormat(queue).fmt.pix;
    const FormatRow* const row = FindFormat(now.pixelformat);
    if (!row || now.width == 0) return gst_caps_new_empty();
    GstStructure* const structure =
        MakeStructure(*row, Colorimetry(now), {now.width, now.width, 1, now.height, now.height, 1});
    v4l2_streamparm parameter{};
    parameter.type = kType;
    const v4l2_fract& interval = parameter.parm.capture.timeperframe;
    if (Control(queue, VIDIOC_G_PARM, &parameter) == 0 && interval.numerator && interval.denominator)
        gst_structure_set(structure, "framerate", GST_TYPE_FRACTION, static_cast<int>(interval.denominator),
                          static_cast<int>(interval.numerator), nullptr);
    return gst_caps_new_full(structure, nullptr);
}

GstCaps* CaptureCaps(const CaptureQueue& queue, bool present) {
    if (present) return PresentCaps(queue);
    const char* const colorimetry = Colorimetry(PresentFormat(queue).fmt.pix);
    GstCaps* const caps = gst_caps_new_empty();
    v4l2_fmtdesc description{};
    for (description.type = kType; Control(queue, VIDIOC_ENUM_FMT, &description) == 0; ++description.index)
        if (const FormatRow* row = FindFormat(description.pixelformat)) AppendSizes(queue, *row, colorimetry, caps);
    return caps;
}

// --- streaming ---

static int SetFormat(const CaptureQueue& queue, FrameFormat& format) {
    v4l2_format wanted{};
    wanted.type = kType;
    wanted.fmt.pix.width = static_cast<uint32_t>(format.info.width);
    wanted.fmt.pix.height = static_cast<uint32_t>(format.info.height);
    wanted.fmt.pix.field = V4L2_FIELD_NONE;
    for (const FormatRow& row : kFormats)
        if (row.format == GST_VIDEO_INFO_FORMAT(&format.info)) wanted.fmt.pix.pixelformat = row.fourcc;
    v4l2_format set = wanted;
    if (const int error = Control(queue, VIDIOC_S_FMT, &set)) return error;
    const v4l2_pix_format &got = set.fmt.pix, &asked = wanted.fmt.pix;
    if (got.width != asked.width || got.height != asked.height || got.pixelformat != asked.pixelformat) return -EINVAL;
    format.bytes = got.sizeimage;
    format.stride = got.bytesperline;
    return 0;
}

static int MapBuffer(CaptureQueue& queue, uint32_t index) {
    v4l2_buffer buffer{};
    buffer.type = kType;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    if (const int error = Control(queue, VIDIOC_QUERYBUF, &buffer)) return error;
    void* const start =
        mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, queue.descriptor, buffer.m.offset);
    if (start == MAP_FAILED) return -errno;
    queue.buffers.push_back({static_cast<uint8_t*>(start), buffer.length, false});
    return 0;
}

static int Queue(CaptureQueue& queue, uint32_t index) {
    v4l2_buffer buffer{};
    buffer.type = kType;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    const int error = Control(queue, VIDIOC_QBUF, &buffer);
    if (error == 0) ++queue.queued;
    return error;
}

int StartCapture(CaptureQueue& queue, FrameFormat& format, unsigned bufferCount) {
    if (const int error = SetFormat(queue, format)) return error;
    v4l2_requestbuffers request{};
    request.count = bufferCount;
    request.type = kType;
    request.memory = V4L2_MEMORY_MMAP;
    if (const int error = Control(queue, VIDIOC_REQBUFS, &request)) return error;
    const std::lock_guard guard(queue.lock);
    for (uint32_t index = 0; index < request.count; ++index) {
        if (const int error = MapBuffer(queue, index)) return error;
        if (const int error = Queue(queue, index)) return error;
    }
    int type = kType;
    const int error = Control(queue, VIDIOC_STREAMON, &type);
    queue.streaming = error == 0;
    return error;
}

// The last user of a frame is done with it.
static void GiveBack(gpointer data) {
    const std::unique_ptr<Ticket> ticket(static_cast<Ticket*>(data));
    CaptureQueue& queue = *ticket->queue;
    const std::lock_guard guard(queue.lock);
    queue.buffers[ticket->index].out = false;
    if (queue.streaming) Queue(queue, ticket->index);  // fails when the device is gone: the reader hears of that
}

static GstBuffer* WrapFrame(const std::shared_ptr<CaptureQueue>& queue, uint32_t index, const FrameFormat& format) {
    CaptureBuffer& buffer = queue->buffers[index];
    if (queue->queued < kReserve) {
        GstBuffer* const copy = gst_buffer_new_memdup(buffer.start, format.bytes);
        Queue(*queue, index);
        return copy;
    }
    buffer.out = true;
    return gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, buffer.start, buffer.length, 0, format.bytes,
                                       new Ticket{queue, index}, GiveBack);
}

// Rows of the device may be longer than those of the pipeline.
static void DescribeRows(GstBuffer* frame, const FrameFormat& format) {
    const GstVideoInfo& info = format.info;
    if (GST_VIDEO_INFO_N_PLANES(&info) != 1 || format.stride == static_cast<size_t>(info.stride[0])) return;
    gsize offsets[GST_VIDEO_MAX_PLANES] = {};
    gint strides[GST_VIDEO_MAX_PLANES] = {static_cast<gint>(format.stride)};
    gst_buffer_add_video_meta_full(frame, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_INFO_FORMAT(&info),
                                   static_cast<guint>(info.width), static_cast<guint>(info.height), 1, offsets,
                                   strides);
}

int TakeFrame(const std::shared_ptr<CaptureQueue>& queue, const FrameFormat& format, GstBuffer*& frame) {
    v4l2_buffer buffer{};
    buffer.type = kType;
    buffer.memory = V4L2_MEMORY_MMAP;
    const int error = Control(*queue, VIDIOC_DQBUF, &buffer);
    if (error == -EIO) return -EAGAIN;  // one frame lost on its way, the next may come
    if (error) return error;
    const std::lock_guard guard(queue->lock);
    --queue->queued;
    if (buffer.index >= queue->buffers.size() || format.bytes > queue->buffers[buffer.index].length) return -EINVAL;
    if (buffer.flags & V4L2_BUF_FLAG_ERROR || buffer.bytesused < format.bytes) {
        const int queueError = Queue(*queue, buffer.index);
        return queueError ? queueError : -EAGAIN;
    }
    frame = WrapFrame(queue, buffer.index, format);
    DescribeRows(frame, format);
    GST_BUFFER_PTS(frame) = GST_TIMEVAL_TO_TIME(buffer.timestamp);
    GST_BUFFER_OFFSET(frame) = buffer.sequence;
    return 0;
}

// The same addresses, no longer the device's memory: it may take its pages back.
static void Detach(const CaptureBuffer& buffer) {
    void* const copy = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (copy == MAP_FAILED) return;
    std::memcpy(copy, buffer.start, buffer.length);
    if (mremap(copy, buffer.length, buffer.length, MREMAP_MAYMOVE | MREMAP_FIXED, buffer.start) == MAP_FAILED)
        munmap(copy, buffer.length);
}

void EndCapture(CaptureQueue& queue) {
    if (queue.descriptor < 0) return;
    const std::lock_guard guard(queue.lock);
    queue.streaming = false;
    queue.queued = 0;
    int type = kType;
    Control(queue, VIDIOC_STREAMOFF, &type);
    bool anyOut = false;
    for (CaptureBuffer& buffer : queue.buffers) {
        if (buffer.out) Detach(buffer);
        anyOut |= buffer.out;
    }
    if (!anyOut) Unmap(queue);
    v4l2_requestbuffers none{};
    none.type = kType;
    none.memory = V4L2_MEMORY_MMAP;
    Control(queue, VIDIOC_REQBUFS, &none);
    close(queue.descriptor);
    queue.descriptor = -1;
}
