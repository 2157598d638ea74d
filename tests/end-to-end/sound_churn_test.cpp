// Cards and cameras plugged and pulled at random, cards that fail, and a picture that is rebuilt meanwhile: afterwards
// every output plays what it should, and nothing is left behind.
#include <gmock/gmock.h>

#include <random>

#include "picture_probe.h"
#include "process_figures.h"
#include "tcp_client.h"

static constexpr int kBursts = 20, kPlugsPerBurst = 10, kWarmUp = 4;
static constexpr unsigned kSeed = 20260101;
static constexpr long kMemoryAllowed = 16384;          // kB, from the warm-up on
static constexpr double kSettled = 5 + 5 + 5 + 1 + 1;  // s: changes noticed at the very end of the waits before a life

struct Churn {
    Board board;
    std::mt19937 random;
    bool cameras[2], sounds[2];
};

static size_t Below(Churn& churn, size_t limit) { return churn.random() % limit; }

// ---- What happens to a board

// A profile is plugged, or what was there is pulled.
static void Toggle(Churn& churn, const char* what, bool (&plugged)[2], size_t port, const char* profile) {
    plugged[port] = !plugged[port];
    Words words{what, std::to_string(port + 1), plugged[port] ? "plug" : "unplug"};
    if (plugged[port]) words.push_back(profile);
    const CtlAnswer answer = Ctl(churn.board, words);
    EXPECT_EQ(answer.status, 0) << testing::PrintToString(words) << answer.err;
}

template <size_t count>
static const char* Any(Churn& churn, const char* const (&of)[count]) {
    return of[Below(churn, count)];
}

static void ToggleCamera(Churn& churn) {
    static constexpr const char* kProfiles[] = {"speakerphone", "fullhd-mjpeg", "hd-mjpeg", "yuyv-only", "low-rate"};
    Toggle(churn, "camera", churn.cameras, Below(churn, 2), Any(churn, kProfiles));
}

// Beside a camera there is room for devices behind a hub only.
static void ToggleSound(Churn& churn) {
    static constexpr const char* kBehindHub[] = {"hub-microphone", "hub-speakerphone", "rejected-hub"};
    static constexpr const char* kOnPort[] = {"microphone", "rejected-gadget", "speaker", "speakerphone"};
    const size_t port = Below(churn, 2);
    Toggle(churn, "sound", churn.sounds, port, churn.cameras[port] ? Any(churn, kBehindHub) : Any(churn, kOnPort));
}

static constexpr const char* kPlaces[] = {"analog", "fpga", "hdmi", "usb1", "usb2", "sound1", "sound2"};

// A place may be empty, a stream may not run: then there is nothing to fail. The codec does not vanish, it would come
// back without the volumes that the daemon has set up.
static void Fail(Churn& churn) {
    static constexpr const char* kFaults[] = {"gone", "busy", "xrun", "xrun"};
    const std::string place = Any(churn, kPlaces);
    const size_t fault = std::max(Below(churn, std::size(kFaults)), place == "analog" ? size_t{1} : size_t{0});
    Ctl(churn.board, {"fault", "sound", place, kFaults[fault]});
}

static void EndFaults(const Churn& churn) {
    for (const char* place : kPlaces) Ctl(churn.board, {"fault", "sound", place, "off"});
}

// Every second burst is left alone until sound plays again, the others are followed by the next one wherever the
// daemon is by then: detecting, waiting, building.
static void Burst(Churn& churn, int number) {
    const size_t from = OutputSize(churn.board);
    for (int plug = 0; plug < kPlugsPerBurst; ++plug) {
        (Below(churn, 3) == 0 ? ToggleCamera : ToggleSound)(churn);
        if (Below(churn, 4) == 0) Fail(churn);
        Pause(0.001 * double(Below(churn, 200)));
    }
    EndFaults(churn);
    if (number % 5 == 0) Telnet(churn.board, number % 2 == 0 ? "$ENJPEGPARSE_1$" : "$ENJPEGPARSE_0$");
    if (number % 2 == 0)
        Pause(0.001 * double(Below(churn, 5000)));
    else
        EXPECT_TRUE(WaitForOutput(churn.board, "Playing audio pipeline...\n", kSettled, from)) << "burst " << number;
}

// ---- What it must be like then

static void PlugAsAtFirst(Churn& churn) {
    static constexpr const char* kProfiles[] = {"speakerphone", "fullhd-mjpeg"};
    for (size_t port = 0; port < 2; ++port) {
        if (churn.sounds[port]) Toggle(churn, "sound", churn.sounds, port, "");
        if (churn.cameras[port]) Toggle(churn, "camera", churn.cameras, port, "");
        Toggle(churn, "camera", churn.cameras, port, kProfiles[port]);
    }
}

// The mix of both microphones, alone: on the FPGA, the analog output and the loudspeaker; the FPGA's sound at HDMI.
static bool IsRight(const Json& audio) {
    const std::vector<const char*> mix = {"microphone1", "microphone2"};
    const auto plays = [&](const char* output, const std::vector<const char*>& sources) {
        const Json& tones = audio["outputs"][output]["tones"];
        return tones.size() == sources.size() && std::ranges::all_of(sources, [&](const char* source) {
                   return std::abs(tones.value(source, -120.0) + 20) < 0.3;
               });
    };
    return plays("fpga", mix) && plays("analog", mix) && plays("usb1", mix) && plays("hdmi", {"fpga"});
}

static bool PlaysRight(const Board& board) { return IsRight(Json::parse(Ctl(board, {"audio"}).out)); }

// The figures at rest, everything plugged as at first: over four seconds with neither pipeline rebuilt in between.
static bool Measure(const Board& board, ProcessFigures& figures, double& cpu) {
    const size_t from = OutputSize(board);
    const ProcessFigures before = DaemonFigures(board);
    Pause(4);
    figures = DaemonFigures(board);
    cpu = CpuPercent(before, figures);
    return PlaysRight(board) && Output(board).find("destroyed.\n", from) == std::string::npos;
}

static ProcessFigures Settle(Churn& churn, double& cpu) {
    PlugAsAtFirst(churn);
    ProcessFigures figures{};
    EXPECT_TRUE(WaitUntil(4 * kSettled, [&] { return PlaysRight(churn.board) && Measure(churn.board, figures, cpu); }))
        << Ctl(churn.board, {"audio"}).out << Output(churn.board);
    EXPECT_TRUE(ShowsFull(churn.board, '1')) << Seen(churn.board);
    EXPECT_THAT(Telnet(churn.board, "$POLL$"), testing::EndsWith("ACK\r\n"));
    return figures;
}

TEST(SoundChurn, TwoHundredPlugs) {
    Churn churn = {.board = StartNewBoard({"--camera1", "speakerphone", "--camera2", "fullhd-mjpeg"}),
                   .random = std::mt19937(kSeed),
                   .cameras = {true, true},
                   .sounds = {false, false}};
    ASSERT_TRUE(WaitForPicture(churn.board)) << Output(churn.board);
    Type(churn.board, "<AOUTANALOG 255>\n<AOUTUSB1 255>\n<ACFG 2>\n");
    for (int burst = 0; burst < kWarmUp; ++burst) Burst(churn, burst);
    double cpuBefore = 0, cpuAfter = 0;
    const int daemon = Status(churn.board)["daemon"]["pid"];
    const ProcessFigures before = Settle(churn, cpuBefore);
    for (int burst = kWarmUp; burst < kBursts; ++burst) Burst(churn, burst);
    const ProcessFigures after = Settle(churn, cpuAfter);

    printf("at rest: %.1f %% of a processor, %ld kB, %ld threads, %ld descriptors; after: %.1f %%, %ld kB, %ld, %ld\n",
           cpuBefore, before.residentKilobytes, before.threads, before.descriptors, cpuAfter, after.residentKilobytes,
           after.threads, after.descriptors);
    EXPECT_EQ(int(Status(churn.board)["daemon"]["pid"]), daemon) << "one life of the daemon";
    EXPECT_TRUE(TraceLines(churn.board, "reset").empty());
    EXPECT_TRUE(WaitUntil(10, [&] {  // a tool that is just being run has a descriptor of its own
        const ProcessFigures now = DaemonFigures(churn.board);
        return now.threads <= before.threads && now.descriptors <= before.descriptors;
    }));
    EXPECT_LE(after.residentKilobytes, before.residentKilobytes + kMemoryAllowed);
    EXPECT_LT(cpuAfter, 1.5 * cpuBefore + 5) << "no thread runs in circles";
}
