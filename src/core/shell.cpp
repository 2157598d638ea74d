#include "core/shell.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/log.h"

static constexpr size_t kCommandLimit = 1000;

// Processor time for each program of a line that is asked for one line, which takes milliseconds. A listing of sound
// cards never ends, and complains all the while, when a card is pulled in the middle of it.
static constexpr rlimit kFirstLineTime{.rlim_cur = 10, .rlim_max = 10};  // s

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

struct Tool {
    pid_t shell = -1;
    FILE* output = nullptr;  // null: not started, errno says why
};

// As popen(3), which does not tell whom it has started.
static Tool OpenTool(const char* command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::array<char*, 4> words{const_cast<char*>("sh"), const_cast<char*>("-c"), const_cast<char*>(command)};
    pid_t shell = -1;
    const int error = posix_spawn(&shell, "/bin/sh", &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error == 0) return {.shell = shell, .output = fdopen(ends[0], "r")};
    close(ends[0]);
    errno = error;
    return {};
}

static int CloseTool(const Tool& tool, const char* closeFailed) {
    fclose(tool.output);
    int status = -1;
    pid_t ended;
    do ended = waitpid(tool.shell, &status, 0);
    while (ended < 0 && errno == EINTR);
    if (ended < 0) LogError(closeFailed);
    return ended < 0 ? -1 : status;
}

ToolAnswer ReadFirstLine(const char* command, const char* closeFailed, int limit) {
    ToolAnswer answer;
    const Tool tool = OpenTool(command);
    if (tool.output == nullptr) return answer;
    prlimit(tool.shell, RLIMIT_CPU, &kFirstLineTime, nullptr);  // its programs inherit it
    answer.started = true;
    std::vector<char> line(static_cast<size_t>(limit) + 1);
    if (fgets(line.data(), limit + 1, tool.output) != nullptr) answer.text = line.data();
    answer.closeStatus = CloseTool(tool, closeFailed);
    return answer;
}

bool ReadEveryLine(const char* command, const char* closeFailed, int limit,
                   const std::function<void(const char*)>& line, const std::function<void()>& opened) {
    const Tool tool = OpenTool(command);
    if (tool.output == nullptr) return false;
    if (opened) opened();
    std::vector<char> buffer(static_cast<size_t>(limit) + 1);
    while (fgets(buffer.data(), limit + 1, tool.output) != nullptr) line(buffer.data());
    CloseTool(tool, closeFailed);
    return true;
}
