// What was done to this board, kept as a scenario (scenario.h) that `tessel-emulator play` does again: every verb that
// acts, whoever sent it, and every line typed at the emulator's terminal, with its time. It is kept from power-on on,
// so that a bug that nobody waited for can be told; `record start` begins anew. Supervisor's thread only.
#pragma once

#include <string_view>

#include "bench/control.h"
#include "bench/trace.h"

void StartRecord();  // with the board as it is now; when it was powered on

void Record(const VerbWords& verb);       // with its word
void RecordTyped(std::string_view part);  // of what was typed; a line is a verb

VerbAnswer RecordVerb(const VerbWords& words);  // record [start [FILE] | stop]

Json RecordNow();  // {"running", "seconds", "verbs"}: seconds since its start, while it runs
