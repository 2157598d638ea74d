// What the daemon's sound costs, beside gst-launch-1.0 with the same elements and links on a second board at the same
// time; how long a sound takes from a microphone to the outputs, whose mixer waits for one second by its settings; and
// how long after a command a gain is heard to change, and a route.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>

#include "board_run.h"
#include "figures.h"
#include "process_figures.h"
#include "tcp_client.h"

static constexpr double kMeasured = 30;  // s
static constexpr int kOnsets = 10;
static constexpr const char* kCommands = "$ACFG_2$$AOUTANALOG_255$$AOUTUSB1_255$$AOUTHDMI_0$";
static constexpr const char* kMixOutputs[] = {"fpga", "analog", "usb1"};
static const Words kCameras = {"--camera1", "speakerphone", "--camera2", "fullhd-mjpeg"};

// The daemon's pipeline with that routing: cards 0 to 2 are the board's, 3 and 4 the cameras'.
static constexpr const char* kLaunch =
    "amixer -q -D hw:0 set PGA 0; amixer -q -D hw:0 set PCM 127; amixer -q -c 3 set PCM 100%; exec gst-launch-1.0 -q "
    "alsasrc device=hw:3 provide-clock=false ! audioconvert ! audioresample ! audio/x-raw,rate=48000 ! volume ! mix. "
    "alsasrc device=hw:4 provide-clock=false ! audioconvert ! audioresample ! audio/x-raw,rate=48000 ! volume ! mix. "
    "alsasrc device=hw:0 provide-clock=true ! audioresample ! audio/x-raw,rate=48000 ! volume volume=0 ! tee name=line "
    "! "
    "queue ! mix. audiomixer name=mix latency=1000000000 ! tee name=tee ! queue ! alsasink device=hw:1 sync=false "
    "alsasrc device=hw:1 provide-clock=false ! audio/x-raw,rate=48000,format=S16LE ! tee name=fpga "
    "tee. ! queue ! volume ! alsasink device=hw:0 sync=false "
    "fpga. ! queue ! volume ! alsasink device=hw:2 sync=false "
    "tee. ! queue ! audioconvert ! audioresample ! volume ! alsasink device=hw:3 sync=false "
    "fpga. ! queue ! audioconvert ! audioresample ! volume ! fakesink sync=false";

static Board Start(Words options, const Words& more) {
    options.insert(options.end(), more.begin(), more.end());
    return StartNewBoard(options);
}

static bool PlaysMix(const Board& board) {
    const Json outputs = Json::parse(Ctl(board, {"audio"}).out)["outputs"];
    return std::ranges::all_of(kMixOutputs, [&](const char* name) {
        return outputs[name]["tones"].contains("microphone1") && outputs[name]["tones"].contains("microphone2");
    });
}

// ---- Processor time of threads

using ThreadTimes = std::map<int, double>;  // seconds by thread

static ThreadTimes TimesOf(int pid) {
    ThreadTimes times;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        // The first number is the nanoseconds on a processor.
        std::ifstream file(task.path() / "schedstat");
        double nanoseconds = 0;
        if (file >> nanoseconds) times[std::stoi(task.path().filename())] = nanoseconds / 1e9;
    }
    return times;
}

static int ThreadNamed(int pid, const std::string& name) {
    for (const auto& [thread, seconds] : TimesOf(pid)) {
        std::ifstream file("/proc/" + std::to_string(pid) + "/task/" + std::to_string(thread) + "/comm");
        std::string found;
        if (std::getline(file, found) && found == name) return thread;
    }
    return 0;
}

static double Difference(const ThreadTimes& before, const ThreadTimes& after, auto counts) {
    double sum = 0;
    for (const auto& [thread, seconds] : after)
        if (counts(thread)) sum += seconds - (before.contains(thread) ? before.at(thread) : 0);
    return sum;
}

// `earlier`: the daemon's threads before its sound began, which therefore are not the sound's.
static void CompareCost(const Board& board, const Board& launched, const ThreadTimes& earlier) {
    const int daemon = Status(board)["daemon"]["pid"], launch = Status(launched)["daemon"]["pid"];
    const int supervision = ThreadNamed(daemon, "Gstreamer audio");
    const ThreadTimes before = TimesOf(daemon), launchBefore = TimesOf(launch);
    Pause(kMeasured);
    const ThreadTimes after = TimesOf(daemon), launchAfter = TimesOf(launch);
    const auto perSecond = [](double seconds) { return 1000 * seconds / kMeasured; };
    const double path = perSecond(Difference(before, after, [&](int thread) { return !earlier.contains(thread); }));
    const double thread = perSecond(Difference(before, after, [&](int id) { return id == supervision; }));
    const double yardstick = perSecond(Difference(launchBefore, launchAfter, [](int) { return true; }));
    const auto report = [&](const char* row, double cost) {
        ReportRow("sound cost", row, {{"ms/s", cost}, {"of gst-launch's", cost / yardstick}});
    };
    report("gst-launch-1.0, the same links", yardstick);
    report("daemon: the pipeline's threads", path);
    report("daemon: cards counted, settings followed", thread);
}

// ---- Latency

static double TimeInTrace(const Board& board, const char* event, const char* output, const char* time,
                          const char* source = "microphone1") {
    for (const Json& line : TraceLines(board, "sound"))
        if (line["event"] == event && line.value("source", "") == source && line.value("output", "") == output)
            return line[time].get<double>();
    return 0;
}

static void Onset(const Board& board, std::map<std::string, std::vector<double>>& latencies) {
    Ctl(board, {"tone", "microphone1", "off"});
    Pause(3);
    Ctl(board, {"trace", "--clear"});
    Ctl(board, {"tone", "microphone1", "on"});
    const bool heard = WaitUntil(10, [&] {
        return std::ranges::all_of(kMixOutputs,
                                   [&](const char* output) { return TimeInTrace(board, "heard", output, "at") > 0; });
    });
    const double begin = TimeInTrace(board, "tone on", "", "t");
    for (const char* output : kMixOutputs)
        if (heard) latencies[output].push_back((TimeInTrace(board, "heard", output, "at") - begin) / 1000);
}

static void ReportTimes(const char* table, const std::string& row, const std::vector<double>& times) {
    ReportRow(table, row,
              {{"heard", double(times.size())}, {"median ms", Median(times)}, {"max ms", Quantile(times, 1)}});
}

static void MeasureLatency(const Board& board, const char* title) {
    std::map<std::string, std::vector<double>> latencies;
    for (int i = 0; i < kOnsets; ++i) Onset(board, latencies);
    for (const auto& [output, times] : latencies)
        ReportTimes("sound latency", std::string(title) + ": " + output, times);
}

// ---- Commands

// From the command to the loudspeaker, on the board's clock: a tone that is switched marks the moment.
static double MillisecondsTo(const Board& board, const char* command, const char* event,
                             const char* source = "microphone1") {
    Ctl(board, {"trace", "--clear"});
    Ctl(board, {"tone", "line", "on"});
    const double sent = TraceLines(board, "sound").front()["t"].get<double>();
    Telnet(board, command);
    double at = 0;
    WaitUntil(10, [&] { return (at = TimeInTrace(board, event, "analog", "at", source)) > sent; });
    return (at - sent) / 1000;
}

static void MeasureChanges(const Board& board) {
    struct Change {
        const char *what, *silence, *sound;
        const char *event = "no longer heard", *source = "microphone1";  // what the analog output tells of the former
    };
    static constexpr Change kChanges[] = {
        {.what = "gain of the microphone", .silence = "$AIN1_166$", .sound = "$AIN1_0$"},
        {.what = "gain of the output", .silence = "$AOUT1_166$", .sound = "$AOUT1_0$"},
        {.what = "route: a new pipeline",
         .silence = "$AOUTANALOG_0$",
         .sound = "$AOUTANALOG_255$",
         .event = "heard",
         .source = "fpga"},
    };
    for (const Change& change : kChanges) {
        std::vector<double> silent, sounding;
        for (int i = 0; i < kOnsets; ++i) {
            silent.push_back(MillisecondsTo(board, change.silence, change.event, change.source));
            Pause(2);
            sounding.push_back(MillisecondsTo(board, change.sound, "heard"));
            Pause(2);
        }
        ReportTimes("sound changes", std::string(change.what) + ", silenced", silent);
        ReportTimes("sound changes", std::string(change.what) + ", heard again", sounding);
    }
}

int main() {
    const Board board = Start(kCameras, {});
    if (!WaitForPicture(board)) return fprintf(stderr, "no picture:\n%s", Output(board).c_str()), 1;
    const ThreadTimes earlier = TimesOf(Status(board)["daemon"]["pid"]);
    const bool early = !PlaysMix(board);
    Telnet(board, kCommands, "ACK\r\nACK\r\nACK\r\nACK\r\n");
    const Board launched = Start(kCameras, {"--daemon", "/bin/sh", "--no-restart", "--", "-c", kLaunch});
    if (!early || !WaitUntil(60, [&] { return PlaysMix(board) && PlaysMix(launched); }))
        return fprintf(stderr, "no sound:\n%s\n%s", Output(board).c_str(), Output(launched).c_str()), 1;
    Pause(10);  // past the rebuild that the routing causes
    CompareCost(board, launched, earlier);
    MeasureLatency(board, "daemon");
    MeasureLatency(launched, "gst-launch-1.0");
    MeasureChanges(board);
}
