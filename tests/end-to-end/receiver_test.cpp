// The HDMI receiver's bring-up, access by access, and what a chip that does not answer leads to.
#include <gmock/gmock.h>

#include <fstream>

#include "board_run.h"

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

// The fault is put up between the end of the daemon and its next start, a second later, when nobody touches the bus.
static std::string RestartWithRefusal(const Board& board, const char* map, int access) {
    const size_t from = OutputSize(board);
    Type(board, "<RESTART>\n");
    EXPECT_TRUE(WaitUntil(5, [&] { return Status(board)["daemon"]["state"] != "running"; }));
    Ctl(board, {"fault", "i2c", map, "nak", std::to_string(access)});
    EXPECT_TRUE(WaitForOutput(board, "In main: creating console thread\n", 20, from)) << Output(board);
    Ctl(board, {"fault", "i2c", map, "off"});
    return Output(board).substr(from);
}

class ReceiverRefusal : public testing::TestWithParam<const char*> {};

TEST_P(ReceiverRefusal, NakAtEachAccess) {
    const Board board = StartNewBoard({"--monitor", "none"});
    ASSERT_TRUE(WaitForOutput(board, "In main: creating console thread\n", 30)) << Output(board);
    const std::string failed = "HDMI receiver initialization failed.\n";
    for (const Refusal& refusal : kRefusals)
        for (int access = refusal.first; GetParam() == std::string(refusal.map) && access <= refusal.last; ++access) {
            const std::string output = RestartWithRefusal(board, refusal.map, access);
            if (refusal.message)
                EXPECT_THAT(output, testing::HasSubstr(refusal.message + failed)) << access;
            else
                EXPECT_THAT(output, testing::Not(testing::HasSubstr(failed))) << access;
        }
}
INSTANTIATE_TEST_SUITE_P(Maps, ReceiverRefusal, testing::Values("4c", "34", "22", "26", "32", "36", "40"),
                         [](const auto& map) { return std::string("Map") + map.param; });

TEST(Receiver, EdidFileProblemsCountAsSuccess) {
    struct File {
        size_t size;  // 0: missing
        const char* message;
    };
    for (const File& file : {File{0, "File h error\r"}, File{301, "Reading h error\r"}, File{256, ""}}) {
        const Board board = StartNewBoard({});
        ASSERT_TRUE(WaitForOutput(board, "In main: creating Gstreamer video thread", 30)) << Output(board);
        const std::string path = BoardFile(board, "home/root/EDID_HDMI_INPUT.bin");
        remove(path.c_str());
        if (file.size) std::ofstream(path, std::ios::binary) << std::string(file.size, '\x01');
        const size_t from = OutputSize(board);
        Ctl(board, {"trace", "--clear"});
        Type(board, "<RESTART>\n");
        ASSERT_TRUE(WaitForOutput(board, "In main: creating Gstreamer video thread", 30, from)) << Output(board);
        const std::string output = Output(board).substr(from);
        EXPECT_THAT(output, testing::HasSubstr(file.message));
        EXPECT_THAT(output, testing::Not(testing::HasSubstr("HDMI receiver initialization failed")));
        bool programmed = false;
        for (const Json& transfer : TraceLines(board, "i2c"))
            programmed |= MapOf(transfer) == "36" && IsWrite(transfer);
        EXPECT_EQ(programmed, file.size == 256);
    }
}

static std::vector<std::string> LargeFormatWrites(const Board& board) {
    std::vector<std::string> writes;
    for (const Json& transfer : TraceLines(board, "i2c"))
        if (IsWrite(transfer) && MapOf(transfer) == "26" && transfer["register"] == "C3")
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
