// Loopback ports of the host that lead to the board's servers, as its network cable would: HTTP and telnet.
//
// A connection is a pair of pipes, one a direction. A pipe holds what its far side did not take, and while it holds
// anything its near side is not read, so that a slow reader slows the writer and nothing piles up here. An end of
// stream is passed on as one, a reset as a reset; a client whom the board refuses is reset. When the power goes, all
// connections are reset; the ports stay.
//
// Supervisor's thread. Never blocks; one event moves at most 16 KiB a direction, so that a flood delays the board's
// device calls by microseconds.
#pragma once

#include "bench/trace.h"

bool OpenPorts();         // as Board says, and prints where they are; false, with the reason on standard error
void ClosePorts();        // harmless when they are not open
void ResetConnections();  // the board's power is gone

Json PortStatus();  // {"http": N, "telnet": N, "page": N}
