// The status report as each channel delivers it, and when it is broadcast.
#include <gmock/gmock.h>

#include <chrono>
#include <regex>

#include "board_run.h"
#include "tcp_client.h"

using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

static constexpr std::string_view kStart = "IMX->FX3 START\n", kDone = "IMX->FX3 DONE\n";

// ---- Reports in the console's output ----

static std::vector<std::string> Framed(const std::string& output) {
    std::vector<std::string> reports;
    for (size_t from = output.find(kStart); from != output.npos; from = output.find(kStart, from + 1)) {
        const size_t end = output.find(kDone, from);
        if (end != output.npos) reports.push_back(output.substr(from, end + kDone.size() - from));
    }
    return reports;
}

static std::string Replaced(const std::string& text, const std::string& pattern, const std::string& by) {
    return std::regex_replace(text, std::regex(pattern), by);
}

// The lines that differ from board to board and from moment to moment.
static std::string Settled(std::string text) {
    text = Replaced(text, "KEYPAD => [0-9]+\\.[0-9]+", "KEYPAD => (version)");
    text = Replaced(text, "MAC => [0-9a-f]{2}(:[0-9a-f]{2}){5}", "MAC => (mac)");
    text = Replaced(text, "TEMP => [1-9][0-9]?(?=\r?\n)", "TEMP => (degrees)");
    text = Replaced(text, "FRAMECNT => [1-9][0-9]*(?=\r?\n)", "FRAMECNT => (frames)");
    return Replaced(text, "CHECKSUM_CRC32 => 0x[1-9A-F][0-9A-F]*(?=\n)", "CHECKSUM_CRC32 => (crc)");
}

// ---- Channels ----

// The trace has it all, however long the answer takes.
static std::string Serial(const Board& board, const std::string& command) {
    Ctl(board, {"trace", "--clear"});
    Ctl(board, {"serial", command, "0"});
    std::string answer;
    WaitUntil(10, [&] { return (answer = SerialText(board)).ends_with("ACK\r\n"); });
    return answer;
}

// A broadcast may come in between; the answer is the report right before its ACK.
static std::string FramedOnConsole(const Board& board) {
    const size_t from = OutputSize(board);
    TypeAndWait(board, "<GET>\n", "IMX->FX3 DONE\nACK\r\n");
    const std::vector<std::string> reports = Framed(Output(board).substr(from));
    return reports.empty() ? "no report" : reports.back();
}

// Framed text to what the other channels say of the same state.
static std::string AsSerial(const std::string& framed) {
    return Replaced(framed, "IMX->FX3 (START|DONE)\n|(TEMP|ENLOG|ENJPEGPARSE|FRAMECNT|CHECKSUM_CRC32) =>.*\n", "") +
           "ACK\r\n";
}

static std::string AsNetwork(const std::string& framed) {
    return Replaced(Replaced(framed, "IMX->FX3 (START|DONE)\n|(OS|CHECKSUM_CRC32) =>.*\n", ""), "\n", "\r\n") +
           "ACK\r\n";
}

// A source may be locked to, or a picture be on its way, when the first answers are given.
static std::string Eventually(const std::string& expected, const std::function<std::string()>& answer) {
    std::string last;
    WaitUntil(10, [&] {
        last = Settled(answer());
        return last == expected;
    });
    return last;
}

// ---- The text ----

static const std::string kComposer = R"(IMX->FX3 START
Tesselvisor => 2.0.12
DeviceID => 0
FX3 => N/A
FPGA => N/A
EDID => 7
OS => 20190412
KEYPAD => (version)
Input 1 => 1280x720 MJPEG 30Hz
Input 2 => Unlocked
Input 3 => 1280x720
Audio Jack => Not Detected
VIEW => PPTR2
BLACK => enabled
DHCP => 1
IP => 192.168.0.57
NETMASK => 255.255.255.0
MAC => (mac)
GATEWAY => 192.168.0.1
AIN1 => 1
AIN2 => 2
AIN3 => 3
AIN4 => 251
AOUT1 => 5
AOUT2 => 6
AOUT3 => 7
AOUT4 => 8
AOUTHDMI => 9
AOUTANALOG => 10
AOUTUSB1 => 11
AOUTUSB2 => 12
ACFG => 1
INV1 => 0
INV2 => 1
INV3 => 2
INV4 => 3
MUTEIN => 0
SBTN => 14
USBOUT => STREAM
BLANK => 0
HDMI => 1920x1080 60Hz
TEMP => (degrees)
ENLOG => 0
ENJPEGPARSE => 0
FRAMECNT => (frames)
CHECKSUM_CRC32 => (crc)
IMX->FX3 DONE
)";

// Every number another one.
static constexpr const char* kSetUp =
    "<AIN1 1>\n<AIN2 2>\n<AIN3 3>\n<AIN4 -5>\n<AOUT1 5>\n<AOUT2 6>\n<AOUT3 7>\n<AOUT4 8>\n<AOUTHDMI 9>\n"
    "<AOUTANALOG 10>\n<AOUTUSB1 11>\n<AOUTUSB2 12>\n<ACFG 1>\n<INV 2 1>\n<INV 3 2>\n<INV 4 3>\n<SBTN 14>\n"
    "<USBSTREAM>\n<PPTR2>\n<BLK>\n<ENBCAST 0>\n<POLL>\n";

TEST(StatusReport, SaysTheSameOnEveryChannel) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg", "--hdmi-in", "1280x720p60"});
    TypeAndWait(board, kSetUp, "BLACK => enabled\nACK\r\n");
    const std::string serial = AsSerial(kComposer), network = AsNetwork(kComposer);
    EXPECT_EQ(Eventually(kComposer, [&] { return FramedOnConsole(board); }), kComposer);
    EXPECT_EQ(Eventually(serial, [&] { return Serial(board, "<GET>"); }), serial);
    EXPECT_EQ(Eventually(network, [&] { return Telnet(board, "$GET$"); }), network);
    EXPECT_EQ(Eventually(network, [&] { return Http(board, "/$GET$"); }), network);

    // Nothing attached, a static address.
    Ctl(board, {"camera", "1", "unplug"});
    Ctl(board, {"hdmi-in", "0", "off"});
    Type(board, "<USBNSTREAM>\n<S1>\n<DHCP 2>\n");
    std::string framed = Replaced(kComposer, "Input ([13]) => .*", "Input $1 => Unlocked");
    framed = Replaced(framed, "PPTR2", "S1");
    framed = Replaced(framed, "DHCP => 1", "DHCP => 0");
    framed = Replaced(framed, "=> STREAM", "=> NSTREAM");
    framed = Replaced(framed, "FRAMECNT.*\n", "");
    EXPECT_EQ(Eventually(framed, [&] { return FramedOnConsole(board); }), framed);
}

TEST(StatusReport, ToolsThatDoNotAnswer) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg"});
    Command(board, "<ENBCAST 0>");
    Ctl(board, {"fault", "tool", "connmanctl", "fail"});
    EXPECT_THAT(Settled(FramedOnConsole(board)),
                HasSubstr("IP => Not found\nNETMASK => Not found\nMAC => (mac)\nGATEWAY => Not found\nAIN1"));
    EXPECT_THAT(Command(board, "<LANTEST>"), HasSubstr("Not connected.\nACK\r\n"));
    Ctl(board, {"fault", "tool", "connmanctl", "off"});

    for (const char* tool : {"ifconfig", "fbset", "ethtool"}) Ctl(board, {"fault", "tool", tool, "fail"});
    EXPECT_THAT(Settled(Telnet(board, "$GET$")), HasSubstr("NETMASK => 255.255.255.0\r\nGATEWAY => 192.168.0.1\r\n"));
    EXPECT_THAT(FramedOnConsole(board), HasSubstr("BLANK => 0\nTEMP => "));
    EXPECT_THAT(Command(board, "<LANTEST>"), HasSubstr("Not connected.\nACK\r\n"));
}

// The receiver locks anew behind each switch.
TEST(StatusReport, FourInputVariantNumbersTheReceiversPorts) {
    const Board board = StartShowing({"--device-id", "1", "--camera1", "fullhd-mjpeg", "--hdmi-in", "1920x1080p30"});
    ASSERT_EQ(Ctl(board, {"hdmi-in", "1", "1280x720p60"}).status, 0);
    for (const std::string input : {"IN4", "IN3"}) {
        const std::string lines =
            "Input 1 => 1920x1080 MJPEG 30Hz\nInput 2 => Unlocked\nInput 3 => 1920x1080\nInput 4 => 1280x720\n"
            "VIEW => " +
            input + "\nBLACK => disabled\n";
        EXPECT_TRUE(TypeAndWait(board, "<ENBCAST 0>\n<" + input + ">\n", "ACK\r\n"));
        EXPECT_TRUE(WaitUntil(10, [&] { return FramedOnConsole(board).find(lines) != std::string::npos; }))
            << FramedOnConsole(board);
    }
}

// ---- The broadcast ----

// What was selected behind the start view.
static std::vector<std::string> ViewsTold(const Board& board, size_t from) {
    std::vector<std::string> views;
    for (const std::string& report : Framed(Output(board).substr(from))) {
        const std::string view = Replaced(report, "[^]*\nVIEW => (.*)\n[^]*", "$1");
        if (view != "S1") views.push_back(view);  // a report may have been at work
    }
    return views;
}

static double SecondsToReportBehind(const Board& board, const std::string& command) {
    const auto start = Clock::now();
    EXPECT_TRUE(TypeAndWait(board, command, kDone));
    return Seconds(Clock::now() - start).count();
}

TEST(Broadcast, OneForEachNewSelectionAndEveryFewSeconds) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg"});
    EXPECT_TRUE(WaitForOutput(board, "\nVIEW => S1\n", 10)) << "the first poll tells";
    Command(board, "<ENBCAST 0>");

    const size_t quiet = OutputSize(board);
    std::vector<std::string> told;
    const auto tellsOnceMore = [&](const char* view) {
        told.push_back(view);
        WaitUntil(2, [&] { return ViewsTold(board, quiet).size() >= told.size(); });
        EXPECT_EQ(ViewsTold(board, quiet), told);
    };
    Type(board, "<SS>\n");
    tellsOnceMore("SS1");
    Ctl(board, {"serial", "<SS2>"});
    tellsOnceMore("SS2");
    Telnet(board, "$TB$");
    tellsOnceMore("TB2");
    Http(board, "/$S2$");
    tellsOnceMore("S2");
    for (const char* command : {"$S2$", "$BLK$", "$SHW$"}) Telnet(board, command);  // nothing new is selected
    Pause(7);
    EXPECT_EQ(ViewsTold(board, quiet), told);

    // Who types is not interrupted for five whole seconds.
    EXPECT_GT(SecondsToReportBehind(board, "<ENBCAST 1>\n"), 5);
    Pause(3);
    EXPECT_GT(SecondsToReportBehind(board, "<POLL>\n"), 5);
}
