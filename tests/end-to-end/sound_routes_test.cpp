// What is heard where: every route, every gain and mute, in the running pipeline and after a rebuild. Sources play
// their own tones at -20 dB.
#include <gmock/gmock.h>

#include <cmath>
#include <fstream>
#include <map>

#include "board_run.h"
#include "text.h"

using testing::HasSubstr;

using Tones = std::map<std::string, double>;  // source, dB

static constexpr double kSource = -20, kTolerance = 0.5, kTold = -70;  // dB
static constexpr const char* kPlaying = "Playing audio pipeline...\n";
static constexpr const char* kTooSlow = "***** Code: 13\n";  // of a busy PC; it costs a rebuild
static const Words kTwoSpeakerphones = {"--camera1", "speakerphone", "--camera2", "speakerphone"};

// ---- The board

static Board StartSounding(const std::string& commands, const Words& words) {
    const Board board = StartNewBoard(words);
    Type(board, commands);  // long before there is sound
    EXPECT_TRUE(WaitForOutput(board, kPlaying, 40)) << Output(board);
    return board;
}

static Json Audio(const Board& board) { return AskJson(board, {"audio"}); }

static bool Hears(const Json& output, const Tones& expected) {
    const Json& tones = output["tones"];
    return tones.size() == expected.size() && std::ranges::all_of(expected, [&tones](const auto& tone) {
               return tones.contains(tone.first) &&
                      std::abs(tones[tone.first].template get<double>() - tone.second) <= kTolerance;
           });
}

// A busy PC can cause a break: what counts is a fifth of a second without one.
static void ExpectHeard(const Board& board, const std::map<std::string, Tones>& expected) {
    Json outputs;
    const auto hears = [&] {
        outputs = Audio(board)["outputs"];
        return std::ranges::all_of(expected, [&](const auto& row) { return Hears(outputs[row.first], row.second); });
    };
    EXPECT_TRUE(WaitUntil(20, hears)) << testing::PrintToString(expected) << ", not " << outputs.dump(1);
}

static Tones With(Tones tones, double gain) {
    for (auto& [source, level] : tones) level += gain;
    std::erase_if(tones, [](const auto& tone) { return tone.second < kTold; });
    return tones;
}

static size_t Count(const std::string& text, const std::string& line) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find(line, at)) != std::string::npos; at += line.size()) ++count;
    return count;
}

// ---- Routes

struct RouteRow {
    uint8_t analog, hdmi, usb1, usb2;
};

static const Tones kLine = {{"line", -30}}, kFpga = {{"fpga", -20}};
static const Tones kMix = {{"microphone1", -23}, {"microphone2", -26}, {"line", -30}};
static constexpr const char* kRouteGains =
    "<ACFG 2>\n<AIN1 -3>\n<AIN2 -6>\n<AIN4 -10>\n<AOUT1 -2>\n<AOUT2 -4>\n<AOUT3 -1>\n<AOUT4 3>\n";

static Tones Routed(uint8_t value, bool isUsb, bool fpgaCaptured) {
    if (value == 255) return kMix;
    if (value == 127) return kLine;
    Tones tones = fpgaCaptured ? kFpga : Tones();
    if (value == 128 && isUsb) tones.insert(kLine.begin(), kLine.end());
    return tones;
}

static void ExpectRoutes(const Board& board, const RouteRow& row) {
    const bool fpga = row.analog == 0 || row.hdmi == 0 || row.usb1 == 0 || row.usb2 == 0;
    ExpectHeard(board, {{"analog", With(Routed(row.analog, false, fpga), -2)},
                        {"hdmi", With(Routed(row.hdmi, false, fpga), 3)},
                        {"usb1", With(Routed(row.usb1, true, fpga), -4)},
                        {"usb2", With(Routed(row.usb2, true, fpga), -1)},
                        {"fpga", kMix}});
    EXPECT_TRUE(WaitUntil(5, [&] { return Audio(board)["inputs"]["fpga"]["running"] == fpga; }))
        << "captured while an output plays it as it is";
}

TEST(SoundRoutes, EveryOutputCarriesItsSources) {
    const Board board = StartSounding(kRouteGains, kTwoSpeakerphones);
    Ctl(board, {"jack", "in"});
    ExpectRoutes(board, {0, 0, 0, 0});
    for (const RouteRow& row : {RouteRow{.analog = 0, .hdmi = 127, .usb1 = 128, .usb2 = 255},
                                RouteRow{.analog = 127, .hdmi = 128, .usb1 = 255, .usb2 = 0},
                                RouteRow{.analog = 128, .hdmi = 255, .usb1 = 0, .usb2 = 127},
                                RouteRow{.analog = 255, .hdmi = 0, .usb1 = 127, .usb2 = 128},
                                RouteRow{.analog = 5, .hdmi = 127, .usb1 = 128, .usb2 = 5}}) {
        const std::string commands = Text("<AOUTANALOG %d>\n<AOUTHDMI %d>\n<AOUTUSB1 %d>\n<AOUTUSB2 %d>\n", row.analog,
                                          row.hdmi, row.usb1, row.usb2);
        SCOPED_TRACE(commands);
        EXPECT_TRUE(TypeAndWait(board, commands, kPlaying));
        ExpectRoutes(board, row);
    }
}

// ---- Gains

struct PolicyRow {
    std::string commands;
    Tones mix;
    double output = 0;  // AOUT1, dB
};

// Every output plays the mix. Rows build on each other.
TEST(SoundGains, FollowTheViewWithoutAPlugInTheJack) {
    const Board board = StartSounding(
        "<AOUTANALOG 255>\n<AOUTHDMI 255>\n<AOUTUSB1 255>\n<AOUTUSB2 255>\n<AIN1 -1>\n<AIN2 -4>\n<AIN4 -7>\n",
        kTwoSpeakerphones);
    const PolicyRow rows[] = {
        {"", {{"microphone1", -21}}},
        {"<SS>\n", {{"microphone1", -21}, {"microphone2", -24}}},
        {"<S2>\n<AIN2 20>\n", {{"microphone2", 0}}},
        {"<AIN2 21>\n<AOUT1 -3>\n", {{"microphone2", 0}}, -3},  // more than the element can
        {"<ACFG 2>\n<AIN1 -10>\n<AIN2 -4>\n<AOUT1 -155>\n", {{"microphone1", -30}, {"microphone2", -24}}, -155},
        {"<AOUT1 -10>\n<AIN1 0>\n", {{"microphone1", -20}, {"microphone2", -24}}, -10}};
    for (const PolicyRow& row : rows) {
        SCOPED_TRACE(row.commands);
        Type(board, row.commands);
        ExpectHeard(board, {{"fpga", row.mix}, {"analog", With(row.mix, row.output)}, {"hdmi", row.mix}});
    }
    EXPECT_LE(Count(Output(board), kPlaying), 1 + Count(Output(board), kTooSlow)) << "gains need no rebuild";
}

TEST(SoundGains, JackAndMuteKeyDecideWhatIsHeard) {
    const Board board = StartSounding("<SBTN 1>\n", {"--camera1", "speakerphone"});
    const std::pair<Words, Tones> hands[] = {
        {{"key", "64"}, {}}, {{"key", "64"}, {{"microphone1", kSource}}}, {{"jack", "in"}, {{"line", kSource}}}};
    for (const auto& [hand, heard] : hands) {
        EXPECT_EQ(Ctl(board, hand).status, 0);
        ExpectHeard(board, {{"fpga", heard}});
    }
    EXPECT_THAT(Command(board, "<GET>"), HasSubstr("Audio Jack => Detected\n"));
}

// ---- Cameras

TEST(SoundRoutes, UncompressedPictureSilencesItsMicrophone) {
    const Board board = MakeBoard();
    const std::string uncompressed = BoardFile(board, "home/root/uncompressed.json");
    std::ofstream(uncompressed) << R"({"description": "uncompressed, with a speakerphone", "card": "Talking Viewer",
        "usbId": "1d6b:0199", "formats": {"YUYV": {"640x480": [30]}}, "controls": [],
        "microphone": {"channels": 2, "rates": [48000]}, "speaker": {"channels": 2, "rates": [48000]}})";
    StartBoard(board, {"--camera1", "speakerphone", "--camera2", uncompressed});
    Type(board, "<ACFG 2>\n");
    ASSERT_TRUE(WaitForOutput(board, kPlaying, 40)) << Output(board);
    ExpectHeard(board, {{"fpga", {{"microphone1", kSource}}}, {"usb1", kFpga}, {"usb2", kFpga}});
    EXPECT_THAT(Output(board), HasSubstr("Audio capture disabled on USB2 since we capture in YUYV!\r\n"));
}

// ---- The receiver

// Writes to the register that mutes the HDMI input's sound, in order.
static std::string MuteWrites(const Board& board) {
    std::string writes;
    for (const Json& line : TraceLines(board, "i2c"))
        if (line["address"] == "34" && line.contains("register") && line["register"] == "1A" && line.contains("write"))
            writes += line["write"][0].get<std::string>().front() == '1' ? 'M' : '.';
    return writes;
}

struct MuteRow {
    const char* commands;
    bool mutes, opens;  // what is written for a second after they took effect
};

static void ExpectMutes(const Board& board, const MuteRow& row) {
    Type(board, row.commands);
    std::string writes;
    const auto mutes = [&] {
        Ctl(board, {"trace", "--clear"});
        Pause(1);
        writes = MuteWrites(board);
        return (writes.find('M') != writes.npos) == row.mutes && (writes.find('.') != writes.npos) == row.opens;
    };
    EXPECT_TRUE(WaitUntil(10, mutes)) << row.commands << writes;
}

// While a source is plugged, reading its format writes the mute bit too, over and over: as AIN3 says.
TEST(ReceiverMute, FollowsThePipelineAndTheGain) {
    const Board board = StartSounding("", {"--camera1", "speakerphone", "--hdmi-in", "1920x1080p30"});
    for (const MuteRow& row :
         {MuteRow{"", false, true}, MuteRow{"<AIN3 -90>\n", true, false}, MuteRow{"<AIN3 0>\n", false, true}})
        ExpectMutes(board, row);
    Ctl(board, {"trace", "--clear"});
    ASSERT_TRUE(TypeAndWait(board, "<AOUTHDMI 255>\n", kPlaying));
    EXPECT_TRUE(std::ranges::count(MuteWrites(board), 'M') == 1 || Count(Output(board), kTooSlow) > 0)
        << "torn down: muted, not " << MuteWrites(board);
    ExpectMutes(board, {.commands = "", .mutes = false, .opens = true});
    // Without a source the format's reading mutes; the pipeline opens at its start, whatever was there.
    Ctl(board, {"hdmi-in", "0", "off"});
    ExpectMutes(board, {.commands = "", .mutes = true, .opens = false});
    Type(board, "<AOUTHDMI 127>\n");
    EXPECT_TRUE(WaitUntil(10, [&] { return MuteWrites(board).find('.') != std::string::npos; }));
    ExpectMutes(board, {.commands = "", .mutes = true, .opens = false});
}

// The line input is always in the mix there, at its full level; loudspeakers of cameras are not used. For sound the
// variants are alike.
TEST(SoundRoutes, VariantsFollowTheInput) {
    Words words = kTwoSpeakerphones;
    words.insert(words.end(), {"--device-id", "1", "--hdmi-in", "1920x1080p30"});
    const Board board = StartSounding("<AOUTANALOG 255>\n<AIN1 -1>\n<AIN2 -4>\n<AOUT1 -6>\n", words);
    const auto expectMix = [&board](Tones mix) {
        mix["line"] = kSource;
        ExpectHeard(board, {{"fpga", mix}, {"analog", mix}, {"hdmi", kFpga}, {"usb1", {}}, {"usb2", {}}});
    };
    expectMix({{"microphone1", -21}});
    Type(board, "<IN2>\n");
    expectMix({{"microphone2", -24}});
    Type(board, "<AIN2 -8>\n<ACFG 2>\n");
    expectMix({{"microphone2", -28}});
    Type(board, "<IN3>\n");
    expectMix({});
    Type(board, "<IN1>\n");
    expectMix({{"microphone1", -21}});
    for (const MuteRow& row : {MuteRow{"<ACFG 0>\n", true, true},  // format reading opens, every pass mutes again
                               MuteRow{"<IN3>\n", false, true}, MuteRow{"<AIN3 -90>\n", true, false},
                               MuteRow{"<AIN3 0>\n<IN2>\n", true, true}})
        ExpectMutes(board, row);
}
