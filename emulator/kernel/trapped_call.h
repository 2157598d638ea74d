// One call that a thread of the board has made and now waits for: taken from a listener, answered once. An answer to a
// thread that has died is lost silently. Supervisor's thread; nothing blocks.
#pragma once

#include <sys/types.h>
#include <cstdint>
#include <optional>
#include <string>

#include "kernel/supervisor.h"

// Results for a call that a signal interrupted, as the kernel's own: begun anew after the handler where that asks for
// it, or only when there was none.
inline constexpr int kRestartAfterSignal = -512, kRestartWithoutHandler = -514;

struct TrappedCall {
    int listener;
    uint64_t id;
    pid_t thread;
    int number;  // __NR_...
    uint64_t arguments[6];

    TargetMemory Memory() const { return {thread}; }
};

// The next call, if there still is one. Ask only when the listener is readable.
std::optional<TrappedCall> TakeCall(int listener);

void Answer(const TrappedCall& call, int64_t result);  // -errno for an error
void PassOn(const TrappedCall& call);                  // the kernel carries it out as if never trapped
bool StillWaiting(const TrappedCall& call);

// Answers with a new descriptor of the caller for what `descriptor` describes; false when the caller did not get it
// (and has been answered why, unless it died).
bool AnswerDescriptor(const TrappedCall& call, int descriptor, bool closeOnExec);

// Text up to its zero, at most a path's length; nothing for a bad address.
std::optional<std::string> ReadText(const TargetMemory& memory, uint64_t address);

// Descriptor of the caller's thread group for pidfd_getfd; -errno.
int OpenProcess(pid_t thread);
