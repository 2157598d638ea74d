// The front panel's keypad controller, a microcontroller on I2C bus 2. Reading register 0 gives the report of the last
// key, which stands there until the next one: a new sequence number tells the two apart. Writing there sets the LEDs.
// Supervisor's thread only; nothing blocks.
#pragma once

#include "bench/control.h"
#include "bench/trace.h"

void PowerOnKeypad();  // answers only on a board with `--panel keypad`

Json KeypadLeds();  // {"leds": bits of the last frame, "frames": taken so far, "refused": those that were none}

// key CODE | swap | view N | repeat CODE | garbage [TYPE]. Answered when the board has fetched the report, so that keys
// pressed one after the other all arrive.
VerbAnswer KeyVerb(const VerbWords& words);
