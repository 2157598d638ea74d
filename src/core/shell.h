// The only room that starts other programs. System configuration is done by fixed command lines run through the shell;
// a tool's answer is read through a pipe. Every call blocks until the tool has ended.
#pragma once

#include <functional>
#include <string>

// Runs a command line (printf conventions, at most 1,000 bytes). Returns system(3)'s status: 0 when the command
// succeeded, -1 when the shell could not be started.
int RunShell(const char* format, ...) __attribute__((format(printf, 1, 2)));

// True when a RunShell status says that the shell itself could not run (not that the command failed).
bool ShellFailed(int status);

struct ToolAnswer {
    bool started = false;  // false: the pipe could not be opened, errno says why
    std::string text;      // first line with its line end, or empty
    int closeStatus = 0;   // of pclose(3); -1 was logged with the caller's text
};

// Runs a command line and reads the first line of its output, at most `limit` characters. A failing close is logged as
// an error with `closeFailed`. A program that has spun for 10 s is killed.
ToolAnswer ReadFirstLine(const char* command, const char* closeFailed = "pclose failed", int limit = 1000);

// The same for every line, in order; `limit` is per line. `opened` is called before the first line, even when there is
// none. Returns false when the pipe could not be opened.
bool ReadEveryLine(const char* command, const char* closeFailed, int limit,
                   const std::function<void(const char*)>& line, const std::function<void()>& opened = nullptr);
