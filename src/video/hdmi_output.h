// The display output: which mode is programmed, how a monitor's EDID chooses it, what is programmed now. Both
// framebuffers get the same timing. Runs shell tools: calls block for some tens of milliseconds. Start-up, the video
// thread and the command threads call it, one at a time: the command waits until the video thread has let go of its
// pipeline.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

struct OutputTimingRow {
    uint8_t index;
    const char* label;
    uint16_t xres, yres, refresh;  // pixels, Hz
    uint16_t vxres, vyres, bpp;
    uint16_t pixclock;  // picoseconds
    uint16_t left, right, upper, lower, hsync, vsync;
};
inline constexpr uint8_t kOutputTimings = 6;
extern const std::array<OutputTimingRow, kOutputTimings> OutputTimingTable;

struct OutputMode {
    unsigned width, height, refresh;
    bool operator==(const OutputMode&) const = default;
};

// Applies table row `index` (0: the monitor decides) and stores the choice. Not from a command, a missing 60 Hz strap
// forces 1920x1080 at 50 Hz instead; the stored choice is `index` all the same, for the day the strap is set. 0, or 1
// for an index above 5, or the programming's status.
int SetHdmiOutput(uint8_t index, int fromCommand);

int ApplyOutputTiming(uint8_t index);  // status of the last shell command
int ReadMonitorEdid();                 // 0 when the monitor's preferred timing is in the table and was applied

// The programmed mode, also into Settings. 0 (nothing changed when the tool says nothing), 1 when it could not be run
// or its answer is no mode.
int GetHDMIOutput(OutputMode& mode);

int ReadFramebufferInfo(unsigned& xres, unsigned& yres);  // 0, or 1 after a logged error

int SetBlank(uint8_t value);  // 0; non-zero waits 500 ms for the picture to go black first

// The decisions behind the above, pure.
uint8_t PermittedTiming(uint8_t index, bool allow60);  // the row that may be programmed when `index` is asked for
uint8_t FindOutputTiming(unsigned width, unsigned height, double refresh);  // kOutputTimings: no such row
std::optional<OutputMode> ParseModeLine(const char* line);                  // mode "1920x1080-60"
