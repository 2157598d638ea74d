// GStreamer counts what is alive: pipelines that were built and destroyed leave no object, buffer or caps behind. Its
// tracer is blind to the compositor and its pads (aggregators do not tell it of themselves).
#include <gmock/gmock.h>

#include <csignal>
#include <map>
#include <sstream>

#include "board_run.h"

static constexpr int kRounds = 3;

using Counts = std::map<std::string, int>;

// Objects by type, as the tracer lists them when it is signalled.
static Counts Alive(const Board& board) {
    const size_t from = OutputSize(board);
    const pid_t daemon = Status(board)["daemon"]["pid"];
    if (daemon > 0) kill(daemon, SIGUSR1);
    EXPECT_TRUE(WaitForOutput(board, "listed ", 10, from)) << Output(board);
    Counts counts;
    static constexpr std::string_view kType = "object-alive, type-name=(string)";
    std::string line;
    for (std::istringstream lines(Output(board).substr(from)); std::getline(lines, line);)
        if (const size_t at = line.find(kType); at != std::string::npos)
            ++counts[line.substr(at + kType.size(), line.find(',', at + kType.size()) - at - kType.size())];
    return counts;
}

// More by one a round: a leak. Frames in flight vary by less, and not for ever.
static Counts Leaked(const Counts& before, const Counts& after) {
    Counts leaked;
    for (const auto& [type, count] : after) {
        const auto was = before.find(type);
        const int more = count - (was == before.end() ? 0 : was->second);
        if (more >= kRounds) leaked[type] = more;
    }
    return leaked;
}

TEST(Leaks, PipelinesLeaveNoObjectBehind) {
    const Board board =
        StartNewBoard({"--camera1", "fullhd-mjpeg", "--hdmi-in", "1920x1080p30", "--env", "GST_TRACERS=leaks", "--env",
                       "GST_LEAKS_TRACER_SIG=1", "--env", "GST_DEBUG=GST_TRACER:7,leaks:7"});
    ASSERT_TRUE(WaitForPicture(board) && WaitForSound(board)) << Output(board);
    const Counts before = Alive(board);
    ASSERT_TRUE(before.contains("GstPipeline")) << "the tracer tells nothing";
    for (int round = 0; round < kRounds; ++round)
        for (const Words& hand : {Words{"camera", "1", "unplug"},
                                  {"camera", "1", "plug", "fullhd-mjpeg"},
                                  {"hdmi-in", "0", round % 2 ? "1920x1080p30" : "1280x720p60"}}) {
            const size_t from = OutputSize(board);
            Ctl(board, hand);
            ASSERT_TRUE(WaitForOutput(board, "Playing video pipeline...\n", 20, from)) << round << Output(board);
        }
    for (const char* route : {"<AOUTHDMI 127>\n", "<AOUTHDMI 0>\n", "<AOUTHDMI 127>\n"})
        ASSERT_TRUE(TypeAndWait(board, route, "Playing audio pipeline...\n", 20)) << Output(board);
    Counts leaked;
    EXPECT_TRUE(WaitUntil(20, [&] { return (leaked = Leaked(before, Alive(board))).empty(); }))
        << testing::PrintToString(leaked);
}
