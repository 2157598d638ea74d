// The hardware watchdog, /dev/watchdog. Opening arms it; it stays armed after a close unless the last thing written was
// the magic 'V'. When nobody pats it within the time-out the board resets. Supervisor's thread only; nothing blocks.
#pragma once

struct WatchdogState {
    bool armed = false;
    double timeLeft = 0;    // seconds until the reset; 0 when not armed
    double longestGap = 0;  // seconds between two pats, the longest since power-on; the one that still lasts counts
};

WatchdogState WatchdogNow();

// Disarmed, with the time-out of 60 s that the hardware wakes up with.
void PowerOnWatchdog();
void PowerOffWatchdog();
