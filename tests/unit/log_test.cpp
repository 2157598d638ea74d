#include "core/log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

TEST(Log, TextsAreWrittenAsTheyAre) {
    const std::string longText(100'000, 'x');
    testing::internal::CaptureStdout();
    LogInfo("%s %d\r", "half a line", 5);
    errno = ENOENT;
    LogError("open_port: Unable to open port ");
    PrintOut("%s", longText.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "half a line 5\ropen_port: Unable to open port : No such file or directory\n" + longText);
}

// A client that stops reading, or is gone, must stop neither the daemon nor the log on the console.
TEST(Log, DeafClientStopsNobody) {
    testing::internal::CaptureStdout();
    InitLog();
    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    RedirectLog(sockets[0]);
    for (int i = 0; i < 2'000; ++i) LogInfo("a line that nobody reads, number %d, over and over again\n", i);
    close(sockets[1]);
    LogInfo("into a closed socket\n");
    RedirectLog(12345);
    RestoreLog();
    close(sockets[0]);
    LogInfo("console\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "console\n");
}
