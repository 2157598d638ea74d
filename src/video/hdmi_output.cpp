#include "video/hdmi_output.h"

#include <fcntl.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "board/gpio.h"
#include "board/i2c.h"
#include "core/log.h"
#include "core/physical_memory.h"
#include "core/shell.h"
#include "settings/device_settings.h"
#include "video/edid.h"

// clang-format off
constexpr std::array<OutputTimingRow, kOutputTimings> OutputTimingTable = {{
    {.index = 0, .label = "Auto-EDID",
     .xres = 0, .yres = 0, .refresh = 0, .vxres = 0, .vyres = 0, .bpp = 0, .pixclock = 0,
     .left = 0, .right = 0, .upper = 0, .lower = 0, .hsync = 0, .vsync = 0},
    {.index = 1, .label = "1920x1080, 60 Hz",
     .xres = 1920, .yres = 1080, .refresh = 60, .vxres = 1920, .vyres = 1080, .bpp = 32, .pixclock = 6734,
     .left = 148, .right = 88, .upper = 36, .lower = 4, .hsync = 44, .vsync = 5},
    {.index = 2, .label = "1920x1080, 50 Hz",
     .xres = 1920, .yres = 1080, .refresh = 50, .vxres = 1920, .vyres = 1080, .bpp = 32, .pixclock = 6734,
     .left = 148, .right = 528, .upper = 36, .lower = 4, .hsync = 44, .vsync = 5},
    {.index = 3, .label = "1280x720, 60 Hz",
     .xres = 1280, .yres = 720, .refresh = 60, .vxres = 1280, .vyres = 720, .bpp = 32, .pixclock = 13468,
     .left = 220, .right = 110, .upper = 20, .lower = 5, .hsync = 40, .vsync = 5},
    {.index = 4, .label = "1280x720, 50 Hz",
     .xres = 1280, .yres = 720, .refresh = 50, .vxres = 1280, .vyres = 720, .bpp = 32, .pixclock = 13468,
     .left = 220, .right = 440, .upper = 20, .lower = 5, .hsync = 40, .vsync = 5},
    {.index = 5, .label = "1920x1080, 30 Hz",
     .xres = 1920, .yres = 1080, .refresh = 30, .vxres = 1920, .vyres = 1080, .bpp = 32, .pixclock = 13468,
     .left = 148, .right = 88, .upper = 36, .lower = 4, .hsync = 44, .vsync = 5},
}};
// clang-format on

static consteval bool RowsStandAtTheirIndex() {
    for (size_t i = 0; i < OutputTimingTable.size(); ++i)
        if (OutputTimingTable[i].index != i) return false;
    return true;
}
static_assert(RowsStandAtTheirIndex());

static constexpr uint8_t kAutoEdid = 0;
static constexpr uint8_t kFallbackTiming = 1;
static constexpr uint8_t kTimingWithout60 = 2;

// Divider register of the display clock: rows 0..2 run from the fast pixel clock, rows 3..5 from half of it.
static constexpr uint32_t kDisplayClockRegister = 0x020E0008;
static constexpr uint32_t kFastDisplayClock = 693;
static constexpr uint32_t kSlowDisplayClock = 677;

static constexpr int kMonitorBus = 1;
static constexpr uint8_t kMonitorAddress = 0x50;

uint8_t PermittedTiming(uint8_t index, bool allow60) {
    if (index >= kOutputTimings) index = kFallbackTiming;
    // The row behind a 60 Hz mode is the same picture at 50 Hz.
    return !allow60 && OutputTimingTable[index].refresh == 60 ? static_cast<uint8_t>(index + 1) : index;
}

uint8_t FindOutputTiming(unsigned width, unsigned height, double refresh) {
    for (const OutputTimingRow& row : OutputTimingTable)
        if (row.xres == width && row.yres == height && row.refresh == refresh) return row.index;
    return kOutputTimings;
}

int ApplyOutputTiming(uint8_t index) {
    const OutputTimingRow& row = OutputTimingTable[PermittedTiming(index, Settings.Allow60 != 0)];
    char timing[100];
    snprintf(timing, sizeof timing, "-g %d %d %d %d %d -t %d %d %d %d %d %d %d", row.xres, row.yres, row.vxres,
             row.vyres, row.bpp, row.pixclock, row.left, row.right, row.upper, row.lower, row.hsync, row.vsync);
    RunShell("fbset -fb /dev/fb0 %s", timing);
    RunShell("fbset -fb /dev/fb2 %s -vsync low -hsync low", timing);
    const int status = RunShell("echo 0 > /sys/class/graphics/fb0/blank");
    PokePhysical(kDisplayClockRegister, row.index <= 2 ? kFastDisplayClock : kSlowDisplayClock);
    return status;
}

static void StoreMonitorVendor(EdidBytes edid) {
    const std::array<char, 3> letters = EdidVendor(edid);
    for (size_t i = 0; i < letters.size(); ++i) Settings.MonitorVendor[i] = static_cast<uint8_t>(letters[i]);
    Settings.MonitorVendor[3] = 0;
}

static void ReportDisplayDescriptor(EdidDescriptor descriptor) {
    if (descriptor[2]) LogInfo("Monitor descriptor block has byte 2 nonzero (0x%02x)\n", unsigned{descriptor[2]});
    if (descriptor[4]) LogInfo("Monitor descriptor block has byte 4 nonzero (0x%02x)\n", unsigned{descriptor[4]});
    if (descriptor[3] == 0xFB) LogInfo("Color point\n");
}

int ReadMonitorEdid() {
    std::array<uint8_t, kEdidBufferSize> edid{};
    if (I2cRead(kMonitorBus, kMonitorAddress, 0, edid.data(), edid.size()) || !HasEdidHeader(edid)) return 1;
    StoreMonitorVendor(edid);
    const auto timing = EdidPreferredTiming(edid);
    if (!timing) {
        if (IsDisplayDescriptor(FirstDescriptor(edid))) ReportDisplayDescriptor(FirstDescriptor(edid));
        return 1;
    }
    const uint8_t index = FindOutputTiming(timing->width, timing->height, timing->refresh);
    return index < kOutputTimings ? ApplyOutputTiming(index) : 1;
}

static int ApplyMonitorTiming() { return ReadMonitorEdid() == 0 ? 0 : ApplyOutputTiming(kFallbackTiming); }

int SetHdmiOutput(uint8_t index, int fromCommand) {
    if (index >= kOutputTimings) return 1;
    uint8_t allow60 = Settings.Allow60;
    GpioRead(kGpioAllow60, allow60);
    Settings.Allow60 = allow60;

    const bool only50 = !allow60 && !fromCommand;
    Settings.OutputHz = only50 ? 50 : 60;
    const int status = only50               ? ApplyOutputTiming(kTimingWithout60)
                       : index == kAutoEdid ? ApplyMonitorTiming()
                                            : ApplyOutputTiming(index);
    if (status == 0) Settings.OutputTiming = index;
    return status;
}

std::optional<OutputMode> ParseModeLine(const char* line) {
    constexpr unsigned kMost = 999'999;  // six digits hold every size there is and keep sscanf from overflowing
    const char* quoted = strchr(line, '"');
    OutputMode mode;
    if (!quoted || sscanf(quoted, "\"%6ux%6u-%6u", &mode.width, &mode.height, &mode.refresh) != 3) return std::nullopt;
    if (mode.width > kMost || mode.height > kMost || mode.refresh > kMost) return std::nullopt;  // a minus sign
    return mode;
}

int GetHDMIOutput(OutputMode& mode) {
    const ToolAnswer answer = ReadFirstLine("fbset | grep mode", "GetHDMIOutput: pclose failed");
    if (!answer.started) {
        LogInfo("Failed to run command: fbset | grep mode\n");
        return 1;
    }
    if (answer.text.empty()) return 0;
    const auto parsed = ParseModeLine(answer.text.c_str());
    if (!parsed) return 1;
    mode = *parsed;
    Settings.OutputWidth = static_cast<uint16_t>(mode.width);
    Settings.OutputHeight = static_cast<uint16_t>(mode.height);
    Settings.OutputRefresh100 = static_cast<uint16_t>(mode.refresh * 100);
    return 0;
}

static int ReadScreen(int framebuffer, fb_var_screeninfo& screen) {
    fb_fix_screeninfo fixed;
    if (ioctl(framebuffer, FBIOGET_FSCREENINFO, &fixed) < 0) {
        LogError("Error reading fixed information");
        return 1;
    }
    if (ioctl(framebuffer, FBIOGET_VSCREENINFO, &screen) < 0) {
        LogError("Error reading variable information");
        return 1;
    }
    return 0;
}

int ReadFramebufferInfo(unsigned& xres, unsigned& yres) {
    const int framebuffer = open("/dev/fb0", O_RDWR | O_CLOEXEC);
    if (framebuffer < 0) {
        LogError("Error: cannot open framebuffer device");
        return 1;
    }
    LogInfo("The framebuffer device was opened successfully.\n");
    fb_var_screeninfo screen;
    const int failed = ReadScreen(framebuffer, screen);
    close(framebuffer);
    if (failed) return 1;
    LogInfo("%dx%d, %dbpp\n", static_cast<int>(screen.xres), static_cast<int>(screen.yres),
            static_cast<int>(screen.bits_per_pixel));
    xres = screen.xres;
    yres = screen.yres;
    return 0;
}

int SetBlank(uint8_t value) {
    Settings.Blank = value;
    Settings.Black = value ? 1 : 0;
    if (value) {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the picture goes black before the screen does
        RunShell("echo 1 > /sys/class/graphics/fb0/blank");
    } else {
        RunShell("echo 0 > /sys/class/graphics/fb0/blank");
    }
    return 0;
}
