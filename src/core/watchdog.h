// The hardware watchdog /dev/watchdog, 30 s. Start-up configures it, the UART thread keeps it open and pats it; only
// Terminate (health.h) disarms it, so that every other end of the process lets the board reset. The marker file
// /home/root/Tesselvisor.NoWatchdog (NoWatchdog) and the variable WATCHDOG_TEST keep it out of the way.
// Device errors are written to standard error only.
#pragma once

inline constexpr const char* kWatchdogPath = "/dev/watchdog";

// Sets the time-out once in start-up. Returns 0, or ends the process with status 1 when the device is missing or
// refuses.
int WatchdogSetup();

// Opens the watchdog and pats it once. Negative on failure.
int WatchdogStart();

int WatchdogOpen(const char* path);   // descriptor, -1 on failure or when already open
int WatchdogPat();                    // result of the keep-alive request, -1 when not open
int WatchdogClose(const char* path);  // disarms; result of the close, -1 when not open

bool WatchdogTest();  // WATCHDOG_TEST is set: no configuring, no later pats, no close
