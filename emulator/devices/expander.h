// The front panel with a 16-bit I/O expander on I2C bus 2: port 0 drives its LEDs, port 1 reads its buttons.
// Supervisor's thread only; nothing blocks.
#pragma once

#include "bench/control.h"
#include "bench/trace.h"

void PowerOnExpander();  // answers only on a board with `--panel expander`

// {"leds": bits that are lit, "configured": whether port 0 drives them, "looks": at the buttons since power-on}
Json ExpanderLeds();

// buttons MASK [for MS]. Bits 0 to 6, 1 for a pressed button. With a time it is answered at the end of it, when what
// was held before is held again, or at the next `buttons` if that is sooner.
VerbAnswer ButtonsVerb(const VerbWords& words);

VerbAnswer ExpanderFaultVerb(const VerbWords& words);  // reset | bounce MS | off
