// How the cost grows: with the number of telnet clients, with commands a second, with boards on one computer, with the
// size of the picture.
//
//     scale [TIMES]        measures each row so many times longer
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>

#include "board_run.h"
#include "devices/display.h"
#include "figures.h"
#include "process_figures.h"
#include "tcp_client.h"
#include "thread_figures.h"

using Clock = std::chrono::steady_clock;

static constexpr double kCommandSeconds = 3, kPictureSeconds = 8;  // of a row
static constexpr double kNoLimit = std::numeric_limits<double>::infinity();
static double longer = 1;

static int DaemonOf(const Board& board) { return Status(board)["daemon"]["pid"]; }

// ---- Commands

// Of the daemon's own threads in a second; `lan` is the one that serves telnet.
struct CommandCost {
    double lan = 0, own = 0;  // ms
};

static CommandCost CostOf(const Threads& spent, double seconds) {
    CommandCost cost;
    for (const auto& [number, thread] : spent) {
        const double share = 1000 * thread.seconds / seconds;
        if (thread.own) cost.own += share;
        if (thread.name == "LAN") cost.lan += share;
    }
    return cost;
}

struct Asker {
    TcpClient client;
    std::string answer = {};
    bool waits = false;
    Clock::time_point asked = {};
};

static void Ask(Asker& asker) {
    asker.answer.clear();
    asker.asked = Clock::now();
    asker.waits = Send(asker.client, "$POLL$");
}

// True when the answer is complete.
static bool TakeAnswer(Asker& asker) {
    std::array<char, 4096> piece;
    const ssize_t size = recv(asker.client.socket, piece.data(), piece.size(), MSG_DONTWAIT);
    if (size <= 0) return false;
    asker.answer.append(piece.data(), size_t(size));
    if (!asker.answer.ends_with("ACK\r\n")) return false;
    asker.waits = false;
    return true;
}

static void WaitForAnswers(const std::vector<Asker>& askers, Clock::time_point until) {
    std::vector<pollfd> sockets;
    for (const Asker& asker : askers) sockets.push_back({.fd = asker.client.socket, .events = POLLIN, .revents = 0});
    const auto left = std::max(until - Clock::now(), Clock::duration(0));
    const timespec limit{.tv_sec = left / std::chrono::seconds(1),
                         .tv_nsec = long(std::chrono::nanoseconds(left % std::chrono::seconds(1)).count())};
    ppoll(sockets.data(), sockets.size(), &limit, nullptr);
}

struct Asked {
    CommandCost cost;
    double answers;       // a second
    double microseconds;  // median until an answer is there
};

// At this rate in all, in turn; who still waits for an answer is passed over, so that no queue builds up.
static Asked AskFor(int daemon, std::vector<Asker>& askers, double rate, double seconds) {
    std::vector<double> times;
    const Threads before = ThreadsOf(daemon);
    const auto start = Clock::now(), end = start + std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
    const auto gap = std::chrono::duration_cast<Clock::duration>(Seconds(rate > 0 ? 1 / rate : seconds));
    size_t turn = 0;
    for (auto next = start + (rate > 0 ? Clock::duration(0) : gap); Clock::now() < end;) {
        for (size_t tried = 0; tried < askers.size() && Clock::now() >= next; ++tried) {
            Asker& asker = askers[turn++ % askers.size()];
            if (asker.waits) continue;
            Ask(asker);
            next += gap;
        }
        const bool allWait = std::ranges::all_of(askers, &Asker::waits);
        WaitForAnswers(askers, allWait ? end : std::min(next, end));
        if (next < Clock::now() - gap) next = Clock::now() - gap;
        for (Asker& asker : askers)
            if (asker.waits && TakeAnswer(asker)) times.push_back(Seconds(Clock::now() - asker.asked).count() * 1e6);
    }
    const double passed = Seconds(Clock::now() - start).count();
    return {.cost = CostOf(Between(before, ThreadsOf(daemon)), passed),
            .answers = double(times.size()) / passed,
            .microseconds = Median(times)};
}

static void FinishAnswers(std::vector<Asker>& askers) {
    for (int tries = 0; tries < 100 && std::ranges::any_of(askers, &Asker::waits); ++tries) {
        WaitForAnswers(askers, Clock::now() + std::chrono::milliseconds(50));
        for (Asker& asker : askers)
            if (asker.waits) TakeAnswer(asker);
    }
}

static std::vector<Asker> Connect(int port, size_t count) {
    std::vector<Asker> askers;
    while (askers.size() < count) askers.push_back({.client = TcpClient(port)});
    Pause(0.5);  // the last row's clients are forgotten, these are known
    return askers;
}

static void MeasureClients(int daemon, int port) {
    for (const size_t count : {1, 2, 5, 10, 20, 30}) {
        std::vector<Asker> askers = Connect(port, count);
        const Asked idle = AskFor(daemon, askers, 0, kCommandSeconds * longer);
        const Asked busy = AskFor(daemon, askers, 10, kCommandSeconds * longer);
        FinishAnswers(askers);
        ReportRow("scale telnet clients", std::to_string(count),
                  {{"clients", double(count)},
                   {"idle, LAN ms/s", idle.cost.lan},
                   {"10 commands/s, LAN ms/s", busy.cost.lan},
                   {"idle, daemon ms/s", idle.cost.own},
                   {"10 commands/s, daemon ms/s", busy.cost.own},
                   {"median us", busy.microseconds}});
    }
}

static void MeasureRates(int daemon, int port) {
    std::vector<Asker> askers = Connect(port, 10);
    for (const double rate : {10.0, 30.0, 100.0, 300.0, 1000.0, kNoLimit}) {
        const Asked asked = AskFor(daemon, askers, rate, kCommandSeconds * longer);
        FinishAnswers(askers);
        ReportRow("scale commands", rate == kNoLimit ? "as many as are answered" : std::to_string(int(rate)),
                  {{"commands/s", asked.answers},
                   {"LAN ms/s", asked.cost.lan},
                   {"daemon ms/s", asked.cost.own},
                   {"us/command", 1000 * asked.cost.lan / asked.answers},
                   {"median us", asked.microseconds}});
    }
}

// ---- Pictures

static double FramesShown(const Board& board) {
    uint64_t frames = 0;
    const int file = open(BoardFile(board, "volatile/display").c_str(), O_RDONLY | O_CLOEXEC);
    if (pread(file, &frames, sizeof frames, offsetof(DisplayHeader, frames)) != sizeof frames) frames = 0;
    close(file);
    return double(frames);
}

static int ParentOf(int process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("PPid:")) return std::stoi(line.substr(5));
    return 0;
}

// The processes above the daemon that are the board: its answering loop and its sandbox's first process.
static double EmulatorSeconds(int daemon) {
    double seconds = 0;
    for (int process = ParentOf(daemon); process > 1 && process != getpid(); process = ParentOf(process))
        seconds += FiguresOf(process).cpuSeconds;
    return seconds;
}

struct BoardCost {
    double daemon = 0, emulator = 0;  // s of processor time
    double frames = 0;
    double residentMb = 0;
    double seconds = 0;
};

static BoardCost Look(const Board& board) {
    const ProcessFigures daemon = DaemonFigures(board);
    return {.daemon = daemon.cpuSeconds,
            .emulator = EmulatorSeconds(DaemonOf(board)),
            .frames = FramesShown(board),
            .residentMb = double(daemon.residentKilobytes) / 1024,
            .seconds = daemon.wallSeconds};
}

static BoardCost MeanWhile(const std::vector<Board>& boards, double seconds) {
    std::vector<BoardCost> before;
    for (const Board& board : boards) before.push_back(Look(board));
    Pause(seconds);
    BoardCost mean;
    const double count = double(boards.size());
    for (size_t i = 0; i < boards.size(); ++i) {
        const BoardCost now = Look(boards[i]);
        const double passed = now.seconds - before[i].seconds;
        mean.daemon += (now.daemon - before[i].daemon) / passed / count;
        mean.emulator += (now.emulator - before[i].emulator) / passed / count;
        mean.frames += (now.frames - before[i].frames) / passed / count;
        mean.residentMb += now.residentMb / count;
    }
    return mean;
}

static bool IsAtWork(const Board& board) { return WaitForPicture(board, 60) && WaitForSound(board); }

static bool MeasureBoards() {
    std::vector<Board> boards;
    for (const size_t count : {1, 2, 4, 8}) {
        while (boards.size() < count)
            boards.push_back(StartNewBoard({"--camera1", "yuyv-only", "--monitor", "720p60"}));
        if (!std::ranges::all_of(boards, IsAtWork)) return false;
        const BoardCost mean = MeanWhile(boards, kPictureSeconds * longer);
        ReportRow("scale boards", std::to_string(count),
                  {{"boards", double(count)},
                   {"daemon % of a core", 100 * mean.daemon},
                   {"emulator % of a core", 100 * mean.emulator},
                   {"all boards % of a core", 100 * double(count) * (mean.daemon + mean.emulator)},
                   {"frames/s", mean.frames},
                   {"resident MB", mean.residentMb}});
    }
    return true;
}

static bool MeasureSizes() {
    for (const std::string monitor : {"720p60", "1366x768", "1080p60"}) {
        const std::vector boards{StartNewBoard({"--camera1", "hd-mjpeg", "--monitor", monitor})};
        if (!IsAtWork(boards[0])) return false;
        const BoardCost mean = MeanWhile(boards, kPictureSeconds * longer);
        const Picture picture = TakePicture(boards[0]).value_or(Picture{});
        ReportRow("scale picture size", monitor,
                  {{"megapixels", double(picture.width * picture.height) / 1e6},
                   {"daemon % of a core", 100 * mean.daemon},
                   {"frames/s", mean.frames},
                   {"ms/frame", 1000 * mean.daemon / mean.frames},
                   {"resident MB", mean.residentMb}});
    }
    return true;
}

// Nothing is shown and nothing plugged: what the commands cost is not lost in a picture's cost.
static bool MeasureCommands() {
    const Board board = StartNewBoard({"--monitor", "none"});
    if (!WaitForSound(board)) return false;
    const int daemon = DaemonOf(board), port = TelnetPort(board);
    MeasureClients(daemon, port);
    MeasureRates(daemon, port);
    return true;
}

int main(int count, char** arguments) {
    if (count > 1) longer = strtod(arguments[1], nullptr);
    if (MeasureCommands() && MeasureSizes() && MeasureBoards()) return 0;
    fprintf(stderr, "A board shows no picture or plays no sound.\n");
    return 1;
}
