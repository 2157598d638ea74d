// How long it takes until there is a picture: after the start of the process, after a cable was plugged, after a source
// has changed its mode. Beside each stands what the daemon is told to wait on that way; what is beyond it is its work
// and the emulator's. A picture is the first displayed frame that the source made after the event and that fills the
// display.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>

#include "board_run.h"
#include "figures.h"

static constexpr int kRounds = 5;
static constexpr double kSettle = 4;     // s; past the first layout and all that follows a new pipeline
static constexpr double kPatience = 60;  // s; then it does not come

// ---- What the daemon is told to wait

static constexpr double kPass = 0.1, kHalfPass = kPass / 2;  // the supervision looks every 100 ms
static constexpr double kBetweenLives = 1;                   // pause of the video thread between two pipelines
static constexpr double kQuietDevices = 1;                   // a plugged device counts when none has reported for 1 s
static constexpr double kWaitingPass = 1;                    // while there is nothing to show, it looks every second

// Reset line 0.1, then 0.1 until its registers are written, 0.1 until the sources' lines are pulsed, two pulses of 0.3.
static constexpr double kReceiverStart = 0.9;
static constexpr double kServiceManager = 1;  // between a process's end and its next start

// The layout without the lost input is shown and ten frames of it are awaited, looking every 100 ms: at 30 frames a
// second four times. The receiver has long locked on the new mode when that is over; the next pass finds the lost sync,
// restarts the source and gives it 2 s; then sizes do not fit, and there is a new pipeline, which shows the first
// camera for 1 s and turns to the second place a short look and a pass later.
static constexpr double kHdmiMode = kHalfPass + 0.4 + kPass + 2 + kBetweenLives + 1 + 0.01 + kPass;

// ---- Events: each returns its moment in microseconds of CLOCK_MONOTONIC

static int64_t Now() {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Its outcome is what frames from here on show.
static int64_t Do(const Board& board, const Words& verb) {
    Ctl(board, verb);
    return Now();
}

static int64_t ProcessStart(const Board& board) {
    const Json before = Status(board)["daemon"]["starts"];
    Ctl(board, {"power-cycle"});
    Json daemon;
    WaitUntil(30, [&] {
        daemon = Status(board)["daemon"];
        return daemon["starts"] != before && daemon.contains("uptime");
    });
    return Now() - int64_t(daemon["uptime"].get<double>() * 1e6);
}

static int64_t RestartCommand(const Board& board) {
    const int64_t moment = Now();
    Type(board, "<RESTART>\n");
    return moment;
}

static int64_t ReplugCamera(const Board& board) {
    Ctl(board, {"camera", "1", "unplug"});
    WaitForOutput(board, "Activating test pattern as input 1.", 30);
    Pause(kSettle);
    return Do(board, {"camera", "1", "plug", "fullhd-mjpeg"});
}

static int64_t ChangeHdmiMode(const Board& board) {
    static bool small = false;
    small = !small;
    return Do(board, {"hdmi-in", "0", small ? "1280x720p30" : "1920x1080p30"});
}

static size_t CountScans(const Board& board) {
    size_t scans = 0;
    for (const std::string& line : ShellLines(board)) scans += line.starts_with("lsusb");
    return scans;
}

// The process ends with its monitor; the next one waits. In the middle between two of its looks the monitor is back.
static int64_t ReplugMonitor(const Board& board) {
    const size_t from = OutputSize(board);
    Ctl(board, {"monitor", "unplug"});
    WaitForOutput(board, "Manage dynamic pipeline\n", 30, from);
    Pause(kSettle);
    Ctl(board, {"trace", "--clear"});
    for (const int64_t end = Now() + 5'000'000; CountScans(board) == 0 && Now() < end;) usleep(2'000);
    Pause(kWaitingPass / 2);
    return Do(board, {"monitor", "plug"});
}

struct Event {
    const char* name;
    double waits;  // s
    int64_t (*cause)(const Board& board);
    char source;
    const char* layout;
    Words options;
};
static const Event kEvents[] = {
    {.name = "start of the process",
     .waits = kReceiverStart,
     .cause = ProcessStart,
     .source = '1',
     .layout = "<S1>\n",
     .options = {"--camera1", "fullhd-mjpeg"}},
    {.name = "RESTART",
     .waits = kServiceManager + kReceiverStart,
     .cause = RestartCommand,
     .source = '1',
     .layout = "<S1>\n",
     .options = {"--camera1", "fullhd-mjpeg"}},
    {.name = "camera plugged again",
     .waits = kHalfPass + kQuietDevices + kBetweenLives,
     .cause = ReplugCamera,
     .source = '1',
     .layout = "<S1>\n",
     .options = {"--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg"}},
    {.name = "HDMI source in another mode",
     .waits = kHdmiMode,
     .cause = ChangeHdmiMode,
     .source = '3',
     .layout = "<S2>\n",
     .options = {"--camera1", "fullhd-mjpeg", "--hdmi-in", "1920x1080p30"}},
    {.name = "monitor plugged",
     .waits = kWaitingPass / 2,
     .cause = ReplugMonitor,
     .source = '1',
     .layout = "<S1>\n",
     .options = {"--camera1", "fullhd-mjpeg"}},
};

// ---- Measuring

static bool MadeAfter(const PictureMark& mark, int64_t moment) {
    const auto since = uint32_t(moment / 1000 % kMarkTimeModulo);
    return (mark.milliseconds - since) % kMarkTimeModulo < kMarkTimeModulo / 2;
}

static bool IsPicture(const Picture& picture, char source, int64_t moment) {
    const auto width = unsigned(picture.width), height = unsigned(picture.height);
    if (!Shows(picture, {source, 0, 0, width, height})) return false;
    const auto mark = MarkIn(picture, {0, 0, width, height});
    return mark && MadeAfter(*mark, moment);
}

// Seconds from the moment to the refresh that shows it.
static std::optional<double> TimeToPicture(const Board& board, char source, int64_t moment) {
    const std::string display = BoardFile(board, "volatile/display");
    for (int64_t looked = 0; Now() - moment < int64_t(kPatience * 1e6); usleep(1'000)) {
        const int64_t shownAt = LastShownAt(display);
        if (shownAt == looked) continue;
        looked = shownAt;
        const auto picture = TakePicture(board);
        if (picture && IsPicture(*picture, source, moment)) return double(shownAt - moment) / 1e6;
    }
    return {};
}

static bool Measure(const Event& event) {
    const Board board = StartNewBoard(event.options);
    if (!WaitForPicture(board)) return false;
    Type(board, event.layout);
    std::vector<double> seconds;
    for (int round = 0; round < kRounds; ++round) {
        if (!TimeToPicture(board, event.source, Now())) return false;
        Pause(kSettle);
        const auto taken = TimeToPicture(board, event.source, event.cause(board));
        if (!taken) return fprintf(stderr, "%s", Output(board).c_str()), false;
        fprintf(stderr, "%s: %.3f s\n", event.name, *taken);
        seconds.push_back(*taken);
    }
    ReportRow("start and recovery", event.name,
              {{"prescribed waits s", event.waits},
               {"measured s", Median(seconds)},
               {"beyond the waits ms", 1000 * (Median(seconds) - event.waits)}});
    return true;
}

int main(int count, char** arguments) {
    for (const Event& event : kEvents) {
        if (count > 1 && std::string(event.name).find(arguments[1]) == std::string::npos) continue;
        if (!Measure(event)) return fprintf(stderr, "%s: no picture\n", event.name), 1;
    }
}
