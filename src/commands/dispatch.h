// Runs a received text through a command table and answers it. Four threads dispatch at the same time, each with
// patterns and arguments of its own; handlers run on the thread of their channel.
#pragma once

#include <cstdint>

#include "settings/shared_field.h"

extern Shared<uint8_t> SerialCommandActive;   // 1 while a row matched on the serial port is executed
extern Shared<uint8_t> ConsoleCommandActive;  // 1 while a console row is executed; serial input waits

// The last console command or broadcast, in seconds of the monotonic clock; 0: none since start.
int64_t LastCommandTime();
void NoteCommandTime();
int64_t SecondsNow();  // of the same clock

// The last row's result, 1 when none matched. `text` is changed: arguments are split in place, so that at most one
// command with arguments takes effect.
int DispatchSerialText(char* text);
int DispatchConsoleText(char* text);

// True when a row matched. Answers go to `client`, which stays the thread's ReplyChannel.
bool DispatchNetworkText(char* text, int client);
