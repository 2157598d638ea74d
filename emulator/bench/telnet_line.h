// The verb `telnet`: a client of the board's command port, from inside its own network. Supervisor's thread; nothing
// blocks.
#pragma once

#include "bench/control.h"

VerbAnswer TelnetVerb(const VerbWords& words);  // telnet TEXT: sends it, answers with what comes back within a second
