// The network client whose text is being executed, and the log's way to it. Each dispatching network thread has its own
// channel, so a handler always answers the client that asked.
#pragma once

extern thread_local int ReplyChannel;  // connected socket, -1: none

// Writes a text to the client; a client that is gone loses it.
void WriteToClient(const char* text);

// Stores `enable` in EnLog. Non-zero: standard output and standard error go to ReplyChannel; 0: back to the console. 0.
int SetNetworkLog(int enable);
