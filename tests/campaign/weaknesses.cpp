// What docs/reliability.md says stays weak, exactly as it stands there, where no other family comes by.
#include <array>

#include "campaign.h"
#include "tcp_client.h"

static constexpr const char* kAck = "ACK\r\n";
static constexpr double kStarved = 30 + 10;  // s: the watchdog's time-out, the start behind it

static Json Fields(const Bench& bench) { return Json::parse(Ctl(bench.board, {"settings"}).out)["fields"]; }

// One request at a time: the log's tools hold the browsers up, and nobody else.
static void LoadLog(Bench& bench) {
    Do(bench, {"fault", "tool", "journalctl", "hang"});
    const TcpClient loading(HttpPort(bench.board)), waiting(HttpPort(bench.board));
    Send(loading, "GET /$GETLOG$ HTTP/1.1\r\n\r\n");
    Pause(1);
    Send(waiting, "GET /$POLL$ HTTP/1.1\r\n\r\n");
    Expect(bench, Receive(waiting, kAck, 1).empty(), "browsers wait for the log");
    Answer(bench, "console telnet serial");
    Do(bench, {"fault", "tool", "journalctl", "off"});
    Expect(bench, Receive(waiting, kAck).ends_with(kAck), "an answer behind the log");
}

static void AskOddAddresses(Bench& bench) {
    for (const char* text : {"$IP_999_1_2_3$", "$NETMASK_0_255_0_255$"}) {
        const std::string answer = Telnet(bench.board, text);
        Expect(bench, answer == kAck, "ACK to " + std::string(text) + ", not " + answer);
    }
    const auto taken = [&] {  // behind the answer, once the tools have run
        const Json fields = Fields(bench);
        return fields["IpAddress"] == "231.1.2.3" && fields["Netmask"] == "0.255.0.255";
    };
    Expect(bench, WaitUntil(5, taken), "odd addresses taken");
    for (const char* text : {"$NETMASK_255_255_255_0$", "$DHCP_1$"}) Telnet(bench.board, text);
}

static void SetTwice(Bench& bench) {
    Telnet(bench.board, "$AIN3_5$");
    Http(bench.board, "/$AIN3_6$");
    Expect(bench, Fields(bench)["Ain3"] == 6, "the later command's value");
    Telnet(bench.board, "$AIN3_0$");
}

// The watchdog is disarmed before `ps` is asked: nothing ends the process then.
static void HangAtTheEnd(Bench& bench) {
    Do(bench, {"fault", "tool", "ps", "hang"});
    Do(bench, {"monitor", "unplug"});
    Expect(bench, WaitUntil(10, [&] { return Status(bench.board)["watchdog"]["armed"] == false; }), "a disarmed end");
    Pause(4);
    const Json daemon = Status(bench.board)["daemon"];
    Expect(bench, daemon["starts"] == bench.lives && daemon["state"] == "running", "no end");
    Do(bench, {"monitor", "plug"});
    Do(bench, {"fault", "tool", "ps", "off"});
    ExpectNextLife(bench, 10, "an end once ps has failed");
}

// The thread of the serial line pats the watchdog: what holds it for long resets the board.
static void HoldSerialThread(Bench& bench, const char* command) {
    const auto resets = TraceLines(bench.board, "reset").size();
    Do(bench, {"serial", command});
    ExpectNextLife(bench, kStarved, "a reset by the watchdog");
    const auto now = TraceLines(bench.board, "reset");
    Expect(bench, now.size() == resets + 1 && now.back()["why"] == "watchdog", "one reset, by the watchdog");
}

static void HangSerialTool(Bench& bench) {
    Do(bench, {"fault", "tool", "fbset", "hang"});
    HoldSerialThread(bench, "<GET>");
    Do(bench, {"fault", "tool", "fbset", "off"});
}

static void AskDhcpWithoutService(Bench& bench) {
    Do(bench, {"lan", "unplug"});
    HoldSerialThread(bench, "<DHCP 1>");
    Do(bench, {"lan", "plug"});
}

struct Weakness {
    const char* name;
    void (*show)(Bench& bench);
};
static constexpr std::array kWeaknesses{
    Weakness{"a log being loaded", LoadLog},
    Weakness{"odd octets and netmasks", AskOddAddresses},
    Weakness{"two channels, one field", SetTwice},
    Weakness{"ps hangs at the end", HangAtTheEnd},
    Weakness{"a tool of the serial line hangs", HangSerialTool},
    Weakness{"DHCP on the serial line without a service", AskDhcpWithoutService},
};

static std::string Step(Bench& bench) {
    const Weakness& weakness = kWeaknesses[(bench.step - 1) % kWeaknesses.size()];
    weakness.show(bench);
    return std::string(weakness.name) + ": as it is written";
}

const Family Weaknesses{
    .name = "weaknesses", .steps = {4, 24, 120}, .options = {"--camera1", kCamerasAtRest[0]}, .step = Step};
