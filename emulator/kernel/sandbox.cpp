#include "kernel/sandbox.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "kernel/sandbox_init.h"
#include "kernel/seccomp_filter.h"
#include "kernel/supervisor.h"
#include "system/board.h"

static constexpr unsigned long kNamespaces =
    CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS;

static pid_t init = 0;
static int requests = -1, reports = -1;
static SandboxEvents events;

void OnSandbox(SandboxEvents wanted) { events = std::move(wanted); }
pid_t SandboxInit() { return init; }

bool IsHostProgram(const std::string& path) {
    constexpr std::array<std::string_view, 4> kFolders{"/usr/", "/bin/", "/sbin/", "/lib"};
    return std::ranges::any_of(kFolders, [&](std::string_view folder) { return path.starts_with(folder); });
}

std::string DaemonPath() {
    if (IsHostProgram(Board.daemon)) return Board.daemon;
    return "/opt/board/daemon/" + std::filesystem::path(Board.daemon).filename().string();
}

static bool WriteProc(pid_t process, const char* name, std::string_view text) {
    std::string path = "/proc/" + std::to_string(process) + "/" + name;
    int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    bool written = write(file, text.data(), text.size()) == ssize_t(text.size());
    if (!written) fprintf(stderr, "Board: cannot write %s: %s\n", path.c_str(), strerror(errno));
    close(file);
    return written;
}

// The user who runs the emulator is the board's root, and the board knows nobody else.
static bool MapUser(pid_t process) {
    return WriteProc(process, "uid_map", "0 " + std::to_string(geteuid()) + " 1") &&
           WriteProc(process, "setgroups", "deny") &&
           WriteProc(process, "gid_map", "0 " + std::to_string(getegid()) + " 1");
}

// In the clone: keeps two sockets, waits until its user is mapped, becomes process 1.
[[noreturn]] static void BecomeInit(int theirRequests, int theirReports) {
    int low = std::min(theirRequests, theirReports), high = std::max(theirRequests, theirReports);
    close_range(3, unsigned(low) - 1, 0);
    close_range(unsigned(low) + 1, unsigned(high) - 1, 0);
    close_range(unsigned(high) + 1, ~0U, 0);
    InitMessage go;
    int none[kMessageDescriptors];
    if (!ReceiveInitMessage(theirRequests, go, none)) _exit(1);
    RunSandboxInit(theirRequests, theirReports);
}

static void TakeReport() {
    InitMessage report;
    int descriptors[kMessageDescriptors];
    pid_t sender = 0;
    if (!ReceiveInitMessage(reports, report, descriptors, &sender)) {
        ForgetDescriptor(reports);
        events.died();
        return;
    }
    if (InitReport{report.what} == InitReport::kEnded) return events.ended(report.values[0]);
    if (InitReport{report.what} != InitReport::kStarted || descriptors[0] < 0) return;
    PreferQuickWake(descriptors[0]);
    events.started(sender, descriptors[0]);
}

static bool AwaitWalls() {
    InitMessage ready;
    int none[kMessageDescriptors];
    return ReceiveInitMessage(reports, ready, none) && InitReport{ready.what} == InitReport::kReady;
}

bool StartSandbox() {
    int request[2], report[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, request) < 0) return false;
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, report) < 0) return false;
    fflush(nullptr);
    init = pid_t(syscall(SYS_clone, kNamespaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    if (init == 0) BecomeInit(request[1], report[1]);
    int error = errno;
    close(request[1]);
    close(report[1]);
    requests = request[0];
    reports = report[0];
    if (init < 0) {
        fprintf(stderr, "Board: the host does not allow user namespaces: %s\n", strerror(error));
        init = 0;
        return false;
    }
    const int on = 1;
    setsockopt(reports, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
    if (!MapUser(init) || !SendInitMessage(requests, {}) || !AwaitWalls()) {
        StopSandbox();
        return false;
    }
    WatchDescriptor(reports, [](uint32_t) { TakeReport(); });
    return true;
}

void StopSandbox() {
    if (init == 0) return;
    kill(init, SIGKILL);
    while (waitpid(init, nullptr, 0) < 0 && errno == EINTR) continue;
    init = 0;
    ForgetDescriptor(reports);
    close(reports);
    close(requests);
}

static int Ask(const InitMessage& request, int& descriptor) {
    InitMessage answer;
    int descriptors[kMessageDescriptors];
    if (!SendInitMessage(requests, request) || !ReceiveInitMessage(requests, answer, descriptors)) return -ESRCH;
    descriptor = descriptors[0];
    return answer.values[0];
}

int BoardSocket(int domain, int type, int protocol) {
    int made = -1;
    int error = Ask({.what = int32_t(InitRequest::kSocket), .values = {domain, type, protocol}}, made);
    return error < 0 ? error : made;
}

int RemountHome(bool readOnly) {
    int none = -1;
    return Ask({.what = int32_t(InitRequest::kRemountHome), .values = {readOnly}}, none);
}

void StartDaemon(const DaemonStreams& streams) {
    SendInitMessage(requests, {.what = int32_t(InitRequest::kStartDaemon), .values = {}},
                    {streams.in, streams.out, streams.error});
}
