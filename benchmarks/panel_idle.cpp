// What the daemon costs while it has nothing to show: no camera, no monitor, every form of the front panel in turn.
// Processor time and wake-ups of every thread, beside a program on a second board at the same time that makes nothing
// but the prescribed accesses of a pass and sleeps. A device access wakes the thread once here: the emulator answers
// it.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "bare_accesses.h"
#include "board_run.h"
#include "figures.h"
#include "thread_figures.h"

static constexpr double kMeasured = 30;  // s

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
    OpenBuses();
    ExportLines();
    if (form.pass == ExpanderPass) Put(2, 0x21, {6, 0});
    for (;;) {
        IndicatorPass(form.hdmi0Indicator);
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
