// The HDMI receiver's bring-up, access by access, what a chip that does not answer leads to, and large formats.
#include <gmock/gmock.h>
#include <zlib.h>

#include <fstream>

#include "board_run.h"

using testing::HasSubstr;
using testing::Not;

static bool IsWrite(const Json& transfer) { return transfer.contains("write"); }

// Every register write of the bring-up on a new kernel without an input, in order, as a sum: who changes one on purpose
// finds the new sum in the message.
TEST(Receiver, BringUpWritesEveryRegisterInOrder) {
    static constexpr size_t kWrites = 94;
    const Board board = StartUntil("In main: creating UART thread\n", {});
    std::string writes;
    size_t count = 0;
    for (const Json& transfer : TraceLines(board, "i2c"))
        if (transfer["bus"] == 1 && IsWrite(transfer) && ++count <= kWrites)
            writes += transfer["address"].dump() + transfer["register"].dump() + transfer["write"].dump() + "\n";
    EXPECT_EQ(crc32(0, reinterpret_cast<const Bytef*>(writes.data()), uInt(writes.size())), 3467954602u) << writes;
}

// What a refused access of one map leads to, counted from the start of the bring-up: one of each table and of each step
// beside the tables. Every access is refused by the campaign.
struct Refusal {
    const char* map;
    int access;
    const char* message;  // behind which the bring-up ends; null: it goes on
};
static constexpr const char* kTableFailed = "I2C failed 1\n";
static constexpr Refusal kRefusals[] = {
    {"4c", 1, "CyFxHDMIRxMainReset Reset HDMI failed 1\n"},
    {"4c", 3, nullptr},  // map addresses, with the preparation
    {"4c", 25, kTableFailed},
    {"4c", 26, nullptr},  // additions of the new kernel, hot-plug pulse
    {"32", 6, "write I2C KSV reg 0x74 failed 1\n"},
    {"34", 7, nullptr},  // preparation
    {"34", 8, kTableFailed},
    {"34", 39, nullptr},  // audio mute, size of the input, hot-plug pulse
    {"22", 8, "CyFxUsbI2cTransfer Send Data 2 failed 1\n"},
    {"22", 9, "CyFxUsbI2cTransfer Send Data 1 failed 1\n"},
    {"22", 10, "CyFxUsbI2cTransfer Send Data 3 failed 1\n"},
    {"36", 1, ""},  // the EDID has no message of its own
};
static constexpr const char* kFailed = "HDMI receiver initialization failed.\n";
static constexpr const char* kUp = "In main: creating console thread\n";

// The fault is put up between the end of the daemon and its next start, a second later, when nobody touches the bus.
// Where that came too late the daemon has to end once more.
static std::string RestartWithRefusal(const Board& board, const char* map, int access) {
    size_t from = 0;
    do {
        Ctl(board, {"fault", "i2c", map, "off"});
        from = OutputSize(board);
        Type(board, "<RESTART>\n");
        EXPECT_TRUE(WaitUntil(5, [&] { return Status(board)["daemon"]["state"] != "running"; }));
        Ctl(board, {"fault", "i2c", map, "nak", std::to_string(access)});
    } while (Status(board)["daemon"]["state"] == "running");
    EXPECT_TRUE(WaitForOutput(board, kUp, 20, from)) << Output(board);
    Ctl(board, {"fault", "i2c", map, "off"});
    return Output(board).substr(from);
}

TEST(Receiver, RefusedAccessesHaveTheirMessage) {
    const Board board = StartUntil(kUp, {"--monitor", "none"});
    for (const auto& [map, access, message] : kRefusals) {
        const std::string output = RestartWithRefusal(board, map, access);
        if (message)
            EXPECT_THAT(output, HasSubstr(std::string(message) + kFailed)) << map << access;
        else
            EXPECT_THAT(output, Not(HasSubstr(kFailed))) << map << access;
    }
}

TEST(Receiver, EdidFileProblemsCountAsSuccess) {
    using File = std::pair<size_t, std::string>;  // its size, 0: missing; what is said
    const Board board = StartUntil(kUp, {});
    const std::string path = BoardFile(board, "home/root/EDID_HDMI_INPUT.bin");
    for (const auto& [size, message] : {File{0, "File h error\r"}, File{301, "Reading h error\r"}, File{256, ""}}) {
        remove(path.c_str());
        if (size) std::ofstream(path, std::ios::binary) << std::string(size, '\x01');
        const size_t from = OutputSize(board);
        Ctl(board, {"trace", "--clear"});
        Type(board, "<RESTART>\n");
        ASSERT_TRUE(WaitForOutput(board, kUp, 30, from)) << Output(board);
        const std::string output = Output(board).substr(from);
        EXPECT_THAT(output, HasSubstr(message));
        EXPECT_THAT(output, Not(HasSubstr(kFailed)));
        const bool programmed = std::ranges::any_of(TraceLines(board, "i2c"), [](const Json& transfer) {
            return transfer["address"] == "36" && IsWrite(transfer);
        });
        EXPECT_EQ(programmed, size == 256);
    }
}

static std::vector<std::string> LargeFormatWrites(const Board& board) {
    std::vector<std::string> writes;
    for (const Json& transfer : TraceLines(board, "i2c"))
        if (IsWrite(transfer) && transfer["address"] == "26" && transfer["register"] == "C3")
            writes.push_back(transfer["write"][0]);
    return writes;
}

TEST(Receiver, LargeFormatModeOnAndBack) {
    const Board board =
        StartUntil("Playing video pipeline...\n", {"--camera1", "hd-mjpeg", "--hdmi-in", "1920x1080p30"});
    ASSERT_EQ(Ctl(board, {"hdmi-in", "0", "3840x2160p30"}).status, 0);
    EXPECT_TRUE(WaitUntil(8, [&] { return LargeFormatWrites(board) == std::vector<std::string>{"80"}; }));
    Pause(2);
    EXPECT_EQ(LargeFormatWrites(board).size(), 1u) << "switched once";
    ASSERT_EQ(Ctl(board, {"hdmi-in", "0", "1920x1080p30"}).status, 0);
    EXPECT_TRUE(WaitUntil(8, [&] { return LargeFormatWrites(board) == std::vector<std::string>{"80", "00"}; }));
}
