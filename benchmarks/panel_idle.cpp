// What the daemon costs while it has nothing to show: no camera, no monitor, every form of the front panel in turn.
// Processor time and wake-ups of every thread, beside a program on a second board at the same time that makes nothing
// but the prescribed accesses of a pass and sleeps. A device access wakes the thread once here: the emulator answers
// it.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <span>

#include "board_run.h"
#include "figures.h"
#include "thread_figures.h"

static constexpr double kMeasured = 30;  // s

// ---- The accesses of a pass and nothing else

static void WriteFile(const std::string& path, std::string_view text) {
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0 || write(file, text.data(), text.size()) < 0) perror(path.c_str());
    close(file);
}

static std::string LineFile(int line, const char* name) {
    return "/sys/class/gpio/gpio" + std::to_string(line) + "/" + name;
}

static void Drive(int line) { WriteFile(LineFile(line, "value"), "1"); }

static void Sense(int line) {
    const int file = open(LineFile(line, "value").c_str(), O_RDONLY | O_CLOEXEC);
    char level;
    if (file < 0 || read(file, &level, 1) != 1) perror("value");
    close(file);
}

static int buses[3];

static void Transfer(int bus, std::span<i2c_msg> messages) {
    i2c_rdwr_ioctl_data request{messages.data(), uint32_t(messages.size())};
    if (ioctl(buses[bus], I2C_RDWR, &request) < 0) perror("transfer");
}

static void Put(uint8_t address, std::vector<uint8_t> bytes) {
    std::array messages{i2c_msg{.addr = address, .flags = 0, .len = uint16_t(bytes.size()), .buf = bytes.data()}};
    Transfer(2, messages);
}

static void Get(int bus, uint8_t address, uint8_t reg, uint16_t count) {
    std::array<uint8_t, 25> bytes;
    std::array messages{i2c_msg{.addr = address, .flags = 0, .len = 1, .buf = &reg},
                        i2c_msg{.addr = address, .flags = I2C_M_RD, .len = count, .buf = bytes.data()}};
    Transfer(bus, messages);
}

static void KeypadPass() {
    Sense(87);
    Get(2, 0x08, 0, 25);
    Put(0x08, {0, 1, 0xAB, 0xCD, 0, 0, 0, 0, 0, 0, 0});
    usleep(25'000);
}

static void ExpanderPass() {
    Sense(87);
    Get(2, 0x21, 1, 1);
    Put(0x21, {2, 1});
    Put(0x21, {0x40, 0, 0});
    Get(2, 0x21, 6, 1);
    usleep(25'000);
}

static void PlainPass() { usleep(1'000); }

static void ButtonsPass() {
    for (const int line : {154, 106, 103}) {
        WriteFile(LineFile(line, "direction"), "in");
        Sense(line);
        WriteFile(LineFile(line, "direction"), "out");
    }
    for (const int line : {104, 154, 106, 103}) Drive(line);
    usleep(1'000);
}

struct Form {
    const char* name;
    Words options;
    int hdmi0Indicator;
    double writes;  // to files, in a pass
    void (*pass)();
};

static const Form kForms[] = {
    {.name = "keypad", .options = {}, .hdmi0Indicator = 83, .writes = 5, .pass = KeypadPass},
    {.name = "expander", .options = {"--panel", "expander"}, .hdmi0Indicator = 105, .writes = 5, .pass = ExpanderPass},
    {.name = "no panel",
     .options = {"--panel", "none", "--device-id", "1"},
     .hdmi0Indicator = 83,
     .writes = 5,
     .pass = PlainPass},
    {.name = "buttons on lines",
     .options = {"--panel", "none", "--device-id", "1", "--old-kernel"},
     .hdmi0Indicator = 83,
     .writes = 15,
     .pass = ButtonsPass},
};

[[noreturn]] static void MakePasses(const Form& form) {
    for (const int bus : {1, 2}) buses[bus] = open(("/dev/i2c-" + std::to_string(bus)).c_str(), O_RDWR | O_CLOEXEC);
    for (const int line : {7, 8, 9, 83, 105, 126, 87, 103, 106, 154, 104}) {
        WriteFile("/sys/class/gpio/export", std::to_string(line));
        WriteFile(LineFile(line, "direction"), line == 87 ? "in" : "out");
    }
    if (form.pass == ExpanderPass) Put(0x21, {6, 0});
    for (;;) {
        for (const int line : {7, 8, 9, form.hdmi0Indicator, 126}) Drive(line);
        for (int port = 0; port < 2; ++port) Get(1, 0x4C, 0x6A, 1);
        form.pass();
    }
}

// ---- Threads

static void ReportSpent(const std::string& row, double seconds, double wakeUps) {
    std::vector<FigureColumn> columns{{"ms/s", 1000 * seconds / kMeasured}, {"wake-ups/s", wakeUps / kMeasured}};
    if (wakeUps > 0) columns.push_back({"µs per wake-up", 1e6 * seconds / wakeUps});
    ReportRow("idle threads", row, columns);
}

// What the daemon did not start itself belongs to the sound, which runs without a picture, too.
static void ReportThreads(const std::string& form, const Threads& spent) {
    ThreadFigures sound;
    for (const auto& [number, thread] : spent) {
        if (thread.own) {
            ReportSpent(form + ": " + thread.name, thread.seconds, thread.wakeUps);
        } else {
            sound.seconds += thread.seconds;
            sound.wakeUps += thread.wakeUps;
        }
    }
    ReportSpent(form + ": threads of the sound", sound.seconds, sound.wakeUps);
}

// What a pass costs and how often it is made.
static void ReportPasses(const char* what, const Form& form, const ThreadFigures& spent) {
    const double passes = spent.writes / form.writes;
    ReportRow("panel passes", std::string(form.name) + ": " + what,
              {{"passes/s", passes / kMeasured},
               {"wake-ups/pass", spent.wakeUps / passes},
               {"µs/pass", 1e6 * spent.seconds / passes}});
}

static ThreadFigures LedThread(const Threads& spent) {
    const auto led = std::ranges::find(spent, "led", [](const auto& thread) { return thread.second.name; });
    return led == spent.end() ? ThreadFigures{} : led->second;
}

static bool Measure(const Form& form, const std::string& self) {
    Words daemonOptions = form.options, bareOptions = form.options;
    daemonOptions.insert(daemonOptions.end(), {"--monitor", "none"});
    bareOptions.insert(bareOptions.end(), {"--daemon", self, "--no-restart", "--", form.name});
    const Board board = StartNewBoard(daemonOptions), bare = StartNewBoard(bareOptions);
    if (!WaitForOutput(board, "Manage dynamic pipeline", 30)) return false;
    Pause(15);  // past the search for sound and the first reports
    const int pid = Status(board)["daemon"]["pid"], barePid = Status(bare)["daemon"]["pid"];
    const double children = SecondsOfChildren(pid);
    const Threads before = ThreadsOf(pid), bareBefore = ThreadsOf(barePid);
    Pause(kMeasured);
    const Threads spent = Between(before, ThreadsOf(pid)), bareSpent = Between(bareBefore, ThreadsOf(barePid));
    ReportThreads(form.name, spent);
    ReportSpent(std::string(form.name) + ": programs that it ran", SecondsOfChildren(pid) - children, 0);
    ReportPasses("led thread", form, LedThread(spent));
    ReportPasses("bare accesses", form, bareSpent.at(barePid));
    return true;
}

int main(int count, char** arguments) {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    for (const Form& form : kForms) {
        if (count == 2 && strcmp(arguments[1], form.name) == 0) MakePasses(form);
        if (count == 1 && !Measure(form, self)) return fprintf(stderr, "%s: it did not start\n", form.name), 1;
    }
}
