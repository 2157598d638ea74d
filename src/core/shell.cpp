#include "core/shell.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/log.h"

static constexpr size_t kCommandLimit = 1000;

// Seconds of processor time, for each program of a line. One line takes milliseconds; but a listing of sound cards
// never ends, and complains all the while, when a card is pulled in the middle of it.
static constexpr const char* kSpinLimit = "ulimit -t 10; ";

int RunShell(const char* format, ...) {
    std::array<char, kCommandLimit + 1> command;
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(command.data(), command.size(), format, values);
    va_end(values);
    if (length < 0 || static_cast<size_t>(length) >= command.size()) {
        errno = E2BIG;  // half a command line must never run
        return -1;
    }
    return system(command.data());
}

bool ShellFailed(int status) { return status == -1; }

static int ClosePipe(FILE* pipe, const char* closeFailed) {
    const int status = pclose(pipe);
    if (status == -1) LogError(closeFailed);
    return status;
}

ToolAnswer ReadFirstLine(const char* command, const char* closeFailed, int limit) {
    ToolAnswer answer;
    FILE* pipe = popen((std::string(kSpinLimit) + command).c_str(), "re");
    if (pipe == nullptr) return answer;
    answer.started = true;
    std::vector<char> line(static_cast<size_t>(limit) + 1);
    if (fgets(line.data(), limit + 1, pipe) != nullptr) answer.text = line.data();
    answer.closeStatus = ClosePipe(pipe, closeFailed);
    return answer;
}

bool ReadEveryLine(const char* command, const char* closeFailed, int limit,
                   const std::function<void(const char*)>& line, const std::function<void()>& opened) {
    FILE* pipe = popen(command, "re");
    if (pipe == nullptr) return false;
    if (opened) opened();
    std::vector<char> buffer(static_cast<size_t>(limit) + 1);
    while (fgets(buffer.data(), limit + 1, pipe) != nullptr) line(buffer.data());
    ClosePipe(pipe, closeFailed);
    return true;
}
