// The board's programs, absent, failing, killed, hanging or talking without end, each while the daemon needs it.
#include <array>
#include <string_view>

#include "campaign.h"
#include "picture_probe.h"
#include "tcp_client.h"

struct Tool {
    const char* name;
    const char* command = nullptr;  // that runs it; none: the start-up does
};
static constexpr Tool kTools[] = {
    {"amixer"},
    {"dmesg"},
    {"uname"},
    {"grep"},
    {"stty"},
    {"ifconfig"},
    {"connmanctl"},
    {"fbset"},
    {"lsusb"},
    {"gst-inspect-1.0"},
    {"sh"},
    {"connmanctl", "$DHCP_1$"},
    {"ifconfig", "$NETMASK_255_255_255_0$"},
    {"route", "$GATEWAY_192_168_0_1$"},
    {"fw_setenv", "$MAC_0_1b_2c_3d_4e_5f$"},
    {"fbset", "$OUTPUT_1$"},
    {"journalctl", "$GETLOG$"},
    {"lsusb", "$ENJPEGPARSE_0$"},   // a scan by the video thread
    {"aplay", "$ENJPEGPARSE_0$"},   // and one by the audio thread
    {"amixer", "$ENJPEGPARSE_0$"},  // which sets up a loudspeaker
};
static constexpr std::string_view kHang = "hang";
static constexpr std::string_view kFaults[] = {"fail", "killed", kHang, "silent", "flood", "slow", "absent"};

static bool IsShell(const Tool& tool) { return std::string_view(tool.name) == "sh"; }

static void PowerCycle(Bench& bench) {
    Do(bench, {"power-cycle"});
    ++bench.lives;
}

// Without a tool the daemon still starts, and without its answer. Without a shell it does not: it cannot set the
// output, ends with status 1 and is started until it can. What hangs is waited for. What a start went without, as the
// setting of the serial line, is missing until the next one.
static void TryAtStart(Bench& bench, const Tool& tool, std::string_view fault) {
    PowerCycle(bench);
    if (fault == kHang || IsShell(tool))
        PauseUpTo(bench, 5);
    else
        Expect(bench, ShowsFull(bench.board, '1', 40), "a picture without " + std::string(tool.name));
    if (std::string_view(tool.name) == "stty" && fault != kHang && fault != "slow") {  // the line echoes, too
        Expect(bench, Do(bench, {"serial", "<POLL>"}).find("ACK") == std::string::npos,
               "no answer without a line's end");
        Expect(bench, Do(bench, {"serial", "\\n"}).find("ACK") != std::string::npos, "an answer behind a line's end");
    }
    Do(bench, {"fault", "tool", tool.name, "off"});
    Expect(bench, ShowsFull(bench.board, '1', 40), "a picture once the tool works");
    if (IsShell(tool)) bench.lives = Status(bench.board)["daemon"]["starts"];
    PowerCycle(bench);
}

// Who asked waits; nobody else does.
static void TryInUse(Bench& bench, const Tool& tool) {
    const TcpClient asking(TelnetPort(bench.board));
    Send(asking, tool.command);
    Expect(bench, Http(bench.board, "/$SHW$").ends_with("ACK\r\n"), "HTTP answers meanwhile");
    Expect(bench, TypeAndRead(bench.board, "<SHW>\n").find("ACK") != std::string::npos, "the console meanwhile");
    PauseUpTo(bench, 5);
}

static std::string Step(Bench& bench) {
    static size_t next = Below(bench, std::size(kTools) * std::size(kFaults));
    const Tool& tool = kTools[next % std::size(kTools)];
    const std::string_view fault = IsShell(tool) ? "absent" : kFaults[next / std::size(kTools) % std::size(kFaults)];
    next += 1 + 11 * std::size(kTools);  // neighbours differ in both
    Do(bench, {"fault", "tool", tool.name, std::string(fault)});
    tool.command ? TryInUse(bench, tool) : TryAtStart(bench, tool, fault);
    Do(bench, {"fault", "tool", tool.name, "off"});
    Expect(bench, ShowsFull(bench.board, '1', 40), "a picture once the tool works");
    Expect(bench, Telnet(bench.board, "$S1$", "ACK\r\n", 40).ends_with("ACK\r\n"), "telnet once the tool works");
    return std::string("tool, ") + std::string(fault) + ": " + tool.name + (tool.command ? " in use" : " at start");
}

const Family Tools{.name = "tools", .steps = {3, 140, 2'000}, .options = {"--camera1", "speakerphone"}, .step = Step};
