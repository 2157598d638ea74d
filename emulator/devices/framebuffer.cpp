#include "devices/framebuffer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "bench/trace.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "text.h"

static constexpr unsigned kMajor = 29;
static constexpr uint32_t kMostVisible = 4096, kMostVirtual = 8192;  // pixels, either way

struct FrameBufferState {
    int unit;
    const char* id;  // of the display controller's channel
    fb_var_screeninfo timing;
};

static constexpr fb_var_screeninfo kPowerOnTiming{
    .xres = 1920,
    .yres = 1080,
    .xres_virtual = 1920,
    .yres_virtual = 1080,
    .xoffset = 0,
    .yoffset = 0,
    .bits_per_pixel = 32,
    .grayscale = 0,
    .red = {.offset = 16, .length = 8, .msb_right = 0},
    .green = {.offset = 8, .length = 8, .msb_right = 0},
    .blue = {.offset = 0, .length = 8, .msb_right = 0},
    .transp = {.offset = 24, .length = 8, .msb_right = 0},
    .nonstd = 0,
    .activate = FB_ACTIVATE_NOW,
    .height = 0,
    .width = 0,
    .accel_flags = 0,
    .pixclock = 6734,
    .left_margin = 148,
    .right_margin = 88,
    .upper_margin = 36,
    .lower_margin = 4,
    .hsync_len = 44,
    .vsync_len = 5,
    .sync = 0,
    .vmode = FB_VMODE_NONINTERLACED,
    .rotate = 0,
    .colorspace = 0,
    .reserved = {},
};

static FrameBufferState frameBuffers[] = {
    {.unit = 0, .id = "DISP3 BG", .timing = kPowerOnTiming},
    {.unit = 2, .id = "DISP4 BG", .timing = kPowerOnTiming},
};

static fb_var_screeninfo panelTiming;
static bool panelIsFixed;

const fb_var_screeninfo& DisplayTiming() { return frameBuffers[0].timing; }

static double Refresh(const fb_var_screeninfo& timing) {
    const double line = timing.xres + timing.left_margin + timing.right_margin + timing.hsync_len;
    const double lines = timing.yres + timing.upper_margin + timing.lower_margin + timing.vsync_len;
    return timing.pixclock == 0 ? 0 : 1e12 / (timing.pixclock * line * lines);
}

// What the driver makes of a request: a depth that it has, memory for at least the visible part, and for a fixed panel
// that panel's timing.
static fb_var_screeninfo CheckedTiming(fb_var_screeninfo wanted) {
    const uint32_t activate = wanted.activate;
    if (panelIsFixed) wanted = panelTiming;
    wanted.activate = activate;
    wanted.bits_per_pixel = 32;
    wanted.red = kPowerOnTiming.red;
    wanted.green = kPowerOnTiming.green;
    wanted.blue = kPowerOnTiming.blue;
    wanted.transp = kPowerOnTiming.transp;
    wanted.xres_virtual = std::max(wanted.xres_virtual, wanted.xres);
    wanted.yres_virtual = std::max(wanted.yres_virtual, wanted.yres);
    return wanted;
}

static void Program(FrameBufferState& frameBuffer, const fb_var_screeninfo& timing) {
    if (std::memcmp(&frameBuffer.timing, &timing, sizeof timing) == 0) return;
    frameBuffer.timing = timing;
    Trace("framebuffer", {{"node", Text("fb%d", frameBuffer.unit)},
                          {"width", timing.xres},
                          {"height", timing.yres},
                          {"refresh", std::round(Refresh(timing) * 100) / 100}});
}

void SetFixedPanel(const fb_var_screeninfo* mode) {
    panelIsFixed = mode != nullptr;
    if (!panelIsFixed) return;
    panelTiming = *mode;
    for (FrameBufferState& frameBuffer : frameBuffers) Program(frameBuffer, CheckedTiming(panelTiming));
}

static uint32_t LineBytes(const fb_var_screeninfo& timing) { return timing.xres_virtual * timing.bits_per_pixel / 8; }

static int GetFixed(const IoctlCall& call, const FrameBufferState& frameBuffer) {
    fb_fix_screeninfo fixed{};
    std::snprintf(fixed.id, sizeof fixed.id, "%s", frameBuffer.id);
    fixed.line_length = LineBytes(frameBuffer.timing);
    fixed.smem_len = fixed.line_length * frameBuffer.timing.yres_virtual;
    fixed.type = FB_TYPE_PACKED_PIXELS;
    fixed.visual = FB_VISUAL_TRUECOLOR;
    fixed.xpanstep = 1;
    fixed.ypanstep = 1;
    return call.memory.Write(call.argument, fixed) ? 0 : -EFAULT;
}

static int PutTiming(const IoctlCall& call, FrameBufferState& frameBuffer) {
    fb_var_screeninfo wanted{};
    if (!call.memory.Read(call.argument, wanted)) return -EFAULT;
    if (wanted.xres == 0 || wanted.xres > kMostVisible || wanted.xres_virtual > kMostVirtual) return -EINVAL;
    if (wanted.yres == 0 || wanted.yres > kMostVisible || wanted.yres_virtual > kMostVirtual) return -EINVAL;
    wanted = CheckedTiming(wanted);
    if ((wanted.activate & FB_ACTIVATE_MASK) != FB_ACTIVATE_TEST) Program(frameBuffer, wanted);
    return call.memory.Write(call.argument, wanted) ? 0 : -EFAULT;
}

static int PanDisplay(const IoctlCall& call, FrameBufferState& frameBuffer) {
    fb_var_screeninfo wanted{};
    if (!call.memory.Read(call.argument, wanted)) return -EFAULT;
    fb_var_screeninfo& now = frameBuffer.timing;
    if (wanted.xoffset > now.xres_virtual - now.xres || wanted.yoffset > now.yres_virtual - now.yres) return -EINVAL;
    now.xoffset = wanted.xoffset;
    now.yoffset = wanted.yoffset;
    return call.memory.Write(call.argument, now) ? 0 : -EFAULT;
}

static std::string BlankPath(int unit) { return Text("/sys/class/graphics/fb%d/blank", unit); }

static FrameBufferState& Unit(int unit) { return *std::ranges::find(frameBuffers, unit, &FrameBufferState::unit); }

static int FrameBufferIoctl(const IoctlCall& call) {
    FrameBufferState& frameBuffer = Unit(call.file.unit);
    switch (call.request) {
        case FBIOGET_FSCREENINFO:
            return GetFixed(call, frameBuffer);
        case FBIOGET_VSCREENINFO:
            return call.memory.Write(call.argument, frameBuffer.timing) ? 0 : -EFAULT;
        case FBIOPUT_VSCREENINFO:
            return PutTiming(call, frameBuffer);
        case FBIOPAN_DISPLAY:
            return PanDisplay(call, frameBuffer);
        case FBIOBLANK:
            WriteBoardFile(BlankPath(frameBuffer.unit), call.argument == FB_BLANK_UNBLANK ? "0\n" : "1\n");
            return 0;
        default:
            return -ENOTTY;
    }
}

// The memory can be mapped, though nobody looks at it.
static int OpenFrameBuffer(OpenFile& file) {
    const fb_var_screeninfo& timing = Unit(file.unit).timing;
    const off_t size = off_t{LineBytes(timing)} * timing.yres_virtual;
    return ftruncate(file.descriptor, size) == 0 ? 0 : -errno;
}

static const DeviceModel kFrameBufferModel{.name = "framebuffer", .open = OpenFrameBuffer, .ioctl = FrameBufferIoctl};

void PowerOnFramebuffer() {
    for (FrameBufferState& frameBuffer : frameBuffers) {
        frameBuffer.timing = CheckedTiming(kPowerOnTiming);
        const unsigned unit = static_cast<unsigned>(frameBuffer.unit);
        AddNode(Text("/dev/fb%u", unit), kFrameBufferModel, frameBuffer.unit, kMajor, unit);
        WriteBoardFile(BlankPath(frameBuffer.unit), "0\n");
    }
}
