// The board's GPIO lines as sysfs shows them under /sys/class/gpio. Line numbers are those of the kernel. A write is
// taken in when its file is closed, as shells and the daemon do for every access. Levels are true for high.
// Supervisor's thread only; nothing blocks.
#pragma once

#include <string_view>

#include "bench/control.h"
#include "bench/trace.h"

// Lines that the emulator itself names; kGpioLines in gpio.cpp has them all.
inline constexpr int kGpioReceiverReset = 41;    // active low
inline constexpr int kGpioReceiverEnable1 = 43;  // both high: the receiver's video reaches the camera interface
inline constexpr int kGpioReceiverEnable2 = 2;
inline constexpr int kGpioAudioJack = 87;
inline constexpr int kGpioStrap60 = 155;

// The level on the wire: what an output drives, else what the outside puts there.
bool GpioLevel(int line);

// Sets what the outside drives. `by` names the cause in the trace ("jack in").
void SetGpioOutside(int line, bool level, std::string_view by);

// Has `changed` called with the new level at each edge of the line. Kept for the life of the emulator; asking again
// with the same arguments changes nothing.
void OnGpioChange(int line, void (*changed)(bool level));

// All lines unexported, the outside at rest.
void PowerOnGpio();

// Each LED by its name: 1 when its line drives it high, 0 when low, null on a line that is not in use. A line that is a
// button as well leaves its LED alone while it is an input.
Json GpioLeds();

VerbAnswer GpioVerb(const VerbWords& words);        // gpio
VerbAnswer GpioButtonVerb(const VerbWords& words);  // gpio-button N press|release, N from 1 to 4
VerbAnswer JackVerb(const VerbWords& words);        // jack in|out
VerbAnswer Strap60Verb(const VerbWords& words);     // strap60 on|off
