// The board's serial lines: /dev/ttymxc2, the RS-232 control port, and /dev/ttymxc0, the line to the USB bridge. Each
// is a pseudo terminal whose slave is handed to whoever opens the node, so that stty and termios find a real line
// discipline; the bench holds the other end. Supervisor's thread only; nothing blocks.
#pragma once

#include "bench/control.h"

// Fresh lines, with the attributes that a terminal has before anybody set any.
void PowerOnSerialLines();

// serial TEXT [MS]: sends TEXT to the control port; \r \n \t \\ and \xHH stand for bytes. Answers, a second or MS
// later, with what came back meanwhile.
VerbAnswer SerialVerb(const VerbWords& words);
