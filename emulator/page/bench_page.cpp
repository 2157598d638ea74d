#include "page/bench_page.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "system/board.h"

static pid_t server = 0;

static bool Bind(int listening, int port) {
    const int on = 1;
    setsockopt(listening, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address{.sin_family = AF_INET,
                              .sin_port = htons(uint16_t(port)),
                              .sin_addr = {.s_addr = htonl(INADDR_LOOPBACK)},
                              .sin_zero = {}};
    return bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
           listen(listening, SOMAXCONN) == 0;
}

// -1 with errno. A socket that was refused a port is not used again.
static int ListenAt(int port) {
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (listening < 0 || Bind(listening, port)) return listening;
    const int error = errno;
    close(listening);
    errno = error;
    return -1;
}

int OpenPagePort(int& port) {
    const bool choose = port == kAutoPagePort;
    int listening = ListenAt(choose ? kUsualPagePort : port);
    if (listening < 0 && choose) listening = ListenAt(0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (listening < 0 || getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size) < 0) {
        fprintf(stderr, "Page: cannot open port %d of 127.0.0.1: %s\n", port, strerror(errno));
        return -1;
    }
    port = ntohs(address.sin_port);
    fprintf(stderr, "Page:  http://127.0.0.1:%d/\n", port);
    return listening;
}

// In the child. It starts as any program does: no signal is blocked, the socket stays open.
[[noreturn]] static void BecomeServer(int listening) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    fcntl(listening, F_SETFD, 0);
    const std::string socket = std::to_string(listening);
    execl("/proc/self/exe", "tessel-emulator", "page", "--board", Board.folder.c_str(), "--socket", socket.c_str(),
          static_cast<char*>(nullptr));
    _exit(1);
}

void StartPage(int listening) {
    fflush(nullptr);
    server = fork();
    if (server == 0) BecomeServer(listening);
    if (server < 0) fprintf(stderr, "Page: no process for it: %s\n", strerror(errno));
    close(listening);
}

void StopPage() {
    if (server <= 0) return;
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
    server = 0;
}
