// The control pages in a real browser: a press of a button changes the displayed picture, also behind a reload, and
// every button and caption stands where it should. Fails without Chromium: a page nobody opened has not been tested.
#include <gmock/gmock.h>

#include <array>
#include <cstdlib>

#include "browser.h"
#include "picture_probe.h"
#include "tcp_client.h"

using testing::ElementsAre;
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

static Shown Whole(char source) { return {source, 0, 0, 1920, 1080}; }

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

static constexpr std::array kWindows = {"1280 800", "390 844"};

// The page of the board, looked at in every window. Screenshots stay where TESSEL_SCREENSHOTS says, if it does.
static std::vector<Json> Layouts(const Browser& browser, const std::string& name) {
    std::vector<Json> layouts;
    const char* folder = getenv("TESSEL_SCREENSHOTS");
    for (const std::string size : kWindows) {
        Ask(browser, "window " + size);
        layouts.push_back(Ask(browser, "layout"));
        const std::string file = "/" + name + size.substr(0, size.find(' ')) + ".png";
        if (folder) Ask(browser, "screenshot " + (folder + file));
    }
    return layouts;
}

static std::string Url(const Board& board) { return "http://127.0.0.1:" + std::to_string(HttpPort(board)) + "/"; }

TEST(ControlPage, ButtonsOfLayouts) {
    const Board board = StartNewBoard({"--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg"});
    const Browser browser(kScript);
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    ASSERT_NO_FATAL_FAILURE(Open(browser, Url(board)));
    for (const Json& layout : Layouts(browser, "views")) {
        ASSERT_FALSE(layout.contains("error")) << layout["error"];
        EXPECT_EQ(layout["title"], "PIXALTO Configuration Panel");
        EXPECT_THAT(Texts(layout["captions"], "text"), ElementsAre("CAMERA", "CONTENT", "PICTURE-IN-\nPICTURE",
                                                                   "PICTURE-BY-\nPICTURE", "LARGE/\nSMALL", "SWAP"));
        ExpectRowOfButtons(layout);
        ExpectCaptionsUnderButtons(layout);
    }

    // PP and SW count their presses: one that was sent twice would show.
    const Press camera{"$S1$", {Whole('1')}}, content{"$S2$", {Whole('2')}};
    const Press topLeft{"$PP$", {{'2', 19, 10, 640, 359}}}, topRight{"$PP$", {{'2', 1279, 19, 1901, 369}}};
    const Press sideBySide{"$SS$", {{'1', 0, 270, 960, 810}, {'2', 960, 270, 1920, 810}}};
    const Press swapped{"$SW$", {{'2', 0, 270, 960, 810}, {'1', 960, 270, 1920, 810}}};
    const Press back{"$SW$", sideBySide.shown};
    const Press bigSmall{"$BS$", {{'1', 0, 162, 1344, 918}, {'2', 1344, 378, 1920, 702}}};
    ASSERT_NO_FATAL_FAILURE(ExpectPresses(
        browser, board, {camera, content, topLeft, topRight, sideBySide, swapped, back, bigSmall, content}));
    ASSERT_NO_FATAL_FAILURE(Reload(browser));
    ExpectPresses(browser, board, {sideBySide, swapped, back, camera});
}

TEST(ControlPage, ButtonsOfInputs) {
    const Board board = StartNewBoard(
        {"--device-id", "1", "--camera1", "fullhd-mjpeg", "--camera2", "hd-mjpeg", "--hdmi-in", "1920x1080p30"});
    const Browser browser(kScript);
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    ASSERT_EQ(Ctl(board, {"hdmi-in", "1", "1280x720p60"}).status, 0);
    ASSERT_NO_FATAL_FAILURE(Open(browser, Url(board)));
    for (const Json& layout : Layouts(browser, "inputs")) {
        ASSERT_FALSE(layout.contains("error")) << layout["error"];
        EXPECT_EQ(layout["title"], "ZEPHO Configuration Panel");
        EXPECT_THAT(Texts(layout["buttons"], "name"), ElementsAre("Source 1", "Source 2", "Source 3", "Source 4"));
        EXPECT_THAT(layout["captions"], IsEmpty());
        ExpectRowOfButtons(layout);
    }

    const auto input = [](char source) { return Press{std::string("$IN") + source + "$", {Whole(source)}}; };
    ASSERT_NO_FATAL_FAILURE(ExpectPresses(browser, board, {input('2'), input('3'), input('4'), input('1')}));
    ASSERT_NO_FATAL_FAILURE(Reload(browser));
    ExpectPresses(browser, board, {input('4'), input('2')});
}
