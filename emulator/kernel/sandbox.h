// The board's walls: namespaces of its own for users, files, processes, network, IPC and host name, and the root file
// system that its programs see.
//
//   /usr /bin /sbin /lib*     the host's, read-only
//   /etc /home/root           the board's flash (persistent)
//   /dev /sys /run /tmp       the board's volatile folder
//   /proc                     of the board's own processes
//   /opt/board                what the emulator brings: tools gst daemon faults (read-only), display, state (writable),
//                             full (a file system without a free block)
//   /.cache/gstreamer-1.0     the registry of GStreamer plug-ins, volatile
//   $TESSEL_SHARE             a folder of the host, writable, under the path that it has there; nothing without a word
//
// Works as root and as an ordinary user, whose id is the board's root either way. The board's process 1 is a small loop
// of ours (sandbox_init): it starts the daemon, reaps, and dies with the supervisor, and everything on the board with
// it. Supervisor's thread. StartSandbox blocks for some milliseconds, the others for microseconds.
#pragma once

#include <sys/types.h>
#include <functional>
#include <string>

// Builds the walls around what the volatile folder holds. False, with the reason on standard error, when the host does
// not allow it.
bool StartSandbox();
void StopSandbox();   // kills every process of the board and waits for that; harmless when nothing runs
pid_t SandboxInit();  // process 1 of the board as the host numbers it; 0: nothing runs

// A socket that belongs to the board's network; -errno. Ours to close.
int BoardSocket(int domain, int type, int protocol);
int RemountHome(bool readOnly);  // 0 or -errno: EBUSY while a file is open for writing there

struct DaemonStreams {
    int in, out, error;
};
void StartDaemon(const DaemonStreams& streams);  // the descriptors stay the caller's

// What process 1 reports.
struct SandboxEvents {
    std::function<void(pid_t daemon, int listener)>
        started;                                // about to run; the listener of its filter is ours to close
    std::function<void(int waitStatus)> ended;  // and everything it left running has been killed
    std::function<void()> died;                 // process 1 itself: the board was halted from inside
};
void OnSandbox(SandboxEvents events);

std::string DaemonPath();                     // inside the sandbox
bool IsHostProgram(const std::string& path);  // the board has it under the same path
