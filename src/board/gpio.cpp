#include "board/gpio.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string_view>

#include "settings/device_identity.h"

struct GpioLine {
    int gpio;
    bool isOutput;
};

static constexpr int kHdmiPort0 = 83;
static constexpr int kHdmiPort0WithTopBoard = 105;

// Exported in this order. The input buttons are exported as outputs because they carry an LED; their level is read all
// the same.
static constexpr GpioLine kBoardLines[] = {
    {.gpio = kGpioStatusLed, .isOutput = true},           {.gpio = kGpioCameraIndicators[0], .isOutput = true},
    {.gpio = kGpioCameraIndicators[1], .isOutput = true}, {.gpio = kHdmiPort0, .isOutput = true},
    {.gpio = kGpioHdmiPort1Indicator, .isOutput = true},  {.gpio = kGpioAudioJack, .isOutput = false},
    {.gpio = kGpioReceiverReset, .isOutput = true},       {.gpio = kGpioReceiverReady[0], .isOutput = true},
    {.gpio = kGpioReceiverReady[1], .isOutput = true},    {.gpio = kGpioAllow60, .isOutput = false},
    {.gpio = kGpioInputButtons[3], .isOutput = true},     {.gpio = kGpioInputButtons[2], .isOutput = true},
    {.gpio = kGpioInputButtons[1], .isOutput = true},     {.gpio = kGpioInputButtons[0], .isOutput = true},
};

using GpioPath = char[48];

static void LinePath(GpioPath& path, int gpio, const char* file) {
    snprintf(path, sizeof path, "/sys/class/gpio/gpio%d/%s", gpio, file);
}

static void WriteFile(const char* path, std::string_view text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) return;
    [[maybe_unused]] const auto written = write(file, text.data(), text.size());
    close(file);
}

void GpioExport(int gpio, bool isOutput) {
    char number[12];
    const int length = snprintf(number, sizeof number, "%d", gpio);
    WriteFile("/sys/class/gpio/export", {number, static_cast<size_t>(length)});
    GpioSetDirection(gpio, isOutput);
}

void GpioSetDirection(int gpio, bool isOutput) {
    GpioPath path;
    LinePath(path, gpio, "direction");
    WriteFile(path, isOutput ? "out" : "in");
}

void GpioWrite(int gpio, uint8_t value) {
    GpioPath path;
    LinePath(path, gpio, "value");
    WriteFile(path, value ? "1" : "0");
}

void GpioRead(int gpio, uint8_t& value) {
    GpioPath path;
    LinePath(path, gpio, "value");
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return;
    char level;
    if (read(file, &level, 1) == 1) value = level == '0' ? 0 : 1;
    close(file);
}

int HdmiPort0Indicator() { return TopBoard ? kHdmiPort0WithTopBoard : kHdmiPort0; }

int SetUpBoardGpio() {
    for (const GpioLine& line : kBoardLines)
        GpioExport(line.gpio == kHdmiPort0 ? HdmiPort0Indicator() : line.gpio, line.isOutput);
    return 0;
}
