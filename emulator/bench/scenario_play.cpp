#include "bench/scenario_play.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "bench/control.h"
#include "bench/control_client.h"
#include "bench/running_boards.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

static constexpr double kPowerOnSeconds = 30, kPowerOffSeconds = 20;
static constexpr double kLookSeconds = 0.1;  // between two looks

// What the board writes, collected from the scenario's start on: the board itself keeps only the newest part.
struct Transcript {
    std::vector<std::string> verb;
    std::string newest = {};   // as the board told it last
    std::string written = {};  // since the start
    size_t mark = 0;           // where the newest verbs began
};

struct ChildBoard {
    pid_t process = -1;
    int input = -1;          // the console's; nothing is typed
    FILE* output = nullptr;  // what it said
};

static fs::path board;
static Clock::time_point startedAt;
static std::array<Transcript, 2> transcripts;  // of the journal and the console

static double Now() { return std::chrono::duration<double>(Clock::now() - startedAt).count(); }

static void Sleep(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

static std::string TimeText(double seconds) {
    const long tenths = long(seconds * 10);
    std::array<char, 32> text;
    snprintf(text.data(), text.size(), "%ld:%02ld.%ld", tenths / 600, tenths / 10 % 60, tenths % 10);
    return text.data();
}

// Looking

// What is wrong; empty: all that was written is there.
static std::string Follow(Transcript& transcript) {
    BoardAnswer now = AskBoard(board, transcript.verb);
    if (!now.good) return now.text;
    transcript.written += Appended(transcript.newest, now.text);
    transcript.newest = std::move(now.text);
    return "";
}

static void MarkVerbs() {
    for (Transcript& transcript : transcripts) {
        Follow(transcript);
        transcript.mark = transcript.written.size();
    }
}

// Of a board that was running before, what it wrote until now does not count.
static void StartTranscripts(bool wasRunning) {
    transcripts = {Transcript{.verb = {"journal"}}, Transcript{.verb = {"console"}}};
    for (Transcript& transcript : transcripts) {
        if (!wasRunning) continue;
        Follow(transcript);
        transcript.written.clear();
    }
}

// What must be there was written since the verbs above began; what must not be there, since the start.
static void LookAtText(Look& look, Transcript& transcript, bool none) {
    look.trouble = Follow(transcript);
    look.text = std::string_view(transcript.written).substr(none ? 0 : transcript.mark);
}

static void LookAtPicture(Look& look) {
    look.picture = ShownPicture(board);
    if (look.picture) return;
    const BoardAnswer status = AskBoard(board, {"status"});
    if (!status.good) look.trouble = status.text;
}

static void LookAtVerb(Look& look, const std::vector<std::string>& verb) {
    const BoardAnswer answer = AskBoard(board, verb);
    if (answer.good)
        look.answer = Json::parse(answer.text, nullptr, false);
    else
        look.trouble = answer.text;
}

static Look LookFor(const Expectation& expectation) {
    Look look;
    switch (expectation.kind->at) {
        case LookAt::kPicture:
            LookAtPicture(look);
            break;
        case LookAt::kJournal:
            LookAtText(look, transcripts[0], expectation.none);
            break;
        case LookAt::kConsole:
            LookAtText(look, transcripts[1], expectation.none);
            break;
        case LookAt::kVerb:
            LookAtVerb(look, AskedVerb(expectation));
            break;
    }
    look.seconds = Now();
    return look;
}

// Lines

static int Fail(const ScenarioPlay& play, const ScenarioLine& line, const std::string& what) {
    fflush(stdout);
    fprintf(stderr, "\n%s:%zu: %s\n%s", play.name.c_str(), line.number, line.text.c_str(), what.c_str());
    if (!what.ends_with('\n')) fputc('\n', stderr);
    return 1;
}

static int Expect(const ScenarioPlay& play, const ScenarioLine& line) {
    const Expectation& expectation = *line.expectation;
    const double begun = Now(), within = expectation.within * play.patience;
    double heldSince = -1;
    Motion motion;
    while (true) {
        const Look look = LookFor(expectation);
        const Finding finding = Judge(expectation, look, motion);
        if (!finding.holds) heldSince = -1;
        if (finding.holds && heldSince < 0) heldSince = look.seconds;
        if (finding.holds && look.seconds - heldSince >= expectation.lasting) break;
        if (!finding.holds && look.seconds - begun >= within)
            return Fail(play, line, "Not so at " + TimeText(look.seconds) + ". Seen:\n" + finding.seen);
        Sleep(kLookSeconds);
    }
    printf("   ok, %.1f s\n", Now() - begun);
    return 0;
}

static bool OnlyLooks(const std::vector<std::string>& words) {
    const auto verb = std::ranges::find(Verbs(), std::string_view(words[0]), &Verb::word);
    return verb == Verbs().end() || words.size() <= verb->actsWith;
}

static int CarryOut(const ScenarioPlay& play, const ScenarioLine& line) {
    putchar('\n');
    if (line.verb[0] == "clock") return startedAt = Clock::now(), 0;
    if (line.verb[0] == "picture") return RunVerb(board, line.verb) == 0 ? 0 : Fail(play, line, "There is no picture.");
    const BoardAnswer answer = AskBoard(board, line.verb);
    if (answer.ended) return 0;  // as the daemon's end ends a board with --no-restart; whether it may, `expect` tells
    if (!answer.good) return Fail(play, line, answer.text);
    if (OnlyLooks(line.verb)) puts(answer.text.c_str());
    return 0;
}

static int PlayLines(const Scenario& scenario, const ScenarioPlay& play) {
    StartTranscripts(!play.board.empty());
    startedAt = Clock::now();
    bool expected = false;  // by the line above
    for (const ScenarioLine& line : scenario.lines) {
        Sleep(line.behind ? line.seconds : std::max(0.0, line.seconds - Now()));
        if (expected && !line.expectation) MarkVerbs();
        expected = line.expectation.has_value();
        printf("%9s  %s", TimeText(Now()).c_str(), line.text.c_str());
        fflush(stdout);
        if (const int status = expected ? Expect(play, line) : CarryOut(play, line); status != 0) return status;
    }
    return 0;
}

// The board

static void PrintOutput(FILE* output) {
    std::array<char, 4096> chunk;
    rewind(output);
    for (size_t size; (size = fread(chunk.data(), 1, chunk.size(), output)) > 0;) fwrite(chunk.data(), 1, size, stderr);
}

static ChildBoard StartChild(int (*run)()) {
    ChildBoard child{.output = tmpfile()};
    std::array<int, 2> input{-1, -1};
    if (child.output == nullptr || pipe2(input.data(), O_CLOEXEC) < 0)
        return perror("tessel-emulator: cannot start a board"), child;
    fcntl(fileno(child.output), F_SETFD, FD_CLOEXEC);  // the daemon inherits what a board's daemon does, no more
    fflush(nullptr);
    child.input = input[1];
    child.process = fork();
    if (child.process != 0) return close(input[0]), child;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(input[0], STDIN_FILENO);
    dup2(fileno(child.output), STDOUT_FILENO);
    dup2(fileno(child.output), STDERR_FILENO);
    exit(run());
}

static bool Ended(ChildBoard& child, int& waitStatus) {
    if (child.process < 0 || waitpid(child.process, &waitStatus, WNOHANG) == child.process) child.process = -1;
    return child.process < 0;
}

// Until its verbs work. False when it has ended instead, with what it said on standard error.
static bool AwaitPower(ChildBoard& child, const ScenarioPlay& play) {
    const Clock::time_point begun = Clock::now();
    const std::chrono::duration<double> patience(kPowerOnSeconds * play.patience);
    int waitStatus = 0;
    while (!Ended(child, waitStatus) && Clock::now() - begun < patience) {
        board = BoardOf(child.process);
        if (!board.empty() && AskBoard(board, {"status"}).good) return true;
        Sleep(kLookSeconds / 5);
    }
    PrintOutput(child.output);
    fprintf(stderr, "%s: the board does not start\n", play.name.c_str());
    return false;
}

// False after a complaint: it did not end in order.
static bool EndChild(ChildBoard& child) {
    int waitStatus = 0;
    if (child.process > 0) kill(child.process, SIGTERM);
    for (double waited = 0; !Ended(child, waitStatus) && waited < kPowerOffSeconds; waited += kLookSeconds)
        Sleep(kLookSeconds);
    if (child.process > 0) kill(child.process, SIGKILL), waitpid(child.process, &waitStatus, 0);
    close(child.input);
    const bool good = !WIFSIGNALED(waitStatus);
    if (!good) fprintf(stderr, "The emulator was ended by signal %d.\n", WTERMSIG(waitStatus));
    fclose(child.output);
    return good;
}

int PlayScenario(const Scenario& scenario, const ScenarioPlay& play) {
    board = play.board;
    if (!board.empty()) return PlayLines(scenario, play);
    ChildBoard child = StartChild(play.run);
    if (child.process < 0) return 1;
    const int status = AwaitPower(child, play) ? PlayLines(scenario, play) : 1;
    return EndChild(child) ? status : 1;
}
