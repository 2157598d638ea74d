// Signals that come and go: the monitor and what it says about itself, the HDMI source and its modes.
#include <fstream>

#include "campaign.h"

static constexpr const char* kModeAtRest = "1280x720p30";
static constexpr double kSwitchWithin = 4 + kPictureWithin;  // s: the capture's own restart, a second look at it

static void SetSource(Bench& bench, const char* mode) { Do(bench, {"hdmi-in", "0", mode}); }

static void ShowSource(Bench& bench) {
    Type(bench.board, "<SWHDMI><S2>\n");
    ShowsInTime(bench, '3', kSwitchWithin);
    Type(bench.board, "<SWUSB><S1>\n");
}

static std::string Bounce(Bench& bench) {
    bench.tries = 1 + unsigned(Below(bench, 5));
    for (unsigned i = 0; i < bench.tries; ++i) {
        SetSource(bench, "off");
        PauseUpTo(bench, i % 2 ? 3 : 0.3);
        SetSource(bench, kModeAtRest);
        PauseUpTo(bench, i % 2 ? 0.3 : 3);
    }
    ShowSource(bench);
    return "source bounces: " + std::to_string(bench.tries) + " times";
}

static std::string Change(Bench& bench, const std::vector<const char*>& modes, const char* kind) {
    const char* mode = Any(bench, modes);
    SetSource(bench, mode);
    if (Below(bench, 2) == 0) {
        ShowSource(bench);
    } else {
        PauseUpTo(bench, 4);
    }
    SetSource(bench, kModeAtRest);
    return std::string(kind) + ": " + mode;
}

static std::string ChangeSize(Bench& bench) {
    return Change(bench, {"1920x1080p30", "1920x1080p25", "1280x720p60", "1280x720p50", "960x540p60"},
                  "source changes its size");
}

static std::string Interlace(Bench& bench) {
    return Change(bench, {"1920x1080i60", "1920x1080i50"}, "source is interlaced");
}

// Noise, or noise behind a header; any length up to a block. No board has a mode for it.
static std::string RandomEdid(Bench& bench) {
    static constexpr uint8_t kHeader[] = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
    const std::string path = BoardFile(bench.board, "random.edid");
    const bool headed = Below(bench, 2) == 0;
    std::ofstream file(path);
    for (size_t at = 0, size = Below(bench, 4) ? 128 : Below(bench, 128); at < size; ++at) {
        const size_t byte = headed && at < std::size(kHeader) ? kHeader[at] : Below(bench, 256);
        file << std::hex << byte / 16 << byte % 16 << "\n";
    }
    return path;
}

// Read when the output is set to automatic. The picture has to come, whatever was read.
static std::string ReadEdid(Bench& bench) {
    Do(bench, {"monitor", "plug", RandomEdid(bench)});
    Type(bench.board, "<OUTPUT 3>\n<OUTPUT 0>\n");
    ShowsInTime(bench, '1', 2 * kPictureWithin);
    Do(bench, {"monitor", "plug"});
    return "EDID of noise: read on command";
}

// The process ends with its monitor, and a new one waits for it. The plug may be back before anyone looked.
static std::string PullMonitor(Bench& bench) {
    const bool noise = Below(bench, 2) == 0;
    const size_t from = OutputSize(bench.board);
    Do(bench, {"monitor", "unplug"});
    if (Below(bench, 3) > 0) WaitForOutput(bench.board, "FIXME: Need to reboot the application", 3, from);
    PauseUpTo(bench, 6);
    Do(bench, {"monitor", "plug", noise ? RandomEdid(bench) : "1080p60"});
    Pause(1);
    bench.lives += Output(bench.board).find("FIXME: Need to reboot the application", from) != std::string::npos;
    bench.pictureWithin = kLifeWithin;
    WaitUntil(kLifeWithin, [&] { return Status(bench.board)["daemon"]["starts"] == bench.lives; });
    ShowsInTime(bench, '1', kLifeWithin);
    Do(bench, {"monitor", "plug"});
    return std::string("monitor pulled: ") + (noise ? "another" : "the same") + " comes back";
}

static std::string Step(Bench& bench) {
    static constexpr std::string (*kFaults[])(Bench&) = {Bounce, PullMonitor, ChangeSize, ReadEdid, Interlace};
    return kFaults[bench.step % std::size(kFaults)](bench);
}

const Family Signals = {.name = "signals",
                        .steps = {5, 140, 3500},
                        .options = {"--camera1", kCamerasAtRest[0], "--hdmi-in", kModeAtRest},
                        .step = Step};
