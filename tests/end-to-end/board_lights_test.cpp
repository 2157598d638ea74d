// The board's own LEDs, and the panel of the input switchers: four lines that are buttons and LEDs. With pictures: a
// key is pressed to see something.
#include <gmock/gmock.h>

#include <fstream>
#include <map>

#include "picture_probe.h"

using Lights = std::map<std::string, int>;

static void ExpectLights(const Board& board, const Lights& lights) {
    Json leds;
    const auto show = [&] {
        leds = AskJson(board, {"leds"});
        return std::ranges::all_of(lights, [&](const auto& light) { return leds[light.first] == light.second; });
    };
    EXPECT_TRUE(WaitUntil(10, show)) << testing::PrintToString(lights) << ", not " << leds;
}

// A level is kept for 51 passes, which may be slow but are never faster.
static void ExpectToBlink(const Board& board, const std::string& led, int64_t passMicroseconds) {
    Ctl(board, {"trace", "--clear"});
    std::vector<int64_t> changes;
    EXPECT_TRUE(WaitUntil(10, [&] {
        changes.clear();
        for (const Json& line : TraceLines(board, "led"))
            if (line["led"] == led) changes.push_back(line["t"]);
        return changes.size() >= 4;
    })) << Output(board);
    for (size_t i = 1; i < changes.size(); ++i) EXPECT_GE(changes[i] - changes[i - 1], 51 * passMicroseconds);
}

TEST(BoardLights, FollowCamerasSignalsAndKeys) {
    const Board board = StartShowing({"--old-kernel", "--camera1", "hd-mjpeg", "--camera2", "fullhd-mjpeg"});
    EXPECT_EQ(AskJson(board, {"leds"})["hdmi0-top"], nullptr);
    ExpectLights(board, {{"status", 0}, {"camera1", 0}, {"camera2", 0}, {"hdmi0", 1}, {"hdmi1", 1}});

    // Too fast for this kernel: the selected port's indicator blinks.
    Ctl(board, {"hdmi-in", "1", "1920x1080p60"});
    ExpectLights(board, {{"hdmi0", 1}, {"hdmi1", 0}});
    Ctl(board, {"hdmi-in", "0", "1920x1080p60"});
    ExpectToBlink(board, "hdmi0", 25'000);
    ExpectLights(board, {{"hdmi1", 0}});
    Ctl(board, {"hdmi-in", "0", "off"});
    Ctl(board, {"hdmi-in", "1", "off"});
    ExpectLights(board, {{"hdmi0", 1}, {"hdmi1", 1}});

    EXPECT_TRUE(ShowsFull(board, '1')) << Seen(board);
    EXPECT_EQ(Ctl(board, {"key", "2"}).status, 0);
    EXPECT_TRUE(ShowsFull(board, '2')) << Seen(board);
    Ctl(board, {"camera", "2", "unplug"});
    ExpectLights(board, {{"camera1", 0}, {"camera2", 1}});
}

// ---- The input switchers' lines

static Lights LitInput(int input) {
    Lights lights;
    for (int i = 1; i <= 4; ++i) lights["input" + std::to_string(i)] = i == input;
    return lights;
}

static void Push(const Board& board, int input, const char* how) {
    EXPECT_EQ(Ctl(board, {"gpio-button", std::to_string(input), how}).status, 0);
}

TEST(BoardLights, ButtonsOfTheInputSwitchersSelect) {
    const Board board = MakeBoard();
    std::string record{"\xAC\xAB\1"};
    record.resize(136);
    record[10] = 9;  // an input that there is not
    std::ofstream(BoardFile(board, "home/root/config.bin"), std::ios::binary) << record;
    StartBoard(board, {"--device-id", "1", "--old-kernel", "--panel", "none", "--camera1", "fullhd-mjpeg", "--camera2",
                       "hd-mjpeg", "--hdmi-in", "1920x1080p30"});
    Ctl(board, {"hdmi-in", "1", "1280x720p60"});
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    ExpectLights(board, LitInput(0));
    for (const int input : {3, 1, 2}) {
        Push(board, input, "press");
        ExpectLights(board, LitInput(input));
        Push(board, input, "release");
        EXPECT_TRUE(ShowsFull(board, char('0' + input), 12)) << input << Seen(board);
        ExpectLights(board, LitInput(input));
    }
    Type(board, "<IN3>\n");
    ExpectLights(board, LitInput(3));

    // Two at once take turns; who is let go last keeps it.
    Push(board, 2, "press");
    Push(board, 4, "press");
    for (const int input : {4, 2, 4})
        EXPECT_TRUE(WaitUntil(5, [&] { return AskJson(board, {"settings"})["fields"]["Input"] == input; }));
    Push(board, 4, "release");
    ExpectLights(board, LitInput(2));
    Push(board, 2, "release");
    EXPECT_TRUE(ShowsFull(board, '2', 12)) << Seen(board);
    Type(board, "<DEVICEID 2>\n");  // whose own panel is not there
    Push(board, 1, "press");
    ExpectLights(board, LitInput(1));
    Push(board, 1, "release");

    Ctl(board, {"jack", "in"});
    Ctl(board, {"hdmi-in", "1", "1920x1080p60"});
    Push(board, 4, "press");
    ExpectToBlink(board, "hdmi1", 1'000);
    Push(board, 4, "release");
    ExpectLights(board, {{"hdmi0", 0}, {"input4", 1}});
    const Json settings = AskJson(board, {"settings"})["fields"];
    EXPECT_EQ(settings["Input"], 4);
    EXPECT_EQ(settings["AudioJack"], 0) << "is variant 0's";
}
