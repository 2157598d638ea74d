// Commands over TCP port 50000: raw text, no negotiation, no login, no prompt. One read is one text: a command that
// arrives in two pieces is not recognised, several in one piece all run. Answers are the commands' own; a text without
// a command gets none. Runs on the LAN thread, whose client table nobody else touches.
#pragma once

#include <cstdint>

#include "settings/shared_field.h"

inline constexpr uint16_t kTelnetPort = 50000;
inline constexpr uint8_t kTelnetClients = 30;  // the next one disconnects them all and is served

extern Shared<uint8_t> TelnetClientCount;  // connected now; read by the status report

// Serves for ever; 1 when the listening socket cannot be set up. Ends the process when a client cannot be accepted.
int RunTelnetServer();

void LanThreadMain();
