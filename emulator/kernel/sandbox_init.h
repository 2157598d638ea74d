// Process 1 of a board, and what it says to the supervisor. Runs in the clone made by StartSandbox(), in namespaces of
// its own; shares nothing with the supervisor but two sockets of whole messages.
#pragma once

#include <sys/types.h>
#include <cstdint>
#include <initializer_list>

enum class InitRequest : int32_t {
    kStartDaemon,  // with three descriptors; answered by reports
    kSocket,       // domain, type, protocol; answered with the descriptor, or -errno
    kRemountHome,  // 1: read-only, 0: writable; answered with 0 or -errno
};

enum class InitReport : int32_t {
    kReady,    // the walls stand
    kStarted,  // with the listener; sent by the daemon's process itself, so that its credentials name it
    kEnded,    // wait status
};

struct InitMessage {
    int32_t what;
    int32_t values[3];
};

inline constexpr int kMessageDescriptors = 3;

// Blocking; false when the other side is gone. Descriptors not sent or not received are -1.
bool SendInitMessage(int socket, const InitMessage& message, std::initializer_list<int> descriptors = {});
bool ReceiveInitMessage(int socket, InitMessage& message, int (&descriptors)[kMessageDescriptors],
                        pid_t* sender = nullptr);

[[noreturn]] void RunSandboxInit(int requests, int reports);

// Gives the calling process, alone in its namespaces, the board's root. Says on standard error what it could not do.
bool BuildBoardRoot();
