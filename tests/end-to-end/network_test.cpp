// The appliance's own address: start-up and the IP, NETMASK, GATEWAY, DHCP and MAC commands, against the board's
// network tools. What a command ran, what the tools then hold and what was saved must agree.
#include <gmock/gmock.h>

#include "board_run.h"
#include "tcp_client.h"
#include "text.h"

using testing::HasSubstr;

static constexpr size_t kIpAddress = 36, kDhcp = 40, kMacAddress = 108, kNetmask = 125, kGateway = 130;
static constexpr const char* kAck = "ACK\r\n";
static constexpr const char* kStarted = "In main: creating Gstreamer video thread";
static constexpr const char* kFactory = "192.168.0.81 255.255.255.0 192.168.0.1";
static constexpr const char* kLease = "method=dhcp address=192.168.0.57 netmask=255.255.255.0 gateway=192.168.0.1\n";

// ---- What there is to see ----

static std::string Dotted(const std::vector<uint8_t>& record, size_t at) {
    std::string text;
    for (size_t i = at; i < at + 4; ++i) text += (text.empty() ? "" : ".") + std::to_string(record.at(i));
    return text;
}

// "dhcp" or "static", address, netmask and gateway of the settings file.
static std::string Saved(const Board& board) {
    const auto record = SavedSettings(board);
    if (record.size() != 136) return "no settings";
    return (record[kDhcp] == 1   ? "dhcp "
            : record[kDhcp] == 0 ? "static "
                                 : "neither ") +
           Dotted(record, kIpAddress) + " " + Dotted(record, kNetmask) + " " + Dotted(record, kGateway);
}

// As the tools hold it; empty until one of them has set something.
static std::string Interface(const Board& board) { return FileText(BoardFile(board, "volatile") + "/run/eth0.state"); }

// What changes the network, and the search for the service; readings are the status report's.
static std::vector<std::string> NetworkLines(const Board& board) {
    std::vector<std::string> lines;
    for (const std::string& line : ShellLines(board))
        for (const char* tool : {"connmanctl ", "ifconfig ", "route ", "fw_setenv "})
            if (line.starts_with(tool) && line.find("grep") == std::string::npos) lines.push_back(line);
    return lines;
}

static std::string Service(const Board& board) {
    std::string name = "ethernet_";
    const auto record = SavedSettings(board);
    for (size_t i = kMacAddress; i < kMacAddress + 6; ++i) name += Text("%02x", record.at(i));
    return name + "_cable";
}

static std::string DhcpLine(const Board& board) {
    return "connmanctl config " + Service(board) + " --ipv6 off --ipv4 dhcp > /dev/null";
}

static std::string StaticLine(const Board& board, const std::string& addresses) {
    return "connmanctl config " + Service(board) + " --ipv6 off --ipv4 manual " + addresses + " > /dev/null";
}

// ---- Doing ----

// The answer to a line typed on the console: "ACK", "NACK", or nothing.
static std::string Answer(const Board& board, const std::string& command) {
    const std::string shown = Command(board, command);
    return shown.find(kAck) == shown.npos ? "" : shown.find("NACK\r\n") == shown.npos ? "ACK" : "NACK";
}

// Up, its network set up, and quiet: on DHCP every status report takes the lease into the record.
static bool WaitForNetwork(const Board& board, size_t from = 0) {
    return WaitForOutput(board, "Took ", 30, from) && WaitForOutput(board, kStarted, 30, from) &&
           Answer(board, "<ENBCAST 0>") == "ACK";
}

static Board StartNetworkBoard() {
    Board board = StartNewBoard({});
    EXPECT_TRUE(WaitForNetwork(board)) << Output(board);
    EXPECT_TRUE(WaitUntil(10, [&] { return Interface(board) == kLease; })) << Interface(board);
    return board;
}

static void PowerCycle(const Board& board) {
    const size_t from = OutputSize(board);
    Ctl(board, {"power-cycle"});
    EXPECT_TRUE(WaitForOutput(board, kStarted, 30, from)) << Output(board).substr(from);
}

struct NetworkChange {
    std::string command;
    std::vector<std::string> lines;
    std::string saved;
};

// ---- Tests ----

TEST(Network, LocalCommandsChangeInterfaceManagerAndSettings) {
    const Board board = StartNetworkBoard();
    const std::string services = "connmanctl services", toStatic = std::string("static ") + kFactory;
    EXPECT_EQ(NetworkLines(board), (std::vector{services, DhcpLine(board)}));
    EXPECT_THAT(Output(board), HasSubstr("Found active Ethernet service: *AO Wired                " + Service(board) +
                                         "\nTook 0 seconds.\n"));
    const std::string chosen = "10.0.0.5 255.255.255.0 192.168.0.1";
    const NetworkChange changes[] = {
        {"<DHCP 0>", {services, StaticLine(board, kFactory)}, toStatic},
        {"<IP 0 0 0 0>", {DhcpLine(board)}, std::string("dhcp ") + kFactory},
        {"<DHCP 258>", {services, StaticLine(board, kFactory)}, toStatic},  // its low byte is 2
        {"<NETMASK 0 255 0 0>", {"ifconfig eth0 netmask 0.255.0.0"}, "static 192.168.0.81 0.255.0.0 192.168.0.1"},
        {"<IP 266 0 256 5>",  // low bytes; a netmask that starts with 0 is none
         {"ifconfig eth0 10.0.0.5 netmask 255.255.255.0", StaticLine(board, chosen)},
         "static " + chosen},
        {"<MACADDR 0 1b 2C 3d 4e FF>", {"fw_setenv ethaddr 00:1b:2c:3d:4e:ff > /dev/null"}, "static " + chosen},
    };
    for (const NetworkChange& change : changes) {
        Ctl(board, {"trace", "--clear"});
        EXPECT_EQ(Answer(board, change.command), "ACK") << change.command;
        EXPECT_EQ(NetworkLines(board), change.lines) << change.command;
        EXPECT_EQ(Saved(board), change.saved) << change.command;
    }

    // The boot loader's variable counts from the next power-on, where the stored static address is applied.
    EXPECT_THAT(FileText(BoardFile(board, "etc/u-boot.env")), HasSubstr("ethaddr=00:1b:2c:3d:4e:ff\n"));
    EXPECT_NE(Service(board), "ethernet_001b2c3d4eff_cable");
    Ctl(board, {"trace", "--clear"});
    PowerCycle(board);
    ASSERT_TRUE(WaitUntil(15, [&] { return Service(board) == "ethernet_001b2c3d4eff_cable"; })) << Service(board);
    const std::vector<std::string> lines = {services, StaticLine(board, chosen)};
    EXPECT_TRUE(WaitUntil(10, [&] { return NetworkLines(board) == lines; }));
    static constexpr const char* kStatic = "method=manual address=10.0.0.5 netmask=255.255.255.0 gateway=192.168.0.1\n";
    EXPECT_TRUE(WaitUntil(5, [&] { return Interface(board) == kStatic; })) << Interface(board);
}

// Start-up and two commands wait side by side for a service that never comes: the mode is remembered, nothing is
// configured. The board runs meanwhile.
TEST(Network, WithoutAServiceTheModeIsOnlyRemembered) {
    const Board board = StartNetworkBoard();
    ASSERT_EQ(Answer(board, "<IP 10 0 0 5>"), "ACK");
    Ctl(board, {"lan", "unplug"});
    Ctl(board, {"trace", "--clear"});
    PowerCycle(board);
    const TcpClient telnet(TelnetPort(board));
    const size_t from = OutputSize(board);
    Type(board, "<DHCP 0>\n");
    Pause(3);
    Send(telnet, "$DHCP_1$");
    EXPECT_EQ(Receive(telnet, kAck), kAck);
    EXPECT_EQ(Saved(board), "static 10.0.0.5 255.255.255.0 192.168.0.1");

    ASSERT_TRUE(WaitForOutput(board, kAck, 40, from));
    EXPECT_THAT(Output(board).substr(from), HasSubstr("NACK\r\n")) << "a static mode needs its service";
    EXPECT_EQ(Saved(board), std::string("static ") + kFactory);
    EXPECT_EQ(Receive(telnet, kAck, 40), kAck);
    EXPECT_THAT(Saved(board), HasSubstr("dhcp "));
    const auto lines = NetworkLines(board);
    EXPECT_EQ(lines.size(), 3 * 30u);
    EXPECT_THAT(lines, testing::Each("connmanctl services"));
    EXPECT_EQ(Interface(board), "");

    // An address may change under the very connection that asks: the first answer is there while the service is looked
    // for, and HTTP has closed. A plugged cable ends the search.
    Send(telnet, "$DHCP_2$");
    EXPECT_EQ(Receive(telnet, kAck), kAck);
    EXPECT_EQ(Http(board, "/$DHCP_2$"), kAck);
    Ctl(board, {"lan", "plug"});
    EXPECT_EQ(Receive(telnet, kAck, 20), kAck);
    EXPECT_TRUE(WaitUntil(5, [&] { return Saved(board).starts_with("static "); })) << Saved(board);
}

// A tool that is missing or fails has been run all the same: only the manager's static line and the service list count.
TEST(Network, MissingAndFailingTools) {
    const Board board = StartNetworkBoard();
    for (const char* fault : {"absent", "fail"}) {
        for (const char* tool : {"ifconfig", "route", "fw_setenv"}) Ctl(board, {"fault", "tool", tool, fault});
        for (const char* command :
             {"<IP 10 0 0 5>", "<NETMASK 255 0 0 0>", "<GATEWAY 10 0 0 1>", "<MACADDR 2 0 0 0 0 1>"})
            EXPECT_EQ(Answer(board, command), "ACK") << command << fault;
        EXPECT_EQ(Saved(board), "static 10.0.0.5 255.0.0.0 10.0.0.1") << fault;
        EXPECT_EQ(Answer(board, "<DHCP 1>"), "ACK");
    }
    for (const char* tool : {"ifconfig", "route", "fw_setenv"}) Ctl(board, {"fault", "tool", tool, "off"});

    // Without a shell the service list cannot be read: nothing is changed, nothing saved.
    Ctl(board, {"fault", "tool", "sh", "absent"});
    const std::string before = Saved(board);
    const size_t from = OutputSize(board);
    EXPECT_EQ(Answer(board, "<DHCP 0>"), "NACK");
    EXPECT_THAT(Output(board).substr(from), HasSubstr("popen failed: "));
    EXPECT_EQ(Saved(board), before);
    // Here the shell's absence is, as for every caller of system(3), the command's own failure.
    EXPECT_EQ(Answer(board, "<NETMASK 255 255 0 0>"), "ACK");
    Ctl(board, {"fault", "tool", "sh", "off"});

    // A start without ifconfig has no hardware address, and the manager knows no service of the name made from it.
    Ctl(board, {"fault", "tool", "ifconfig", "absent"});
    const size_t start = OutputSize(board);
    PowerCycle(board);
    EXPECT_THAT(Output(board).substr(start), HasSubstr("Cannot get MAC address. Check configuration.\n"));
    ASSERT_TRUE(WaitForNetwork(board, start));
    EXPECT_EQ(Answer(board, "<DHCP 2>"), "NACK");
    EXPECT_EQ(Service(board), "ethernet_000000000000_cable");
    EXPECT_EQ(Answer(board, "<DHCP 1>"), "ACK") << "its line's result does not count";
}
