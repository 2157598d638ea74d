#include "system/service_manager.h"

#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <iterator>
#include <string_view>

#include "kernel/event_loop.h"
#include "kernel/listener.h"
#include "kernel/sandbox.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "system/console.h"

enum class ServiceState { kStopped, kStarting, kRunning, kWaiting };

static constexpr int64_t kRestartDelay = 1'000'000;  // microseconds
static constexpr int kSignalStatus = 128;            // of a program that a signal ended, as shells count

static ServiceState state = ServiceState::kStopped;
static pid_t process = 0;
static unsigned starts = 0;
static int64_t startedAt = 0;
static int lastStatus = -1;
static TimerId restart = 0;

static std::string_view StateName() {
    switch (state) {
        case ServiceState::kStopped:
            return "stopped";
        case ServiceState::kStarting:
            return "starting";
        case ServiceState::kRunning:
            return "running";
        case ServiceState::kWaiting:
            return "waiting to start again";
    }
    return "";
}

static int ExitStatus(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? kSignalStatus + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

static void Start() {
    restart = 0;
    state = ServiceState::kStarting;
    DaemonStreams streams = OpenConsole();
    StartDaemon(streams);
    CloseConsoleEnds(streams);
}

static void TakeStart(pid_t daemon, int listener) {
    state = ServiceState::kRunning;
    process = daemon;
    startedAt = NowMicroseconds();
    ++starts;
    Trace("daemon", {{"state", "started"}, {"pid", daemon}});
    ServeListener(listener);
}

static void TakeEnd(int waitStatus) {
    lastStatus = ExitStatus(waitStatus);
    Trace("daemon", {{"state", "ended"}, {"pid", process}, {"exit", lastStatus}});
    process = 0;
    CloseConsole();
    state = ServiceState::kWaiting;
    if (!Board.restart) return EndService(lastStatus);
    restart = CallAt(NowMicroseconds() + kRestartDelay, Start);
}

void StartService() {
    OnSandbox({.started = TakeStart, .ended = TakeEnd, .died = [] { ResetBoard("halt"); }});
    Start();
}

void StopService() {
    CancelCall(restart);
    restart = 0;
    process = 0;
    state = ServiceState::kStopped;
    CloseConsole();
}

bool ServiceOutlivesReset() {
    if (!Board.restart) EndService(kSignalStatus + SIGKILL);
    return Board.restart;
}

void EndService(int status) { EndEvents(status); }

static size_t CountEntries(const std::string& folder) {
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    return error ? 0 : size_t(std::distance(begin(entries), end(entries)));
}

// Everything that runs on the board, the daemon and its tools; the sandbox's own process 1 is not counted.
static size_t CountProcesses() {
    std::error_code error;
    const auto room = [&](const std::filesystem::path& folder) { return read_symlink(folder / "ns/pid", error); };
    const auto board = room("/proc/" + std::to_string(process));
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error))
        if (isdigit(entry.path().filename().native()[0]) && room(entry.path()) == board) ++count;
    return count > 0 ? count - 1 : 0;
}

pid_t ServiceProcess() { return process; }

Json ServiceSummary() {
    Json status{{"pid", process}, {"state", StateName()}, {"starts", starts}};
    if (lastStatus >= 0) status["exit"] = lastStatus;
    if (process != 0) status["uptime"] = double(NowMicroseconds() - startedAt) / 1e6;
    return status;
}

Json ServiceStatus() {
    Json status = ServiceSummary();
    if (process == 0) return status;
    std::string folder = "/proc/" + std::to_string(process);
    status["descriptors"] = CountEntries(folder + "/fd");
    status["threads"] = CountEntries(folder + "/task");
    status["processes"] = CountProcesses();
    return status;
}
