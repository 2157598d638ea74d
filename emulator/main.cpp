// tessel-emulator: the command line.

#include <sched.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bench/control.h"
#include "bench/control_client.h"
#include "bench/record.h"
#include "bench/scenario_play.h"
#include "capture/camera_profiles.h"
#include "devices/hdmi_receiver.h"
#include "devices/monitor.h"
#include "kernel/event_loop.h"
#include "kernel/sandbox.h"
#include "kernel/supervisor.h"
#include "page/bench_page.h"
#include "page/page_server.h"
#include "sound/sound_profiles.h"
#include "system/board.h"
#include "system/places.h"
#include "system/port_forward.h"

namespace fs = std::filesystem;

static constexpr int kWrongUse = 2;  // exit status

struct Option {
    std::string_view name;
    const char* value;                              // null: takes none
    std::string (*take)(const std::string& value);  // what is wrong with the value; empty: taken
};

// Options of `run`

static std::string TakeDaemon(const std::string& path) {
    Board.daemon = path;
    return access(path.c_str(), X_OK) == 0 ? "" : path + ": " + strerror(errno);
}

static std::string TakeBoard(const std::string& folder) {
    Board.folder = folder;
    return folder.empty() ? "a folder has a name" : "";
}

// False: not a number from 0 to the limit.
static bool TakeNumber(const std::string& text, int limit, int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number >= 0 && number <= limit;
}

static std::string TakeDeviceId(const std::string& text) {
    return TakeNumber(text, 255, Board.deviceId) ? "" : "a device id is a number from 0 to 255";
}

static std::string TakePort(int& port, const std::string& text) {
    return TakeNumber(text, 65535, port) ? "" : "a port is a number from 0 to 65535, 0 for any free one";
}
static std::string TakeHttpPort(const std::string& text) { return TakePort(Board.httpPort, text); }
static std::string TakeTelnetPort(const std::string& text) { return TakePort(Board.telnetPort, text); }

static std::string TakePagePort(const std::string& text) {
    Board.pagePort = kAutoPagePort;
    return text == "auto" || TakeNumber(text, 65535, Board.pagePort)
               ? ""
               : "a page's port is a number from 0 to 65535, 0 for none, or auto";
}

static int pageSocket = -1;  // of `page`: inherited, already listening

static std::string TakeSocket(const std::string& text) {
    return TakeNumber(text, 65535, pageSocket) ? "" : "a socket is a number";
}

static std::string TakeCamera(std::string& camera, const std::string& profile) {
    camera = profile;
    return LoadCameraProfile(profile).error;
}
static std::string TakeCamera1(const std::string& profile) { return TakeCamera(Board.camera1, profile); }
static std::string TakeCamera2(const std::string& profile) { return TakeCamera(Board.camera2, profile); }

static std::string TakeHdmiIn(const std::string& signal) {
    Board.hdmiIn = signal;
    return ParseHdmiSignal(signal) ? "" : "a signal reads like 1920x1080p60 or 1920x1080i60";
}

static std::string TakeMonitor(const std::string& name) {
    Board.monitor = name;
    const std::vector<MonitorSummary> monitors = ListMonitors();
    const bool known = name == "none" || std::ranges::find(monitors, name, &MonitorSummary::name) != monitors.end();
    return known ? "" : "no monitor \"" + name + "\" (tessel-emulator profiles lists them)";
}

static std::string TakePanel(const std::string& panel) {
    Board.panel = panel;
    const bool known = panel == "keypad" || panel == "expander" || panel == "none";
    return known ? "" : "a panel is keypad, expander or none";
}

static std::string TakeVariable(const std::string& assignment) {
    Board.environment.push_back(assignment);
    return assignment.find('=', 1) != std::string::npos ? "" : "a variable reads NAME=VALUE";
}

static std::string TakeOldKernel(const std::string&) { return Board.oldKernel = true, ""; }
static std::string TakeTopBoard(const std::string&) { return Board.topBoard = true, ""; }
static std::string TakeNoRestart(const std::string&) { return Board.restart = false, ""; }

static constexpr std::array kRunOptions{
    Option{"--daemon", "PATH", TakeDaemon},         Option{"--board", "DIR", TakeBoard},
    Option{"--device-id", "N", TakeDeviceId},       Option{"--old-kernel", nullptr, TakeOldKernel},
    Option{"--top-board", nullptr, TakeTopBoard},   Option{"--panel", "keypad|expander|none", TakePanel},
    Option{"--camera1", "PROFILE", TakeCamera1},    Option{"--camera2", "PROFILE", TakeCamera2},
    Option{"--hdmi-in", "WxHpR", TakeHdmiIn},       Option{"--monitor", "EDID|none", TakeMonitor},
    Option{"--env", "NAME=VALUE", TakeVariable},    Option{"--http", "PORT", TakeHttpPort},
    Option{"--telnet", "PORT", TakeTelnetPort},     Option{"--page", "PORT|auto", TakePagePort},
    Option{"--no-restart", nullptr, TakeNoRestart},
};
static constexpr std::array kPageOptions{
    Option{"--board", "DIR", TakeBoard},
    Option{"--page", "PORT|auto", TakePagePort},
    Option{"--socket", "DESCRIPTOR", TakeSocket},
};
static constexpr std::array kCtlOptions{Option{"--board", "DIR", TakeBoard}};

static int ShowUsage(FILE* to) {
    fputs("usage: tessel-emulator run", to);
    for (const Option& option : kRunOptions)
        fprintf(to, " [%s%s%s]", option.name.data(), option.value ? " " : "", option.value ? option.value : "");
    fputs(
        " [-- DAEMON-ARGUMENTS]\n"
        "       tessel-emulator page [--board DIR] [--page PORT|auto]\n"
        "       tessel-emulator play FILE [--patience FACTOR] [--board DIR | options of run]\n"
        "       tessel-emulator ctl [--board DIR] VERB ...\n"
        "       tessel-emulator profiles\n",
        to);
    return to == stderr ? kWrongUse : 0;
}

using Arguments = std::span<char* const>;

// Takes the options that the arguments start with; what follows them is left. What is wrong with them, or nothing.
static std::string TakeOptions(Arguments& arguments, std::span<const Option> options) {
    while (!arguments.empty() && std::string_view(arguments[0]).starts_with("--") &&
           arguments[0] != std::string_view("--")) {
        const std::string name = arguments[0];
        auto option = std::ranges::find(options, name, &Option::name);
        const size_t words = option != options.end() && option->value ? 2 : 1;
        if (option == options.end()) return "unknown option " + name;
        if (arguments.size() < words) return name + " needs a value";
        const std::string value = words == 2 ? arguments[1] : "";
        if (const std::string wrong = option->take(value); !wrong.empty()) return name + ": " + wrong;
        arguments = arguments.subspan(words);
    }
    return "";
}

static bool Complain(const std::string& wrong) {
    if (!wrong.empty()) fprintf(stderr, "tessel-emulator: %s\n", wrong.c_str());
    return !wrong.empty();
}

// run

static bool FindDaemon() {
    std::error_code error;
    if (Board.daemon.empty()) Board.daemon = OwnDaemon();
    Board.daemon = Board.daemon.empty() ? "" : fs::absolute(Board.daemon).lexically_normal().string();
    // A program of the host is known to the board by its name; of any other, the board gets the folder it lies in.
    if (!IsHostProgram(Board.daemon)) Board.daemon = fs::canonical(Board.daemon, error).string();
    if (Board.daemon.empty())
        fprintf(stderr, "tessel-emulator: no daemon with this emulator; name one with --daemon\n");
    return !Board.daemon.empty();
}

// SIGINT and its like end the emulator in order.
static void WatchSignals() {
    signal(SIGPIPE, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    WatchDescriptor(descriptor, [descriptor](uint32_t) {
        signalfd_siginfo signal;
        if (read(descriptor, &signal, sizeof signal) == ssize_t{sizeof signal}) EndEvents(128 + int(signal.ssi_signo));
    });
}

static void RaiseDescriptorLimit() {
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) < 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

// The board waits for this thread in every device call, as it would for hardware: nothing else that the PC computes may
// come in between. Where the system refuses it, the emulator is only slower. What it starts runs as usual.
static void AnswerFirst() {
    const sched_param lowest{.sched_priority = 1};
    sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &lowest);
}

// What is wrong with the arguments of `run`; empty: they are in Board.
static std::string TakeRunArguments(Arguments arguments) {
    if (std::string wrong = TakeOptions(arguments, kRunOptions); !wrong.empty()) return wrong;
    if (arguments.empty()) return "";
    if (arguments[0] != std::string_view("--"))
        return "\"" + std::string(arguments[0]) + "\" is no option; the daemon's arguments follow --";
    Board.arguments.assign(arguments.begin() + 1, arguments.end());
    return "";
}

static int RunBoard() {
    if (!FindDaemon()) return kWrongUse;
    RaiseDescriptorLimit();
    WatchSignals();
    const int page = Board.pagePort != 0 ? OpenPagePort(Board.pagePort) : -1;
    if (Board.pagePort != 0 && page < 0) return 1;
    AnswerFirst();
    int status = 1;
    if (OpenBoard() && OpenControl(Board.folder)) {
        fprintf(stderr, "Board: %s\n", Board.folder.c_str());
        if (page >= 0) StartPage(page);
        if (OpenPorts() && PowerOnBoard()) {
            StartRecord();
            status = RunEvents();
        }
        StopPage();
        ClosePorts();
        CloseControl();
    }
    CloseBoard();
    return status;
}

static int Run(Arguments arguments) {
    if (Complain(TakeRunArguments(arguments))) return kWrongUse;
    return RunBoard();
}

// play

static double patience = 1;

static std::string TakePatience(const std::string& text) {
    patience = ParseSeconds(text).value_or(0);
    return patience > 0 ? "" : "a factor is a number above 0";
}

static constexpr std::array kPlayOptions{Option{"--board", "DIR", TakeBoard},
                                         Option{"--patience", "FACTOR", TakePatience}};

static std::string TakeBoardLine(const std::vector<std::string>& options) {
    std::vector<std::string> words = options;
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    std::string wrong = TakeRunArguments(arguments);
    return wrong.empty() && !Board.folder.empty() ? "a scenario's board is a fresh one, without --board" : wrong;
}

// The scenario of a file, with its board in Board. Nothing after a complaint.
static std::optional<Scenario> ReadScenario(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) return Complain(path + ": " + strerror(errno)), std::nullopt;
    Scenario scenario = ParseScenario(text);
    if (const std::string wrong = TakeBoardLine(scenario.board); !wrong.empty())
        scenario.errors.insert(scenario.errors.begin(), {scenario.boardLine, wrong});
    for (const ScenarioError& error : scenario.errors)
        fprintf(stderr, "%s:%zu: %s\n", path.c_str(), error.line, error.reason.c_str());
    return scenario.errors.empty() ? std::optional(std::move(scenario)) : std::nullopt;
}

// On a running board with --board, or when neither the file nor the options tell of one; otherwise on one of its own.
static int Play(Arguments arguments) {
    if (arguments.empty() || std::string_view(arguments[0]).starts_with("--")) return ShowUsage(stderr);
    ScenarioPlay play{.name = arguments[0], .board = {}, .run = RunBoard};
    const std::optional<Scenario> scenario = ReadScenario(play.name);
    if (!scenario) return kWrongUse;
    arguments = arguments.subspan(1);
    const auto names = [&](const char* option) {
        return std::ranges::find(arguments, std::string_view(option)) != arguments.end();
    };
    std::vector<Option> options(kPlayOptions.begin(), kPlayOptions.end());
    const bool running = names("--board");
    if (!running) options.insert(options.end(), kRunOptions.begin(), kRunOptions.end());
    const bool described = scenario->boardLine > 0 || arguments.size() > (names("--patience") ? 2 : 0);
    if (Complain(TakeOptions(arguments, options))) return kWrongUse;
    if (!arguments.empty()) return Complain("\"" + std::string(arguments[0]) + "\" is no option"), kWrongUse;
    if (running || !described) play.board = running ? Board.folder : OnlyBoard();
    if (play.board.empty() && !described) return 1;
    play.patience = patience;
    return PlayScenario(*scenario, play);
}

// ctl and profiles

static int Control(Arguments arguments) {
    if (Complain(TakeOptions(arguments, kCtlOptions))) return kWrongUse;
    if (Board.folder.empty()) Board.folder = OnlyBoard();
    if (Board.folder.empty()) return 1;
    return RunVerb(Board.folder, {arguments.begin(), arguments.end()});
}

static int ShowPage(Arguments arguments) {
    Board.pagePort = kAutoPagePort;
    if (Complain(TakeOptions(arguments, kPageOptions))) return kWrongUse;
    if (Board.folder.empty()) Board.folder = OnlyBoard();
    if (Board.folder.empty()) return 1;
    signal(SIGPIPE, SIG_IGN);
    if (pageSocket < 0) pageSocket = OpenPagePort(Board.pagePort);
    return pageSocket < 0 ? 1 : ServePage(pageSocket);
}

static int ListProfiles(Arguments) {
    for (const CameraProfile& camera : ListCameraProfiles())
        printf("camera   %-18s %s\n", camera.name.c_str(), camera.description.c_str());
    for (const SoundDeviceProfile& sound : ListSoundProfiles())
        printf("sound    %-18s %s\n", sound.name.c_str(), sound.description.c_str());
    for (const MonitorSummary& monitor : ListMonitors())
        printf("monitor  %-18s %s\n", monitor.name.c_str(), monitor.description.c_str());
    return 0;
}

struct Command {
    std::string_view word;
    int (*run)(Arguments arguments);
};
static constexpr std::array kCommands{
    Command{"run", Run},
    Command{"page", ShowPage},
    Command{"play", Play},
    Command{"ctl", Control},
    Command{"profiles", ListProfiles},
    Command{"--help", [](Arguments) { return ShowUsage(stdout); }},
};

int main(int count, char** words) {
    const Arguments arguments(words, size_t(count));
    for (const Command& command : kCommands)
        if (arguments.size() > 1 && command.word == arguments[1]) return command.run(arguments.subspan(2));
    return ShowUsage(stderr);
}
