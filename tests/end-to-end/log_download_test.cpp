// The diagnostic log as a browser downloads it.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

#include "process_figures.h"
#include "tcp_client.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

static const std::string kSeparator = std::string(85, '=') + "\n";
static constexpr const char* kHeader =
    "HTTP/1.1 200 OK\r\nContent-type: binary/octet-stream\r\nContent-Disposition: attachment; "
    "filename=systemlog.qdx\r\nAccept-Ranges: bytes\r\n\r\n";
static constexpr const char* kListening = "Waiting for incoming connections...\n";

// What a browser stores.
static std::string Download(const Board& board) {
    const std::string answer = Http(board, "/$GETLOG$", 60);
    EXPECT_TRUE(answer.starts_with(kHeader)) << answer.substr(0, 200);
    return answer.substr(std::min(answer.size(), strlen(kHeader)));
}

// Titles and texts, one behind the other.
static std::vector<std::string> PartsOf(const std::string& log) {
    std::vector<std::string> parts;
    for (size_t from = 0, to = 0; to != std::string::npos; from = to + kSeparator.size()) {
        to = log.find(kSeparator, from);
        if (from > 0) parts.push_back(log.substr(from, to - from));
    }
    return parts;
}

static std::vector<std::string> TitlesOf(const std::string& log) {
    const std::vector<std::string> parts = PartsOf(log);
    std::vector<std::string> titles;
    for (size_t i = 0; i + 1 < parts.size(); i += 2) titles.push_back(parts[i]);
    return titles;
}

static std::string TextOf(const std::string& log, std::string_view title) {
    const std::vector<std::string> parts = PartsOf(log);
    const auto found = std::ranges::find(parts, title);
    return found == parts.end() ? "no such section" : *std::next(found);
}

TEST(LogDownload, SectionsFollowTheCameras) {
    const Board board = StartUntil(kListening, {"--hdmi-in", "1280x720p60"});
    for (const char* line : {"usb 1-1: before", "[3] ov5640: unsupported bit mode 0", "usb 1-1: behind"})
        Ctl(board, {"kernel-log", line});

    const std::string none = Download(board);
    EXPECT_THAT(TitlesOf(none), ElementsAre("Get status from application\n", "Listing USB tree\n",
                                            "Listing V4L2 devices\n", "Listing USB devices\n", "Get kernel dump\n",
                                            "Get application log dump\n", "END OF LOG\n"));
    EXPECT_THAT(none, EndsWith(kSeparator + "ACK\r\n"));
    EXPECT_THAT(TextOf(none, "Get status from application\n"), StartsWith("Tesselvisor => "));
    EXPECT_THAT(TextOf(none, "Get kernel dump\n"), HasSubstr("usb 1-1: before\nusb 1-1: behind\n"));
    EXPECT_THAT(none, Not(HasSubstr("ov5640: unsupported bit mode 0")));
    EXPECT_THAT(TextOf(none, "Get application log dump\n"), HasSubstr("Listener on port 50000"));

    // The shell says so on standard error; the section stands there, empty.
    Ctl(board, {"fault", "tool", "lsusb", "absent"});
    Ctl(board, {"fault", "tool", "dmesg", "fail"});
    const std::string log = Download(board);
    EXPECT_EQ(TitlesOf(log), TitlesOf(none));
    EXPECT_EQ(TextOf(log, "Listing USB tree\n"), "");
    EXPECT_EQ(TextOf(log, "Get kernel dump\n"), "");
    EXPECT_NE(TextOf(log, "Get application log dump\n"), "");
    // Without a shell no tool can be started: their sections are missing.
    Ctl(board, {"fault", "tool", "sh", "absent"});
    EXPECT_THAT(TitlesOf(Download(board)), ElementsAre("Get status from application\n", "END OF LOG\n"));
    for (const char* tool : {"lsusb", "dmesg", "sh"}) Ctl(board, {"fault", "tool", tool, "off"});

    ASSERT_EQ(Ctl(board, {"camera", "2", "plug", "hd-mjpeg"}).status, 0);
    ASSERT_EQ(Ctl(board, {"camera", "1", "plug", "fullhd-mjpeg"}).status, 0);
    std::string both;
    ASSERT_TRUE(WaitUntil(15, [&] { return TitlesOf(both = Download(board)).size() == 9; }));
    const std::string first = TitlesOf(both)[4];
    EXPECT_THAT(first, StartsWith("Listing USB1 - Full HD Webcam - /dev/video"));
    EXPECT_THAT(TextOf(both, first), HasSubstr("1920x1080"));
    EXPECT_THAT(TitlesOf(both)[5], testing::MatchesRegex("Listing USB2 - .+ - /dev/video[0-9]\n"));

    // Over telnet it is the same text, header included.
    const std::string telnet = Telnet(board, "$GETLOG$", "ACK\r\n", 30);
    EXPECT_THAT(telnet, StartsWith(kHeader + kSeparator + "Get status from application\n"));
    EXPECT_THAT(telnet, EndsWith("END OF LOG\n" + kSeparator + "ACK\r\n"));
}

TEST(LogDownload, TenMegabytesCostNoMemory) {
    const Board board = StartShowing({"--camera1", "hd-mjpeg"});
    ASSERT_TRUE(WaitForSound(board)) << Output(board);
    Download(board);
    const int descriptors = Status(board)["daemon"]["descriptors"];
    ASSERT_EQ(Ctl(board, {"fault", "tool", "journalctl", "flood"}).status, 0);
    Download(board);
    const long own = DaemonFigures(board).ownKilobytes;
    const std::string log = Download(board);
    const std::string text = TextOf(log, "Get application log dump\n");
    EXPECT_EQ(text.size(), 10'000'000);
    EXPECT_EQ(std::ranges::count(text, '\n'), 200'000);
    EXPECT_TRUE(log.ends_with("END OF LOG\n" + kSeparator + "ACK\r\n"));
    const bool sanitized = Patience() > 1;  // then what was freed is kept
    // Frames under way come and go.
    const auto isFree = [&] { return DaemonFigures(board).ownKilobytes < own + 4'000; };
    EXPECT_TRUE(sanitized || WaitUntil(10, isFree)) << own << " kB before";

    // Telnet is served meanwhile. One client goes away in the middle, the next stops reading: the server lives on.
    {
        TcpClient client(HttpPort(board));
        Send(client, "GET /$GETLOG$ HTTP/1.1\r\n\r\n");
        Receive(client, "flood 000500", 30);
        EXPECT_THAT(Telnet(board, "$POLL$"), EndsWith("ACK\r\n"));
        Reset(client);
    }
    const TcpClient deaf(HttpPort(board));
    for (int i = 0; i < 2; ++i) Send(deaf, "GET /$GETLOG$ HTTP/1.1\r\n\r\n");
    EXPECT_THAT(Http(board, "/$POLL$", 30), EndsWith("BLACK => disabled\r\nACK\r\n"));
    EXPECT_TRUE(WaitUntil(10, [&] { return Status(board)["daemon"]["descriptors"] <= descriptors; }));
    EXPECT_EQ(Status(board)["daemon"]["starts"], 1);
}
