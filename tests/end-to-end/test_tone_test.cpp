// The audio test of each variant: where its tone is heard, what levels it prints, and how it ends.
#include <gmock/gmock.h>

#include <cmath>
#include <sstream>

#include "board_run.h"
#include "sound_tones.h"

using testing::HasSubstr;
using testing::Not;

static constexpr const char* kTestPlays = "Playing test pattern pipeline...\n";
static constexpr const char* kSoundPlays = "Playing audio pipeline...\n";
static constexpr const char* kDestroyed = "Audio pipeline destroyed.\n";
static constexpr double kSineAtDefaultVolume = -1.94;   // dB: a test source plays at 0.8
static constexpr double kWaitForCards = 5 + 5 + 1 + 1;  // s: before a normal pipeline is built

static Json Output(const Board& board, const char* name) {
    return Json::parse(Ctl(board, {"audio"}).out)["outputs"][name];
}

static bool Plays(const Board& board, const char* name, int frequency, double level) {
    return WaitUntil(10, [&] {
        const Json output = Output(board, name);
        return std::abs(output["frequency"].get<int>() - frequency) <= 1 &&
               std::abs(output["level"].get<double>() - level) < 0.1;
    });
}

static bool PlaysTone(const Board& board, const char* name) { return Plays(board, name, 1000, kSineAtDefaultVolume); }

// What the lines from there on say, in the order of print.
static std::vector<std::vector<double>> PrintedLevels(const std::string& text) {
    static constexpr std::string_view kStart = "AudioLevels: ";
    std::vector<std::vector<double>> lines;
    for (size_t at = 0; (at = text.find(kStart, at)) != std::string::npos;) {
        at += kStart.size();
        const size_t end = text.find(" \r\n", at);
        if (end == std::string::npos) break;
        std::istringstream numbers(text.substr(at, end - at));
        lines.emplace_back(std::istream_iterator<double>(numbers), std::istream_iterator<double>());
    }
    return lines;
}

static size_t Count(const std::string& text, std::string_view line) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find(line, at)) != std::string::npos; at += line.size()) ++count;
    return count;
}

// Each channel of the newest three lines with the effective value of the FPGA's tone.
static bool TellsLevel(const Board& board, size_t from, double level) {
    const double effective = Amplitude(level) / std::sqrt(2);
    const auto lines = PrintedLevels(Output(board).substr(from));
    return lines.size() >= 3 && std::ranges::all_of(lines.end() - 3, lines.end(), [effective](const auto& line) {
               return line.size() == 2 && std::abs(line[0] / effective - 1) < 0.01 &&
                      std::abs(line[1] / effective - 1) < 0.01;
           });
}

static void ExpectLevels(const Board& board, double level) {
    const size_t from = OutputSize(board);
    EXPECT_TRUE(WaitUntil(3, [&] { return TellsLevel(board, from, level); })) << Output(board).substr(from);
}

TEST(TestTone, FromNormalSoundAndBack) {
    const Board board = StartNewBoard({"--camera1", "speakerphone"});
    ASSERT_TRUE(WaitForOutput(board, kSoundPlays, 40)) << Output(board);
    ASSERT_TRUE(Plays(board, "analog", 610, kSourceLevel)) << Output(board, "analog");
    size_t from = OutputSize(board);
    Type(board, "<STARTAUDIOTEST>\n");
    ASSERT_TRUE(WaitForOutput(board, kTestPlays, 8, from)) << Output(board).substr(from);
    EXPECT_TRUE(PlaysTone(board, "analog")) << Output(board, "analog");
    EXPECT_TRUE(Plays(board, "fpga", 410, kSourceLevel)) << "the line input: " << Output(board, "fpga");
    EXPECT_EQ(Output(board, "usb1")["running"], false);
    ExpectLevels(board, kSourceLevel);

    // What the FPGA sends is followed down to silence.
    Ctl(board, {"tone", "fpga", "off"});
    EXPECT_TRUE(WaitForOutput(board, "AudioLevels: 0.000000 0.000000 \r\n", 5, OutputSize(board)));
    Ctl(board, {"tone", "fpga", "on"});

    from = OutputSize(board);
    Type(board, "<STOPAUDIOTEST>\n");
    ASSERT_TRUE(WaitForOutput(board, kDestroyed, 5, from)) << Output(board).substr(from);
    const size_t after = OutputSize(board);
    ASSERT_TRUE(WaitForOutput(board, kSoundPlays, kWaitForCards, from)) << Output(board).substr(from);
    EXPECT_TRUE(Plays(board, "analog", 610, kSourceLevel)) << Output(board, "analog");
    EXPECT_TRUE(Plays(board, "usb1", 610, kSourceLevel)) << Output(board, "usb1");
    EXPECT_THAT(Output(board).substr(after), Not(HasSubstr("AudioLevels:")));

    // Asked for again while it plays, it ends.
    for (const char* line : {kTestPlays, kSoundPlays}) {
        from = OutputSize(board);
        Type(board, "<STARTAUDIOTEST>\n");
        ASSERT_TRUE(WaitForOutput(board, line, kWaitForCards, from)) << Output(board).substr(from);
    }
    EXPECT_EQ(Count(Output(board), kTestPlays), 2u);
    EXPECT_TRUE(Plays(board, "analog", 610, kSourceLevel)) << Output(board, "analog");
}

// Nothing to capture: the test does not wait for the attempts to find something.
TEST(TestTone, FromTheWaitForSources) {
    const Board board = StartNewBoard({});
    ASSERT_TRUE(WaitForOutput(board, "In main: creating Gstreamer audio thread\n", 20)) << Output(board);
    Type(board, "<STARTAUDIOTEST>\n");
    ASSERT_TRUE(WaitForOutput(board, kTestPlays, 2 * kWaitForCards)) << Output(board);
    EXPECT_EQ(Count(Output(board), kSoundPlays), 0u);
    EXPECT_TRUE(PlaysTone(board, "analog")) << Output(board, "analog");
    const size_t from = OutputSize(board);
    Type(board, "<STOPAUDIOTEST>\n");
    ASSERT_TRUE(WaitForOutput(board, kSoundPlays, kWaitForCards, from)) << Output(board).substr(from);
    EXPECT_TRUE(Plays(board, "analog", 610, kSourceLevel)) << Output(board, "analog");
}

TEST(TestTone, OfAnInputSwitcher) {
    const Board board = StartNewBoard({"--device-id", "1", "--camera1", "fullhd-mjpeg"});
    ASSERT_TRUE(WaitForOutput(board, kSoundPlays, 40)) << Output(board);
    Type(board, "<STARTAUDIOTEST>\n");
    ASSERT_TRUE(WaitForOutput(board, kTestPlays, 8)) << Output(board);
    EXPECT_TRUE(PlaysTone(board, "fpga")) << Output(board, "fpga");
    EXPECT_TRUE(Plays(board, "analog", 410, kSourceLevel)) << "the line input: " << Output(board, "analog");
    ExpectLevels(board, kSourceLevel);
    const size_t from = OutputSize(board);
    Type(board, "<STOPAUDIOTEST>\n");
    ASSERT_TRUE(WaitForOutput(board, kSoundPlays, kWaitForCards, from)) << Output(board).substr(from);
    EXPECT_TRUE(Plays(board, "analog", 610, kSourceLevel)) << Output(board, "analog");
}
