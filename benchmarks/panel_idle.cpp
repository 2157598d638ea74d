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
#include <fstream>
#include <map>
#include <span>
#include <sstream>

#include "board_run.h"
#include "figures.h"

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

struct Spent {
    std::string name;
    double seconds = 0;  // on a processor
    double wakeUps = 0;
    double writes = 0;
};
using Threads = std::map<int, Spent>;

static double NumberBehind(const std::string& path, const std::string& label) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(label)) return std::stod(line.substr(label.size()));
    return 0;
}

static Threads ThreadsOf(int pid) {
    Threads threads;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        Spent spent;
        std::ifstream comm(task.path() / "comm"), times(task.path() / "schedstat");
        double nanoseconds = 0;
        if (!std::getline(comm, spent.name) || !(times >> nanoseconds)) continue;
        spent.seconds = nanoseconds / 1e9;
        spent.wakeUps = NumberBehind(task.path() / "status", "voluntary_ctxt_switches:");
        spent.writes = NumberBehind(task.path() / "io", "syscw:");
        threads[std::stoi(task.path().filename())] = spent;
    }
    return threads;
}

// Programs that have run to their end.
static double SecondsOfChildren(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    const std::string line{std::istreambuf_iterator<char>(file), {}};
    std::istringstream rest(line.substr(std::min(line.size(), line.rfind(')') + 1)));
    std::vector<std::string> fields{std::istream_iterator<std::string>(rest), {}};
    fields.resize(std::max<size_t>(fields.size(), 15), "0");
    return (std::stod(fields[13]) + std::stod(fields[14])) / double(sysconf(_SC_CLK_TCK));
}

static void ReportSpent(const std::string& row, double seconds, double wakeUps) {
    std::vector<FigureColumn> columns{{"ms/s", 1000 * seconds / kMeasured}, {"wake-ups/s", wakeUps / kMeasured}};
    if (wakeUps > 0) columns.push_back({"µs per wake-up", 1e6 * seconds / wakeUps});
    ReportRow("idle threads", row, columns);
}

static constexpr std::string_view kOwnThreads[] = {
    "Tesselvisor", "led", "UART", "console", "LAN", "HTTP", "Gstreamer video", "Gstreamer audio"};

static Spent Between(const Spent& before, const Spent& after) {
    return {after.name, after.seconds - before.seconds, after.wakeUps - before.wakeUps, after.writes - before.writes};
}

// What the daemon did not start itself belongs to the sound, which runs without a picture, too.
static void ReportThreads(const std::string& form, Threads before, const Threads& after) {
    Spent sound;
    for (const auto& [thread, now] : after) {
        const Spent spent = Between(before[thread], now);
        if (std::ranges::find(kOwnThreads, spent.name) != std::end(kOwnThreads)) {
            ReportSpent(form + ": " + spent.name, spent.seconds, spent.wakeUps);
        } else {
            sound.seconds += spent.seconds;
            sound.wakeUps += spent.wakeUps;
        }
    }
    ReportSpent(form + ": threads of the sound", sound.seconds, sound.wakeUps);
}

// What a pass costs and how often it is made.
static void ReportPasses(const char* what, const Form& form, const Spent& spent) {
    const double passes = spent.writes / form.writes;
    ReportRow("panel passes", std::string(form.name) + ": " + what,
              {{"passes/s", passes / kMeasured},
               {"wake-ups/pass", spent.wakeUps / passes},
               {"µs/pass", 1e6 * spent.seconds / passes}});
}

static Spent LedThread(const Threads& before, const Threads& after) {
    const auto led = std::ranges::find(after, "led", [](const auto& thread) { return thread.second.name; });
    return led == after.end() ? Spent{} : Between(before.at(led->first), led->second);
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
    const Threads after = ThreadsOf(pid), bareAfter = ThreadsOf(barePid);
    ReportThreads(form.name, before, after);
    ReportSpent(std::string(form.name) + ": programs that it ran", SecondsOfChildren(pid) - children, 0);
    ReportPasses("led thread", form, LedThread(before, after));
    ReportPasses("bare accesses", form, Between(bareBefore.at(barePid), bareAfter.at(barePid)));
    return true;
}

int main(int count, char** arguments) {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    for (const Form& form : kForms) {
        if (count == 2 && strcmp(arguments[1], form.name) == 0) MakePasses(form);
        if (count == 1 && !Measure(form, self)) return fprintf(stderr, "%s: it did not start\n", form.name), 1;
    }
}
