#include "process_figures.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

static double SecondsNow() { return Seconds(std::chrono::steady_clock::now().time_since_epoch()).count(); }

// The name in parentheses may hold spaces; counted from behind it.
static std::vector<long> FieldsBehindName(const std::string& folder) {
    std::ifstream file(folder + "/stat");
    const std::string line{std::istreambuf_iterator<char>(file), {}};
    std::istringstream rest(line.substr(std::min(line.size(), line.rfind(')') + 1)));
    std::string state;
    rest >> state;
    std::vector<long> fields{0};
    for (long field; rest >> field;) fields.push_back(field);
    fields.resize(std::max<size_t>(fields.size(), 23));
    return fields;
}

static long OwnKilobytes(const std::string& folder) {
    std::ifstream file(folder + "/status");
    for (std::string word; file >> word;) {
        long kilobytes = 0;
        if (word == "RssAnon:" && file >> kilobytes) return kilobytes;
    }
    return 0;
}

ProcessFigures FiguresOf(int pid) {
    constexpr size_t kUserTime = 11, kSystemTime = 12, kThreads = 17, kResidentPages = 21;
    const std::string folder = "/proc/" + std::to_string(pid);
    const std::vector<long> fields = FieldsBehindName(folder);
    std::error_code gone;
    long descriptors = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder + "/fd", gone))
        descriptors += !entry.path().empty();
    return {.cpuSeconds = double(fields[kUserTime] + fields[kSystemTime]) / double(sysconf(_SC_CLK_TCK)),
            .wallSeconds = SecondsNow(),
            .residentKilobytes = fields[kResidentPages] * (sysconf(_SC_PAGESIZE) / 1024),
            .ownKilobytes = OwnKilobytes(folder),
            .threads = fields[kThreads],
            .descriptors = descriptors};
}

ProcessFigures DaemonFigures(const Board& board) { return FiguresOf(Status(board)["daemon"]["pid"]); }

double CpuPercent(const ProcessFigures& before, const ProcessFigures& after) {
    return 100 * (after.cpuSeconds - before.cpuSeconds) / (after.wallSeconds - before.wallSeconds);
}
