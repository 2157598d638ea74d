#include "kernel/trapped_call.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

static constexpr unsigned kPidfdThread = O_EXCL;  // PIDFD_THREAD, Linux 6.9

bool TargetMemory::Read(uint64_t address, void* to, size_t size) const {
    iovec here{.iov_base = to, .iov_len = size}, there{.iov_base = reinterpret_cast<void*>(address), .iov_len = size};
    return process_vm_readv(process, &here, 1, &there, 1, 0) == ssize_t(size);
}

bool TargetMemory::Write(uint64_t address, const void* from, size_t size) const {
    iovec here{.iov_base = const_cast<void*>(from), .iov_len = size};
    iovec there{.iov_base = reinterpret_cast<void*>(address), .iov_len = size};
    return process_vm_writev(process, &here, 1, &there, 1, 0) == ssize_t(size);
}

NonBlocking::operator bool() const {
    std::ifstream info("/proc/" + std::to_string(thread) + "/fdinfo/" + std::to_string(descriptor));
    for (std::string line; std::getline(info, line);)
        if (line.starts_with("flags:")) return strtoul(line.c_str() + 6, nullptr, 8) & O_NONBLOCK;
    return false;
}

std::optional<TrappedCall> TakeCall(int listener) {
    seccomp_notif notification{};  // the kernel insists on zeros
    if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &notification) < 0) return std::nullopt;
    TrappedCall call{.listener = listener,
                     .id = notification.id,
                     .thread = pid_t(notification.pid),
                     .number = notification.data.nr,
                     .arguments = {}};
    std::copy_n(notification.data.args, std::size(call.arguments), call.arguments);
    return call;
}

void Answer(const TrappedCall& call, int64_t result) {
    seccomp_notif_resp response{.id = call.id, .val = 0, .error = 0, .flags = 0};
    if (result < 0)
        response.error = int(result);
    else
        response.val = result;
    ioctl(call.listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
}

void PassOn(const TrappedCall& call) {
    seccomp_notif_resp response{.id = call.id, .val = 0, .error = 0, .flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE};
    ioctl(call.listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
}

bool StillWaiting(const TrappedCall& call) { return ioctl(call.listener, SECCOMP_IOCTL_NOTIF_ID_VALID, &call.id) == 0; }

bool AnswerDescriptor(const TrappedCall& call, int descriptor, bool closeOnExec) {
    seccomp_notif_addfd give{.id = call.id,
                             .flags = SECCOMP_ADDFD_FLAG_SEND,
                             .srcfd = uint32_t(descriptor),
                             .newfd = 0,
                             .newfd_flags = closeOnExec ? uint32_t{O_CLOEXEC} : 0};
    if (ioctl(call.listener, SECCOMP_IOCTL_NOTIF_ADDFD, &give) >= 0) return true;
    Answer(call, -errno);
    return false;
}

// Page by page: the text may end just before memory that is not there.
std::optional<std::string> ReadText(const TargetMemory& memory, uint64_t address) {
    constexpr size_t kPage = 4096;
    std::array<char, kPage> page;
    std::string text;
    while (text.size() < PATH_MAX) {
        size_t size = kPage - address % kPage;
        if (!memory.Read(address, page.data(), size)) return std::nullopt;
        size_t length = strnlen(page.data(), size);
        text.append(page.data(), length);
        if (length < size) return text;
        address += size;
    }
    return std::nullopt;
}

static pid_t ThreadGroup(pid_t thread) {
    std::ifstream status("/proc/" + std::to_string(thread) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("Tgid:")) return atoi(line.c_str() + 5);
    return thread;
}

int OpenProcess(pid_t thread) {
    long process = syscall(SYS_pidfd_open, thread, kPidfdThread);
    if (process < 0) process = syscall(SYS_pidfd_open, ThreadGroup(thread), 0);
    return process < 0 ? -errno : int(process);
}
