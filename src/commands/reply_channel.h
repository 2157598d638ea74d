// The network client whose text is being executed, and the log's way to it. Each dispatching network thread has its own
// channel, so a handler always answers the client that asked.
#pragma once

#include <string_view>

extern thread_local int ReplyChannel;  // connected socket, -1: none

// Writes a text to the client: true when the client's connection took all of it. A client that is gone loses it; one
// that takes nothing for 2 s is disconnected, because it holds up every other client of its channel.
bool WriteToClient(std::string_view text);

// Stores `enable` in EnLog. Non-zero: standard output and standard error go to ReplyChannel; 0: back to the console. 0.
int SetNetworkLog(int enable);

// True when standard output is this connection: the log keeps it open when its own descriptor is closed.
bool IsLogClient(int socket);
