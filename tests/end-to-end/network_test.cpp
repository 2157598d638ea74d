// The appliance's own address: start-up and the IP, NETMASK, GATEWAY, DHCP and MAC commands, against the board's
// network tools. What a command ran, what the tools then hold and what was saved must agree.
#include <gmock/gmock.h>

#include <fstream>

#include "board_run.h"
#include "tcp_client.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

static constexpr size_t kIpAddress = 36, kDhcp = 40, kMacAddress = 108, kNetmask = 125, kGateway = 130;
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

static std::string FileText(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// As the tools hold it; empty until one of them has set something.
static std::string Interface(const Board& board) { return FileText(BoardFile(board, "volatile") + "/run/eth0.state"); }

static std::string Manual(const std::string& address, const std::string& netmask, const std::string& gateway) {
    return "method=manual address=" + address + " netmask=" + netmask + " gateway=" + gateway + "\n";
}

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
    for (size_t i = kMacAddress; i < kMacAddress + 6; ++i) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", record.at(i));
        name += digits;
    }
    return name + "_cable";
}

static std::string DhcpLine(const Board& board) {
    return "connmanctl config " + Service(board) + " --ipv6 off --ipv4 dhcp > /dev/null";
}

static std::string StaticLine(const Board& board, const std::string& addresses) {
    return "connmanctl config " + Service(board) + " --ipv6 off --ipv4 manual " + addresses + " > /dev/null";
}

// ---- Doing ----

// Up, its network set up, and quiet: on DHCP every status report takes the lease into the record.
static bool WaitForNetwork(const Board& board, size_t from = 0) {
    if (!WaitForOutput(board, "Took ", 30, from) || !WaitForOutput(board, kStarted, 30, from)) return false;
    TypeAndRead(board, "<ENBCAST 0>\n");
    return true;
}

static Board StartNetworkBoard() {
    Board board = StartNewBoard({});
    EXPECT_TRUE(WaitForNetwork(board)) << Output(board);
    return board;
}

static void PowerCycle(const Board& board) {
    const size_t from = OutputSize(board);
    Ctl(board, {"power-cycle"});
    EXPECT_TRUE(WaitForOutput(board, kStarted, 30, from)) << Output(board).substr(from);
}

// The answer to a line typed on the console: "ACK", "NACK", or nothing within the time.
static std::string Answer(const Board& board, const std::string& command, double seconds = 5) {
    const size_t from = OutputSize(board);
    Type(board, command + "\n");
    if (!WaitForOutput(board, "ACK\r\n", seconds, from)) return "";
    return Output(board).find("NACK\r\n", from) != std::string::npos ? "NACK" : "ACK";
}

struct Change {
    std::string command;
    std::vector<std::string> lines;
    std::string saved, interface;
};

static void ExpectChanged(const Board& board, const Change& change) {
    EXPECT_EQ(NetworkLines(board), change.lines) << change.command;
    EXPECT_EQ(Saved(board), change.saved) << change.command;
    EXPECT_EQ(Interface(board), change.interface) << change.command;
    Ctl(board, {"trace", "--clear"});
}

// ---- Tests ----

TEST(Network, LocalCommandsChangeInterfaceManagerAndSettings) {
    const Board board = StartNetworkBoard();
    const std::string services = "connmanctl services";
    const std::string rename = "fw_setenv ethaddr 00:1b:2c:3d:4e:ff > /dev/null";
    ExpectChanged(board, {"start", {services, DhcpLine(board)}, Saved(board), kLease});
    EXPECT_THAT(Output(board), HasSubstr("Found active Ethernet service: *AO Wired                " + Service(board) +
                                         "\nTook 0 seconds.\n"));
    const std::string c24 = "255.255.255.0", b16 = "255.255.0.0", first = "192.168.1.20", second = "10.0.0.5";
    const Change changes[] = {
        {"<IP 192 168 1 20>",
         {services, StaticLine(board, kFactory), "ifconfig eth0 192.168.1.20 netmask 255.255.255.0",
          StaticLine(board, "192.168.1.20 255.255.255.0 192.168.0.1")},
         "static 192.168.1.20 255.255.255.0 192.168.0.1",
         Manual(first, c24, "192.168.0.1")},
        {"<NETMASK 255 255 0 0>",
         {"ifconfig eth0 netmask 255.255.0.0"},
         "static 192.168.1.20 255.255.0.0 192.168.0.1",
         Manual(first, b16, "192.168.0.1")},
        {"<GATEWAY 192 168 1 1>",
         {"route del default && route add default gw 192.168.1.1 eth0"},
         "static 192.168.1.20 255.255.0.0 192.168.1.1",
         Manual(first, b16, "192.168.1.1")},
        {"<DHCP 2>",
         {services, StaticLine(board, "192.168.1.20 255.255.0.0 192.168.1.1")},
         "static 192.168.1.20 255.255.0.0 192.168.1.1",
         Manual(first, b16, "192.168.1.1")},
        {"<DHCP 0>",
         {services, StaticLine(board, kFactory)},
         std::string("static ") + kFactory,
         Manual("192.168.0.81", c24, "192.168.0.1")},
        {"<DHCP 1>", {services, DhcpLine(board)}, std::string("dhcp ") + kFactory, kLease},
        {"<DHCP 258>",  // its low byte is 2
         {services, StaticLine(board, kFactory)},
         std::string("static ") + kFactory,
         Manual("192.168.0.81", c24, "192.168.0.1")},
        {"<IP 0 0 0 0>", {DhcpLine(board)}, std::string("dhcp ") + kFactory, kLease},
        {"<DHCP 2>",
         {services, StaticLine(board, kFactory)},
         std::string("static ") + kFactory,
         Manual("192.168.0.81", c24, "192.168.0.1")},
        {"<NETMASK 0 255 0 0>",
         {"ifconfig eth0 netmask 0.255.0.0"},
         "static 192.168.0.81 0.255.0.0 192.168.0.1",
         Manual("192.168.0.81", "0.255.0.0", "192.168.0.1")},
        {"<IP 266 0 256 5>",  // low bytes; a netmask that starts with 0 is none
         {"ifconfig eth0 10.0.0.5 netmask 255.255.255.0", StaticLine(board, "10.0.0.5 255.255.255.0 192.168.0.1")},
         "static 10.0.0.5 255.255.255.0 192.168.0.1",
         Manual(second, c24, "192.168.0.1")},
        {"<MACADDR 0 1b 2C 3d 4e FF>",
         {rename},
         "static 10.0.0.5 255.255.255.0 192.168.0.1",
         Manual(second, c24, "192.168.0.1")},
    };
    bool serial = false;
    for (const Change& change : changes) {
        serial = !serial;
        const std::string answer =
            serial ? Ctl(board, {"serial", change.command}).out : Answer(board, change.command) + "\r\n";
        EXPECT_EQ(answer, "ACK\r\n") << change.command;
        ExpectChanged(board, change);
    }

    // The boot loader's variable counts from the next power-on, where the stored static address is applied.
    EXPECT_THAT(FileText(BoardFile(board, "etc/u-boot.env")), HasSubstr("ethaddr=00:1b:2c:3d:4e:ff\n"));
    EXPECT_NE(Service(board), "ethernet_001b2c3d4eff_cable");
    const size_t from = OutputSize(board);
    PowerCycle(board);
    ASSERT_TRUE(WaitForOutput(board, "Took 0 seconds.\n", 10, from));
    ASSERT_TRUE(WaitUntil(5, [&] { return Service(board) == "ethernet_001b2c3d4eff_cable"; })) << Service(board);
    EXPECT_THAT(NetworkLines(board), ElementsAre(services, StaticLine(board, "10.0.0.5 255.255.255.0 192.168.0.1")));
    EXPECT_EQ(Interface(board), Manual(second, c24, "192.168.0.1"));
}

// An address may change under the very connection that asks: the answer comes first.
TEST(Network, TelnetIsAnsweredTwiceHttpOnceAndClosed) {
    const Board board = StartNetworkBoard();
    const TcpClient telnet(TelnetPort(board));
    struct Exchange {
        const char *command, *answer, *saved;
    };
    static constexpr const char *kOnce = "ACK\r\n", *kTwice = "ACK\r\nACK\r\n";
    for (const Exchange& exchange : {
             Exchange{"$IP_192_168_1_20$", kTwice, "static 192.168.1.20 255.255.255.0 192.168.0.1"},
             Exchange{"$NETMASK_255_255_0_0$", kTwice, "static 192.168.1.20 255.255.0.0 192.168.0.1"},
             Exchange{"$GATEWAY_192_168_1_1$", kOnce, "static 192.168.1.20 255.255.0.0 192.168.1.1"},
             Exchange{"$DHCP_2$", kTwice, "static 192.168.1.20 255.255.0.0 192.168.1.1"},
             Exchange{"$MAC_0_1b_2c_3d_4e_5f$", kOnce, "static 192.168.1.20 255.255.0.0 192.168.1.1"},
             Exchange{"$DHCP_0$", kTwice, "static 192.168.0.81 255.255.255.0 192.168.0.1"},
             Exchange{"$IP_0_0_0_0$", kTwice, "dhcp 192.168.0.81 255.255.255.0 192.168.0.1"},
         }) {
        Send(telnet, exchange.command);
        EXPECT_EQ(Receive(telnet, exchange.answer), exchange.answer) << exchange.command;
        EXPECT_EQ(Saved(board), exchange.saved) << exchange.command;
    }
    EXPECT_EQ(Receive(telnet, "ACK", 0.5), "") << "no third answer";

    for (const Exchange& exchange : {
             Exchange{"/$IP_10_0_0_7$", kOnce, "static 10.0.0.7 255.255.255.0 192.168.0.1"},
             Exchange{"/$NETMASK_255_0_0_0$", kOnce, "static 10.0.0.7 255.0.0.0 192.168.0.1"},
             Exchange{"/$GATEWAY_10_0_0_1$", kOnce, "static 10.0.0.7 255.0.0.0 10.0.0.1"},
             Exchange{"/$DHCP_1$", kOnce, "dhcp 10.0.0.7 255.0.0.0 10.0.0.1"},
         }) {
        EXPECT_EQ(Http(board, exchange.command), exchange.answer) << exchange.command;
        EXPECT_TRUE(WaitUntil(5, [&] { return Saved(board) == exchange.saved; })) << Saved(board);
    }

    // While the service is looked for, the first answer is there and HTTP has closed; a plugged cable ends the search.
    Ctl(board, {"lan", "unplug"});
    Send(telnet, "$DHCP_2$");
    EXPECT_EQ(Receive(telnet, kOnce), kOnce);
    EXPECT_EQ(Http(board, "/$DHCP_2$", 3), kOnce);
    EXPECT_EQ(Receive(telnet, "ACK", 1), "");
    EXPECT_THAT(Saved(board), HasSubstr("dhcp "));
    const size_t from = OutputSize(board);
    Ctl(board, {"lan", "plug"});
    EXPECT_EQ(Receive(telnet, kOnce), kOnce);
    EXPECT_THAT(Output(board).substr(from), Not(HasSubstr("Took 0 seconds.\n")));
    EXPECT_EQ(Saved(board), "static 10.0.0.7 255.0.0.0 10.0.0.1");
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
    EXPECT_EQ(Receive(telnet, "ACK\r\n"), "ACK\r\n");
    EXPECT_EQ(Saved(board), "static 10.0.0.5 255.255.255.0 192.168.0.1");

    ASSERT_TRUE(WaitForOutput(board, "ACK\r\n", 40, from));
    EXPECT_THAT(Output(board).substr(from), HasSubstr("NACK\r\n")) << "a static mode needs its service";
    EXPECT_EQ(Saved(board), std::string("static ") + kFactory);
    EXPECT_EQ(Receive(telnet, "ACK\r\n", 20), "ACK\r\n");
    EXPECT_THAT(Saved(board), HasSubstr("dhcp "));
    const auto lines = NetworkLines(board);
    EXPECT_EQ(lines.size(), 3 * 30u);
    EXPECT_THAT(lines, testing::Each("connmanctl services"));
    EXPECT_EQ(Interface(board), "");
}

// A tool that is missing or fails has been run all the same: only the manager's static line and the service list count.
TEST(Network, MissingAndFailingTools) {
    const Board board = StartNetworkBoard();
    for (const char* tool : {"ifconfig", "route", "fw_setenv"})
        for (const char* fault : {"absent", "fail"}) {
            Ctl(board, {"fault", "tool", tool, fault});
            EXPECT_EQ(Answer(board, "<IP 10 0 0 5>"), "ACK");
            EXPECT_EQ(Answer(board, "<NETMASK 255 0 0 0>"), "ACK");
            EXPECT_EQ(Answer(board, "<GATEWAY 10 0 0 1>"), "ACK");
            EXPECT_EQ(Answer(board, "<MACADDR 2 0 0 0 0 1>"), "ACK");
            EXPECT_EQ(Saved(board), "static 10.0.0.5 255.0.0.0 10.0.0.1") << tool << " " << fault;
            EXPECT_EQ(Answer(board, "<DHCP 1>"), "ACK");
            Ctl(board, {"fault", "tool", tool, "off"});
        }

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

    // A manager that hangs holds its own channel, until somebody ends it.
    Ctl(board, {"fault", "tool", "connmanctl", "hang"});
    const TcpClient telnet(TelnetPort(board));
    Send(telnet, "$DHCP_2$");
    EXPECT_EQ(Receive(telnet, "ACK\r\n"), "ACK\r\n");
    EXPECT_EQ(Receive(telnet, "ACK\r\n", 1), "");
    EXPECT_EQ(Answer(board, "<FIRMWARE>"), "ACK");
    EXPECT_EQ(Status(board)["daemon"]["state"], "running");
}
