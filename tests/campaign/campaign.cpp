// campaign smoke|short|long [--family NAME] [--seed N] [--steps N] [--boards N] [--out DIR]
//
// Slices are processes of their own, as many side by side as there are processors; each works on one board after the
// other. Slice K of a family has the seed N + K, so that a loss can be done again alone: the log says how.
#include "campaign.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include "report.h"

using Clock = std::chrono::steady_clock;

static constexpr const Family* kFamilies[] = {&Cameras,       &Signals,        &Clients,    &Sound, &I2c,
                                              &SettingsFiles, &SettingsBoards, &Calls,      &Tools, &Elements,
                                              &Events,        &WallClock,      &Weaknesses, &Mix};
static constexpr const char* kForms[] = {"smoke", "short", "long"};  // by Form
static constexpr unsigned kLossesBorne = 3;                          // then the rest of a slice is not worth its time
static constexpr const char* kUsage =
    "usage: campaign smoke|short|long [--family NAME] [--seed N] [--steps N] [--boards N] [--out DIR]\n";

struct Options {
    Form form = kSmoke;
    std::string family = {};  // empty: all
    unsigned seed = 20260101;
    unsigned steps = 0;  // in place of the form's
    unsigned boards = std::max(1u, unsigned(sysconf(_SC_NPROCESSORS_ONLN)));
    std::string out = "campaign";
};

struct Slice {
    const Family* family;
    unsigned seed, steps;
};

// ---- One slice

static std::string LogPath(const Options& options, const Slice& slice) {
    return options.out + "/" + std::string(slice.family->name) + "-" + std::to_string(slice.seed) + ".log";
}

// One step and all that must hold behind it; its kind, and what it did.
static std::string Try(Bench& bench, const Family& family) {
    bench.complaint.clear();
    bench.tries = 1;
    bench.pictureWithin = kPictureWithin;
    ++bench.step;
    std::string done = "broken off: ";
    try {
        done = family.step(bench);
        if (bench.board) CheckBench(bench);
    } catch (const std::exception& error) {  // of the board's answers: there were none
        Expect(bench, false, std::string("an emulator that answers, not ") + error.what());
    }
    return done;
}

// What the daemon holds, by name.
static std::string Held(const Bench& bench) {
    const std::string process = "/proc/" + Status(bench.board)["daemon"].value("pid", Json(0)).dump();
    std::error_code gone;
    std::ostringstream held;
    for (const auto& entry : std::filesystem::directory_iterator(process + "/fd", gone))
        held << entry.path().filename().string() << " " << std::filesystem::read_symlink(entry, gone).string() << "\n";
    for (const auto& entry : std::filesystem::directory_iterator(process + "/task", gone))
        held << "thread " << std::ifstream(entry.path() / "comm").rdbuf();
    return held.str();
}

static void KeepLoss(std::ofstream& log, const Options& options, const Slice& slice, const Bench& bench,
                     unsigned step) {
    log << "LOST: there should have been " << bench.complaint << "\nAgain: scripts/campaign " << kForms[options.form]
        << " --family " << slice.family->name << " --seed " << slice.seed << " --steps " << step << "\n";
    if (!bench.board) return;
    log << "---- Status\n"
        << Ctl(bench.board, {"status"}).out << "---- Settings\n"
        << Ctl(bench.board, {"settings"}).out << "---- Descriptors and threads\n"
        << Held(bench) << "---- Trace\n"
        << Ctl(bench.board, {"trace", "--last", "300"}).out << "---- Output\n"
        << Output(bench.board) << "\n";
}

static void Add(Json& kinds, const std::string& kind, unsigned tries, bool lost) {
    Json& tally = kinds.emplace(kind, Json{{"tried", 0}, {"lost", 0}}).first.value();
    tally["tried"] = tally["tried"].get<unsigned>() + tries;
    tally["lost"] = tally["lost"].get<unsigned>() + lost;
}

static void RunSlice(const Options& options, const Slice& slice, const std::string& run) {
    const Family& family = *slice.family;
    const std::string path = LogPath(options, slice);
    std::ofstream log(path);
    Bench bench{.board = {}, .random = std::mt19937(slice.seed), .seed = slice.seed};
    Json kinds = Json::object();
    unsigned losses = 0;
    const auto start = Clock::now();
    for (unsigned step = 1; step <= slice.steps && losses < kLossesBorne; ++step) {
        bench.complaint.clear();
        if (family.onBoard && (!bench.board || bench.step == family.stepsPerBoard)) StartBench(bench, family.options);
        const std::string done = bench.complaint.empty() ? Try(bench, family) : "start: ";
        const bool lost = !bench.complaint.empty();
        Add(kinds, done.substr(0, done.find(':')), bench.tries, lost);
        log << step << ", " << Seconds(Clock::now() - start).count() << " s: " << done << std::endl;
        if (!lost) continue;
        ++losses;
        KeepLoss(log, options, slice, bench, step);
        fprintf(stderr, "LOST %s, step %u: %s\n    %s\n", path.c_str(), step, done.c_str(), bench.complaint.c_str());
        bench.board.reset();
    }
    Json worst = Json::object();
    if (family.onBoard)
        worst = {{"answer", bench.worst.answer},
                 {"picture", bench.worst.picture},
                 {"patGap", bench.worst.patGap},
                 {"kilobytes", bench.worst.kilobytes}};
    Append(options.out, {{"run", run},
                         {"form", kForms[options.form]},
                         {"family", family.name},
                         {"seed", slice.seed},
                         {"seconds", Seconds(Clock::now() - start).count()},
                         {"kinds", kinds},
                         {"worst", worst}});
}

// ---- All of them

static std::deque<Slice> Slices(const Options& options) {
    std::deque<Slice> slices;
    for (const Family* family : kFamilies) {
        if (!options.family.empty() && options.family != family->name) continue;
        unsigned left = options.steps ? options.steps : family->steps[options.form];
        // Done again by hand, it is one slice.
        const unsigned most = options.steps ? left : std::max(1u, (left + options.boards - 1) / options.boards);
        for (unsigned seed = options.seed; left > 0; ++seed) {
            const unsigned steps = options.form == kSmoke ? left : std::min(left, most);
            slices.push_back({family, seed, steps});
            left -= steps;
        }
    }
    return slices;
}

// False when a slice did not come to its end.
static bool RunAll(const Options& options, std::deque<Slice> slices, const std::string& run) {
    unsigned running = 0;
    bool ended = true;
    while (running > 0 || !slices.empty()) {
        if (running < options.boards && !slices.empty()) {
            if (fork() == 0) {
                RunSlice(options, slices.front(), run);
                exit(0);
            }
            slices.pop_front();
            ++running;
            continue;
        }
        int status = 0;
        if (wait(&status) < 0) return false;
        ended = ended && status == 0;
        --running;
    }
    return ended;
}

static std::optional<Options> Parse(const Words& words) {
    const auto form = words.empty() ? std::end(kForms) : std::find(std::begin(kForms), std::end(kForms), words[0]);
    if (form == std::end(kForms) || words.size() % 2 == 0) return {};
    Options options{.form = Form(form - kForms)};
    for (size_t at = 1; at < words.size(); at += 2) {
        const std::string& name = words[at];
        const auto number = unsigned(strtoul(words[at + 1].c_str(), nullptr, 10));
        if (name == "--family")
            options.family = words[at + 1];
        else if (name == "--out")
            options.out = words[at + 1];
        else if (name == "--seed")
            options.seed = number;
        else if (name == "--steps")
            options.steps = number;
        else if (name == "--boards")
            options.boards = std::max(1u, number);
        else
            return {};
    }
    return options;
}

int main(int count, char** arguments) {
    const std::optional<Options> options = Parse({arguments + 1, arguments + count});
    const std::deque<Slice> slices = options ? Slices(*options) : std::deque<Slice>();
    if (slices.empty()) {
        fputs(kUsage, stderr);
        for (const Family* family : kFamilies) fprintf(stderr, "    %s\n", std::string(family->name).c_str());
        return 2;
    }
    setenv("TESSEL_SHARE", std::filesystem::path(MOVED_CLOCK).parent_path().c_str(), 0);  // seen by every board
    std::filesystem::create_directories(options->out);
    const std::string run = std::to_string(time(nullptr)) + "-" + std::to_string(getpid());
    const bool ended = RunAll(*options, slices, run);
    const unsigned lost = PrintTable(options->out, run);
    if (!ended) fputs("A slice did not come to its end.\n", stderr);
    return ended && lost == 0 ? 0 : 1;
}
