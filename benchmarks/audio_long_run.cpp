// A long run of the sound: both cameras' microphones mixed for every output while the picture runs. Prints a line a
// minute, then what every stream of sound played and lost, how far it drifted from the clock, and what the daemon cost.
// No verdict.
//
//     audio_long_run [MINUTES]        30 without an argument
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "board_run.h"
#include "process_figures.h"
#include "tcp_client.h"

static constexpr double kSampleSeconds = 10, kMinute = 60;
static constexpr const char* kCommands = "$ACFG_2$$AOUTANALOG_255$$AOUTHDMI_255$$AOUTUSB1_255$";
static constexpr const char* kMix[] = {"microphone1", "microphone2"};
static constexpr double kAsSent = 0.2;  // dB beside the -20 of the sources

struct Sample {
    Json sound;
    double seconds;
};

static Sample TakeSample(const Board& board) {
    const auto now = std::chrono::steady_clock::now();
    return {.sound = Json::parse(Ctl(board, {"audio"}).out), .seconds = Seconds(now.time_since_epoch()).count()};
}

static bool HasMix(const Json& output) {
    for (const char* source : kMix)
        if (std::abs(output["tones"].value(source, -120.0) + 20) > kAsSent) return false;
    return true;
}

static bool PlaysMix(const Board& board) {
    const Json outputs = TakeSample(board).sound["outputs"];
    for (const char* name : {"fpga", "analog", "hdmi", "usb1"})
        if (!HasMix(outputs[name])) return false;
    return true;
}

static size_t Occurrences(const std::string& text, std::string_view line) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find(line, at)) != std::string::npos; at += line.size()) ++count;
    return count;
}

static long XrunsOf(const Json& sound) {
    long count = 0;
    for (const Json& output : sound["outputs"]) count += output["underruns"].get<long>();
    for (const Json& input : sound["inputs"]) count += input["overruns"].get<long>();
    return count;
}

// How much more sound than clock time there was between two samples.
static double Drift(const Json& first, const Json& last, double seconds) {
    return (last["frames"].get<double>() - first["frames"].get<double>()) / first["rate"].get<double>() - seconds;
}

// A rebuild leaves a gap of seconds; the median of the minutes shows the pace without them.
static double MedianPpm(const std::vector<Sample>& minutes, const char* kind, const std::string& name) {
    std::vector<double> ppm;
    for (size_t i = 1; i < minutes.size(); ++i) {
        const double seconds = minutes[i].seconds - minutes[i - 1].seconds;
        ppm.push_back(Drift(minutes[i - 1].sound[kind][name], minutes[i].sound[kind][name], seconds) / seconds * 1e6);
    }
    std::ranges::sort(ppm);
    return ppm.empty() ? 0 : ppm[ppm.size() / 2];
}

static void PrintStreams(const std::vector<Sample>& minutes, const char* kind, const char* lost) {
    const Sample &first = minutes.front(), &last = minutes.back();
    for (const auto& [name, before] : first.sound[kind].items()) {
        if (before["rate"] == 0) continue;
        const Json& after = last.sound[kind][name];
        printf("%-20s %7d %12ld %12.3f %14.1f %8ld\n", (kind + (" " + name)).c_str(), before["rate"].get<int>(),
               after["frames"].get<long>() - before["frames"].get<long>(),
               Drift(before, after, last.seconds - first.seconds), MedianPpm(minutes, kind, name),
               after[lost].get<long>() - before[lost].get<long>());
    }
}

static void Run(const Board& board, double minutes) {
    const size_t outputBefore = OutputSize(board);
    std::vector<Sample> taken = {TakeSample(board)};
    const ProcessFigures before = DaemonFigures(board);
    const int samples = int(minutes * kMinute / kSampleSeconds), aMinute = int(kMinute / kSampleSeconds);
    int withMix = 0;
    ProcessFigures minuteBefore = before;
    printf("%8s %8s %10s %8s %8s  %s\n", "minute", "CPU %", "RSS kB", "threads", "xruns", "mix heard");
    for (int i = 1; i <= samples; ++i) {
        Pause(kSampleSeconds);
        const bool mix = PlaysMix(board);
        withMix += mix;
        if (i % aMinute != 0) continue;
        const ProcessFigures now = DaemonFigures(board);
        taken.push_back(TakeSample(board));
        printf("%8d %8.1f %10ld %8ld %8ld %5d/%d\n", i / aMinute, CpuPercent(minuteBefore, now), now.residentKilobytes,
               now.threads, XrunsOf(taken.back().sound) - XrunsOf(taken.front().sound), withMix, i);
        fflush(stdout);
        minuteBefore = now;
    }
    const ProcessFigures after = DaemonFigures(board);
    printf("\n%.3f s by the clock\n%-20s %7s %12s %12s %14s %8s\n", taken.back().seconds - taken.front().seconds,
           "stream", "rate", "frames", "- clock, s", "median min ppm", "xruns");
    PrintStreams(taken, "outputs", "underruns");
    PrintStreams(taken, "inputs", "overruns");
    const std::string text = Output(board).substr(outputBefore);
    printf("\npipelines rebuilt: sound %zu (%zu warnings), picture %zu\n", Occurrences(text, "Playing audio pipeline"),
           Occurrences(text, "***** Warning"), Occurrences(text, "Playing video pipeline"));
    printf("daemon: %.1f %% of one processor, %ld kB at the end, %+ld kB\n", CpuPercent(before, after),
           after.residentKilobytes, after.residentKilobytes - before.residentKilobytes);
}

int main(int count, char** words) {
    const Board board = StartNewBoard({"--camera1", "speakerphone", "--camera2", "fullhd-mjpeg"});
    if (!WaitForPicture(board)) return fprintf(stderr, "no picture:\n%s", Output(board).c_str()), 1;
    Telnet(board, kCommands, "ACK\r\nACK\r\nACK\r\nACK\r\n");
    if (!WaitUntil(60, [&] { return PlaysMix(board); }))
        return fprintf(stderr, "no sound:\n%s", Output(board).c_str()), 1;
    Run(board, count > 1 ? atof(words[1]) : 30);
}
