// The ordered start: board preparation, upgrade check, identity, settings, devices, threads, main loop. The order is
// part of the product: later steps rely on what earlier ones left. Main thread only.
#pragma once

// Never returns in normal operation; the result is the process's exit status otherwise.
int RunTesselvisor(int argumentCount, char** arguments);
