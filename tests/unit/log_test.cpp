#include "core/log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

static std::string Captured(void (*write)()) {
    testing::internal::CaptureStdout();
    write();
    return testing::internal::GetCapturedStdout();
}

TEST(Log, TextsAreWrittenAsTheyAre) {
    EXPECT_EQ(Captured([] { LogInfo("%s %d\r", "half a line", 5); }), "half a line 5\r");
    EXPECT_EQ(Captured([] {
                  errno = ENOENT;
                  LogError("open_port: Unable to open port ");
              }),
              "open_port: Unable to open port : No such file or directory\n");
    static const std::string kLong(100'000, 'x');
    EXPECT_EQ(Captured([] { PrintOut("%s", kLong.c_str()); }), kLong);
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
