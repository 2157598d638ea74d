// What a pipeline's elements may report or do: errors and warnings of every code, the end of their stream, a stall.
#include <algorithm>
#include <array>
#include <filesystem>
#include <span>
#include <string>

#include "campaign.h"
#include "picture_probe.h"

static constexpr std::array kElements{// of video
                                      "src1", "src2", "src3", "capsfilter1", "capsfilter3", "videocrop", "decode1",
                                      "decode2", "queue1", "queue2", "mix", "valve", "video_sink", "overlay_sink",
                                      // of sound
                                      "usbAudioInput1", "analogAudioInput", "analogAudioOutput", "audioConvert1",
                                      "audioResample1", "audioCapsFilter1", "volume1", "audiomixer", "tee",
                                      "analogInTee", "audioOutTee", "audioInputSink", "audioOutputSink",
                                      "usb1AudioOutSink", "audioHdmiOutputSink"};
static constexpr std::span kSound = std::span(kElements).subspan(14);
static constexpr size_t kMostCode = 16;
static constexpr const char* kSource = "1920x1080p30";

enum Code { kFailed = 1, kBusy = 4, kBufferPool = 13 };

// Where a kind of fault begins its round: three slices side by side take all elements between them.
static size_t FirstTurn(const Bench& bench) { return bench.seed % kElements.size() * 10; }

static bool Says(const Bench& bench, const std::string& text, size_t from) {
    return Output(bench.board).find(text, from) != std::string::npos;
}

// The pipeline may just be built anew, and the element be none at the moment: posted until it is heard.
static void PostUntilHeard(Bench& bench, const char* element, const char* word, int code) {
    const size_t from = OutputSize(bench.board);
    const bool heard = WaitUntil(30, [&] {
        Do(bench, {"fault", "element", element, word, std::to_string(code)});
        Pause(0.5);
        return Says(bench, "***** Code: " + std::to_string(code) + "\n", from);
    });
    Expect(bench, heard, std::string("a message of ") + element + " heard");
}

// It may just have been between two lives.
static void ExpectNewSound(Bench& bench, size_t from) {
    Expect(bench, WaitForOutput(bench.board, "Playing audio pipeline...\n", 20, from), "sound built anew");
}

static std::string PostError(Bench& bench) {
    static size_t turn = FirstTurn(bench);
    const char* element = kElements[++turn % kElements.size()];
    const int code = 1 + int(turn % kMostCode);
    const size_t from = OutputSize(bench.board);
    PostUntilHeard(bench, element, "error", code);
    const bool both = code == kFailed || code == kBufferPool;
    if (both) Expect(bench, WaitForOutput(bench.board, "Video pipeline destroyed.\n", 10, from), "video built anew");
    if (both || code == kBusy) ExpectNewSound(bench, from);
    return "element, error: " + std::string(element) + ", code " + std::to_string(code);
}

// Of sound only: the video thread does not take warnings.
static std::string PostWarning(Bench& bench) {
    static size_t turn = FirstTurn(bench);
    const char* element = kSound[++turn % kSound.size()];
    const int code = 1 + int(turn % kMostCode);
    const size_t from = OutputSize(bench.board);
    PostUntilHeard(bench, element, "warning", code);
    ExpectNewSound(bench, from);
    return "element, warning: " + std::string(element) + ", code " + std::to_string(code);
}

static void BuildAnew(Bench& bench) {
    const size_t from = OutputSize(bench.board);
    Type(bench.board, "<ENJPEGPARSE 0>\n");
    Expect(bench, WaitForOutput(bench.board, "Video pipeline destroyed.\n", 10, from), "the pipeline taken down");
}

// An ended stream is only logged: its picture stands, or its sound is gone, until something else builds anew.
static std::string EndStream(Bench& bench) {
    static size_t turn = FirstTurn(bench);
    const char* element = kElements[++turn % kElements.size()];
    Do(bench, {"fault", "element", element, "end"});
    PauseUpTo(bench, 3);
    Answer(bench, "console telnet http");
    BuildAnew(bench);
    return "element, end of stream: " + std::string(element);
}

// Either it flows again, or the pipeline is taken down with its threads held.
static std::string Stall(Bench& bench) {
    static size_t turn = FirstTurn(bench);
    const char* element = kElements[++turn % kElements.size()];
    Do(bench, {"fault", "element", element, "stall"});
    PauseUpTo(bench, 3);
    Answer(bench, "console telnet http");
    const bool anew = Below(bench, 2) == 0;
    if (anew) BuildAnew(bench);
    Do(bench, {"fault", "element", element, "off"});
    return std::string("element, stall: ") + element + (anew ? ", taken down" : ", flows again");
}

static long Marks(const Bench& bench) {
    const std::filesystem::directory_iterator run(BoardFile(bench.board, "volatile/run"));
    return std::count_if(begin(run), end(run),
                         [](const auto& file) { return file.path().filename().string().starts_with("video-pool-"); });
}

// Nothing may flow, or the marks are cleared away. The sixth ends the process with status 0; the power takes them all.
static std::string FailPools(Bench& bench) {
    static constexpr const char* kEnds = "Video pool buffer logs > 5, exiting application...\n";
    const size_t from = OutputSize(bench.board);
    for (const char* camera : {"1", "2"}) Do(bench, {"camera", camera, "stall"});
    Do(bench, {"hdmi-in", "0", "off"});
    const auto ends = [&] {
        Ctl(bench.board, {"fault", "element", "mix", "error", std::to_string(kBufferPool)});  // there may be none now
        Pause(2);
        return Says(bench, kEnds, from);
    };
    Expect(bench, WaitUntil(60, ends), "an end that is told");
    ++bench.lives;
    const auto ended = [&] { return Status(bench.board)["daemon"].value("exit", -1) == 0; };
    Expect(bench, WaitUntil(5, ended) && Marks(bench) == 6, "status 0 at mark 6, not " + std::to_string(Marks(bench)));
    for (const char* camera : {"1", "2"}) Do(bench, {"camera", camera, "resume"});
    Do(bench, {"hdmi-in", "0", kSource});
    Do(bench, {"power-cycle"});
    ++bench.lives;
    Expect(bench, ShowsFull(bench.board, '1', 30), "a picture behind the power cycle");
    return "element, buffer-pool errors: six without a frame between them";
}

static std::string Step(Bench& bench) {
    static constexpr std::array kKinds{PostError, PostError, PostWarning, EndStream, Stall};
    // Seldom the one that ends a life: a long one shows what stays behind in its memory.
    static size_t turn = 0;
    const std::string line = Below(bench, 40) == 0 ? FailPools(bench) : kKinds[turn++ % kKinds.size()](bench);
    Expect(bench, ShowsFull(bench.board, '1', 10), "a running picture");
    return line;
}

const Family Elements{.name = "elements",
                      .steps = {4, 200, 2'000},
                      .options = {"--camera1", "speakerphone", "--camera2", "hd-mjpeg", "--hdmi-in", kSource, "--env",
                                  "GST_TRACERS=tesselfaults"},
                      .step = Step};
