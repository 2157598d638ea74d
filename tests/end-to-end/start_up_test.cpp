// From power-on to the running daemon: order, identity, settings file, one-shot modes, the ends of the process.
#include <gmock/gmock.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include "board_run.h"

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;

static void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// The texts appear in this order, each after the one before it.
static void ExpectInOrder(const std::string& output, const std::vector<std::string>& texts) {
    size_t from = 0;
    for (const std::string& text : texts) {
        const size_t at = output.find(text, from);
        ASSERT_NE(at, std::string::npos) << "missing (or too early): " << text << "in:\n" << output;
        from = at + text.size();
    }
}

struct Ended {
    int status;
    std::string output;
};

static Ended RunOnce(Words words, const Words& arguments = {}) {
    words.insert(words.end(), {"--no-restart", "--"});
    words.insert(words.end(), arguments.begin(), arguments.end());
    const Board board = StartNewBoard(words);
    const int status = WaitForEnd(board, 20);
    return {status, Output(board)};
}

TEST(StartUp, FreshBoardComesUpInOrder) {
    const Board board = StartUntil("Playing video pipeline...\n", {"--camera1", "fullhd-mjpeg"});
    ExpectInOrder(Output(board),
                  {"Can't open application config file.\n", "Tesselvisor Version 2.0.12\n",
                   "---------------------------------------------\n", "Hardware ID: 0\n",
                   "Read configuration failed. Apply default values.\n", "In main: creating led thread\n",
                   "In main: creating UART thread\n", "In main: creating console thread\n",
                   "In main: creating Gstreamer video thread\n", "In main: creating Gstreamer audio thread\n"});
    EXPECT_THAT(Output(board), Not(HasSubstr("Initialization failed.\n")));
    EXPECT_THAT(Ctl(board, {"journal"}).out, HasSubstr("6 Read configuration failed. Apply default values."));

    // The same order at the boundary: buses, probes, lines, MAC, receiver, output, watchdog.
    std::string story;
    for (const Json& entry : TraceLines(board)) {
        const std::string what = entry["what"];
        if (what == "i2c") story += "i2c " + entry["address"].get<std::string>() + "\n";
        if (what == "gpio") story += "gpio " + std::to_string(entry["line"].get<int>()) + "\n";
        if (what == "exec" && entry["arguments"][0] == "sh")
            story += "run " + entry["arguments"].back().get<std::string>() + "\n";
        if (what == "watchdog") story += "watchdog\n";
    }
    ExpectInOrder(story, {"run amixer -D hw:0 set PGA 0 > /dev/null\n",
                          "run amixer -D hw:0 sset 'ADC HPF Cut-off' '0.0045xFs' > /dev/null\n",
                          "run amixer -D hw:0 set PCM 127 > /dev/null\n",
                          "run dmesg -n 1\n",
                          "run /etc/init.d/syslog stop > /dev/null\n",
                          "run uname -a\n",
                          "i2c 53\n",
                          "i2c 21\n",
                          "run uname -a\n",
                          "gpio 7\n",
                          "gpio 104\n",
                          "run ifconfig eth0 | grep 'HWaddr'\n",
                          "gpio 41\n",
                          "i2c 4C\n",
                          "i2c 34\n",
                          "i2c 36\n",
                          "gpio 43\n",
                          "run fbset -fb /dev/fb0",
                          "run fbset -fb /dev/fb2",
                          "run echo 0 > /sys/class/graphics/fb0/blank",
                          "watchdog\n",
                          "run stty -F /dev/ttymxc2 eol2 '>' -echo\n"});
}

TEST(StartUp, GovernorCoresAndOldKernelRegister) {
    const Board board = StartUntil("creating Gstreamer video thread", {"--old-kernel"});
    for (const char* core : {"cpu0", "cpu1"}) {
        const std::string file =
            BoardFile(board, "volatile/sys/devices/system/cpu/") + core + "/cpufreq/scaling_governor";
        EXPECT_THAT(FileText(file), HasSubstr("performance")) << core;
    }
    const std::string memory = BoardFile(board, "volatile/dev/mem");
    const auto isSet = [&] {
        uint32_t value = 0;
        std::ifstream(memory, std::ios::binary).seekg(0x02630000).read(reinterpret_cast<char*>(&value), sizeof value);
        return value == 0x04008A00;
    };
    EXPECT_TRUE(WaitUntil(5, isSet));
    std::fstream(memory, std::ios::in | std::ios::out | std::ios::binary).seekp(0x02630000).write("\0\0\0\0", 4);
    EXPECT_TRUE(WaitUntil(2, isSet)) << "rewritten again and again";
}

TEST(StartUp, MissingCodecIsReportedAndStartGoesOn) {
    const Board board = StartUntil("creating Gstreamer audio thread", {});
    ASSERT_EQ(Ctl(board, {"fault", "sound", "analog", "gone"}).status, 0);
    Ctl(board, {"trace", "--clear"});
    const size_t from = OutputSize(board);
    ASSERT_TRUE(TypeAndWait(board, "<RESTART>\n", "creating Gstreamer audio thread", 30)) << Output(board);
    EXPECT_THAT(Output(board).substr(from), HasSubstr("Audio channel setup failed.\nInitialization failed.\n"));
    EXPECT_THAT(ShellLines(board), Not(testing::Contains("dmesg -n 1")));
}

TEST(OneShot, ModesPrintAndEndWithStatusZero) {
    using Mode = std::pair<Words, std::string>;
    const std::string usage =
        "Bad I2C command\n./Tesselvisor i2c read i2cbus address register data\n"
        "./Tesselvisor i2c write i2cbus address register data\n";
    for (const auto& [arguments, output] :
         {Mode{{"version"}, "Version 2.0.12\n"}, Mode{{"ver"}, "Version 2.0.12\n"}, Mode{{"deviceid"}, "DeviceID 2\n"},
          Mode{{"video"}, "Video unlocked\n"}, Mode{{"i2c", "read", "2", "48", "0"}, "I2C RD - reg = 0 : value = 10\n"},
          Mode{{"i2c", "write", "2", "48", "1F", "a5"}, "I2C WR - reg = 1F : value = A5\n"},
          Mode{{"i2c", "read", "1", "53"}, usage}}) {
        const Ended ended = RunOnce({"--device-id", "2"}, arguments);
        EXPECT_EQ(ended.status, 0);
        EXPECT_THAT(ended.output, HasSubstr(output)) << testing::PrintToString(arguments);
        EXPECT_THAT(ended.output, Not(HasSubstr("Tesselvisor Version"))) << "a mode starts nothing";
    }
    const Ended silent = RunOnce({}, {"foo"});
    EXPECT_EQ(silent.status, 0);
    const size_t ports = silent.output.find("Telnet: ");  // the emulator's last line
    EXPECT_EQ(silent.output.substr(silent.output.find('\n', ports) + 1), "Can't open application config file.\n");
}

TEST(StartUp, UnknownHardwareStopsAfterTheBanner) {
    const Ended ended = RunOnce({"--device-id", "4"});
    EXPECT_EQ(ended.status, 0);
    ExpectInOrder(ended.output,
                  {"---------------------------------------------\n", "Hardware not recognized. Exit.\n"});
    EXPECT_THAT(ended.output, Not(HasSubstr("Hardware ID")));
}

// The programming's status is that of its last line, which writes into sysfs.
TEST(StartUp, MissingDevicesEndWithStatusOne) {
    for (const char* missing : {"sys/class/graphics/fb0", "dev/watchdog"}) {
        const Board board = StartUntil("creating Gstreamer video thread", {});
        EXPECT_GT(fs::remove_all(fs::path(BoardFile(board, "volatile")) / missing), 0u);
        Type(board, "<RESTART>\n");
        EXPECT_TRUE(WaitUntil(15, [&] { return Status(board)["daemon"].value("exit", 0) == 1; })) << missing;
    }
}

TEST(StartUp, UpgradeScriptTakesOver) {
    const Board board = StartUntil("Playing video pipeline...\n", {"--camera1", "fullhd-mjpeg"});
    const fs::path stick = fs::path(BoardFile(board, "volatile")) / "run/media/sda1/quendalupdate";
    fs::create_directories(stick);
    WriteFile(stick / "install.sh", "echo installing in $(pwd)\n");
    fs::remove(BoardFile(board, "home/root/config.bin"));
    const size_t from = OutputSize(board);
    ASSERT_TRUE(TypeAndWait(board, "<RESTART>\n", "UPGRADE MODE DETECTED!\n", 20)) << Output(board);
    ASSERT_TRUE(WaitForOutput(board, "installing in /run/media/sda1/quendalupdate\n", 10, from)) << Output(board);
    Pause(3);
    EXPECT_THAT(Output(board).substr(from), Not(HasSubstr("In main: creating")));
    EXPECT_TRUE(SavedSettings(board).empty());
    EXPECT_EQ(Status(board)["daemon"]["state"], "running");
}

// The start goes on with defaults, and leaves a good file to the next one.
TEST(Settings, DamagedFilesAreReplacedByDefaults) {
    using File = std::pair<std::string, std::string>;
    for (const auto& [content, message] :
         {File{std::string(135, '\0'), "Reading config error\n"},
          File{std::string(136, '\xff'), "Bad config checksum. Apply default values.\n"}}) {
        const Board board = MakeBoard();
        WriteFile(BoardFile(board, "home/root/config.bin"), content);
        StartBoard(board, {});
        ASSERT_TRUE(WaitForOutput(board, "In main: creating UART thread", 30)) << Output(board);
        EXPECT_THAT(Output(board), HasSubstr(message));
        EXPECT_TRUE(TypeAndWait(board, "<RESTART>\n", "Good config checksum.\n", 30)) << Output(board);
    }
}

static bool IsArmed(const Board& board) { return Status(board)["watchdog"]["armed"]; }

TEST(ProcessControl, QuitDisarmsRestartDoesNot) {
    const Board board = StartUntil("Opening watchdog handle...\n", {});
    ASSERT_TRUE(TypeAndWait(board, "<RESTART>\n", "Opening watchdog handle...\n", 30));
    EXPECT_TRUE(WaitUntil(5, [&] { return IsArmed(board); }));
    Type(board, "<QUIT>\n");
    ASSERT_TRUE(WaitUntil(10, [&] { return !IsArmed(board); }));
    EXPECT_TRUE(TraceLines(board, "reset").empty());
}

TEST(Watchdog, StarvedWatchdogResetsTheBoard) {
    const Board board = StartUntil("Opening watchdog handle...\n", {});
    ASSERT_TRUE(WaitUntil(5, [&] { return IsArmed(board); }));
    ASSERT_EQ(kill(Status(board)["daemon"]["pid"].get<pid_t>(), SIGSTOP), 0);
    const auto pats = TraceLines(board, "watchdog");
    ASSERT_FALSE(pats.empty());
    const size_t from = OutputSize(board);
    ASSERT_TRUE(WaitForOutput(board, "Tesselvisor Version", 50, from)) << Output(board);
    const auto resets = TraceLines(board, "reset");
    ASSERT_FALSE(resets.empty());
    EXPECT_EQ(resets.back()["why"], "watchdog");
    EXPECT_GT(resets.back()["t"].get<int64_t>(), pats.back()["t"].get<int64_t>() + 29'000'000) << "30 s after the pat";
}

TEST(Watchdog, MarkerFileKeepsItUntouched) {
    const Board board = MakeBoard();
    WriteFile(BoardFile(board, "home/root/Tesselvisor.NoWatchdog"), "");
    StartBoard(board, {});
    ASSERT_TRUE(WaitForOutput(board, "creating Gstreamer video thread", 30));
    EXPECT_THAT(Output(board), HasSubstr("Disabling watchdog support!\n"));
    Pause(3);
    EXPECT_TRUE(TraceLines(board, "watchdog").empty());
}

TEST(KernelIssue, DisplayFlipTimeoutReboots) {
    const Board board = StartUntil("creating Gstreamer video thread", {});
    ASSERT_EQ(Ctl(board, {"kernel-log", "mxc_sdc_fb fb@0: timeout when waiting for flip irq"}).status, 0);
    ASSERT_TRUE(TypeAndWait(board, "<RESTART>\n", "Kernel issue! Need to restart...\n", 30)) << Output(board);
    ASSERT_TRUE(WaitUntil(15, [&] { return !TraceLines(board, "reset").empty(); }));
    EXPECT_EQ(TraceLines(board, "reset").back()["why"], "reboot");
}
