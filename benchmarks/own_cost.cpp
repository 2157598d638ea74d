// What the daemon costs by itself, without what streams picture and sound: processor time of every thread that it
// started, on a board with the keypad's panel, a running picture and sound. Beside it a thread of this program that
// sleeps for a millisecond again and again and does nothing else, at the same time: what the computer takes for it is
// the least that a poll of every millisecond can cost. Then the daemon's memory: before any pipeline exists, and how it
// grows while both run.
//
//     own_cost [MINUTES]        2 without an argument
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "board_run.h"
#include "figures.h"
#include "process_figures.h"
#include "thread_figures.h"

static constexpr double kMinutes = 2, kMinute = 60, kSamplePause = 2.5;  // s
static constexpr double kSettle = 20;                                    // s until the pools of both pipelines are full
static const std::string kSleeper = "a sleep of 1 ms";

static int DaemonOf(const Board& board) { return Status(board)["daemon"]["pid"]; }

// ---- Memory

struct Memory {
    double minute = 0;
    double resident = 0, anonymous = 0;  // KB; anonymous: heaps, stacks, frames
};

static Memory MemoryOf(int pid, double minute) {
    Memory memory{.minute = minute};
    std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("Rss:")) memory.resident = std::stod(line.substr(4));
        if (line.starts_with("Anonymous:")) memory.anonymous = std::stod(line.substr(10));
    }
    return memory;
}

// Least squares: KB a minute.
static double Slope(const std::vector<Memory>& samples, double Memory::*field) {
    double minutes = 0, mean = 0, products = 0, squares = 0;
    for (const Memory& sample : samples) minutes += sample.minute, mean += sample.*field;
    minutes /= double(samples.size()), mean /= double(samples.size());
    for (const Memory& sample : samples) {
        products += (sample.minute - minutes) * (sample.*field - mean);
        squares += (sample.minute - minutes) * (sample.minute - minutes);
    }
    return squares > 0 ? products / squares : 0;
}

static void ReportMemory(const std::string& row, const Memory& memory) {
    ReportRow("own memory", row, {{"resident KB", memory.resident}, {"anonymous KB", memory.anonymous}});
}

static Memory MedianOf(const std::vector<Memory>& samples, size_t first, size_t count) {
    std::vector<double> resident, anonymous;
    for (size_t i = first; i < first + count; ++i) {
        resident.push_back(samples[i].resident);
        anonymous.push_back(samples[i].anonymous);
    }
    return {.resident = Median(resident), .anonymous = Median(anonymous)};
}

static void ReportGrowth(const std::vector<Memory>& samples) {
    const size_t part = std::max<size_t>(samples.size() / 4, 1);
    ReportMemory("picture and sound, first quarter", MedianOf(samples, 0, part));
    ReportMemory("picture and sound, last quarter", MedianOf(samples, samples.size() - part, part));
    ReportMemory("growth in a minute",
                 {.resident = Slope(samples, &Memory::resident), .anonymous = Slope(samples, &Memory::anonymous)});
}

// Nothing is plugged: there is no picture, and the sound is built only ten seconds after the start.
static bool MeasureWithoutPipelines() {
    const Board board = StartNewBoard({"--monitor", "none"});
    if (!WaitForOutput(board, "Manage dynamic pipeline", 30)) return false;
    Pause(3);
    ReportMemory("no pipeline yet", MemoryOf(DaemonOf(board), 0));
    return true;
}

// ---- Threads

static void SleepAgainAndAgain(const std::stop_token& ends) {
    pthread_setname_np(pthread_self(), kSleeper.c_str());
    while (!ends.stop_requested()) usleep(1'000);
}

static void ReportThread(const std::string& row, const ThreadFigures& spent, double seconds) {
    ReportRow("own cost", row,
              {{"ms/s", 1000 * spent.seconds / seconds},
               {"wake-ups/s", spent.wakeUps / seconds},
               {"us/wake-up", spent.wakeUps > 0 ? 1e6 * spent.seconds / spent.wakeUps : 0}});
}

// In the order of their start.
static void ReportThreads(const Threads& daemon, const Threads& self, double seconds) {
    ThreadFigures total;
    for (const auto& [number, thread] : daemon) {
        if (!thread.own) continue;
        ReportThread(thread.name, thread, seconds);
        total.seconds += thread.seconds;
        total.wakeUps += thread.wakeUps;
    }
    ReportThread("total", total, seconds);
    for (const auto& [number, thread] : self)
        if (thread.name == kSleeper) ReportThread(kSleeper + ", again and again", thread, seconds);
}

static bool MeasureAtWork(double minutes) {
    const Board board = StartNewBoard({"--camera1", "hd-mjpeg"});
    if (!WaitForPicture(board) || !WaitForSound(board)) return false;
    Pause(kSettle);
    const int pid = DaemonOf(board);
    const std::jthread sleeper(SleepAgainAndAgain);
    Pause(0.1);
    std::vector<Memory> samples;
    const double start = FiguresOf(pid).wallSeconds;
    const double children = SecondsOfChildren(pid);
    const Threads before = ThreadsOf(pid), selfBefore = ThreadsOf(getpid());
    for (double now = start; now < start + minutes * kMinute; now = FiguresOf(pid).wallSeconds) {
        samples.push_back(MemoryOf(pid, (now - start) / kMinute));
        Pause(kSamplePause);
    }
    const double seconds = FiguresOf(pid).wallSeconds - start;
    ReportThreads(Between(before, ThreadsOf(pid)), Between(selfBefore, ThreadsOf(getpid())), seconds);
    ReportThread("programs that it ran", {.name = {}, .seconds = SecondsOfChildren(pid) - children}, seconds);
    ReportGrowth(samples);
    return true;
}

int main(int count, char** arguments) {
    const double minutes = count > 1 ? strtod(arguments[1], nullptr) : kMinutes;
    if (MeasureWithoutPipelines() && MeasureAtWork(minutes)) return 0;
    fprintf(stderr, "The board shows no picture or plays no sound.\n");
    return 1;
}
