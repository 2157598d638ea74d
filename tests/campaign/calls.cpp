// System calls that fail, in one thread of the running daemon after the other, and a process without descriptors left.
// A tracer (strace) has them fail.
#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "campaign.h"
#include "picture_probe.h"
#include "tcp_client.h"

struct Site {
    const char* thread;
    const char* call;
    const char* errors;  // separated by a blank; "1": it says that it moved one byte
    int endsWith = -1;   // status; -1: the process lives on
    bool stays = false;  // something of it, until the process ends
};
static constexpr Site kSites[] = {
    {"LAN", "pselect6", "EINTR EBADF ENOMEM"},
    {"LAN", "recvfrom", "EINTR ECONNRESET EIO"},
    {"LAN", "sendto", "EINTR EPIPE ENOBUFS 1"},
    {"LAN", "accept4", "EMFILE ECONNABORTED ENOBUFS", 1},
    {"HTTP", "accept4", "EMFILE ECONNABORTED ENOBUFS EINTR"},
    {"HTTP", "recvfrom", "EINTR ECONNRESET EIO"},
    {"HTTP", "sendto", "EINTR EPIPE ENOBUFS 1"},
    {"HTTP", "setsockopt", "ENOMEM"},
    {"HTTP", "shutdown", "ENOTCONN"},
    {"UART", "read", "EIO EINTR EBADF"},
    {"UART", "write", "EIO EINTR ENOSPC 1"},
    {"UART", "ioctl", "EIO"},  // pats of the watchdog
    {"console", "read", "EIO EINTR", 0},
    {"console", "write", "EIO EINTR ENOSPC 1"},
    {"led", "openat", "EMFILE EIO"},
    {"led", "read", "EIO EINTR"},
    {"led", "write", "EIO EINTR ENOSPC"},
    {"led", "ioctl", "EIO ETIMEDOUT"},  // chips
    {"Gstreamer video", "openat", "EMFILE EIO"},
    {"Gstreamer video", "pipe2", "EMFILE ENFILE"},  // tools
    {.thread = "Gstreamer video", .call = "clone,clone3,vfork", .errors = "EAGAIN ENOMEM", .stays = true},
    {"Gstreamer video", "ioctl", "EIO ENODEV"},
    {"Gstreamer video", "poll,ppoll", "EINTR ENOMEM"},
    {"Gstreamer audio", "openat", "EMFILE EIO"},
    {"Gstreamer audio", "pipe2", "EMFILE ENFILE"},
    {.thread = "Gstreamer audio", .call = "clone,clone3,vfork", .errors = "EAGAIN ENOMEM", .stays = true},
    {"Gstreamer audio", "ioctl", "EIO ENODEV"},
};

// ---- Failing calls

static pid_t FindThread(int process, const std::string& name) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream file(task.path() / "comm");
        std::string comm;
        if (std::getline(file, comm) && comm == name.substr(0, 15)) return std::stoi(task.path().filename());
    }
    return 0;
}

static std::string AnyError(Bench& bench, const Site& site) {
    std::vector<std::string> errors;
    std::istringstream words(site.errors);
    for (std::string word; words >> word;) errors.push_back(word);
    return Any(bench, errors);
}

static pid_t StartTracer(pid_t thread, const std::string& call, const std::string& fault, const std::string& log) {
    const pid_t tracer = fork();
    if (tracer != 0) return tracer;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    const std::string trace = "trace=" + call, inject = "inject=" + call + fault, id = std::to_string(thread);
    execlp("strace", "strace", "-qq", "-o", log.c_str(), "-e", trace.c_str(), "-e", inject.c_str(), "-p", id.c_str(),
           nullptr);
    _exit(127);
}

static unsigned CountFailed(const std::string& log) {
    std::ifstream lines(log);
    unsigned count = 0;
    for (std::string line; std::getline(lines, line);) count += line.find("(INJECTED)") != line.npos;
    return count;
}

// Or was, and has ended of it.
static bool IsTraced(pid_t thread) {
    std::ifstream file("/proc/" + std::to_string(thread) + "/status");
    if (!file) return true;
    for (std::string word; file >> word;)
        if (int tracer = 0; word == "TracerPid:" && file >> tracer) return tracer != 0;
    return false;
}

// Something for every thread to do.
static void Stir(Bench& bench, const Site& site) {
    const TcpClient client(TelnetPort(bench.board));
    Send(client, "$POLL$");
    PauseUpTo(bench, 0.3);
    const TcpClient browser(HttpPort(bench.board));
    Send(browser, "GET /$POLL$ HTTP/1.1\r\n\r\n");
    Type(bench.board, "<POLL>\n<S2>\n<S1>\n");
    Ctl(bench.board, {"serial", "<POLL>"});
    if (std::string_view(site.thread).starts_with("Gst")) Type(bench.board, "<ENJPEGPARSE 0>\n");
    PauseUpTo(bench, 2);
}

// A client that cannot be taken ends the process, and a console that cannot be read: nothing else does.
static void ExpectEnd(Bench& bench, const Site& site) {
    Type(bench.board, "<POLL>\n");
    const TcpClient client(TelnetPort(bench.board));
    ++bench.lives;
    const auto hasEnded = [&] {
        const Json daemon = Status(bench.board)["daemon"];
        return daemon["starts"] == bench.lives && daemon.value("exit", -1) == site.endsWith;
    };
    Expect(bench, WaitUntil(10, hasEnded), "the end that this call brings");
}

// A pipeline whose thread could not be started stands still, if it is one of sound, until something builds it anew. In
// GStreamer that thread's task stays, with descriptors, until the process ends.
static void BuildAnewAndEnd(Bench& bench) {
    const size_t from = OutputSize(bench.board);
    Type(bench.board, "<ENJPEGPARSE 0>\n");
    Expect(bench, WaitForOutput(bench.board, "Playing audio pipeline...\n", 20, from), "sound built anew");
    Expect(bench, ShowsFull(bench.board, '1', 30), "a picture without that thread");
    Do(bench, {"power-cycle"});
    ++bench.lives;
}

static std::string FailCalls(Bench& bench) {
    static size_t next = Below(bench, std::size(kSites));
    const Site& site = kSites[next++ % std::size(kSites)];
    const std::string error = AnyError(bench, site);
    const pid_t thread = FindThread(Status(bench.board)["daemon"]["pid"], site.thread);
    const auto first = 1 + Below(bench, 3), last = first + Below(bench, 4);
    std::string fault = error == "1" ? ":retval=1" : ":error=" + error;
    if (site.endsWith < 0) fault += ":when=" + std::to_string(first) + ".." + std::to_string(last);
    const std::string log = BoardFile(bench.board, "calls.log");
    const pid_t tracer = StartTracer(thread, site.call, fault, log);
    Expect(bench, WaitUntil(10, [&] { return IsTraced(thread); }), "a tracer");
    site.endsWith < 0 ? Stir(bench, site) : ExpectEnd(bench, site);
    kill(tracer, SIGTERM);
    waitpid(tracer, nullptr, 0);
    bench.tries = CountFailed(log);
    if (site.stays) BuildAnewAndEnd(bench);
    return std::string("call fails: ") + site.call + " of " + site.thread + fault;
}

// ---- No descriptors

static std::string TakeDescriptors(Bench& bench) {
    const int process = Status(bench.board)["daemon"]["pid"];
    rlimit before{};
    prlimit(process, RLIMIT_NOFILE, nullptr, &before);
    const rlimit none{.rlim_cur = 3 + Below(bench, 60), .rlim_max = before.rlim_max};
    prlimit(process, RLIMIT_NOFILE, &none, nullptr);
    Type(bench.board, "<GET>\n<SAVE>\n<ENJPEGPARSE 0>\n");
    Do(bench, {"camera", "1", "unplug"});
    PauseUpTo(bench, 4);
    Do(bench, {"camera", "1", "plug", "speakerphone"});
    PauseUpTo(bench, 4);
    prlimit(process, RLIMIT_NOFILE, &before, nullptr);
    Pause(5);  // until then the picture may be the one from before the plug
    const std::string limit = ": limit " + std::to_string(none.rlim_cur);
    // A buffer pool of GStreamer that could not make its socket pair waits for ever, and the video thread with it.
    if (ShowsFull(bench.board, '1', 30)) return "no descriptors left" + limit;
    Answer(bench, "console telnet http serial");
    Type(bench.board, "<RESTART>\n");
    ExpectNextLife(bench, 10, "a restart on command");
    return "no descriptors left, restarted" + limit;
}

static std::string Step(Bench& bench) {
    const std::string line = Below(bench, 8) == 0 ? TakeDescriptors(bench) : FailCalls(bench);
    Type(bench.board, "<SHW>\n<S1>\n");
    Expect(bench, ShowsFull(bench.board, '1', 30), "a picture afterwards");
    return line;
}

const Family Calls{.name = "calls", .steps = {4, 120, 5'000}, .options = {"--camera1", "speakerphone"}, .step = Step};
