// The board's discrete signals, through the kernel's sysfs GPIO files. Callable from any thread; each operation opens,
// uses and closes its file. A line that does not exist is silently ignored: a missing LED must never stop the
// appliance.
#pragma once

#include <cstdint>

// Lines that are driven or read by name; the whole board is in SetUpBoardGpio's table.
inline constexpr int kGpioStatusLed = 7;
inline constexpr int kGpioCameraIndicators[] = {8, 9};            // high: no camera on USB input 1, 2
inline constexpr int kGpioHdmiPort1Indicator = 126;               // port 0: HdmiPort0Indicator()
inline constexpr int kGpioAudioJack = 87;                         // high: a plug is in the analog jack
inline constexpr int kGpioInputButtons[] = {104, 154, 106, 103};  // input 1..4: button (low: pressed) and LED in one
inline constexpr int kGpioReceiverReset = 41;                     // low: the HDMI receiver is held in reset
inline constexpr int kGpioReceiverReady[] = {43, 2};              // both high once the receiver is set up
inline constexpr int kGpioAllow60 = 155;                          // strap, high: 60 Hz output allowed

void GpioExport(int gpio, bool isOutput);
void GpioSetDirection(int gpio, bool isOutput);  // of an exported line; a new output starts low
void GpioWrite(int gpio, uint8_t value);

// value: 0 when the line reads '0', 1 for any other character. A line that cannot be read leaves value as it was.
void GpioRead(int gpio, uint8_t& value);

// Exports the board's lines in the order of its table. 0. Main thread, after TopBoard is known.
int SetUpBoardGpio();

// The HDMI port 0 indicator moved on boards with the extension board.
int HdmiPort0Indicator();
