// What the flight recorder keeps of a program that polls.
#include "bench/trace.h"

#include <gtest/gtest.h>
#include <unistd.h>

TEST(Trace, PollingIsLeftOutAndNewsIsNot) {
    const auto kept = [](unsigned place, const char* content, int times) {
        int count = 0;
        for (int i = 0; i < times; ++i) count += !IsPolling("test", place, content);
        return count;
    };
    EXPECT_EQ(kept(1, "a", 100), 3);
    EXPECT_EQ(kept(2, "a", 100), 3) << "another place";
    EXPECT_EQ(kept(1, "b", 1), 1);
    EXPECT_EQ(kept(1, "a", 1), 1) << "it came back";
    EXPECT_EQ(kept(2, "a", 1), 0);
    usleep(110'000);
    EXPECT_EQ(kept(2, "a", 1), 1) << "that is no pace of a program that polls";
    ClearTrace();
    EXPECT_EQ(kept(1, "a", 100), 3);
}
