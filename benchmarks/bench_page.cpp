// What the bench page costs: processor time of the daemon, of the board's own process and of the page's process, with
// no page open and with one viewer who takes every picture it can get, at the width of a laptop's page, and follows all
// events. The board shows two cameras side by side.
//
//     bench_page [SECONDS]        of the second viewer's visit; 20 without an argument
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "board_run.h"
#include "figures.h"
#include "process_figures.h"
#include "tcp_client.h"

static constexpr double kUsual = 20;  // s
static constexpr const char* kWidth = "720";

static int PagePort(const Board& board) { return Status(board)["ports"]["page"]; }

// The emulator's processes: the one that owns the board's ports, and its child that serves the page.
static int PageProcess(int emulator) {
    std::ifstream children(std::string("/proc/") + std::to_string(emulator) + "/task/" + std::to_string(emulator) +
                           "/children");
    for (int child; children >> child;) {
        std::ifstream line("/proc/" + std::to_string(child) + "/cmdline");
        std::string program, verb;
        std::getline(line, program, '\0');
        std::getline(line, verb, '\0');
        if (verb == "page") return child;
    }
    return 0;
}

static std::string Request(const std::string& what, int port) {
    return "GET " + what + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n";
}

// The next picture over the connection: its frame number, empty when none came. A JPEG has its end mark at its end
// only.
static std::string TakeNextPicture(const TcpClient& client, int port, const std::string& after, size_t& bytes) {
    Send(client, Request("/picture?width=" + std::string(kWidth) + "&after=" + after, port));
    const std::string answer = Receive(client, "\xff\xd9", 5), name = "X-Frame: ";
    bytes += answer.size();
    const size_t at = answer.find(name);
    if (at == answer.npos) return {};
    return answer.substr(at + name.size(), answer.find('\r', at) - at - name.size());
}

struct Viewed {
    unsigned pictures = 0;
    size_t pictureBytes = 0, eventBytes = 0;
};

static Viewed View(int port, double seconds) {
    Viewed viewed;
    const TcpClient pictures(port), events(port);
    Send(events, Request("/events", port));
    std::thread follower([&] { viewed.eventBytes = ReceiveAll(events, seconds / Patience()).size(); });
    const auto end = std::chrono::steady_clock::now() + Seconds(seconds);
    std::string frame = "0";
    while (std::chrono::steady_clock::now() < end) {
        const std::string next = TakeNextPicture(pictures, port, frame, viewed.pictureBytes);
        if (next.empty()) continue;
        frame = next;
        ++viewed.pictures;
    }
    follower.join();
    return viewed;
}

struct Costs {
    ProcessFigures daemon, board, page;
};

static Costs Figures(const Board& board, int emulator, int page) {
    return {DaemonFigures(board), FiguresOf(emulator), FiguresOf(page)};
}

static void Report(const std::string& state, const Costs& before, const Costs& after,
                   const std::vector<FigureColumn>& viewed = {}) {
    std::vector<FigureColumn> columns{{"daemon %", CpuPercent(before.daemon, after.daemon)},
                                      {"board %", CpuPercent(before.board, after.board)},
                                      {"page %", CpuPercent(before.page, after.page)}};
    columns.insert(columns.end(), viewed.begin(), viewed.end());
    ReportRow("bench page", state, columns);
}

// Of the process that holds the board's folder: the parent of its sandbox's first process.
static int EmulatorOf(int daemon) {
    for (int process = daemon, parent = 0; process > 1; process = parent) {
        std::ifstream status("/proc/" + std::to_string(process) + "/status");
        std::string line;
        while (std::getline(status, line) && !line.starts_with("PPid:")) continue;
        parent = line.empty() ? 0 : std::stoi(line.substr(5));
        if (PageProcess(parent) != 0) return parent;
    }
    return 0;
}

int main(int count, char** arguments) {
    const Board board = StartNewBoard({"--page", "auto", "--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg"});
    if (!WaitForPicture(board)) return fprintf(stderr, "The board shows no picture.\n%s\n", Output(board).c_str()), 1;
    Telnet(board, "$SS$");
    const int emulator = EmulatorOf(Status(board)["daemon"]["pid"]), page = PageProcess(emulator),
              port = PagePort(board);
    if (page == 0) return fprintf(stderr, "There is no page.\n"), 1;
    Pause(5);

    for (const double seconds : {kUsual, count > 1 ? strtod(arguments[1], nullptr) : kUsual}) {
        const Costs idle = Figures(board, emulator, page);
        Pause(kUsual);
        const Costs watched = Figures(board, emulator, page);
        Report("no viewer", idle, watched);
        const Viewed viewed = View(port, seconds);
        Report("one viewer, " + std::to_string(int(seconds)) + " s", watched, Figures(board, emulator, page),
               {{"pictures/s", viewed.pictures / seconds},
                {"kB a picture", double(viewed.pictureBytes) / 1000 / viewed.pictures},
                {"kB of events/s", double(viewed.eventBytes) / 1000 / seconds}});
    }
    return 0;
}
