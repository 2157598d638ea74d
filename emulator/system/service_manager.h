// Keeps the daemon running, as the board's service manager does: started at boot, and again a second after its end.
// Without restarts, the daemon's end is the emulator's. Supervisor's thread; nothing blocks.
#pragma once

#include <sys/types.h>
#include <string>

#include "bench/trace.h"

void StartService();          // the walls stand
void StopService();           // power off: no more starts
bool ServiceOutlivesReset();  // false: a reset kills the daemon and with it, without restarts, the emulator ends
void EndService(int status);  // of the emulator

pid_t ServiceProcess();  // the daemon as the host numbers it; 0: it does not run
Json ServiceSummary();   // {"pid", "state", "starts", "uptime", "exit"}
Json ServiceStatus();    // the same with "descriptors", "threads", "processes": takes a millisecond
