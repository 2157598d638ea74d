// The front panel from finger to settings and LEDs, in both of its forms. The boards have nothing to show, so that
// nobody else changes the layout. Waits count the panel's passes, as the daemon does: a slow machine has slow passes.
#include <gmock/gmock.h>

#include <set>
#include <sstream>

#include "board_run.h"

// ---- What a key leads to

struct Selection {
    int view = 0, swap = 0, input = 1, black = 0, s2Count = 0;
    bool operator==(const Selection&) const = default;
};

static void PrintTo(const Selection& s, std::ostream* out) {
    *out << "view " << s.view << " swap " << s.swap << " input " << s.input << " black " << s.black << " s2Count "
         << s.s2Count;
}

static Selection Selected(const Board& board) {
    const Json record = AskJson(board, {"settings"})["fields"];
    return {record["View"], record["Swap"], record["Input"], record["Black"], record["S2Count"]};
}

static Json Panel(const Board& board) { return AskJson(board, {"leds"})["panel"]; }
static int Leds(const Board& board) { return Panel(board)["leds"]; }

static int Passes(const Board& board) {
    const Json panel = Panel(board);
    return panel.contains("frames") ? panel["frames"] : panel["looks"];
}

static void WaitForPasses(const Board& board, int count) {
    const int from = Passes(board);
    EXPECT_TRUE(WaitUntil(count * 0.03, [&] { return Passes(board) >= from + count; })) << Output(board);
}

static bool Stands(const Board& board) {
    const int from = Passes(board);
    Pause(0.3);
    return Passes(board) == from;
}

// ---- Fingers

// Until everything that follows from it has happened: four passes of debouncing, one for the LEDs, one to complete it.
static constexpr int kHold = 6;
static constexpr int kLongHold = kHold + 60;
static constexpr int kShift = 64, kLock = 32;

static void Hold(const Board& board, int buttons, int passes = kHold) {
    EXPECT_EQ(Ctl(board, {"buttons", std::to_string(buttons)}).status, 0);
    WaitForPasses(board, passes);
}

static void HoldEach(const Board& board, std::initializer_list<int> combinations) {
    for (const int buttons : combinations) Hold(board, buttons);
}

static void PressOnExpander(const Board& board, const std::string& key) {
    const int buttons = std::stoi(key);
    if (buttons > kShift) {
        HoldEach(board, {kShift, buttons, kShift, 0});
        return;
    }
    Hold(board, buttons);
    EXPECT_EQ(Leds(board), buttons) << "what is held lights up";
    Hold(board, 0);
}

// `key` ends when the report has been fetched; one pass later its LEDs have been sent.
static void PressOnKeypad(const Board& board, const std::string& key) {
    Words words{"key"};
    std::istringstream list(key);
    for (std::string word; list >> word;) words.push_back(word);
    const CtlAnswer answer = Ctl(board, words);
    EXPECT_EQ(answer.status, 0) << answer.err;
    WaitForPasses(board, 1);
}

// ---- Scripts

struct PanelRow {
    std::string key;  // or the words of `ctl key`
    Selection after;
    int leds;
    std::string told = "";    // in the log
    std::string before = "";  // commands that are typed first
};

static void Play(const Board& board, void (*press)(const Board&, const std::string&),
                 const std::vector<PanelRow>& rows) {
    for (const PanelRow& row : rows) {
        SCOPED_TRACE(row.before + " key " + row.key);
        if (!row.before.empty()) Command(board, row.before);
        const size_t from = OutputSize(board);
        press(board, row.key);
        EXPECT_EQ(Leds(board), row.leds);
        EXPECT_EQ(Selected(board), row.after);
        const std::string output = Output(board).substr(from);
        EXPECT_TRUE(row.told.empty() ? output.find("Shifted") == output.npos : output.find(row.told) != output.npos)
            << output;
    }
}

// From the layout SS on; what each key means on each layout is told elsewhere.
static const std::vector<PanelRow> kLayoutKeys = {
    {"32", {.view = 2, .swap = 1}, 8 + 32},
    {"4", {.view = 4, .swap = 1}, 4 + 32},
    {"32", {.view = 4}, 4},
    {"2", {.view = 1, .s2Count = 1}, 2},
    {"65", {.view = 1, .s2Count = 1}, 2, "Shifted key: 41\n"},
    {"64", {.view = 1, .s2Count = 1}, 2 + 64, "", "<SBTN 1>"},
    {"1", {.view = 0, .s2Count = 1}, 1 + 64},
    {"64", {.view = 0, .s2Count = 1}, 1},
};

static const std::vector<PanelRow> kInputKeys = {
    {"8", {.input = 4, .s2Count = 1}, 8, "", "<DEVICEID 2>"},
    {"16", {.input = 4, .black = 1, .s2Count = 1}, 8 + 16},
    {"80", {.input = 4, .black = 1, .s2Count = 1}, 8 + 16, "Shifted key: 50\n"},
    {"64", {.input = 4, .black = 1, .s2Count = 1}, 8 + 16 + 64},
};

// Only the controller can say these.
static const std::vector<PanelRow> kReports = {
    {"swap", {.view = 1, .s2Count = 1}, 2},
    {"repeat 16", {.view = 1, .s2Count = 1}, 2},
    {"view 8", {.view = 2, .s2Count = 1}, 8},
    {"garbage 0", {.view = 2, .s2Count = 1}, 8},
};

static Board StartPanel(const Words& words) {
    const Board board = StartUntil("Manage dynamic pipeline", words);
    Command(board, "<SS>");
    EXPECT_TRUE(WaitUntil(10, [&] { return Leds(board) == 8; })) << Output(board);
    Command(board, "<ENBCAST 0>");
    return board;
}

// ---- The keypad controller

static constexpr const char* kWriteFailure = "i2c_write_to_device failure.\r\n";

// What was pressed meanwhile stands in the controller and is not lost.
static void ExpectToSurviveSilence(const Board& board) {
    const Selection before = Selected(board);
    EXPECT_EQ(Output(board).find(kWriteFailure), std::string::npos);
    Ctl(board, {"fault", "i2c", "08", "nak"});
    EXPECT_TRUE(WaitForOutput(board, kWriteFailure, 5));
    EXPECT_NE(Ctl(board, {"key", "16"}).status, 0);
    EXPECT_EQ(Selected(board), before);
    Ctl(board, {"fault", "i2c", "08", "off"});
    EXPECT_TRUE(WaitUntil(5, [&] { return Leds(board) == 16; }));
    const size_t from = OutputSize(board);
    WaitForPasses(board, 4);
    EXPECT_EQ(Output(board).find(kWriteFailure, from), std::string::npos);
}

static void ExpectToSurviveHang(const Board& board) {
    Ctl(board, {"fault", "i2c", "08", "hang"});
    EXPECT_TRUE(WaitUntil(5, [&] { return Stands(board); }));
    Command(board, "<SS>");  // nobody else waits for the bus
    EXPECT_EQ(Leds(board), 16);
    Ctl(board, {"fault", "i2c", "08", "off"});
    EXPECT_TRUE(WaitUntil(5, [&] { return Leds(board) == 8; }));
}

static void ExpectNoKeysOnOtherVariants(const Board& board) {
    const Selection before = Selected(board);
    EXPECT_EQ(Ctl(board, {"gpio-button", "3", "press"}).status, 0) << "nobody looks there on a newer kernel";
    for (const char* variant : {"1", "2", "3"}) {
        Command(board, std::string("<DEVICEID ") + variant + ">");
        EXPECT_TRUE(WaitUntil(5, [&] { return Stands(board); })) << variant;
    }
    EXPECT_NE(Ctl(board, {"key", "1"}).status, 0) << "nobody fetches it";
    EXPECT_EQ(Selected(board), before);
    EXPECT_EQ(Ctl(board, {"gpio-button", "3", "release"}).status, 0);
    Command(board, "<DEVICEID 0>");
    EXPECT_TRUE(WaitUntil(5, [&] { return Leds(board) == 1; }));
}

// The last report still stands in the controller when the daemon starts anew.
static void ExpectOldKeyToBeForgotten(const Board& board) {
    PressOnKeypad(board, "16");
    Command(board, "<S1>");
    EXPECT_EQ(Selected(board).view, 0);
    Command(board, "<SAVE>");
    EXPECT_TRUE(TypeAndWait(board, "<RESTART>\n", "Manage dynamic pipeline", 30)) << Output(board);
    WaitForPasses(board, 4);
    EXPECT_EQ(Selected(board).view, 0);
    EXPECT_EQ(Leds(board), 1);
}

TEST(Panel, KeypadFromKeyToRecordAndLeds) {
    const Board board = StartPanel({});
    Play(board, PressOnKeypad, kLayoutKeys);
    EXPECT_TRUE(TypeAndWait(board, "<GET>\n", "KEYPAD => 2.4\n"));
    Play(board, PressOnKeypad, kReports);
    ExpectToSurviveSilence(board);
    ExpectToSurviveHang(board);
    ExpectNoKeysOnOtherVariants(board);
    EXPECT_EQ(Panel(board)["refused"], 0);
    ExpectOldKeyToBeForgotten(board);
}

// ---- The expander

TEST(Panel, ExpanderFromButtonToRecordAndLeds) {
    const Board board = StartPanel({"--panel", "expander"});
    Play(board, PressOnExpander, kLayoutKeys);
    EXPECT_TRUE(TypeAndWait(board, "<GET>\n", "KEYPAD => 13.1\n"));
    Play(board, PressOnExpander, kInputKeys);
    for (const char* variant : {"1", "3"}) {
        Command(board, std::string("<DEVICEID ") + variant + ">");
        EXPECT_TRUE(WaitUntil(5, [&] { return Stands(board); })) << variant;
    }
}

// Its LED changes within that many passes, or stands.
static bool LockBlinks(const Board& board, int passes) {
    Ctl(board, {"trace", "--clear"});
    WaitForPasses(board, passes);
    std::set<int> seen;
    for (const Json& line : TraceLines(board, "led"))
        if (line["led"] == "panel") seen.insert(line["value"].get<int>() & kLock);
    return seen.size() == 2;
}

// Which hands lock, and how contacts may bounce, is told elsewhere.
TEST(Panel, ExpanderIsLockedAndSurvivesFaults) {
    const Board board = StartPanel({"--panel", "expander"});
    for (const bool locked : {true, false}) {
        Hold(board, kLock, kLongHold);
        Hold(board, 0);
        EXPECT_EQ(LockBlinks(board, 55), locked);
        HoldEach(board, {1, 0});
        EXPECT_EQ(Selected(board).view, locked ? 2 : 0);
    }

    // It loses its configuration, and it does not answer for a while.
    Ctl(board, {"fault", "expander", "reset"});
    EXPECT_TRUE(WaitUntil(5, [&] { return Panel(board)["configured"] == true && Leds(board) == 1; }));
    Ctl(board, {"fault", "i2c", "21", "nak"});
    EXPECT_EQ(Ctl(board, {"buttons", "16", "for", "500"}).status, 0);
    Ctl(board, {"fault", "i2c", "21", "off"});
    WaitForPasses(board, kHold);
    EXPECT_EQ(Selected(board), Selection{});
    PressOnExpander(board, "16");
    EXPECT_EQ(Selected(board), Selection{.view = 3});
}
