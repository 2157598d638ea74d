#include "kernel/sandbox_init.h"

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kernel/nodes.h"
#include "kernel/sandbox.h"
#include "kernel/seccomp_filter.h"
#include "system/board.h"

static constexpr std::array kBoardEnvironment{
    "HOME=/home/root",
    "XDG_RUNTIME_DIR=/run",  // libraries keep their scratch files there, not on the flash
    "USER=root",
    "LANG=C",
    "PATH=/opt/board/faults:/opt/board/tools:/usr/sbin:/usr/bin:/sbin:/bin",
    "GST_PLUGIN_PATH=/opt/board/gst",
    "GST_REGISTRY=/.cache/gstreamer-1.0/registry.bin",
    "SYSTEMD_DEVICE_VERIFY_SYSFS=0",  // the board's /sys is made of plain files
};
static constexpr std::array kPassedOn{"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS",
                                      "GST_DEBUG",    "G_DEBUG",      "WATCHDOG_TEST"};

// Messages

bool SendInitMessage(int socket, const InitMessage& message, std::initializer_list<int> descriptors) {
    iovec part{.iov_base = const_cast<InitMessage*>(&message), .iov_len = sizeof message};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kMessageDescriptors)]{};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    if (descriptors.size() > 0) {
        header.msg_control = control;
        header.msg_controllen = CMSG_SPACE(sizeof(int) * descriptors.size());
        cmsghdr* rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int) * descriptors.size());
        memcpy(CMSG_DATA(rights), descriptors.begin(), sizeof(int) * descriptors.size());
    }
    return sendmsg(socket, &header, MSG_NOSIGNAL) == ssize_t{sizeof message};
}

bool ReceiveInitMessage(int socket, InitMessage& message, int (&descriptors)[kMessageDescriptors], pid_t* sender) {
    iovec body{.iov_base = &message, .iov_len = sizeof message};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptors) + CMSG_SPACE(sizeof(ucred))]{};
    msghdr header{};
    header.msg_iov = &body;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    std::fill(std::begin(descriptors), std::end(descriptors), -1);
    ssize_t size = 0;
    do size = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
    while (size < 0 && errno == EINTR);
    if (size != ssize_t{sizeof message}) return false;
    for (cmsghdr* part = CMSG_FIRSTHDR(&header); part; part = CMSG_NXTHDR(&header, part)) {
        if (part->cmsg_level != SOL_SOCKET) continue;
        if (part->cmsg_type == SCM_RIGHTS) memcpy(descriptors, CMSG_DATA(part), part->cmsg_len - CMSG_LEN(0));
        if (part->cmsg_type == SCM_CREDENTIALS && sender) {
            ucred credentials;
            memcpy(&credentials, CMSG_DATA(part), sizeof credentials);
            *sender = credentials.pid;
        }
    }
    return true;
}

// The daemon

static std::vector<std::string> DaemonEnvironment() {
    std::vector<std::string> environment(kBoardEnvironment.begin(), kBoardEnvironment.end());
    for (const char* name : kPassedOn)
        if (const char* value = getenv(name)) environment.push_back(std::string(name) + "=" + value);
    environment.insert(environment.end(), Board.environment.begin(), Board.environment.end());
    return environment;
}

static std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

[[noreturn]] static void BecomeDaemon(int reports, const int (&streams)[kMessageDescriptors]) {
    for (int target = 0; target < kMessageDescriptors; ++target) dup2(streams[target], target);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    setsid();
    if (chdir("/home/root") < 0) perror("Board: /home/root");
    std::vector<std::string> arguments{DaemonPath()}, environment = DaemonEnvironment();
    arguments.insert(arguments.end(), Board.arguments.begin(), Board.arguments.end());
    int listener = InstallFilter(!NodesCarryNumbers());
    if (listener < 0) {
        fprintf(stderr, "Board: cannot trap device calls: %s\n", strerror(-listener));
        _exit(126);
    }
    SendInitMessage(reports, {.what = int32_t(InitReport::kStarted), .values = {}}, {listener});
    close_range(3, ~0U, 0);
    execve(arguments[0].c_str(), Pointers(arguments).data(), Pointers(environment).data());
    fprintf(stderr, "Board: cannot run %s: %s\n", arguments[0].c_str(), strerror(errno));
    _exit(127);
}

// As the service manager cleans up after a service: nothing it started survives it.
static void KillEverything() {
    kill(-1, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) continue;
}

static void Reap(int reports, pid_t& daemon) {
    int status = 0;
    for (pid_t child; (child = waitpid(-1, &status, WNOHANG)) > 0;) {
        if (child != daemon) continue;
        KillEverything();
        daemon = 0;
        SendInitMessage(reports, {.what = int32_t(InitReport::kEnded), .values = {status}});
    }
}

// Requests

static int SetHomeReadOnly(bool readOnly) {
    mount_attr attributes{};
    (readOnly ? attributes.attr_set : attributes.attr_clr) = MOUNT_ATTR_RDONLY;
    return mount_setattr(AT_FDCWD, "/home/root", 0, &attributes, sizeof attributes) < 0 ? -errno : 0;
}

static void AnswerSocket(int requests, const InitMessage& request) {
    int made = socket(request.values[0], request.values[1] | SOCK_CLOEXEC, request.values[2]);
    if (made < 0)
        SendInitMessage(requests, {.what = request.what, .values = {-errno}});
    else
        SendInitMessage(requests, {.what = request.what, .values = {0}}, {made});
    close(made);
}

static bool ServeRequest(int requests, int reports, pid_t& daemon) {
    InitMessage request;
    int descriptors[kMessageDescriptors];
    if (!ReceiveInitMessage(requests, request, descriptors)) return false;
    switch (InitRequest{request.what}) {
        case InitRequest::kStartDaemon:
            daemon = fork();
            if (daemon == 0) BecomeDaemon(reports, descriptors);
            break;
        case InitRequest::kSocket:
            AnswerSocket(requests, request);
            break;
        case InitRequest::kRemountHome:
            SendInitMessage(requests, {.what = request.what, .values = {SetHomeReadOnly(request.values[0] != 0)}});
            break;
    }
    for (int descriptor : descriptors)
        if (descriptor >= 0) close(descriptor);
    return true;
}

static void RaiseLoopback() {
    int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    strncpy(request.ifr_name, "lo", IFNAMSIZ);
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    ioctl(any, SIOCSIFFLAGS, &request);
    close(any);
}

static int ChildSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    sigprocmask(SIG_SETMASK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

void RunSandboxInit(int requests, int reports) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_NAME, "init");
    if (!BuildBoardRoot()) _exit(1);
    static constexpr char kHostName[] = "tesselvisor";
    if (sethostname(kHostName, sizeof kHostName - 1) < 0) perror("Board: host name");
    RaiseLoopback();
    int children = ChildSignals();
    SendInitMessage(reports, {.what = int32_t(InitReport::kReady), .values = {}});

    pid_t daemon = 0;
    pollfd events[]{{.fd = requests, .events = POLLIN, .revents = 0}, {.fd = children, .events = POLLIN, .revents = 0}};
    while (poll(events, 2, -1) >= 0 || errno == EINTR) {
        signalfd_siginfo ignored;
        while (read(children, &ignored, sizeof ignored) > 0) continue;
        Reap(reports, daemon);
        // No more requests: the supervisor is gone. The kernel ends what process 1 leaves behind.
        if (events[0].revents && !ServeRequest(requests, reports, daemon)) _exit(0);
    }
    _exit(1);
}
