// How steady a camera is stepped while the picture of two cameras runs: the time from one step to the next, as the
// camera sees it. 150 ms and what the step itself takes is what it should be.
#include <sched.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "board_run.h"
#include "figures.h"

namespace fs = std::filesystem;

static constexpr double kRunSeconds = 40;  // more than the hundred steps from one end to the other

// A full-HD camera that needs a hundred steps from end to end.
static std::string SlowCamera(const Board& board) {
    std::ifstream file(EMULATOR_CAMERAS "/fullhd-mjpeg.json");
    Json profile = Json::parse(file);
    profile["controls"].push_back({{"id", "0x009a0908"},
                                   {"name", "Pan, Absolute"},
                                   {"minimum", 0},
                                   {"maximum", 10000},
                                   {"step", 1},
                                   {"default", 0}});
    const std::string path = BoardFile(board, "cameras/slow.json");
    std::ofstream(path) << profile;
    return path;
}

static std::vector<double> StepTimes(const Board& board) {
    std::vector<double> times;
    for (const Json& line : TraceLines(board, "ioctl"))
        if (line["request"] == "VIDIOC_S_CTRL") times.push_back(line["t"].get<double>() / 1e3);
    return times;
}

// The policy of the thread that steps; -1: there is none.
static int WorkerPolicy(const Board& board) {
    const std::string tasks = "/proc/" + Status(board)["daemon"]["pid"].dump() + "/task";
    std::error_code ended;
    for (const auto& task : fs::directory_iterator(tasks, ended)) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name == "PTZ move") return sched_getscheduler(std::stoi(task.path().filename()));
    }
    return -1;
}

static void Measure(const Board& board, const char* title, const std::string& command) {
    Ctl(board, {"trace", "--clear"});
    Type(board, command);
    WaitUntil(5, [&] { return WorkerPolicy(board) >= 0; });
    const char* policy = WorkerPolicy(board) == SCHED_FIFO ? "SCHED_FIFO" : "no real-time priority";
    WaitUntil(kRunSeconds, [&] { return WorkerPolicy(board) < 0; });
    std::vector<double> times = StepTimes(board), gaps;
    for (size_t i = 1; i < times.size(); ++i) gaps.push_back(times[i] - times[i - 1]);
    if (gaps.empty()) {
        fprintf(stderr, "%s: the camera was not moved\n%s", title, Output(board).c_str());
        return;
    }
    ReportRow("camera steps", std::string(title) + ", " + policy,
              {{"steps", double(gaps.size())},
               {"min ms", Quantile(gaps, 0)},
               {"median ms", Median(gaps)},
               {"p99 ms", Quantile(gaps, 0.99)},
               {"max ms", Quantile(gaps, 1)}});
}

int main() {
    const Board board = MakeBoard();
    StartBoard(board, {"--camera1", SlowCamera(board), "--camera2", "fullhd-mjpeg"});
    if (!WaitForPicture(board)) {
        fprintf(stderr, "no picture:\n%s", Output(board).c_str());
        return 1;
    }
    Type(board, "<SS1>\n");
    Measure(board, "picture running", "<PAN 1 1>\n");
    Ctl(board, {"camera", "2", "unplug"});
    Type(board, "<S1>\n<BLK>\n");
    WaitUntil(5, [] { return false; });
    Measure(board, "one camera, black", "<PAN 1 -1>\n");
    return 0;
}
