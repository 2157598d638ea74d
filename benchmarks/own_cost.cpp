// What the daemon costs by itself, without what streams picture and sound: processor time of every thread that it
// started, on a board with the keypad's panel, a running picture and sound. At the same time, on a second board, this
// program in the daemon's place, with threads that make the accesses of the daemon's passes and nothing else: the least
// that they can take on this computer, where every access of a device wakes its thread, because the emulator answers
// it. Then the daemon's memory: before any pipeline exists, and how it grows while both run.
//
//     own_cost [MINUTES]        2 without an argument
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "bare_accesses.h"
#include "board_run.h"
#include "figures.h"
#include "process_figures.h"
#include "thread_figures.h"

static constexpr double kMinutes = 2, kMinute = 60, kSamplePause = 2.5;  // s
static constexpr double kSettle = 20;                                    // s until the pools of both pipelines are full
static constexpr const char* kBare = "bare";                             // in the daemon's place

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
    if (!WaitForOutput(board, "Manage dynamic pipeline", 30)) return fprintf(stderr, "no start\n"), false;
    Pause(3);
    ReportMemory("no pipeline yet", MemoryOf(DaemonOf(board), 0));
    return true;
}

// ---- Threads

struct BareThread {
    const char* name;  // the daemon's
    void (*pass)(int port);
};
static constexpr BareThread kBareThreads[] = {
    {.name = "led",
     .pass =
         [](int) {
             IndicatorPass(83);
             KeypadPass();
         }},
    {.name = "UART", .pass = SerialPass},
    {.name = "Gstreamer video", .pass = CablePass},
    {.name = "Gstreamer audio", .pass = CardsPass},
    {.name = "HDMI sync", .pass = [](int) { SyncPass(); }},
};

static void RunBare() {
    pthread_setname_np(pthread_self(), "Tesselvisor");
    OpenBuses();
    ExportLines();
    const int port = open("/dev/ttymxc2", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    std::vector<std::jthread> threads;
    for (const BareThread& row : kBareThreads)
        threads.emplace_back([&row, port] {
            pthread_setname_np(pthread_self(), row.name);
            for (;;) row.pass(port);
        });
    for (;;) usleep(100'000);
}

static double SecondsOf(const Threads& threads, const std::string& name) {
    const auto found = std::ranges::find_if(threads, [&name](const auto& row) { return row.second.name == name; });
    return found == threads.end() ? 0 : found->second.seconds;
}

static void ReportThread(const std::string& row, const ThreadFigures& spent, double bareSeconds, double seconds) {
    ReportRow("own cost", row,
              {{"ms/s", 1000 * spent.seconds / seconds},
               {"bare accesses ms/s", 1000 * bareSeconds / seconds},
               {"times", bareSeconds > 0 ? spent.seconds / bareSeconds : 0},
               {"wake-ups/s", spent.wakeUps / seconds}});
}

// In the order of their start. What never ran is a thread that waits for a client.
static void ReportThreads(const Threads& daemon, const Threads& bare, double seconds) {
    ThreadFigures total;
    double bareTotal = 0;
    for (const auto& [number, thread] : daemon) {
        if (!thread.own) continue;
        const double least = SecondsOf(bare, thread.name);
        ReportThread(thread.name, thread, least, seconds);
        total.seconds += thread.seconds;
        total.wakeUps += thread.wakeUps;
        bareTotal += least;
    }
    ReportThread("total", total, bareTotal, seconds);
}

static bool MeasureAtWork(const std::string& self, double minutes) {
    const Words camera{"--camera1", "hd-mjpeg"};
    const Board board = StartNewBoard(camera);
    if (!WaitForPicture(board) || !WaitForSound(board)) return fprintf(stderr, "no picture or no sound\n"), false;
    const Board bare = StartNewBoard({camera[0], camera[1], "--daemon", self, "--no-restart", "--", kBare});
    Pause(kSettle);
    const int pid = DaemonOf(board), barePid = DaemonOf(bare);
    std::vector<Memory> samples;
    const double start = FiguresOf(pid).wallSeconds, children = SecondsOfChildren(pid);
    const Threads before = ThreadsOf(pid), bareBefore = ThreadsOf(barePid);
    for (double now = start; now < start + minutes * kMinute; now = FiguresOf(pid).wallSeconds) {
        samples.push_back(MemoryOf(pid, (now - start) / kMinute));
        Pause(kSamplePause);
    }
    const double seconds = FiguresOf(pid).wallSeconds - start;
    if (DaemonOf(board) != pid || DaemonOf(bare) != barePid) return fprintf(stderr, "a process has ended\n"), false;
    ReportThreads(Between(before, ThreadsOf(pid)), Between(bareBefore, ThreadsOf(barePid)), seconds);
    ReportThread("programs that it ran", {.name = {}, .seconds = SecondsOfChildren(pid) - children}, 0, seconds);
    ReportGrowth(samples);
    return true;
}

int main(int count, char** arguments) {
    if (count > 1 && strcmp(arguments[1], kBare) == 0) RunBare();
    const double minutes = count > 1 ? strtod(arguments[1], nullptr) : kMinutes;
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    return MeasureWithoutPipelines() && MeasureAtWork(self, minutes) ? 0 : 1;
}
