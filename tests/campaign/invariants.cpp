// What must hold behind every fault, and the hands of the steps.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <limits>
#include <optional>
#include <sstream>

#include "bench/control_client.h"
#include "campaign.h"
#include "picture_probe.h"
#include "process_figures.h"
#include "settings/device_settings.h"
#include "tcp_client.h"

static constexpr unsigned kWarmUpSteps = 3;   // libraries keep threads and memory from their first faults
static constexpr long kMemoryAllowed = 2048;  // kB of its own that the daemon may gain behind the warm-up
static constexpr double kLongestPatGap = 15;  // s, half of the watchdog's time-out
static constexpr double kAnswerWithin = 0.2;  // s
static constexpr double kSoundWithin = 30;    // s, from the picture on

using Clock = std::chrono::steady_clock;

static double SecondsSince(Clock::time_point start) { return Seconds(Clock::now() - start).count(); }

double Stretched(double seconds) {
    static const char* const patience = getenv("TESSEL_PATIENCE");
    return seconds * Patience() * (patience ? atof(patience) : 1);
}

static std::string Text(double number) { return std::to_string(number).substr(0, 5); }

// ---- Drawing

size_t Below(Bench& bench, size_t limit) { return bench.random() % limit; }

void PauseUpTo(Bench& bench, double seconds) { Pause(seconds / 1000 * double(Below(bench, 1001))); }

// ---- Hands

bool Expect(Bench& bench, bool holds, const std::string& what) {
    if (!holds && bench.complaint.empty()) bench.complaint = what;
    return holds;
}

// The serial line is lent to one at a time.
static BoardAnswer Ask(const Bench& bench, const Words& verb) {
    for (;; Pause(0.05)) {
        BoardAnswer answer = AskBoard(std::filesystem::path(BoardFile(bench.board, "x")).parent_path(), verb);
        if (answer.good || answer.text.find("another one is waiting") == answer.text.npos) return answer;
    }
}

std::string Do(Bench& bench, const Words& verb) {
    const BoardAnswer answer = Ask(bench, verb);
    std::string words;
    for (const std::string& word : verb) words += word + " ";
    Expect(bench, answer.good, words + "works: " + answer.text);
    return answer.text;
}

// What is there at once may be what was there before anyone noticed.
bool ShowsInTime(Bench& bench, char source, double seconds) {
    static constexpr double kNoticed = 1.5;
    const auto start = Clock::now();
    Pause(kNoticed);
    const bool shown = ShowsFull(bench.board, source, seconds);
    const double took = SecondsSince(start);
    bench.worst.picture = std::max(bench.worst.picture, took);
    return Expect(
               bench, shown,
               std::string("source ") + source + " on display\n" + Map(TakePicture(bench.board).value_or(Picture{}))) &&
           Expect(bench, took < Stretched(seconds),
                  std::string("source ") + source + " on display in time, not after " + Text(took) + " s");
}

// ---- Channels: each a function that polls once and tells how long the answer took. Beyond kLostAnswer nothing comes.

static constexpr double kLostAnswer = 10;
static constexpr const char* kAck = "ACK\r\n";

// What this thread has waited for a processor, in seconds: on a busy PC most of a late answer, and not the daemon's.
static double OwnWait() {
    double ran = 0, waited = 0;
    std::ifstream("/proc/thread-self/schedstat") >> ran >> waited;
    return waited / 1e9;
}

struct Stopwatch {
    Clock::time_point start = Clock::now();
    double wait = OwnWait();
};

static double Took(const Stopwatch& watch) {
    return std::max(0.0, SecondsSince(watch.start) - (OwnWait() - watch.wait));
}

static std::optional<double> PollConsole(Bench& bench) {
    const size_t from = OutputSize(bench.board);
    const Stopwatch watch;
    Type(bench.board, "<POLL>\n");
    for (size_t seen = from; Took(watch) < Stretched(kLostAnswer); Pause(0.002)) {
        if (OutputSize(bench.board) == seen) continue;
        seen = OutputSize(bench.board);
        if (Output(bench.board).find(kAck, from) != std::string::npos) return Took(watch);
    }
    return {};
}

static std::optional<double> PollPort(int port, std::string_view text) {
    const Stopwatch watch;
    const TcpClient client(port);
    Send(client, text);
    const std::string answer = Receive(client, kAck, Stretched(kLostAnswer));
    if (!answer.ends_with(kAck)) return {};
    return Took(watch);
}

static std::optional<double> PollTelnet(Bench& bench) { return PollPort(TelnetPort(bench.board), "$POLL$"); }

static std::optional<double> PollHttp(Bench& bench) {
    return PollPort(HttpPort(bench.board), "GET /$POLL$ HTTP/1.1\r\n\r\n");
}

// The verb listens for a second; how long the line took is in the trace.
static std::optional<double> PollSerial(Bench& bench) {
    if (!Ask(bench, {"serial", "<POLL>"}).text.ends_with(kAck)) return {};
    double sent = 0, answered = 0;
    std::istringstream lines(Ask(bench, {"trace", "--last", "500"}).text);
    for (std::string line; std::getline(lines, line);) {
        const Json entry = Json::parse(line);
        if (entry["what"] != "serial") continue;
        (entry.contains("sent") ? sent : answered) = entry["t"].get<double>() / 1e6;
    }
    return answered - sent;
}

struct Channel {
    const char* name;
    std::optional<double> (*poll)(Bench& bench);
};
static constexpr Channel kChannels[] = {
    {"console", PollConsole}, {"telnet", PollTelnet}, {"http", PollHttp}, {"serial", PollSerial}};

bool Answer(Bench& bench, std::string_view channels) {
    for (const Channel& channel : kChannels) {
        if (channels.find(channel.name) == channels.npos) continue;
        const std::optional<double> took = channel.poll(bench);
        bench.worst.answer = std::max(bench.worst.answer, took.value_or(0));
        Expect(bench, took.has_value(), std::string(channel.name) + " answers");
        Expect(bench, took.value_or(0) < Stretched(kAnswerWithin),
               std::string(channel.name) + " answers in time, not after " + Text(took.value_or(0)) + " s");
    }
    return bench.complaint.empty();
}

// ---- At rest

static Figures FiguresNow(const Json& daemon) {
    Figures now;
    now.threads = daemon.value("threads", 0L);
    now.descriptors = daemon.value("descriptors", 0L);
    now.processes = daemon.value("processes", 0L);
    return now;
}

static bool IsWithin(const Figures& now, const Figures& rest) {
    return now.threads <= rest.threads && now.descriptors <= rest.descriptors && now.processes <= rest.processes;
}

static std::string Tell(const Figures& figures) {
    return std::to_string(figures.threads) + " threads, " + std::to_string(figures.descriptors) + " descriptors, " +
           std::to_string(figures.processes) + " processes";
}

static bool Plays(const std::string& output, const char* playing, const char* destroyed) {
    const size_t begin = output.rfind(playing), end = output.rfind(destroyed);
    return begin != output.npos && (end == output.npos || begin > end);
}

// Sound is built anew long behind the picture.
static void WaitForRest(Bench& bench) {
    const bool plays = WaitUntil(kSoundWithin, [&] {
        const std::string output = Output(bench.board);
        return Plays(output, "Playing video pipeline...\n", "Video pipeline destroyed.\n") &&
               Plays(output, "Playing audio pipeline...\n", "Audio pipeline destroyed.\n");
    });
    Expect(bench, plays, "sound again");
    Pause(2);
}

// A tool that is just being run has a process and descriptors of its own.
static void CheckFigures(Bench& bench) {
    Figures now;
    if (bench.step > kWarmUpSteps) {
        const bool settles = WaitUntil(
            kSoundWithin, [&] { return IsWithin(now = FiguresNow(Status(bench.board)["daemon"]), bench.rest); });
        Expect(bench, settles, Tell(bench.rest) + " at most, not " + Tell(now));
        return;
    }
    WaitForRest(bench);
    now = FiguresNow(Status(bench.board)["daemon"]);
    bench.rest.threads = std::max(bench.rest.threads, now.threads);
    bench.rest.descriptors = std::max(bench.rest.descriptors, now.descriptors);
    bench.rest.processes = std::max(bench.rest.processes, now.processes);
}

// The least while the picture is built anew: what its frames hold, which is chance and tenfold of what may be gained,
// is given back then.
static long LookAtMemory(Bench& bench) {
    const int process = Status(bench.board)["daemon"]["pid"];
    const size_t from = OutputSize(bench.board);
    long least = std::numeric_limits<long>::max();
    Type(bench.board, "<ENJPEGPARSE 0>\n");
    const bool anew = WaitUntil(10, [&] {
        least = std::min(least, FiguresOf(process).ownKilobytes);
        return Output(bench.board).find("Playing video pipeline...\n", from) != std::string::npos;
    });
    Expect(bench, anew, "the picture built anew");
    WaitForRest(bench);
    return least;
}

// In every fifth step of a life. A single figure says little: when the least of the newest three is above the most of
// the first three, something stays behind.
static void CheckMemory(Bench& bench) {
    static constexpr size_t kLooks = 3;
    if (bench.memory.life != bench.lives) bench.memory = {.life = bench.lives, .since = bench.step, .looks = {}};
    if ((bench.step - bench.memory.since) % 5 != kWarmUpSteps) return;
    WaitForRest(bench);
    std::vector<long>& looks = bench.memory.looks;
    looks.push_back(LookAtMemory(bench));
    if (looks.size() < 2 * kLooks) return;
    const long gained =
        *std::min_element(looks.end() - kLooks, looks.end()) - *std::max_element(looks.begin(), looks.begin() + kLooks);
    bench.worst.kilobytes = std::max(bench.worst.kilobytes, gained);
    std::string all;
    for (const long look : looks) all += " " + std::to_string(look);
    Expect(bench, gained <= kMemoryAllowed, "memory as before, not" + all + " kB");
}

static void CheckSettings(Bench& bench) {
    const std::string path = BoardFile(bench.board, "home/root/config.bin");
    DeviceSettings record;
    std::error_code error;
    const bool whole = std::filesystem::file_size(path, error) == sizeof record &&
                       LoadSettings(record, path.c_str()) == 0 && record.Checksum == ComputeChecksum(record);
    Expect(bench, whole, "the settings file is a whole record");
}

void ExpectNextLife(Bench& bench, double seconds, const char* why) {
    ++bench.lives;
    bench.pictureWithin = kLifeWithin;
    Expect(bench, WaitUntil(seconds, [&] { return Status(bench.board)["daemon"]["starts"] == bench.lives; }), why);
}

static void CheckLife(Bench& bench) {
    const Json status = Status(bench.board);
    const unsigned lives = status["daemon"]["starts"];
    Expect(bench, lives == bench.lives && status["daemon"]["state"] == "running",
           "life " + std::to_string(bench.lives) + " of the daemon, not " + std::to_string(lives));
    const double gap = status["watchdog"]["longest gap"];
    bench.worst.patGap = std::max(bench.worst.patGap, gap);
    Expect(bench, gap < Stretched(kLongestPatGap), "pats of the watchdog, not " + Text(gap) + " s without");
    Expect(bench, Output(bench.board).find("Sanitizer") == std::string::npos, "no sanitizer speaks");
}

void CheckBench(Bench& bench) {
    CheckLife(bench);
    if (bench.complaint.empty() && bench.shows) ShowsInTime(bench, bench.shows, bench.pictureWithin);
    if (bench.complaint.empty()) Answer(bench, "console telnet http serial");
    if (bench.complaint.empty()) CheckFigures(bench);
    if (bench.complaint.empty()) CheckMemory(bench);
    CheckSettings(bench);
    CheckLife(bench);
}

void StartBench(Bench& bench, const Words& options) {
    bench.lives = 1;
    bench.step = 0;
    bench.memory = {};
    Words words = options;
    // One arena, and nothing kept back: what the process holds is what it uses.
    words.insert(words.end(), {"--env", "MALLOC_ARENA_MAX=1", "--env", "MALLOC_TRIM_THRESHOLD_=65536", "--env",
                               "MALLOC_MMAP_THRESHOLD_=65536"});
    bench.board = StartNewBoard(words);
    Expect(bench, WaitForSound(bench.board), "a board that starts\n" + Output(bench.board));
    if (bench.shows) Expect(bench, ShowsFull(bench.board, bench.shows, 30), "a picture behind the start");
    bench.rest = FiguresNow(Status(bench.board)["daemon"]);
}
