// The board's sound cards as the real tools find them: alsa-utils and GStreamer run as the board's program.
#include <gmock/gmock.h>

#include <cmath>
#include <fstream>

#include "board_run.h"
#include "sound_tones.h"

using testing::HasSubstr;
using testing::Not;

static constexpr double kAsSent = 0.1;  // dB

static std::string OutputAtEnd(const Board& board, double seconds = 30) {
    WaitForOutput(board, "script ended", seconds);
    return Output(board);
}

static Json Audio(const Board& board) { return Json::parse(Ctl(board, {"audio"}).out); }

// A busy PC can cause gaps: what counts is a fifth of a second without one.
static bool PlaysAt(const Board& board, const char* output, int frequency, double level) {
    return WaitUntil(20, [&] {
        const Json report = Audio(board)["outputs"][output];
        return report["frequency"] == frequency && std::abs(report["level"].get<double>() - level) < kAsSent;
    });
}

static std::vector<int16_t> Recording(const Board& board, const std::string& file) {
    std::ifstream stream(BoardFile(board, "home/root/" + file), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    constexpr size_t kHeaderBytes = 44;
    std::vector<int16_t> samples;
    for (size_t i = kHeaderBytes; i + 1 < bytes.size(); i += 2)
        samples.push_back(static_cast<int16_t>(uint8_t(bytes[i]) | bytes[i + 1] << 8));
    return samples;
}

TEST(SoundCard, ToolsFindTheCards) {
    const Board board = RunScript(
        "aplay -l; arecord -l >&2; amixer -c 1 info; amixer -c 3 info; amixer -c 4 info; "
        "amixer -q -D hw:0 set PGA 0 && amixer -q -D hw:0 set PCM 127 && "
        "amixer -q -D hw:0 sset 'ADC HPF Cut-off' '0.0045xFs' && amixer -c 3 set PCM 100% && amixer -D hw:0",
        {"--camera1", "speakerphone", "--camera2", "fullhd-mjpeg"});
    const std::string output = OutputAtEnd(board);
    const std::string playing = output.substr(0, output.find("**** List of CAPTURE")),
                      recording = output.substr(playing.size());
    const std::string speakerphone = "card 3: Camera [HD Speakerphone Camera], device 0: USB Audio [USB Audio]\n";
    EXPECT_THAT(playing, HasSubstr("card 0: tlv320aic3xaudi [tlv320aic3x-audio], device 0:"));
    EXPECT_THAT(playing, HasSubstr("card 2: imxhdmisoc [imx-hdmi-soc], device 0:"));
    EXPECT_THAT(playing, HasSubstr(speakerphone));
    EXPECT_THAT(playing, Not(HasSubstr("card 4:")));
    EXPECT_THAT(recording, HasSubstr(speakerphone));
    EXPECT_THAT(recording, HasSubstr("card 4: Webcam [Full HD Webcam], device 0: USB Audio [USB Audio]\n"));
    EXPECT_THAT(recording, Not(HasSubstr("card 2: imxhdmisoc")));
    EXPECT_THAT(output, HasSubstr(" 'fpgaaudio'/'fpga-audio'\n"));
    EXPECT_THAT(output, HasSubstr("/'HD Speakerphone Camera at usb-ci_hdrc.0-1, high speed'\n"));
    EXPECT_THAT(output, HasSubstr("/'Full HD Webcam at usb-ci_hdrc.1-1, high speed'\n"));
    EXPECT_THAT(output, HasSubstr("Playback 64 [100%]"));
    EXPECT_THAT(output, HasSubstr("Front Left: Playback 127 [100%]"));
    EXPECT_THAT(output, HasSubstr("Front Left: Capture 0 [0%] [on]"));
    EXPECT_THAT(output, HasSubstr("Item0: '0.0045xFs'"));
}

// At the pace of the clock and without a break: a break would put power beside the tone.
TEST(SoundCard, RecordsAndPlaysAtTheRate) {
    const Board board = RunScript(
        "date +%s%N; arecord -q -D hw:1 -f S16_LE -c 2 -r 48000 -d 2 a.wav; date +%s%N; aplay -q -D hw:1 a.wav; "
        "date +%s%N; arecord -q -M -D plughw:3 -f S16_LE -c 1 -r 32000 -d 1 b.wav; aplay -q -M -D plughw:2 b.wav;"
        "arecord -D hw:1 -f S16_LE -c 2 -r 44100 -d 1 c.wav; aplay -q -D plughw:2 absent.wav",
        {"--camera1", "speakerphone"});
    const std::string output = OutputAtEnd(board);
    long long begin = 0, between = 0, end = 0;
    ASSERT_EQ(sscanf(output.c_str() + output.find("\n1") + 1, "%lld\n%lld\n%lld", &begin, &between, &end), 3) << output;
    for (const long long time : {between - begin, end - between}) {
        EXPECT_GT(double(time) / 1e9, 1.9);
        EXPECT_LT(double(time) / 1e9, 4 * Patience());
    }
    const std::vector<int16_t> fpga = Recording(board, "a.wav"), microphone = Recording(board, "b.wav");
    ASSERT_EQ(fpga.size(), 2u * 2 * 48000);
    EXPECT_EQ(fpga[1000], fpga[1001]) << "both channels";
    const std::vector<int16_t> tone = MakeTone(610, 48000, kSourceLevel);
    for (size_t frame = 0; frame < fpga.size() / 2; ++frame)
        ASSERT_EQ(fpga[frame * 2], tone[frame % tone.size()]) << frame;
    ASSERT_EQ(microphone.size(), 32000u);
    EXPECT_NEAR(Decibels(Spectrum(std::span(microphone).subspan(16000, 6400))[790 / kBinHertz]), kSourceLevel, 0.5);
    EXPECT_THAT(output, HasSubstr("rate is not accurate"));  // the FPGA knows 48 kHz only
    const Json outputs = Audio(board)["outputs"];
    EXPECT_EQ(outputs["fpga"]["frames"], 2 * 48000);
    EXPECT_EQ(outputs["fpga"]["underruns"], 0);
    EXPECT_GT(outputs["hdmi"]["frames"], 30000);
}

TEST(SoundCard, OutputsTellWhatTheyPlay) {
    const Board board = RunScript(
        "amixer -q -D hw:0 set PGA 0; amixer -q -D hw:0 set PCM 127\n"
        "gst-launch-1.0 -q alsasrc device=hw:0 ! audio/x-raw,rate=48000 ! alsasink device=hw:1 sync=false &\n"
        "gst-launch-1.0 -q alsasrc device=hw:3 ! audioconvert ! tee name=t ! queue ! alsasink device=hw:3 sync=false"
        "  t. ! queue ! volume volume=0.1 ! alsasink device=hw:2 sync=false &\n"
        "gst-launch-1.0 -q audiotestsrc freq=1000 volume=0.5 ! audio/x-raw,rate=48000 ! alsasink device=hw:0 &\n",
        {"--camera1", "speakerphone"});
    EXPECT_TRUE(PlaysAt(board, "fpga", 410, kSourceLevel)) << Audio(board)["outputs"];
    EXPECT_TRUE(PlaysAt(board, "hdmi", 790, kSourceLevel - 20)) << Audio(board)["outputs"];
    EXPECT_TRUE(PlaysAt(board, "analog", 1000, -6)) << Audio(board)["outputs"];
    EXPECT_TRUE(PlaysAt(board, "usb1", 790, kSourceLevel - 12)) << "its volume stands low at first";

    // A source falls silent and comes back; the trace tells when each output noticed.
    Ctl(board, {"tone", "line", "off"});
    Pause(1);  // longer than anything is buffered on the way
    EXPECT_TRUE(WaitUntil(5, [&] { return Audio(board)["outputs"]["fpga"]["level"] == kSilence; }));
    Ctl(board, {"trace", "--clear"});
    Ctl(board, {"tone", "line", "on"});
    const auto when = [&](const char* event, const char* time) -> int64_t {
        for (const Json& line : TraceLines(board, "sound"))
            if (line["event"] == event && line["source"] == "line") return line[time];
        return 0;
    };
    EXPECT_TRUE(WaitUntil(5, [&] { return when("heard", "at") > when("tone on", "t"); }));
    EXPECT_LT(double(when("heard", "at") - when("tone on", "t")), 2'000'000 * Patience());
}

TEST(SoundCard, FaultsAreToldAsByTheKernel) {
    const Board board = RunScript(
        "arecord -D hw:1 -f S16_LE -c 2 -r 48000 x.wav & r=$!; sleep 1.5; "
        "arecord -q -D hw:1 -f S16_LE -c 2 -r 48000 y.wav; wait $r; echo first over; "
        "arecord -q -D hw:2 -f S16_LE -c 2 -r 48000 n.wav; "
        "while [ ! -e /dev/snd/controlC1 ]; do sleep 0.1; done; "
        "arecord -q -D hw:1 -f S16_LE -c 2 -r 48000 -d 1 z.wav && echo works");
    ASSERT_TRUE(WaitForOutput(board, "audio open error: Device or resource busy", 10)) << Output(board);
    EXPECT_EQ(Ctl(board, {"fault", "sound", "fpga", "xrun"}).status, 0);
    EXPECT_TRUE(WaitForOutput(board, "overrun!!!", 10)) << Output(board);
    EXPECT_EQ(Audio(board)["inputs"]["fpga"]["overruns"], 1);
    EXPECT_EQ(Ctl(board, {"fault", "sound", "fpga", "gone"}).status, 0);
    ASSERT_TRUE(WaitForOutput(board, "No such device", 10)) << Output(board);
    ASSERT_TRUE(WaitForOutput(board, "first over", 10)) << Output(board);
    EXPECT_EQ(Audio(board)["outputs"]["fpga"]["card"], nullptr);
    EXPECT_NE(Ctl(board, {"fault", "sound", "fpga", "xrun"}).status, 0) << "nothing runs there";
    EXPECT_EQ(Ctl(board, {"fault", "sound", "fpga", "busy"}).status, 0);
    EXPECT_EQ(Ctl(board, {"fault", "sound", "fpga", "off"}).status, 0);
    EXPECT_TRUE(WaitForOutput(board, "works", 10)) << Output(board);
    EXPECT_EQ(Status(board)["held calls"], 0);
}

TEST(SoundCard, DevicesComeAndGo) {
    const Board board =
        RunScript("while read line; do amixer -c 3 info; arecord -l; echo done; done", {"--camera2", "yuyv-only"});
    const auto seen = [&] {
        const size_t from = OutputSize(board);
        Type(board, "\n");
        WaitForOutput(board, "done\n", 10, from);
        return Output(board).substr(from);
    };
    EXPECT_EQ(Ctl(board, {"sound", "1", "plug", "hub-speakerphone"}).status, 0);
    EXPECT_THAT(seen(), HasSubstr("'Hub Speakerphone at usb-ci_hdrc.0-1.3, high speed'"));
    EXPECT_EQ(Ctl(board, {"camera", "1", "plug", "speakerphone"}).status, 0);
    EXPECT_THAT(seen(), HasSubstr("card 4: Camera [HD Speakerphone Camera]"));
    EXPECT_NE(Ctl(board, {"sound", "1", "plug", "microphone"}).status, 0) << "taken";
    EXPECT_EQ(Ctl(board, {"sound", "1", "unplug"}).status, 0);
    EXPECT_EQ(Ctl(board, {"sound", "2", "plug", "rejected-hub"}).status, 0);
    EXPECT_THAT(seen(), HasSubstr("'PTZ Optics Camera at usb-ci_hdrc.1-1.4, high speed'")) << "the lowest free number";
    EXPECT_EQ(Ctl(board, {"camera", "1", "unplug"}).status, 0);
    EXPECT_THAT(seen(), Not(HasSubstr("HD Speakerphone Camera")));
    EXPECT_THAT(Ctl(board, {"sound", "1", "plug", "absent"}).err, HasSubstr("no sound profile"));
}
