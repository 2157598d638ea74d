// The emulator's heart: one thread, one epoll loop, that answers the board's device calls at the kernel boundary.
//
// A trapped call arrives as a seccomp notification while its caller sleeps in the kernel. open() of an emulated node is
// answered with a descriptor of a fresh unlinked file (so that mmap works natively and each open has its own inode);
// ioctl() and poll() on it are answered by the node's DeviceModel. A model never blocks: it says kHold, the caller
// stays asleep, and the model is asked again after each Wake() of that file, so that there is a single table of held
// calls and no model keeps one of its own.
//
// Everything here runs on the supervisor's thread. Errors travel as negative errno values, as in the kernel.
#pragma once

#include <sys/types.h>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

struct OpenFile;

inline constexpr int kHold = -1'000'000;  // "not yet": keep the caller asleep and ask again at the next Wake()

// A caller's memory. Reads and writes fail (false) when the caller has died or passed a bad address.
struct TargetMemory {
    pid_t process;
    bool Read(uint64_t address, void* to, size_t size) const;
    bool Write(uint64_t address, const void* from, size_t size) const;
    template <typename T>
    bool Read(uint64_t address, T& value) const {
        return Read(address, &value, sizeof value);
    }
    template <typename T>
    bool Write(uint64_t address, const T& value) const {
        return Write(address, &value, sizeof value);
    }
};

// O_NONBLOCK of the caller's descriptor now; a bool that is looked up (some 10 microseconds) only where it is asked
// for.
struct NonBlocking {
    pid_t thread;
    int descriptor;
    operator bool() const;
};

struct IoctlCall {
    OpenFile& file;
    TargetMemory memory;
    uint32_t request;
    uint64_t argument;
    NonBlocking nonBlocking;
};

// What answers an emulated node. A null operation means: open succeeds, ioctl answers -ENOTTY, always ready, nothing to
// close.
struct DeviceModel {
    const char* name;
    int (*open)(OpenFile& file) = nullptr;              // 0 or -errno; may set file.state and size file.descriptor
    int (*ioctl)(const IoctlCall& call) = nullptr;      // the call's result, -errno or kHold
    unsigned (*ready)(const OpenFile& file) = nullptr;  // the poll(2) events that are true now
    void (*close)(OpenFile& file) = nullptr;            // the last descriptor is gone
    // Something was written: all of it stands in file.descriptor. Not left to the close, which a fork in another thread
    // of the program puts off until its child is another program.
    void (*written)(OpenFile& file) = nullptr;

    // For nodes that the kernel plays well itself (a serial line is a pty): a descriptor of the model's own that the
    // caller gets, or -errno. It is closed here after it was handed over and not followed: the operations above are not
    // used. `flags` are those of open(2).
    int (*openReal)(const std::string& path, int flags, int unit) = nullptr;
};

// One open() of a node. Ends with its last descriptor, after the model's close.
struct OpenFile {
    const DeviceModel* model;
    int unit;          // which of the model's instances: the number given with the node
    std::string path;  // as the board sees it
    int flags;         // of open(2)
    int descriptor;    // the supervisor's own description of the injected file
    void* state;       // the model's
};

// Nodes. A character node appears in (or leaves) the board's /dev with its device number; open files of a removed node
// live on, as in the kernel. A path may also be a folder prefix ending in '/', for trees such as sysfs GPIO, whose
// files are not made here and whose every open reaches the model.
void AddNode(const std::string& path, const DeviceModel& model, int unit, unsigned majorNumber, unsigned minorNumber);
void AddTree(std::string prefix, const DeviceModel& model, int unit);
void RemoveNode(std::string_view path);

// Ask again for every held call on this file, and for every poll() that watches it.
void Wake(const OpenFile& file);
void WakeModel(const DeviceModel& model, int unit);  // all open files of that instance

// Time and events of the loop. Microseconds are CLOCK_MONOTONIC, as frame time stamps are.
int64_t NowMicroseconds();
using TimerId = uint64_t;  // never 0
TimerId CallAt(int64_t microseconds, std::function<void()> work);
void CancelCall(TimerId id);              // unknown and past ids are fine
inline constexpr uint32_t kReadable = 1;  // EPOLLIN
bool WatchDescriptor(int descriptor, std::function<void(uint32_t epollEvents)> work, uint32_t events = kReadable);
// level-triggered; again for the same one: replaces; false: a
// descriptor that cannot be waited for, such as a plain file
void ForgetDescriptor(int descriptor);  // before the owner closes it
