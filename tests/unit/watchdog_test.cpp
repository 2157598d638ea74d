#include "core/watchdog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

// A plain file stands for the device: it takes the magic character and refuses the keep-alive request.
TEST(Watchdog, IsOpenedOnceAndDisarmedByTheMagicCharacter) {
    char path[] = "/tmp/watchdog_test.XXXXXX";
    close(mkstemp(path));
    testing::internal::CaptureStderr();
    EXPECT_EQ(WatchdogPat(), -1);
    EXPECT_EQ(WatchdogClose(path), -1);
    EXPECT_EQ(WatchdogOpen("/nowhere/watchdog"), -1);
    EXPECT_GE(WatchdogOpen(path), 0);
    EXPECT_EQ(WatchdogOpen(path), -1);
    EXPECT_EQ(WatchdogPat(), -1);
    EXPECT_EQ(WatchdogClose(path), 0);
    EXPECT_EQ(WatchdogClose(path), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Watchdog must be opened first!\n"
              "Watchdog already closed\n"
              "Could not open /nowhere/watchdog: No such file or directory\n"
              "Watchdog already opened\n"
              "Could not pat watchdog: Inappropriate ioctl for device\n"
              "Watchdog already closed\n");
    std::string written;
    std::ifstream(path) >> written;
    EXPECT_EQ(written, "V");
    unlink(path);
}
