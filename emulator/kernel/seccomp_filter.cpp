#include "kernel/seccomp_filter.h"

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <vector>

// Newer than the headers of Debian 12.
#ifndef SECCOMP_IOCTL_NOTIF_SET_FLAGS
#define SECCOMP_IOCTL_NOTIF_SET_FLAGS SECCOMP_IOW(4, uint64_t)
#define SECCOMP_USER_NOTIF_FD_SYNC_WAKE_UP (1UL << 0)
#endif

static constexpr std::array kTrapped{__NR_open, __NR_openat, __NR_openat2, __NR_execve, __NR_execveat};
static constexpr std::array kTrappedStat{__NR_stat, __NR_lstat, __NR_newfstatat, __NR_statx};

// The type bytes of ioctl requests: I2C, sound (control and PCM), frame buffer, V4L2, watchdog, UVC, GPIO. Terminals
// ('T') and sockets stay with the kernel. Other drivers share some of these bytes; their calls pass through.
static constexpr std::array<uint8_t, 9> kTrappedTypes{0x07, 'A', 'B', 'F', 'U', 'V', 'W', 'u', 0xB4};

using Program = std::vector<sock_filter>;

static void Load(Program& program, size_t offset) {
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset)));
}

// Ends the program with `verdict` when what is loaded equals `value`.
static void On(Program& program, uint32_t value, uint32_t verdict) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, verdict));
}

// Skips what `body` holds unless the loaded number of the call equals `number`; `body` ends the program itself.
static void OnCall(Program& program, uint32_t number, const Program& body) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, static_cast<uint8_t>(body.size())));
    program.insert(program.end(), body.begin(), body.end());
}

static Program IoctlProgram() {
    Program program;
    Load(program, offsetof(seccomp_data, args[1]));
    program.push_back(BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0xff00));
    for (uint32_t type : kTrappedTypes) On(program, type << 8, SECCOMP_RET_USER_NOTIF);
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return program;
}

// A poll of nothing is a sleep.
static Program PollProgram() {
    Program program;
    Load(program, offsetof(seccomp_data, args[1]));
    On(program, 0, SECCOMP_RET_ALLOW);
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    return program;
}

static Program WholeProgram(bool wholeStat) {
    Program program;
    Load(program, offsetof(seccomp_data, arch));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    Load(program, offsetof(seccomp_data, nr));
    for (uint32_t call : kTrapped) On(program, call, SECCOMP_RET_USER_NOTIF);
    if (wholeStat)
        for (uint32_t call : kTrappedStat) On(program, call, SECCOMP_RET_USER_NOTIF);
    // A ring would carry device calls past the filter.
    On(program, __NR_io_uring_setup, SECCOMP_RET_ERRNO | ENOSYS);
    OnCall(program, __NR_ioctl, IoctlProgram());
    OnCall(program, __NR_poll, PollProgram());
    OnCall(program, __NR_ppoll, PollProgram());
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return program;
}

int InstallFilter(bool wholeStat) {
    Program program = WholeProgram(wholeStat);
    sock_fprog filter{.len = static_cast<uint16_t>(program.size()), .filter = program.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    // Killable: once the supervisor has taken a call, only death interrupts it, so that nothing is carried out twice.
    long listener = syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                            SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV, &filter);
    return listener < 0 ? -errno : static_cast<int>(listener);
}

void PreferQuickWake(int listener) {
    ioctl(listener, SECCOMP_IOCTL_NOTIF_SET_FLAGS, SECCOMP_USER_NOTIF_FD_SYNC_WAKE_UP);
}
