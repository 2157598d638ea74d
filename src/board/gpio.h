// The board's discrete signals, through the kernel's sysfs GPIO files. Callable from any thread; each operation opens,
// uses and closes its file. A line that does not exist is silently ignored: a missing LED must never stop the
// appliance.
#pragma once

#include <cstdint>

// Lines that other rooms drive or read by name; the whole board is in SetUpBoardGpio's table.
inline constexpr int kGpioReceiverReset = 41;         // low: the HDMI receiver is held in reset
inline constexpr int kGpioReceiverReady[] = {43, 2};  // both high once the receiver is set up
inline constexpr int kGpioAllow60 = 155;              // strap, high: 60 Hz output allowed

void GpioExport(int gpio, bool isOutput);
void GpioWrite(int gpio, uint8_t value);

// value: 0 when the line reads '0', 1 for any other character. A line that cannot be read leaves value as it was.
void GpioRead(int gpio, uint8_t& value);

// Exports the board's lines in the order of its table. 0. Main thread, after TopBoard is known.
int SetUpBoardGpio();

// The HDMI port 0 indicator moved on boards with the extension board.
int HdmiPort0Indicator();
