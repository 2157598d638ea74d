#include "core/shell.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "core/log.h"

TEST(Shell, CommandStatusIsToldFromAShellThatCannotRun) {
    EXPECT_EQ(RunShell("true && test %d -eq 5", 5), 0);
    const int status = RunShell("exit 3");
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_FALSE(ShellFailed(status));
    EXPECT_FALSE(ShellFailed(RunShell("no-such-tool 2> /dev/null")));
}

TEST(Shell, HalfACommandLineNeverRuns) {
    const std::string tail(1'000, ' ');  // with "true" four bytes too long
    EXPECT_TRUE(ShellFailed(RunShell("true%s", tail.substr(3).c_str())));
    EXPECT_EQ(errno, E2BIG);
    EXPECT_EQ(RunShell("true%s", tail.substr(4).c_str()), 0);
}

TEST(Shell, FirstLineIsCutAtTheLimitAndASilentToolKnownByItsStatus) {
    EXPECT_EQ(ReadFirstLine("printf 'one\\ntwo\\n'").text, "one\n");
    EXPECT_EQ(ReadFirstLine("echo 12345678", "", 5).text, "12345");
    const ToolAnswer silent = ReadFirstLine("echo here | grep nothing");
    EXPECT_TRUE(silent.started);
    EXPECT_EQ(silent.text, "");
    EXPECT_EQ(WEXITSTATUS(silent.closeStatus), 1);
}

// The daemon itself lives on when a reader is gone, but a tool that it started must end.
TEST(Shell, EndlessToolEndsWhenItsFirstLineIsRead) {
    InitLog();
    const ToolAnswer answer = ReadFirstLine("exec yes");
    EXPECT_EQ(answer.text, "y\n");
    EXPECT_TRUE(WIFSIGNALED(answer.closeStatus));
    EXPECT_EQ(WTERMSIG(answer.closeStatus), SIGPIPE);
}

TEST(Shell, EveryLineComesInOrder) {
    std::vector<std::string> lines;
    const auto collect = [&lines](const char* line) { lines.emplace_back(line); };
    EXPECT_TRUE(ReadEveryLine("printf 'one\\n\\n12345678\\nlast'", "", 5, collect));
    EXPECT_EQ(lines, (std::vector<std::string>{"one\n", "\n", "12345", "678\n", "last"}));
}
