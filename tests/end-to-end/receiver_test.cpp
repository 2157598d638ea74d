// The HDMI receiver's bring-up, access by access, what a chip that does not answer leads to, and large formats.
#include <gmock/gmock.h>

#include <fstream>
#include <set>

#include "board_run.h"

using testing::HasSubstr;
using testing::Not;

struct Write {
    const char* map;
    const char* bytes;  // register and data, as they go over the wire
};

// Every register write of the bring-up on a new kernel with a small (or no) input, in order. The EDID goes in one
// transfer.
static const std::vector<Write> kBringUp = {
    {"4c", "ff80"}, {"4c", "fd44"}, {"4c", "fb68"},   {"22", "0100"}, {"34", "6f0c"}, {"34", "851f"}, {"34", "8770"},
    {"34", "57da"}, {"34", "5801"}, {"34", "0390"},   {"34", "4c44"}, {"22", "3e80"}, {"4c", "02f5"}, {"4c", "0c42"},
    {"4c", "15a0"}, {"4c", "0460"}, {"4c", "0106"},   {"4c", "0008"}, {"4c", "0320"}, {"4c", "0528"}, {"4c", "143f"},
    {"4c", "40e2"}, {"4c", "6ea8"}, {"4c", "20fc"},   {"4c", "19c8"}, {"4c", "3340"}, {"4c", "06a0"}, {"4c", "f480"},
    {"4c", "f57c"}, {"4c", "f84c"}, {"4c", "f964"},   {"4c", "fa6c"}, {"4c", "fb68"}, {"4c", "fd44"}, {"4c", "0480"},
    {"4c", "06a1"}, {"4c", "0380"}, {"4c", "1988"},   {"40", "2a3e"}, {"26", "b503"}, {"32", "7400"}, {"32", "7600"},
    {"32", "53ff"}, {"32", "52ff"}, {"32", "7001"},   {"34", "c003"}, {"34", "0080"}, {"34", "0104"}, {"34", "0203"},
    {"34", "0398"}, {"34", "1025"}, {"34", "1b08"},   {"34", "4504"}, {"34", "97c0"}, {"34", "3d10"}, {"34", "3e69"},
    {"34", "3f46"}, {"34", "4efe"}, {"34", "4f08"},   {"34", "5000"}, {"34", "57a3"}, {"34", "5807"}, {"34", "6ca2"},
    {"34", "6f08"}, {"34", "7300"}, {"34", "83fc"},   {"34", "8403"}, {"34", "851f"}, {"34", "869b"}, {"34", "8903"},
    {"34", "9b03"}, {"34", "9303"}, {"34", "5a80"},   {"34", "9c80"}, {"34", "9cc0"}, {"34", "9c00"}, {"22", "c010"},
    {"22", "c180"}, {"22", "c280"}, {"22", "bf17"},   {"22", "ba01"}, {"34", "1a10"},  // audio muted
    {"22", "bd00"}, {"22", "c92d"}, {"36", "00edid"}, {"32", "7403"}, {"34", "6ca1"}, {"4c", "2078"}, {"4c", "20f0"},
    {"34", "6ca2"}, {"34", "6ca1"}, {"4c", "20b8"},   {"4c", "20f0"}, {"34", "6ca2"},
};

static std::string Lower(std::string text) {
    for (char& letter : text) letter = char(tolower(letter));
    return text;
}

static std::string MapOf(const Json& transfer) { return Lower(transfer["address"]); }

static std::string WriteOf(const Json& transfer) {
    if (transfer["write"].size() == 256) return "00edid";
    std::string bytes = transfer["register"];
    for (const Json& value : transfer["write"]) bytes += value.get<std::string>();
    return Lower(bytes);
}

static bool IsWrite(const Json& transfer) { return transfer.contains("write"); }

TEST(Receiver, BringUpWritesEveryRegisterInOrder) {
    const Board board = StartNewBoard({});
    ASSERT_TRUE(WaitForOutput(board, "In main: creating UART thread\n", 30)) << Output(board);
    std::vector<std::string> writes, expected;
    for (const Json& transfer : TraceLines(board, "i2c"))
        if (transfer["bus"] == 1 && IsWrite(transfer) && writes.size() < kBringUp.size())
            writes.push_back(MapOf(transfer) + " " + WriteOf(transfer));
    for (const Write& write : kBringUp) expected.push_back(std::string(write.map) + " " + write.bytes);
    // Bits that a read-modify-write keeps depend on the chip's reset values; only those that it decides are golden.
    EXPECT_EQ(writes, expected);
}

// What a refused access leads to: these accesses of one map, counted from the start of the bring-up.
struct Refusal {
    const char* map;
    int first, last;
    const char* message;  // behind which the bring-up ends; null: it goes on
};
static constexpr const char* kTableFailed = "I2C failed 1\n";
static constexpr Refusal kRefusals[] = {
    {"4c", 1, 1, "CyFxHDMIRxMainReset Reset HDMI failed 1\n"},
    {"4c", 2, 3, nullptr},  // map addresses, with the preparation
    {"4c", 4, 25, kTableFailed},
    {"4c", 26, 33, nullptr},  // additions of the new kernel, hot-plug pulse
    {"40", 1, 1, kTableFailed},
    {"26", 1, 1, kTableFailed},
    {"32", 1, 5, kTableFailed},
    {"32", 6, 6, "write I2C KSV reg 0x74 failed 1\n"},
    {"34", 1, 7, nullptr},  // preparation
    {"34", 8, 38, kTableFailed},
    {"34", 39, 48, nullptr},  // audio mute, size of the input, hot-plug pulse
    {"22", 1, 2, nullptr},
    {"22", 3, 7, kTableFailed},
    {"22", 8, 8, "CyFxUsbI2cTransfer Send Data 2 failed 1\n"},
    {"22", 9, 9, "CyFxUsbI2cTransfer Send Data 1 failed 1\n"},
    {"22", 10, 10, "CyFxUsbI2cTransfer Send Data 3 failed 1\n"},
    {"36", 1, 1, ""},  // the EDID has no message of its own
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

// The first and the last access of each run; those in between are rows of the same table.
TEST(Receiver, RefusedAccessesHaveTheirMessage) {
    const Board board = StartNewBoard({"--monitor", "none"});
    ASSERT_TRUE(WaitForOutput(board, kUp, 30)) << Output(board);
    for (const Refusal& refusal : kRefusals)
        for (const int access : std::set{refusal.first, refusal.last}) {
            const std::string output = RestartWithRefusal(board, refusal.map, access);
            if (refusal.message)
                EXPECT_THAT(output, HasSubstr(std::string(refusal.message) + kFailed)) << refusal.map << access;
            else
                EXPECT_THAT(output, Not(HasSubstr(kFailed))) << refusal.map << access;
        }
}

TEST(Receiver, EdidFileProblemsCountAsSuccess) {
    using File = std::pair<size_t, std::string>;  // its size, 0: missing; what is said
    const Board board = StartNewBoard({});
    ASSERT_TRUE(WaitForOutput(board, kUp, 30)) << Output(board);
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
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg", "--hdmi-in", "1920x1080p30"});
    ASSERT_TRUE(WaitForOutput(board, "Playing video pipeline...\n", 30)) << Output(board);
    ASSERT_EQ(Ctl(board, {"hdmi-in", "0", "3840x2160p30"}).status, 0);
    EXPECT_TRUE(WaitUntil(8, [&] { return LargeFormatWrites(board) == std::vector<std::string>{"80"}; }));
    Pause(2);
    EXPECT_EQ(LargeFormatWrites(board).size(), 1u) << "switched once";
    ASSERT_EQ(Ctl(board, {"hdmi-in", "0", "1920x1080p30"}).status, 0);
    EXPECT_TRUE(WaitUntil(8, [&] { return LargeFormatWrites(board) == std::vector<std::string>{"80", "00"}; }));
}
