// Formats, sizes and rates.
#include <cmath>
#include <limits>

#include "capture/v4l2_device.h"

static constexpr v4l2_fract kUsualInterval = {1, 30};
static constexpr uint32_t kLeastSide = 16, kMostSide = 4096;  // where a format names no sizes

static const CaptureFormat* FormatOf(const CaptureDevice& device, uint32_t fourcc) {
    const auto format = std::ranges::find(device.traits.formats, fourcc, &CaptureFormat::fourcc);
    return format == device.traits.formats.end() ? nullptr : &*format;
}

static bool Contains(const CaptureSize& size, uint32_t width, uint32_t height) {
    const v4l2_frmsize_stepwise& range = size.range;
    return width >= range.min_width && width <= range.max_width && height >= range.min_height &&
           height <= range.max_height;
}

static const CaptureSize* SizeOf(const CaptureFormat& format, uint32_t width, uint32_t height) {
    for (const CaptureSize& size : format.sizes) {
        if (Contains(size, width, height)) return &size;
    }
    return nullptr;
}

// ---- Enumeration

static bool IsCapture(uint32_t type) { return type == V4L2_BUF_TYPE_VIDEO_CAPTURE; }

int EnumFormat(const CaptureCall& call, v4l2_fmtdesc& description) {
    const auto& formats = call.device.traits.formats;
    if (!IsCapture(description.type) || description.index >= formats.size()) return -EINVAL;
    const CaptureFormat& format = formats[description.index];
    description = {.index = description.index, .type = description.type};
    CopyText(description.description, sizeof description.description, format.description);
    description.pixelformat = format.fourcc;
    if (FrameRowBytes(format.fourcc, 2) == 0) description.flags = V4L2_FMT_FLAG_COMPRESSED;
    return 0;
}

int EnumFrameSizes(const CaptureCall& call, v4l2_frmsizeenum& answer) {
    const CaptureFormat* format = FormatOf(call.device, answer.pixel_format);
    if (format == nullptr || format->sizes.empty()) return -EINVAL;
    const size_t last = format->sizes.size() - 1;
    if (answer.index > last + format->repeats) return -EINVAL;
    const CaptureSize& size = format->sizes[std::min<size_t>(answer.index, last)];
    answer = {.index = answer.index, .pixel_format = answer.pixel_format, .type = size.type};
    if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
        answer.discrete = {.width = size.range.max_width, .height = size.range.max_height};
    } else {
        answer.stepwise = size.range;
    }
    return 0;
}

int EnumFrameIntervals(const CaptureCall& call, v4l2_frmivalenum& answer) {
    const CaptureFormat* format = FormatOf(call.device, answer.pixel_format);
    const CaptureSize* size = format == nullptr ? nullptr : SizeOf(*format, answer.width, answer.height);
    if (size == nullptr) return -EINVAL;
    const bool discrete = size->intervalType == V4L2_FRMIVAL_TYPE_DISCRETE;
    if (answer.index >= (discrete ? size->intervals.size() : 1)) return -EINVAL;
    answer = {.index = answer.index,
              .pixel_format = answer.pixel_format,
              .width = answer.width,
              .height = answer.height,
              .type = size->intervalType};
    if (discrete) {
        answer.discrete = size->intervals[answer.index];
    } else {
        answer.stepwise = {.min = size->intervals[0], .max = size->intervals[1], .step = size->intervals[2]};
    }
    return 0;
}

// ---- Choice

struct Extent {
    uint32_t width, height;
};

static uint32_t FitSide(uint32_t wanted, uint32_t least, uint32_t most, uint32_t step) {
    const uint32_t side = std::clamp(wanted, std::min(least, most), most);
    return step > 1 ? least + (side - least) / step * step : side;
}

static Extent FitInto(const CaptureSize& size, Extent wanted) {
    const v4l2_frmsize_stepwise& range = size.range;
    return {.width = FitSide(wanted.width, range.min_width, range.max_width, range.step_width),
            .height = FitSide(wanted.height, range.min_height, range.max_height, range.step_height)};
}

// Area that is in one of the two and not in both, as the camera driver judges nearness.
static double Unlike(Extent one, Extent other) {
    const double common = static_cast<double>(std::min(one.width, other.width)) * std::min(one.height, other.height);
    return static_cast<double>(one.width) * one.height + static_cast<double>(other.width) * other.height - 2 * common;
}

static Extent FitExtent(const CaptureFormat& format, Extent wanted) {
    if (format.sizes.empty())
        return {std::clamp(wanted.width, kLeastSide, kMostSide), std::clamp(wanted.height, kLeastSide, kMostSide)};
    Extent best = FitInto(format.sizes.front(), wanted);
    for (const CaptureSize& size : format.sizes) {
        const Extent fit = FitInto(size, wanted);
        if (Unlike(fit, wanted) < Unlike(best, wanted)) best = fit;
    }
    return best;
}

static v4l2_pix_format FitFormat(const CaptureDevice& device, const v4l2_pix_format& wanted) {
    if (device.traits.formats.empty()) return {};
    const CaptureFormat* known = FormatOf(device, wanted.pixelformat);
    const CaptureFormat& format = known == nullptr ? device.traits.formats.front() : *known;
    const Extent extent = FitExtent(format, {wanted.width, wanted.height});
    const double bytes = 2.0 * extent.width * extent.height;
    const bool bounded = bytes <= kFrameBytesLimit;
    return {.width = extent.width,
            .height = extent.height,
            .pixelformat = format.fourcc,
            .field = V4L2_FIELD_NONE,
            .bytesperline = static_cast<uint32_t>(FrameRowBytes(format.fourcc, extent.width)),
            .sizeimage = bounded ? static_cast<uint32_t>(FrameBufferBytes(format.fourcc, extent.width, extent.height))
                                 : std::numeric_limits<uint32_t>::max(),
            .colorspace = device.traits.colorspace,
            .priv = V4L2_PIX_FMT_PRIV_MAGIC};
}

static double Seconds(const v4l2_fract& interval) {
    return interval.denominator == 0 ? HUGE_VAL : static_cast<double>(interval.numerator) / interval.denominator;
}

static v4l2_fract FitInterval(const CaptureDevice& device, const v4l2_pix_format& format, const v4l2_fract& wanted) {
    const CaptureFormat* known = FormatOf(device, format.pixelformat);
    const CaptureSize* size = known == nullptr ? nullptr : SizeOf(*known, format.width, format.height);
    if (size == nullptr || size->intervals.empty()) return kUsualInterval;
    const v4l2_fract first = size->intervals.front();
    const bool unset = wanted.numerator == 0 || wanted.denominator == 0;
    if (size->intervalType != V4L2_FRMIVAL_TYPE_DISCRETE) {
        if (unset || Seconds(wanted) < Seconds(first)) return first;
        return Seconds(wanted) > Seconds(size->intervals[1]) ? size->intervals[1] : wanted;
    }
    if (unset) return first;
    return *std::ranges::min_element(
        size->intervals, {}, [&](const v4l2_fract& interval) { return std::abs(Seconds(interval) - Seconds(wanted)); });
}

void ChooseDefaultFormat(CaptureDevice& device) {
    v4l2_pix_format wanted{};
    if (!device.traits.formats.empty() && !device.traits.formats.front().sizes.empty()) {
        const v4l2_frmsize_stepwise& range = device.traits.formats.front().sizes.front().range;
        wanted.width = range.max_width;
        wanted.height = range.max_height;
    }
    device.format = FitFormat(device, wanted);
    device.interval = FitInterval(device, device.format, {0, 0});
}

// ---- Get and set

int GetFormat(const CaptureCall& call, v4l2_format& format) {
    if (!IsCapture(format.type)) return -EINVAL;
    format = {.type = format.type, .fmt = {.pix = call.device.format}};
    return 0;
}

int TryFormat(const CaptureCall& call, v4l2_format& format) {
    if (!IsCapture(format.type)) return -EINVAL;
    format = {.type = format.type, .fmt = {.pix = FitFormat(call.device, format.fmt.pix)}};
    return 0;
}

int SetFormat(const CaptureCall& call, v4l2_format& format) {
    if (const int result = TryFormat(call, format); result != 0) return result;
    if (!call.device.slots.empty()) return -EBUSY;
    call.device.format = format.fmt.pix;
    call.device.interval = FitInterval(call.device, call.device.format, {0, 0});
    Trace("ioctl", {{"node", call.device.path},
                    {"request", "VIDIOC_S_FMT"},
                    {"format", FourccText(call.device.format.pixelformat)},
                    {"width", call.device.format.width},
                    {"height", call.device.format.height}});
    return 0;
}

int GetParameters(const CaptureCall& call, v4l2_streamparm& parameters) {
    if (!IsCapture(parameters.type)) return -EINVAL;
    parameters = {.type = parameters.type,
                  .parm = {.capture = {.capability = V4L2_CAP_TIMEPERFRAME, .timeperframe = call.device.interval}}};
    return 0;
}

int SetParameters(const CaptureCall& call, v4l2_streamparm& parameters) {
    if (!IsCapture(parameters.type)) return -EINVAL;
    if (call.device.streaming) return -EBUSY;
    call.device.interval = FitInterval(call.device, call.device.format, parameters.parm.capture.timeperframe);
    Trace("ioctl", {{"node", call.device.path},
                    {"request", "VIDIOC_S_PARM"},
                    {"numerator", call.device.interval.numerator},
                    {"denominator", call.device.interval.denominator}});
    return GetParameters(call, parameters);
}
