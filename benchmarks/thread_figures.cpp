#include "thread_figures.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <vector>

namespace fs = std::filesystem;

static constexpr std::string_view kOwnThreads[] = {
    "Tesselvisor", "led", "UART", "console", "LAN", "HTTP", "Gstreamer video", "Gstreamer audio", "HDMI sync"};

static double NumberBehind(const fs::path& path, const std::string& label) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(label)) return std::stod(line.substr(label.size()));
    return 0;
}

// A plug-in's helpers carry the name of the thread that made them, and are younger.
static void MarkOwn(Threads& threads) {
    for (const std::string_view name : kOwnThreads) {
        const auto first = std::ranges::find(threads, name, [](const auto& thread) { return thread.second.name; });
        if (first != threads.end()) first->second.own = true;
    }
}

Threads ThreadsOf(int pid) {
    Threads threads;
    std::error_code gone;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
        ThreadFigures thread;
        std::ifstream comm(task.path() / "comm"), times(task.path() / "schedstat");
        double nanoseconds = 0;
        if (!std::getline(comm, thread.name) || !(times >> nanoseconds)) continue;
        thread.seconds = nanoseconds / 1e9;
        thread.wakeUps = NumberBehind(task.path() / "status", "voluntary_ctxt_switches:");
        thread.writes = NumberBehind(task.path() / "io", "syscw:");
        threads[std::stoi(task.path().filename())] = thread;
    }
    MarkOwn(threads);
    return threads;
}

Threads Between(const Threads& before, const Threads& now) {
    Threads spent = now;
    for (auto& [number, thread] : spent) {
        const auto old = before.find(number);
        if (old == before.end()) continue;
        thread.seconds -= old->second.seconds;
        thread.wakeUps -= old->second.wakeUps;
        thread.writes -= old->second.writes;
    }
    return spent;
}

double SecondsOfChildren(int pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    const std::string line{std::istreambuf_iterator<char>(file), {}};
    std::istringstream rest(line.substr(std::min(line.size(), line.rfind(')') + 1)));
    std::vector<std::string> fields{std::istream_iterator<std::string>(rest), {}};
    fields.resize(std::max<size_t>(fields.size(), 15), "0");
    return (std::stod(fields[13]) + std::stod(fields[14])) / double(sysconf(_SC_CLK_TCK));
}
