// News of devices that is not true or comes too often, a process that is ended from outside, a clock that is set.
#include <signal.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <fstream>

#include "campaign.h"
#include "picture_probe.h"

static constexpr const char* kCamera = "fullhd-mjpeg";

static std::string CameraNode(const Bench& bench) { return Json::parse(Ctl(bench.board, {"camera", "1"}).out)["node"]; }

static void Announce(Bench& bench, const std::string& node, const char* action, size_t times) {
    Do(bench, {"fault", "udev", node, action, std::to_string(times)});
}

// ---- Hot-plug news

static std::string Duplicate(Bench& bench) {
    static constexpr const char* kActions[] = {"add", "remove", "change", "bind"};
    const char* action = Any(bench, kActions);
    Announce(bench, CameraNode(bench), action, 1 + Below(bench, 5));
    return std::string("udev, duplicate: ") + action;
}

// The removal is told behind the plug that followed it, or a plug before it happens.
static std::string Reorder(Bench& bench) {
    const std::string node = CameraNode(bench);
    Do(bench, {"camera", "1", "unplug"});
    Announce(bench, node, "add", 1);
    PauseUpTo(bench, 2);
    Do(bench, {"camera", "1", "plug", kCamera});
    Announce(bench, node, "remove", 1);
    return "udev, reordered: a replug";
}

// More than the monitor's socket holds: what is lost must not be missed.
static std::string Overflow(Bench& bench) {
    const std::string node = CameraNode(bench);
    Announce(bench, node, "change", 3'000);
    Do(bench, {"camera", "1", "unplug"});
    PauseUpTo(bench, 1);
    Do(bench, {"camera", "1", "plug", kCamera});
    Announce(bench, node, "change", 3'000);
    return "udev, overflow: 6000 messages around a replug";
}

// ---- The end

// At any moment: at rest, in a start, in a rebuild, in a save.
static std::string Kill(Bench& bench, int signal, const char* name) {
    if (Below(bench, 2) == 0) Do(bench, {"camera", "1", "unplug"}), Do(bench, {"camera", "1", "plug", kCamera});
    if (Below(bench, 2) == 0) Type(bench.board, "<SAVE>\n<SAVE>\n<SAVE>\n");
    bench.tries = 1 + unsigned(Below(bench, 3));
    for (unsigned left = bench.tries; left > 0; --left) {
        PauseUpTo(bench, 4);
        WaitUntil(10, [&] { return Status(bench.board)["daemon"]["pid"] != 0; });
        kill(Status(bench.board)["daemon"]["pid"], signal);
        ++bench.lives;
        WaitUntil(10, [&] { return Status(bench.board)["daemon"]["starts"] == bench.lives; });
    }
    Expect(bench, ShowsFull(bench.board, '1', 30), "a picture after the end of the process");
    return std::string(name) + ": " + std::to_string(bench.tries) + " times";
}
static std::string EndByTerm(Bench& bench) { return Kill(bench, SIGTERM, "SIGTERM"); }
static std::string EndByKill(Bench& bench) { return Kill(bench, SIGKILL, "SIGKILL"); }

static std::string Step(Bench& bench) {
    static constexpr std::array kKinds{Duplicate, Reorder, Overflow, EndByTerm, EndByKill};
    return Any(bench, kKinds)(bench);
}

const Family Events{.name = "events", .steps = {4, 100, 5'000}, .options = {"--camera1", kCamera}, .step = Step};

// ---- The wall clock

struct ClockJump {
    const char* name;
    int64_t by = 0, to = 0;  // one of them
};
static constexpr ClockJump kClockJumps[] = {
    {"an hour on", 3'600},
    {"an hour back", -3'600},
    {"ten years on", 315'576'000},
    {"ten years back", -315'576'000},
    {"1970", 0, 1},
    {"behind 2038", 0, 2'200'000'000},
};

// The newest mark of a failed buffer pool: its name is all that the daemon does with the wall clock.
static time_t NewestMark(const Bench& bench) {
    time_t newest = -1;
    for (const std::string& line : ShellLines(bench.board)) sscanf(line.c_str(), "echo %ld > /run/video-pool", &newest);
    return newest;
}

// The mark proves that the jump has arrived; frames that flow take it away again.
static std::string SetClock(Bench& bench) {
    const ClockJump& jump = Any(bench, kClockJumps);
    const int64_t ahead = jump.to ? jump.to - time(nullptr) : jump.by;
    std::fstream(BoardFile(bench.board, "home/root/clock")).write(reinterpret_cast<const char*>(&ahead), sizeof ahead);
    PauseUpTo(bench, 4);
    const time_t asked = time(nullptr) + ahead;
    Do(bench, {"fault", "element", "mix", "error", "13"});
    const auto marked = [&] {
        return NewestMark(bench) >= asked - 1 && NewestMark(bench) <= time(nullptr) + ahead + 1;
    };
    Expect(bench, WaitUntil(5, marked), "a mark of the time that was set, not " + std::to_string(NewestMark(bench)));
    return std::string("clock set: ") + jump.name;
}

const Family WallClock{.name = "clock",
                       .steps = {3, 60, 2'000},
                       .options = {"--camera1", kCamerasAtRest[0], "--env", "GST_TRACERS=tesselfaults", "--env",
                                   "LD_PRELOAD=" MOVED_CLOCK},
                       .step = SetClock};
