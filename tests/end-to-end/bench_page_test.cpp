// The bench page in a real browser: what a visitor clicks happens on the board and is seen, two boards keep apart, and
// nobody but the page itself is served. Fails without Chromium: a page nobody opened has not been tested.
#include <gmock/gmock.h>

#include <array>
#include <fstream>

#include "browser.h"
#include "picture_probe.h"
#include "tcp_client.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

static int PagePort(const Board& board) { return Status(board)["ports"].value("page", 0); }

static std::string Address(const Board& board) { return "127.0.0.1:" + std::to_string(PagePort(board)); }

// ---- Who is served

static std::string Ask(const Board& board, const std::string& head, const std::string& body = {}) {
    const TcpClient client(PagePort(board));
    Send(client, head + "Connection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    return ReceiveAll(client);
}

TEST(BenchPage, RefusesForeigners) {
    const Board board = RunScript("true", {"--page", "auto"});
    const std::string own = Address(board), port = own.substr(own.find(':'));
    const std::string json = "Content-Type: application/json\r\n", verb = "POST /verb HTTP/1.1\r\n";
    const std::string host = "Host: " + own + "\r\n", unplug = R"(["lan", "unplug"])";

    struct Row {
        std::string head, status;
    };
    const std::array rows{
        Row{verb + json + "Host: evil.example" + port + "\r\n", "403"},     // a name that was rebound to this address
        Row{verb + json + host + "Origin: http://127.0.0.1:1\r\n", "403"},  // another server of this computer
        Row{verb + json + host + "Origin: null\r\n", "403"},                // a sandboxed frame
        Row{verb + json + host + "Sec-Fetch-Site: cross-site\r\n", "403"},
        Row{verb + host + "Content-Type: text/plain\r\n", "415"},  // what a form of any site can send unasked
        Row{"GET / HTTP/1.1\r\n" + host + "Sec-Fetch-Site: cross-site\r\n", "200"},  // a link to the page
        Row{"GET / HTTP/1.1\r\nHost: " + own + "1\r\n", "403"},
        Row{"GET / HTTP/1.1\r\nHost: localhost" + port + "\r\nOrigin: http://localhost" + port + "\r\n", "200"},
        Row{"GET /verb HTTP/1.1\r\n" + host, "404"},
        Row{"GET /picture HTTP/1.1\r\nHost: evil.example\r\n", "403"},
        Row{"GET /events HTTP/1.1\r\n" + host + "Origin: http://evil.example\r\n", "403"},
        Row{"GET /../etc/passwd HTTP/1.1\r\n" + host, "404"},
    };
    for (const Row& row : rows)
        EXPECT_THAT(Ask(board, row.head, unplug), StartsWith("HTTP/1.1 " + row.status)) << row.head;
    EXPECT_EQ(Status(board)["lan"], "plugged") << "and nothing of it was carried out";

    EXPECT_THAT(Ask(board, verb + json + host, "{}"), StartsWith("HTTP/1.1 400"));
    EXPECT_THAT(Ask(board, verb + json + host, R"(["trace", "--follow"])"), StartsWith("HTTP/1.1 400"));
    EXPECT_THAT(Ask(board, verb + json + host, R"(["lan", "tie"])"), HasSubstr(R"("good":false)"));
    EXPECT_THAT(Ask(board, verb + json + host + "Origin: http://" + own + "\r\n", unplug), HasSubstr(R"("good":true)"));
    EXPECT_EQ(Status(board)["lan"], "unplugged");
}

// ---- What a visitor does

static void Open(const Browser& browser, const Board& board, const std::string& window) {
    Do(browser, {"window " + window, "open http://" + Address(board) + "/"});
}

static void ExpectInOrder(const Browser& browser) {
    const Json standing = Do(browser, {"standing"});
    EXPECT_THAT(standing["complaints"], IsEmpty());
    EXPECT_FALSE(standing["scrolls"]);
    EXPECT_THAT(standing["misplaced"], IsEmpty());
}

static bool PictureMoves(const Browser& browser) {
    const auto frame = [&] { return Do(browser, {"standing"}).value("frame", 0); };
    const int before = frame();
    return WaitUntil(10, [&] { return frame() > before; });
}

TEST(BenchPage, ClicksReachTheBoard) {
    const Board board = StartShowing({"--page", "auto", "--camera1", "hd-mjpeg"});
    const Browser browser;
    Open(browser, board, "1280 800");
    EXPECT_TRUE(PictureMoves(browser));

    // A camera by mouse, an HDMI source by keyboard.
    Do(browser, {"expect #port-usb2 empty", "click #port-usb2", "keys y", "keys Enter", "expect #port-usb2 yuyv-only",
                 "expect #port-usb2 streaming", "click #port-hdmi0", "keys Escape", "keys Enter", "keys ArrowDown",
                 "keys Enter", "expect #port-hdmi0 1920x1080p50"});
    EXPECT_EQ(Status(board)["camera2"], "yuyv-only");
    // A key of the panel: LED, record and picture follow. Then a layout by each console.
    Do(browser, {"hold .key:nth-child(4)", "release", "expect .key:nth-child(4):has([data-lit=true]) SS",
                 "expect #settings>dl>.changed View"});
    EXPECT_TRUE(WaitToShow(board, {{'1', 0, 270, 960, 810}, {'2', 960, 270, 1920, 810}}, 10)) << Seen(board);
    Do(browser,
       {"click #tab-serial", "type #sheet-serial>form>input <S1>", "expect #sheet-serial ACK", "click #tab-telnet",
        "type #sheet-telnet>form>input $S2$", "expect .key:nth-child(2):has([data-lit=true]) S2", "click #tab-console",
        "type #sheet-console>form>input <TOPTEST>", "expect #sheet-console Top not detected"});
    // A fault shows, and is mended where it is told.
    Do(browser, {"click #port-usb2", "keys s", "keys Enter", "expect #port-usb2 stalled", "click #port-usb2", "keys r",
                 "keys Enter", "expect #port-usb2 streaming", "click #tab-trace", "expect #sheet-trace i2c",
                 "click #tab-log", "expect #sheet-log Tesselvisor Version"});
    ExpectInOrder(browser);
    Do(browser, {"window 390 844"});
    ExpectInOrder(browser);
}

// What was clicked becomes a file, and the file does it again on a fresh board. This one shows camera 2 only, and its
// network cable is out.
static void ReplayClicks(const Browser& browser, const Board& board) {
    const std::string path = BoardFile(board, "clicked.scenario");
    Do(browser, {"expect #record recording", "click #record-anew", "click #port-lan", "keys Enter",
                 "expect #port-lan DHCP", "hold .key:nth-child(2)", "release",
                 "expect .key:nth-child(2):has([data-lit=true]) S2", "click #record-stop", "expect #record 2 verbs"});
    EXPECT_EQ(Do(browser, {"download #record-download " + path})["name"], "record.scenario");
    std::ofstream(path, std::ios::app) << "expect status lan plugged\nexpect picture 2 fills within 10\n";
    const CtlAnswer played = Play(path);
    EXPECT_EQ(played.status, 0) << played.out << played.err;
}

// Identity changes with the power; buttons that are held; two boards and their pages side by side.
TEST(BenchPage, BecomesAnotherBoard) {
    const Board board = StartNewBoard({"--page", "auto", "--camera1", "hd-mjpeg"});
    const Board beside = StartNewBoard({"--page", "auto", "--camera2", "yuyv-only"});
    ASSERT_NE(PagePort(board), PagePort(beside));
    ASSERT_TRUE(WaitForPicture(board)) << Output(board);
    const Browser browser;
    Open(browser, board, "1280 800");
    Do(browser, {"expect #port-usb1 hd-mjpeg", "choose [name=panel] expander", "choose [name=device-id] 2",
                 "expect #power apply", "click #power", "expect #panel expander", "expect #panel Black",
                 "expect #daemon running"});
    // All are lit until the LEDs are driven, a second after the daemon's start.
    const std::string firstIsLit =
        ".keys:has(.key:nth-child(1)>[data-lit=true]):has(.key:nth-child(2)>[data-lit=false])";
    Do(browser, {"expect " + firstIsLit + " Black", "hold .key:nth-child(2)",
                 "expect .key:nth-child(2):has([data-lit=true]) 2", "release"});
    const Json settings = AskJson(board, {"settings"});
    EXPECT_EQ(settings["from"], "memory");
    EXPECT_TRUE(WaitUntil(5, [&] { return AskJson(board, {"settings"})["fields"]["Input"] == 2; }));
    ExpectInOrder(browser);

    Open(browser, beside, "1280 800");
    Do(browser, {"expect #port-usb1 empty", "expect #port-usb2 yuyv-only", "expect #panel keypad", "click #port-lan",
                 "keys Enter", "expect #port-lan cable"});
    EXPECT_EQ(Status(beside)["lan"], "unplugged");
    EXPECT_EQ(Status(board)["lan"], "plugged");
    ReplayClicks(browser, beside);
    EXPECT_EQ(Do(browser, {"fetch http://" + Address(board) + "/profiles"})["status"], "refused")
        << "a page of another board";
    StopBoard(beside);
    Do(browser, {"expect #daemon bench"});
}
