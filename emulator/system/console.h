// The daemon's console: its standard input comes from the emulator's, and from the verb `console`; its output and
// errors go to the emulator's, in order and at once. Where nobody reads the emulator's output, the daemon comes to
// wait, as on a terminal that was stopped. Supervisor's thread; nothing blocks.
#pragma once

#include "bench/control.h"
#include "kernel/sandbox.h"

DaemonStreams OpenConsole();                          // for a daemon about to start
void CloseConsoleEnds(const DaemonStreams& streams);  // once it has them
void CloseConsole();                                  // after its end: first passes on the last of its output

VerbAnswer ConsoleVerb(const VerbWords& words);  // console [TEXT | --follow]
