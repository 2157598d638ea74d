// The diagnostic log: one text file for support, made while it is downloaded. It gathers the status report, what is on
// USB, the cameras' formats, the kernel's log and the daemon's own from the system's tools, line by line, so that its
// size costs no memory. Runs on the thread of its client and blocks until the last tool has ended.
#pragma once

#include <cstdint>

int SendDiagnosticLog(const int32_t*);  // GETLOG: 0, or 1 when the client did not take the header
