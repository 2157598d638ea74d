// The filter that makes a process of the board ask the supervisor about its device calls.
#pragma once

// Installs it in the calling thread and all that it will start. Returns the listener, on which the calls arrive, or
// -errno. With `wholeStat`, calls that read a file's status are trapped too: without root's rights the board's nodes
// cannot carry their device numbers, so the supervisor has to fill them in.
int InstallFilter(bool wholeStat);

// The listener is answered by a thread that sleeps for it: lets the kernel hand over the processor directly where it
// can.
void PreferQuickWake(int listener);
