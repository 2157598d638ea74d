// The control pages in a real browser: a press of a button changes the displayed picture, also behind a reload, and
// every button and caption stands where it should. Fails without Chromium: a page nobody opened has not been tested.
#include <gmock/gmock.h>

#include "browser.h"
#include "picture_probe.h"
#include "tcp_client.h"

using testing::EndsWith;
using testing::IsEmpty;

// Chromium opens spare connections that say nothing. Each of them may hold the server for its 5 s before the one with
// the command is served.
static constexpr double kPressSeconds = 30;

// ---- Presses ----

struct Press {
    std::string command;
    std::vector<Shown> shown;
};

static std::vector<Shown> Whole(char source) { return {{source, 0, 0, 1920, 1080}}; }

static void ExpectPresses(const Browser& browser, const Board& board, const std::vector<Press>& presses) {
    for (const Press& press : presses) {
        const Json held = Do(browser, {"hold a[onclick*=\"'" + press.command + "'\"]>>svg"});
        EXPECT_EQ(held["colour"], "rgb(0, 128, 0)") << press.command;
        EXPECT_THAT(Do(browser, {"release", "standing"})["complaints"], IsEmpty()) << press.command;
        ASSERT_TRUE(WaitToShow(board, press.shown, kPressSeconds)) << press.command << Seen(board);
    }
}

// In a desktop's window and in a phone's. Names null: not looked at.
static void ExpectPage(const Browser& browser, const std::string& title, const Json& names, const Json& captions) {
    for (const std::string size : {"1280 800", "390 844"}) {
        const Json page = Do(browser, {"window " + size, "standing"});
        EXPECT_EQ(page["title"], title);
        EXPECT_TRUE(names.is_null() || page["names"] == names) << page["names"];
        EXPECT_EQ(page["captions"], captions);
        EXPECT_FALSE(page["scrolls"]);
        EXPECT_THAT(page["misplaced"], IsEmpty());
    }
}

// PP and SW count their presses: one that was sent twice would show.
TEST(ControlPage, ButtonsOfLayoutsAndOfInputs) {
    const Board board =
        StartNewBoard({"--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg", "--hdmi-in", "1920x1080p30"});
    const Browser browser;
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    ASSERT_EQ(Ctl(board, {"hdmi-in", "1", "1280x720p60"}).status, 0);
    Do(browser, {"open http://127.0.0.1:" + std::to_string(HttpPort(board)) + "/"});
    ExpectPage(browser, "PIXALTO Configuration Panel", nullptr,
               {"CAMERA", "CONTENT", "PICTURE-IN-\nPICTURE", "PICTURE-BY-\nPICTURE", "LARGE/\nSMALL", "SWAP"});
    ASSERT_NO_FATAL_FAILURE(ExpectPresses(browser, board,
                                          {{"$S2$", Whole('2')},
                                           {"$S1$", Whole('1')},
                                           {"$PP$", {{'2', 19, 10, 640, 359}}},
                                           {"$PP$", {{'2', 1279, 19, 1901, 369}}},
                                           {"$SS$", {{'1', 0, 270, 960, 810}, {'2', 960, 270, 1920, 810}}},
                                           {"$SW$", {{'2', 0, 270, 960, 810}, {'1', 960, 270, 1920, 810}}},
                                           {"$BS$", {{'2', 0, 162, 1344, 918}, {'1', 1344, 378, 1920, 702}}}}));

    // The board becomes an input switcher; its page is another one.
    EXPECT_TRUE(TypeAndWait(board, "<DEVICEID 1>\n", "ACK\r\n"));
    // The presses before have left a "#" at the end of the URL.
    EXPECT_THAT(Do(browser, {"reload"})["url"].get<std::string>(), EndsWith("/#"));
    ExpectPage(browser, "ZEPHO Configuration Panel", {"Source 1", "Source 2", "Source 3", "Source 4"}, Json::array());
    ExpectPresses(browser, board,
                  {{"$IN2$", Whole('2')}, {"$IN3$", Whole('3')}, {"$IN4$", Whole('4')}, {"$IN1$", Whole('1')}});
}
