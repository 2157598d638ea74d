// The board's own loop: what happens in which order.
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <string>

#include "kernel/event_loop.h"
#include "kernel/supervisor.h"

// A receiver that locks again while slow work goes on would otherwise never have been seen without its lock.
TEST(EventLoop, TimerDoesNotOvertakeWhatWaitedBeforeIt) {
    const std::array ends = {eventfd(1, EFD_CLOEXEC), eventfd(0, EFD_CLOEXEC)};
    std::string order;
    ASSERT_TRUE(WatchDescriptor(ends[0], [&](uint32_t) {
        ForgetDescriptor(ends[0]);
        order += "slow work, ";
        eventfd_write(ends[1], 1);
        CallAt(NowMicroseconds() + 1'000, [&] {
            order += "timer";
            EndEvents(3);
        });
        usleep(10'000);
    }));
    ASSERT_TRUE(WatchDescriptor(ends[1], [&](uint32_t) {
        ForgetDescriptor(ends[1]);
        order += "descriptor, ";
    }));
    EXPECT_EQ(RunEvents(), 3);
    EXPECT_EQ(order, "slow work, descriptor, timer");
    for (const int end : ends) close(end);
}
