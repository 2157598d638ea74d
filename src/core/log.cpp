#include "core/log.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#define SD_JOURNAL_SUPPRESS_LOCATION  // a record says what happened, not which source line said so
#include <systemd/sd-journal.h>

static int consoleOut = STDOUT_FILENO;
static int consoleError = STDERR_FILENO;

struct FreeText {
    void operator()(char* text) const { free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

static Text Format(const char* format, va_list values) {
    char* text = nullptr;
    return Text(vasprintf(&text, format, values) < 0 ? nullptr : text);
}

// Straight to the descriptor, so that a line is one piece and "\r" lines appear at once. A network client that stopped
// reading must not stop the daemon: its lines are dropped. The console is waited for.
static void WriteOut(const char* text) {
    for (size_t left = strlen(text); left > 0;) {
        ssize_t count = send(STDOUT_FILENO, text, left, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == ENOTSOCK) count = write(STDOUT_FILENO, text, left);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        text += count;
        left -= static_cast<size_t>(count);
    }
}

void InitLog() {
    // A handler instead of SIG_IGN: a program that we start gets the default back, which ends a pipeline's idle writer.
    struct sigaction quiet = {};
    quiet.sa_handler = [](int) {};
    quiet.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &quiet, nullptr);

    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // for what libraries print
    consoleOut = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    consoleError = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
}

void LogInfo(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const Text text = Format(format, values);
    va_end(values);
    if (text == nullptr) return;
    WriteOut(text.get());
    sd_journal_print(LOG_INFO, "%s", text.get());
}

void LogError(const char* text) {
    const char* reason = strerror(errno);
    PrintOut("%s: %s\n", text, reason);
    sd_journal_print(LOG_ERR, "%s: %s\n", text, reason);
}

void PrintOut(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const Text text = Format(format, values);
    va_end(values);
    if (text != nullptr) WriteOut(text.get());
}

static void Redirect(int out, int error) {
    if (dup2(out, STDOUT_FILENO) >= 0) dup2(error, STDERR_FILENO);
}

void RedirectLog(int descriptor) { Redirect(descriptor, descriptor); }

void RestoreLog() { Redirect(consoleOut, consoleError); }
