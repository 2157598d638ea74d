// The control pages in a real browser: a press of a button changes the displayed picture, also behind a reload, and
// every button and caption stands where it should. Fails without Chromium: a page nobody opened has not been tested.
#include <gmock/gmock.h>

#include "browser.h"
#include "picture_probe.h"
#include "tcp_client.h"

using testing::EndsWith;
using testing::IsEmpty;

static constexpr const char* kScript = "control_page.mjs";

// Chromium opens spare connections that say nothing. Each of them may hold the server for its 5 s before the one with
// the command is served.
static constexpr double kPressSeconds = 30;

static void Open(const Browser& browser, const std::string& url) {
    const Json answer = Ask(browser, "open " + url);
    ASSERT_FALSE(answer.contains("error")) << answer["error"];
}

// The presses before have left a "#" at the end of the URL.
static void Reload(const Browser& browser) {
    const Json answer = Ask(browser, "reload");
    ASSERT_FALSE(answer.contains("error")) << answer["error"];
    EXPECT_THAT(answer["url"].get<std::string>(), EndsWith("/#"));
}

// ---- Presses ----

struct Press {
    std::string command;
    std::vector<Shown> shown;
};

static std::vector<Shown> Whole(char source) { return {{source, 0, 0, 1920, 1080}}; }

static void ExpectPresses(const Browser& browser, const Board& board, const std::vector<Press>& presses) {
    for (const Press& press : presses) {
        const Json held = Ask(browser, "press " + press.command);
        ASSERT_FALSE(held.contains("error")) << held["error"];
        EXPECT_EQ(held["background"], "rgb(0, 128, 0)") << press.command;
        EXPECT_THAT(held["complaints"], IsEmpty()) << press.command;
        ASSERT_TRUE(WaitUntilPicture(board, kPressSeconds,
                                     [&](const Picture& picture) { return ShowsAll(picture, press.shown); }))
            << press.command << Seen(board);
    }
}

// ---- Where things stand ----

static std::vector<std::string> Texts(const Json& items, const char* key) {
    std::vector<std::string> texts;
    for (const Json& item : items) texts.push_back(item[key]);
    return texts;
}

static void ExpectRowOfButtons(const Json& layout) {
    EXPECT_FALSE(layout["scrolls"]);
    double right = 0;
    for (const Json& button : layout["buttons"]) {
        const double centre = button["centre"], width = button["width"];
        EXPECT_NEAR(width, 0.15, 0.001) << button["name"];
        EXPECT_EQ(button["top"], layout["buttons"][0]["top"]) << button["name"];
        EXPECT_GT(centre - width / 2, right) << button["name"];
        right = centre + width / 2;
    }
    EXPECT_LT(right, 1);
}

static void ExpectCaptionsUnderButtons(const Json& layout) {
    const Json &buttons = layout["buttons"], &captions = layout["captions"];
    ASSERT_EQ(buttons.size(), captions.size());
    for (size_t i = 0; i < buttons.size(); ++i) {
        EXPECT_NEAR(captions[i]["centre"], buttons[i]["centre"], 0.01) << captions[i];
        EXPECT_GE(captions[i]["top"], buttons[i]["bottom"]) << captions[i];
        EXPECT_TRUE(captions[i]["fits"]) << captions[i];
    }
}

struct Page {
    std::string title;
    std::vector<std::string> names, captions;  // of the buttons; empty: not looked at, or none
};

// In a desktop's window and in a phone's.
static void ExpectLayout(const Browser& browser, const Page& page) {
    for (const std::string size : {"1280 800", "390 844"}) {
        Ask(browser, "window " + size);
        const Json layout = Ask(browser, "layout");
        ASSERT_FALSE(layout.contains("error")) << layout["error"];
        EXPECT_EQ(layout["title"], page.title);
        EXPECT_TRUE(page.names.empty() || page.names == Texts(layout["buttons"], "name")) << layout["buttons"];
        EXPECT_EQ(Texts(layout["captions"], "text"), page.captions);
        ExpectRowOfButtons(layout);
        if (!page.captions.empty()) ExpectCaptionsUnderButtons(layout);
    }
}

// PP and SW count their presses: one that was sent twice would show.
TEST(ControlPage, ButtonsOfLayoutsAndOfInputs) {
    const Board board =
        StartNewBoard({"--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg", "--hdmi-in", "1920x1080p30"});
    const Browser browser(kScript);
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    ASSERT_EQ(Ctl(board, {"hdmi-in", "1", "1280x720p60"}).status, 0);
    ASSERT_NO_FATAL_FAILURE(Open(browser, "http://127.0.0.1:" + std::to_string(HttpPort(board)) + "/"));
    ExpectLayout(browser, {.title = "PIXALTO Configuration Panel",
                           .names = {},
                           .captions = {"CAMERA", "CONTENT", "PICTURE-IN-\nPICTURE", "PICTURE-BY-\nPICTURE",
                                        "LARGE/\nSMALL", "SWAP"}});
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
    ASSERT_NO_FATAL_FAILURE(Reload(browser));
    ExpectLayout(browser, {.title = "ZEPHO Configuration Panel",
                           .names = {"Source 1", "Source 2", "Source 3", "Source 4"},
                           .captions = {}});
    ExpectPresses(browser, board,
                  {{"$IN2$", Whole('2')}, {"$IN3$", Whole('3')}, {"$IN4$", Whole('4')}, {"$IN1$", Whole('1')}});
}
