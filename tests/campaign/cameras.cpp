// Cameras pulled, swapped, pulled while they are just being set up, stalled, and sending what nobody agreed on.
#include "campaign.h"

static std::string Number(size_t port) { return std::to_string(port + 1); }

static void Pull(Bench& bench, size_t port) { Do(bench, {"camera", Number(port), "unplug"}); }
static void Plug(Bench& bench, size_t port, size_t profile) {
    Do(bench, {"camera", Number(port), "plug", kCamerasAtRest[profile]});
}

static std::string PullOne(Bench& bench) {
    const size_t port = Below(bench, 2);
    Pull(bench, port);
    PauseUpTo(bench, 5);
    Plug(bench, port, port);
    return "one pulled: camera " + Number(port);
}

// The picture of the camera that is left has to be there meanwhile.
static std::string PullForLong(Bench& bench) {
    const size_t port = Below(bench, 2);
    Pull(bench, port);
    Type(bench.board, port == 0 ? "<SWUSB><S2>\n" : "<S1>\n");
    ShowsInTime(bench, port == 0 ? '2' : '1');
    Type(bench.board, "<S1>\n");
    Plug(bench, port, port);
    return "one pulled until the other is seen: camera " + Number(port);
}

static std::string PullBoth(Bench& bench) {
    const size_t first = Below(bench, 2), firstBack = Below(bench, 2);
    Pull(bench, first);
    PauseUpTo(bench, 0.5);
    Pull(bench, 1 - first);
    PauseUpTo(bench, 5);
    Plug(bench, firstBack, firstBack);
    PauseUpTo(bench, 1.5);
    Plug(bench, 1 - firstBack, 1 - firstBack);
    bench.tries = 2;
    return "both pulled: camera " + Number(first) + " first, " + Number(firstBack) + " back first";
}

// Each on the other's port for a while.
static std::string Swap(Bench& bench) {
    for (const size_t turn : {1, 0}) {
        Pull(bench, 0);
        Pull(bench, 1);
        PauseUpTo(bench, 1);
        Plug(bench, 0, turn);
        Plug(bench, 1, 1 - turn);
        if (turn) PauseUpTo(bench, 6);
    }
    bench.tries = 4;
    return "swapped: and back";
}

// Out again at any moment of being found, asked, set up and started.
static std::string PullInNegotiation(Bench& bench) {
    const size_t port = Below(bench, 2);
    bench.tries = 1 + unsigned(Below(bench, 4));
    for (unsigned i = 0; i < bench.tries; ++i) {
        Pull(bench, port);
        PauseUpTo(bench, 1.5);
        Plug(bench, port, port);
        PauseUpTo(bench, 4);
    }
    return "pulled in negotiation: camera " + Number(port) + ", " + std::to_string(bench.tries) + " times";
}

static std::string Misbehave(Bench& bench, const char* how, const char* kind) {
    const size_t port = Below(bench, 2);
    Do(bench, {"camera", Number(port), how});
    PauseUpTo(bench, 3);
    Answer(bench, "console telnet http");
    if (Below(bench, 2) == 0) {
        Do(bench, {"camera", Number(port), "resume"});
    } else {
        Pull(bench, port);
        Plug(bench, port, port);
    }
    return std::string(kind) + ": camera " + Number(port);
}
static std::string Stall(Bench& bench) { return Misbehave(bench, "stall", "stalled"); }
static std::string SendGarbage(Bench& bench) { return Misbehave(bench, "garbage", "garbage frames"); }
static std::string SendWrongSize(Bench& bench) { return Misbehave(bench, "wrong-size", "frames of a wrong size"); }

static std::string Step(Bench& bench) {
    static constexpr std::string (*kFaults[])(Bench&) = {PullOne,           PullForLong, PullBoth,    Swap,
                                                         PullInNegotiation, Stall,       SendGarbage, SendWrongSize};
    return kFaults[bench.step % std::size(kFaults)](bench);
}

const Family Cameras = {.name = "cameras",
                        .steps = {8, 120, 6000},
                        .options = {"--camera1", kCamerasAtRest[0], "--camera2", kCamerasAtRest[1]},
                        .step = Step};
