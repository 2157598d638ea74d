// The board's sound cards as the real tools find them: alsa-utils and GStreamer run as the board's program.
#include <gmock/gmock.h>

#include <cstring>

#include "board_run.h"
#include "sound/sound_tones.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// Their names tell the port, and the hub's.
TEST(SoundCard, ToolsFindTheCardsThatComeAndGo) {
    const Board board = RunScript("while read line; do eval \"$line\" 2>&1; echo done; done",
                                  {"--camera1", "speakerphone", "--camera2", "fullhd-mjpeg"});
    const auto shell = [&](const std::string& line) {
        const size_t from = OutputSize(board);
        EXPECT_TRUE(TypeAndWait(board, line + "\n", "done\n")) << line;
        return Output(board).substr(from);
    };
    EXPECT_THAT(shell("aplay -l"), AllOf(HasSubstr("card 0: tlv320aic3xaudi [tlv320aic3x-audio], device 0:"),
                                         HasSubstr("card 3: Camera [HD Speakerphone Camera], device 0: USB Audio"),
                                         Not(HasSubstr("card 4:"))));
    EXPECT_THAT(shell("amixer -c 4 info"), HasSubstr("/'Full HD Webcam at usb-ci_hdrc.1-1, high speed'\n"));
    EXPECT_NE(Ctl(board, {"sound", "1", "plug", "microphone"}).status, 0) << "taken";
    EXPECT_EQ(Ctl(board, {"sound", "1", "plug", "hub-speakerphone"}).status, 0);
    EXPECT_THAT(shell("amixer -c 5 info"), HasSubstr("'Hub Speakerphone at usb-ci_hdrc.0-1.3, high speed'"));
    EXPECT_EQ(Ctl(board, {"camera", "1", "unplug"}).status, 0);
    EXPECT_EQ(Ctl(board, {"sound", "2", "plug", "rejected-hub"}).status, 0);
    EXPECT_THAT(shell("amixer -c 3 info"), HasSubstr("'PTZ Optics Camera at usb-ci_hdrc.1-1.4, high speed'"))
        << "the lowest free number";
    EXPECT_NE(Ctl(board, {"fault", "sound", "fpga", "xrun"}).status, 0) << "nothing runs there";
}

// At the pace of the clock and without a break, by the mapped memory that GStreamer does not use.
TEST(SoundCard, RecordsAndPlaysAtTheRate) {
    const Board board = RunScript(
        "date +%s%N; arecord -q -M -D hw:1 -f S16_LE -c 2 -r 48000 -d 2 a.wav; date +%s%N; aplay -q -M -D hw:1 a.wav; "
        "date +%s%N; arecord -D hw:1 -f S16_LE -c 2 -r 44100 -d 1 b.wav");
    WaitForOutput(board, "script ended", 30);
    const std::string output = Output(board);
    long long begin = 0, between = 0, end = 0;
    ASSERT_EQ(sscanf(output.c_str() + output.find("\n1") + 1, "%lld\n%lld\n%lld", &begin, &between, &end), 3) << output;
    for (const long long time : {between - begin, end - between}) EXPECT_GT(double(time) / 1e9, 1.9);
    static constexpr size_t kHeaderBytes = 44;
    const std::string file = FileText(BoardFile(board, "home/root/a.wav"));
    std::vector<int16_t> fpga(2 * 2 * 48000);
    ASSERT_EQ(file.size(), kHeaderBytes + 2 * fpga.size());
    memcpy(fpga.data(), &file[kHeaderBytes], 2 * fpga.size());
    const std::vector<int16_t> tone = MakeTone(610, 48000, kSourceLevel);
    for (size_t frame = 0; frame < fpga.size() / 2; ++frame)
        for (size_t channel = 0; channel < 2; ++channel)
            ASSERT_EQ(fpga[frame * 2 + channel], tone[frame % tone.size()]) << frame;
    EXPECT_THAT(output, HasSubstr("rate is not accurate"));  // the FPGA knows 48 kHz only
    const Json fpgaOutput = AskJson(board, {"audio"})["outputs"]["fpga"];
    EXPECT_EQ(fpgaOutput["frames"], 2 * 48000);
    EXPECT_EQ(fpgaOutput["underruns"], 0);
}
