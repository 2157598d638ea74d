// The audio test of each variant: where its tone is heard, what levels it prints, and how it ends.
#include <gmock/gmock.h>

#include <cmath>
#include <regex>

#include "board_run.h"
#include "sound/sound_tones.h"

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

// Both channels with the effective value of the FPGA's tone at -20 dB.
static bool TellsLevels(const Board& board) {
    static const std::regex kLevels("AudioLevels: 0\\.07[01][0-9]* 0\\.07[01][0-9]* \r\n");
    const size_t from = OutputSize(board);
    return WaitUntil(3, [&] { return std::regex_search(Output(board).substr(from), kLevels); });
}

TEST(TestTone, FromNormalSoundAndBack) {
    const Board board = StartUntil(kSoundPlays, {"--camera1", "speakerphone"});
    ASSERT_TRUE(Plays(board, "analog", 610, kSourceLevel)) << Output(board, "analog");
    size_t from = OutputSize(board);
    ASSERT_TRUE(TypeAndWait(board, "<STARTAUDIOTEST>\n", kTestPlays)) << Output(board).substr(from);
    EXPECT_TRUE(PlaysTone(board, "analog")) << Output(board, "analog");
    EXPECT_TRUE(Plays(board, "fpga", 410, kSourceLevel)) << "the line input: " << Output(board, "fpga");
    EXPECT_EQ(Output(board, "usb1")["running"], false);
    EXPECT_TRUE(TellsLevels(board)) << Output(board);

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
}

// Nothing to capture: the test does not wait for the attempts to find something. Asked for again while it plays, it
// ends.
TEST(TestTone, OfAnInputSwitcherThatWaitsForSources) {
    const Board board = StartUntil("In main: creating Gstreamer audio thread\n", {"--device-id", "1"});
    Type(board, "<STARTAUDIOTEST>\n");
    ASSERT_TRUE(WaitForOutput(board, kTestPlays, 2 * kWaitForCards)) << Output(board);
    EXPECT_THAT(Output(board), Not(HasSubstr(kSoundPlays)));
    EXPECT_TRUE(PlaysTone(board, "fpga")) << Output(board, "fpga");
    EXPECT_TRUE(Plays(board, "analog", 410, kSourceLevel)) << "the line input: " << Output(board, "analog");
    EXPECT_TRUE(TellsLevels(board)) << Output(board);
    const size_t from = OutputSize(board);
    Type(board, "<STARTAUDIOTEST>\n");
    ASSERT_TRUE(WaitForOutput(board, kSoundPlays, kWaitForCards, from)) << Output(board).substr(from);
    EXPECT_TRUE(Plays(board, "analog", 610, kSourceLevel)) << Output(board, "analog");
}
