// News of devices that is not true or comes too often, and a process that is ended from outside.
#include <signal.h>

#include <array>

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
