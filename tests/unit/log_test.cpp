#include "core/log.h"

#include <gtest/gtest.h>

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
