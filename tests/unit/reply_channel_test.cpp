#include "commands/reply_channel.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class ReplyChannelTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
        ReplyChannel = sockets[0];
    }
    void TearDown() override {
        close(sockets[0]);
        close(sockets[1]);
        ReplyChannel = -1;
    }
    int sockets[2];
};

static const std::string kMoreThanFits(4'000'000, 'x');

TEST_F(ReplyChannelTest, SlowReaderGetsEverything) {
    size_t received = 0;
    std::jthread reader([&] {
        std::array<char, 100'000> piece;
        for (ssize_t count; (count = read(sockets[1], piece.data(), piece.size())) > 0;
             std::this_thread::sleep_for(1ms))
            received += static_cast<size_t>(count);
    });
    EXPECT_TRUE(WriteToClient(kMoreThanFits));
    EXPECT_TRUE(WriteToClient(""));
    shutdown(sockets[0], SHUT_WR);
    reader.join();
    EXPECT_EQ(received, kMoreThanFits.size());
}

TEST_F(ReplyChannelTest, DeafClientIsCutOffOnce) {
    const auto start = Clock::now();
    EXPECT_FALSE(WriteToClient(kMoreThanFits));
    EXPECT_FALSE(WriteToClient("the next line costs no time"));
    EXPECT_GE(Clock::now() - start, 1900ms);
    EXPECT_LT(Clock::now() - start, 3900ms);

    ReplyChannel = -1;
    EXPECT_FALSE(WriteToClient("nobody is there"));
}
