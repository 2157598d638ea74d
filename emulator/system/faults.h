// Faults that the bench can put on the board's programs and its disk; those of the I2C devices are with i2c_bus.h. They
// outlast a power cycle, so that a start-up can be watched with them. Supervisor's thread; nothing blocks.
#pragma once

#include <string>

#include "bench/control.h"
#include "bench/trace.h"
#include "kernel/trapped_call.h"

// Answers an open(2) for writing below /home/root as a full disk does; false: the disk is in order for this one.
bool OpenOnFaultyDisk(const TrappedCall& call, const std::string& path, int flags);

bool IsToolAbsent(const std::string& path);  // the program must not be found
void PowerOnFaults();                        // the walls stand: puts them up again

Json FaultSummary();                           // {"disk": "off", "tools": {NAME: "hang"}}
VerbAnswer FaultVerb(const VerbWords& words);  // fault tool ... | disk ... | i2c ... | ...
