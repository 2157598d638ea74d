#include "kernel/listener.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>

#include "bench/trace.h"
#include "kernel/held_calls.h"
#include "kernel/nodes.h"
#include "kernel/supervisor.h"
#include "kernel/trapped_call.h"
#include "system/faults.h"

// Where a call on a file has its arguments; -1: none, which stands for AT_FDCWD and no flags.
struct FileCall {
    int folder, path, flags, result;
};

static int FolderOf(const TrappedCall& call, const FileCall& form) {
    return form.folder < 0 ? AT_FDCWD : int(call.arguments[form.folder]);
}

static std::optional<std::string> PathOf(const TrappedCall& call, const FileCall& form) {
    std::optional<std::string> path = ReadText(call.Memory(), call.arguments[form.path]);
    if (!path || path->empty()) return std::nullopt;
    return AbsolutePath(call.thread, FolderOf(call, form), *path);
}

static std::optional<int> OpenFlags(const TrappedCall& call, const FileCall& form) {
    if (call.number != __NR_openat2) return int(call.arguments[form.flags]);
    open_how how;
    if (!call.Memory().Read(call.arguments[form.flags], how)) return std::nullopt;
    return int(how.flags);
}

static void CarryOutOpen(const TrappedCall& call, const FileCall& form) {
    std::optional<int> flags = OpenFlags(call, form);
    if (!flags || *flags & (O_PATH | O_DIRECTORY)) return PassOn(call);
    std::optional<std::string> path = PathOf(call, form);
    if (!path) return PassOn(call);
    if (const Node* node = FindNode(*path)) return OpenNode(call, *node, *path, *flags);
    if (!OpenOnFaultyDisk(call, *path, *flags)) PassOn(call);
}

static void CarryOutDeviceCall(const TrappedCall& call, const FileCall&) {
    OpenFile* file = FileOf(call.thread, int(call.arguments[0]));
    if (file)
        CarryOutIoctl(call, *file);
    else
        PassOn(call);
}

static void CarryOutPolling(const TrappedCall& call, const FileCall&) { CarryOutPoll(call); }

// Status of nodes, for boards whose nodes cannot carry their numbers

static statx_timestamp WideTime(const timespec& time) {
    return {.tv_sec = time.tv_sec, .tv_nsec = uint32_t(time.tv_nsec), .__reserved = 0};
}

static void FillStatx(const struct stat& status, struct statx& wide) {
    wide.stx_mask = STATX_BASIC_STATS;
    wide.stx_blksize = uint32_t(status.st_blksize);
    wide.stx_nlink = uint32_t(status.st_nlink);
    wide.stx_mode = uint16_t(status.st_mode);
    wide.stx_ino = status.st_ino;
    wide.stx_rdev_major = major(status.st_rdev);
    wide.stx_rdev_minor = minor(status.st_rdev);
    wide.stx_dev_major = major(status.st_dev);
    wide.stx_dev_minor = minor(status.st_dev);
    wide.stx_atime = WideTime(status.st_atim);
    wide.stx_mtime = WideTime(status.st_mtim);
    wide.stx_ctime = WideTime(status.st_ctim);
}

static bool WriteStatus(const TrappedCall& call, const FileCall& form, const struct stat& status) {
    if (call.number != __NR_statx) return call.Memory().Write(call.arguments[form.result], status);
    struct statx wide {};
    FillStatx(status, wide);
    return call.Memory().Write(call.arguments[form.result], wide);
}

static void CarryOutStat(const TrappedCall& call, const FileCall& form) {
    std::optional<std::string> path = PathOf(call, form);
    const Node* node = path ? FindNode(*path) : nullptr;
    struct stat status;
    if (!node || node->path.ends_with('/') || !DescribeNode(*node, status)) return PassOn(call);
    Answer(call, WriteStatus(call, form, status) ? 0 : -EFAULT);
}

// Programs

static Json ProgramArguments(const TargetMemory& memory, uint64_t address) {
    constexpr size_t kArgumentsTraced = 64;
    Json arguments = Json::array();
    uint64_t text = 0;
    while (arguments.size() < kArgumentsTraced && memory.Read(address, text) && text != 0) {
        std::optional<std::string> argument = ReadText(memory, text);
        arguments.push_back(argument.value_or("?"));
        address += sizeof text;
    }
    return arguments;
}

static void CarryOutExec(const TrappedCall& call, const FileCall& form) {
    std::optional<std::string> path = PathOf(call, form);
    if (!path || !BoardHas(*path)) return PassOn(call);  // a step of somebody's search along the PATH
    if (IsToolAbsent(*path)) return Answer(call, -ENOENT);
    Trace("exec", {{"pid", call.thread},
                   {"program", *path},
                   {"arguments", ProgramArguments(call.Memory(), call.arguments[form.path + 1])}});
    PassOn(call);
}

struct CallRow {
    int number;
    FileCall form;
    void (*carryOut)(const TrappedCall& call, const FileCall& form);
};

static constexpr FileCall kNoFile{.folder = -1, .path = -1, .flags = -1, .result = -1};

static constexpr std::array kCalls{
    CallRow{__NR_ioctl, kNoFile, CarryOutDeviceCall},
    CallRow{__NR_poll, kNoFile, CarryOutPolling},
    CallRow{__NR_ppoll, kNoFile, CarryOutPolling},
    CallRow{__NR_openat, {.folder = 0, .path = 1, .flags = 2, .result = -1}, CarryOutOpen},
    CallRow{__NR_open, {.folder = -1, .path = 0, .flags = 1, .result = -1}, CarryOutOpen},
    CallRow{__NR_openat2, {.folder = 0, .path = 1, .flags = 2, .result = -1}, CarryOutOpen},
    CallRow{__NR_newfstatat, {.folder = 0, .path = 1, .flags = 3, .result = 2}, CarryOutStat},
    CallRow{__NR_stat, {.folder = -1, .path = 0, .flags = -1, .result = 1}, CarryOutStat},
    CallRow{__NR_lstat, {.folder = -1, .path = 0, .flags = -1, .result = 1}, CarryOutStat},
    CallRow{__NR_statx, {.folder = 0, .path = 1, .flags = 2, .result = 4}, CarryOutStat},
    CallRow{__NR_execve, {.folder = -1, .path = 0, .flags = -1, .result = -1}, CarryOutExec},
    CallRow{__NR_execveat, {.folder = 0, .path = 1, .flags = 4, .result = -1}, CarryOutExec},
};

static void CarryOut(const TrappedCall& call) {
    for (const CallRow& row : kCalls)
        if (row.number == call.number) return row.carryOut(call, row.form);
    PassOn(call);
}

void ServeListener(int listener) {
    WatchDescriptor(listener, [listener](uint32_t events) {
        if (!(events & EPOLLIN)) {
            ForgetDescriptor(listener);
            DropHeldCalls(listener);
            close(listener);
            return;
        }
        std::optional<TrappedCall> call = TakeCall(listener);
        if (!call) return;
        TakeFileEvents();  // what the caller wrote and closed before this call was so before it
        CarryOut(*call);
    });
}
