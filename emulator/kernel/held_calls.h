// Calls whose callers stay asleep: ioctls that a model put off with kHold, and polls of sets in which a node takes
// part. The one table of them; models only say Wake(). Supervisor's thread; nothing blocks.
//
// A sweep looks after them: callers that died are forgotten, and a caller that a signal waits for is let go, to come
// back after its handler. So a signal reaches a held caller up to 50 ms late.
#pragma once

#include "kernel/supervisor.h"
#include "kernel/trapped_call.h"

// Both answer the call, now or later.
void CarryOutIoctl(const TrappedCall& call, OpenFile& file);
void CarryOutPoll(const TrappedCall& call);

// After each event: asks again for what was woken during it. Not earlier, so that no model is entered twice at a time.
void RetryWoken();

// The callers are dead: all of the board's, or those who were heard on this listener.
void DropHeldCalls();
void DropHeldCalls(int listener);
size_t HeldCallCount();
