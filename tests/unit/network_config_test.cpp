#include "net/network_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

using testing::HasSubstr;

using MacBytes = std::array<uint8_t, 6>;

TEST(HardwareAddress, IsTheSixWordsBehindHwaddr) {
    const MacBytes address{0x00, 0x1A, 0x2b, 0xC3, 0xd4, 0xFF};
    EXPECT_EQ(ParseHardwareAddress("eth0      Link encap:Ethernet  HWaddr 00:1A:2b:C3:d4:ff  \n"), address);
    EXPECT_EQ(ParseHardwareAddress("eth0      Link encap:Ethernet  HWaddr 00:1A:2b\n"),
              (MacBytes{0x00, 0x1A, 0x2b, 0, 0, 0}));
    for (const char* nothing : {"", "\n", "eth0", "eth0 Link encap:Ethernet  HWaddr"})
        EXPECT_EQ(ParseHardwareAddress(nothing), MacBytes{}) << nothing;
}

static Ipv4 MakeIpv4(const Octets& octets) {
    Ipv4 address{};
    std::copy(octets.begin(), octets.end(), address.begin());
    return address;
}

static std::string Text(const Ipv4& address) {
    std::string text;
    for (const SharedByte& octet : address) text += (text.empty() ? "" : ".") + std::to_string(octet.Load());
    return text;
}

TEST(InterfaceAddress, IsTheFourNumbersBehindAddr) {
    const std::pair<const char*, const char*> lines[] = {
        {"          inet addr:10.0.0.5  Bcast:10.0.0.255  Mask:255.255.255.0\n", "10.0.0.5"},
        {"          inet addr:172.16.254.3  Mask:255.255.0.0\n", "172.16.254.3"},
        {"          inet addr:10.0", "10.0.3.4"},
        {"          inet addr:", "1.2.3.4"},
        {"inet", "1.2.3.4"},
        {"", "1.2.3.4"},
    };
    for (const auto& [line, expected] : lines) {
        Ipv4 address = MakeIpv4({1, 2, 3, 4});
        ParseInterfaceAddress(line, address);
        EXPECT_EQ(Text(address), expected) << line;
    }
}

TEST(ServiceAddresses, AreAddressNetmaskAndGateway) {
    const char* const kNone = "0.0.0.0 0.0.0.0 0.0.0.0";
    const std::pair<const char*, const char*> lines[] = {
        {"  IPv4 = [ Method=dhcp, Address=10.1.2.30, Netmask=255.255.254.0, Gateway=10.1.2.1 ]\n",
         "10.1.2.30 255.255.254.0 10.1.2.1"},
        {"  IPv4 = [ Method=manual, Address=10.1.2.30, Netmask=255.0.0.0, Gateway=10.1.2.254 ]",
         "10.1.2.30 255.0.0.0 10.1.2.254"},
        {"  IPv4 = [ Method=dhcp, Address=10.1.2.30, Netmask=255.255.254.0 ]\n", "10.1.2.30 255.255.254.0 9.10.11.12"},
        {"  IPv4 = [ Method=dhcp, Address=10.1", "10.1.3.4 5.6.7.8 9.10.11.12"},
        {"  IPv4 = [ Method=dhcp ]\n", "1.2.3.4 5.6.7.8 9.10.11.12"},
        {"  IPv4 = [  ]\n", kNone},
        {"  IPv4.Configuration = [ Method=dhcp ]\n", kNone},
        {"Error: the system message bus is gone\n", kNone},
        {"", kNone},
    };
    for (const auto& [line, expected] : lines) {
        Ipv4 address = MakeIpv4({1, 2, 3, 4}), netmask = MakeIpv4({5, 6, 7, 8}), gateway = MakeIpv4({9, 10, 11, 12});
        ParseServiceAddresses(line, address, netmask, gateway);
        EXPECT_EQ(Text(address) + " " + Text(netmask) + " " + Text(gateway), expected) << line;
    }
}

// Tools of the test's own, first on the path; each writes its command line into a file.
class NetworkTools : public testing::Test {
protected:
    void SetUp() override {
        path = std::string(getenv("PATH"));
        char name[] = "/tmp/network_test.XXXXXX";
        folder = mkdtemp(name);
        setenv("PATH", (folder + ":" + path).c_str(), 1);
        CopySettings(Settings, DefaultSettings);
    }
    void TearDown() override {
        setenv("PATH", path.c_str(), 1);
        std::filesystem::remove_all(folder);
    }

    void Tool(const std::string& name, const std::string& body) {
        const std::string file = folder + "/" + name;
        std::ofstream(file) << "#!/bin/sh\necho " << name << " \"$@\" >> " << folder << "/calls\n" << body << "\n";
        chmod(file.c_str(), 0755);
    }

    // What ran since the last call.
    std::string Calls() {
        std::ifstream file(folder + "/calls");
        std::string calls{std::istreambuf_iterator<char>(file), {}};
        std::filesystem::remove(folder + "/calls");
        return calls;
    }

    int Apply(const SharedByte& mode) {
        testing::internal::CaptureStdout();
        const int result = ApplyNetworkMode(mode);
        output = testing::internal::GetCapturedStdout();
        return result;
    }

    std::string path, folder, output;
};

static const char* const kService = "[ \"$1\" = services ] && echo '*AO Wired  ethernet_0102030405ff_cable'";

TEST_F(NetworkTools, ModesConfigureTheWiredService) {
    Tool("connmanctl", std::string(kService) + " || true");
    const uint8_t mac[] = {1, 2, 3, 4, 5, 255};
    for (size_t i = 0; i < 6; ++i) Settings.MacAddress[i] = mac[i];
    Settings.IpAddress[3] = 7;
    Settings.Gateway[3] = 9;

    EXPECT_EQ(Apply({1}), 0);
    EXPECT_EQ(output, "Found active Ethernet service: *AO Wired  ethernet_0102030405ff_cable\nTook 0 seconds.\n");
    EXPECT_EQ(Calls(), "connmanctl services\nconnmanctl config ethernet_0102030405ff_cable --ipv6 off --ipv4 dhcp\n");
    EXPECT_EQ(Settings.Dhcp, 1);

    const std::string line =
        "connmanctl services\nconnmanctl config ethernet_0102030405ff_cable --ipv6 off --ipv4 manual ";
    EXPECT_EQ(Apply({2}), 0);
    EXPECT_EQ(Calls(), line + "192.168.0.7 255.255.255.0 192.168.0.9\n");
    EXPECT_EQ(Settings.Dhcp, 0);

    // The field itself as mode: 2 must still mean "stored" after the field was set to 0.
    Settings.Dhcp = 2;
    EXPECT_EQ(Apply(Settings.Dhcp), 0);
    EXPECT_EQ(Calls(), line + "192.168.0.7 255.255.255.0 192.168.0.9\n");

    EXPECT_EQ(Apply({0}), 0);
    EXPECT_EQ(Calls(), line + "192.168.0.81 255.255.255.0 192.168.0.1\n");
    EXPECT_EQ(Settings.IpAddress[3], 81);
}

TEST_F(NetworkTools, OnlyAStaticModeReportsAFailedTool) {
    Tool("connmanctl", std::string(kService) + " || exit 1");
    EXPECT_EQ(Apply({1}), 0);
    EXPECT_EQ(Apply({2}), 1);
}

TEST_F(NetworkTools, WaitsForAnActiveWiredService) {
    Tool("connmanctl", "echo '    Wired ethernet_1_cable'; echo '*A wifi_1'\n[ -e " + folder +
                           "/seen ] && echo '*A Wired ethernet_1_cable'\ntouch " + folder + "/seen");
    EXPECT_EQ(Apply({1}), 0);
    EXPECT_EQ(output, "Found active Ethernet service: *A Wired ethernet_1_cable\nTook 1 seconds.\n");
}

TEST_F(NetworkTools, MacAddressIsReadIntoBothRecords) {
    Tool("ifconfig", "echo 'eth0      Link encap:Ethernet  HWaddr 02:00:00:00:00:2A'; echo '  inet addr:1.2.3.4'");
    EXPECT_EQ(ReadMacAddress(DefaultSettings.MacAddress), 0);
    EXPECT_EQ(DefaultSettings.MacAddress[0], 2);
    EXPECT_EQ(Settings.MacAddress[5], 0x2A);
    Tool("ifconfig", "true");
    EXPECT_NE(ReadMacAddress(DefaultSettings.MacAddress), 0) << "no such line";
    EXPECT_EQ(DefaultSettings.MacAddress[0], 0);
    EXPECT_EQ(Settings.MacAddress[5], 0);
}

TEST_F(NetworkTools, RunningAddressComesFromWhoeverGaveIt) {
    Tool("ifconfig", "echo 'eth0      Link encap:Ethernet'; echo '          inet addr:10.0.0.5  Mask:255.0.0.0'");
    Tool("connmanctl",
         "echo '  IPv4 = [ Method=dhcp, Address=10.1.2.3, Netmask=255.255.0.0, Gateway=10.1.0.1 ]'\n"
         "echo '  IPv4.Configuration = [ Method=dhcp ]'");
    Settings.Dhcp = 0;
    EXPECT_EQ(ReadIpConfig(Settings.IpAddress, Settings.Netmask, Settings.Gateway), 0);
    EXPECT_EQ(Text(Settings.IpAddress), "10.0.0.5");
    EXPECT_EQ(Text(Settings.Netmask), "255.255.255.0") << "as stored";
    Settings.Dhcp = 1;
    Calls();
    EXPECT_EQ(ReadIpConfig(Settings.IpAddress, Settings.Netmask, Settings.Gateway), 0);
    EXPECT_EQ(Calls(), "connmanctl services ethernet_000000000000_cable\n");
    EXPECT_EQ(Text(Settings.IpAddress) + " " + Text(Settings.Gateway), "10.1.2.3 10.1.0.1");

    for (const char* name : {"ifconfig", "connmanctl"}) Tool(name, "true");
    EXPECT_NE(ReadIpConfig(Settings.IpAddress, Settings.Netmask, Settings.Gateway), 0);
    EXPECT_EQ(Text(Settings.IpAddress), "0.0.0.0");
    Settings.Dhcp = 0;
    Settings.IpAddress[0] = 10;
    EXPECT_NE(ReadIpConfig(Settings.IpAddress, Settings.Netmask, Settings.Gateway), 0);
    EXPECT_EQ(Text(Settings.IpAddress), "10.0.0.0") << "no line changes nothing";
}

TEST_F(NetworkTools, FailingToolsStillRanInTheShell) {
    for (const char* name : {"ifconfig", "route", "fw_setenv", "connmanctl"}) Tool(name, "exit 1");
    Settings.Dhcp = 0;
    Settings.Netmask[0] = 0;
    EXPECT_EQ(ApplyIpAddress({10, 0, 0, 5}), 0);
    EXPECT_EQ(Text(Settings.IpAddress) + " " + Text(Settings.Netmask), "10.0.0.5 255.255.255.0");
    EXPECT_EQ(ApplyNetmask({255, 0, 0, 0}) + ApplyGateway({10, 0, 0, 1}) + StoreMacAddress({2, 0, 0, 0, 0, 255}), 0);
    EXPECT_EQ(Text(Settings.Netmask) + " " + Text(Settings.Gateway), "255.0.0.0 10.0.0.1");
}

// With SIGCHLD ignored nobody can wait for a shell: system(3) and pclose(3) return -1, as when a process table is full.
TEST_F(NetworkTools, WhatTheShellCouldNotRunIsNotRemembered) {
    for (const char* name : {"ifconfig", "route", "fw_setenv"}) Tool(name, "true");
    Tool("connmanctl", std::string(kService) + " || true");
    Settings.Dhcp = 0;
    const auto before = signal(SIGCHLD, SIG_IGN);
    testing::internal::CaptureStderr();
    EXPECT_EQ(ApplyIpAddress({10, 0, 0, 5}), 1);
    EXPECT_EQ(ApplyNetmask({255, 0, 0, 0}), 1);
    EXPECT_EQ(ApplyGateway({10, 0, 0, 1}), 0);
    EXPECT_EQ(StoreMacAddress({2, 0, 0, 0, 0, 255}), 1);
    const int dhcp = Apply({1}), stored = Apply({2});
    testing::internal::GetCapturedStderr();
    signal(SIGCHLD, before);
    EXPECT_EQ(Text(Settings.IpAddress) + " " + Text(Settings.Netmask) + " " + Text(Settings.Gateway),
              "192.168.0.81 255.255.255.0 192.168.0.1");
    EXPECT_EQ(dhcp, 0);
    EXPECT_EQ(stored, 1);
    EXPECT_THAT(output, HasSubstr("pclose failed: No child processes")) << "and the service was found all the same";
    EXPECT_THAT(output, HasSubstr("Took 0 seconds.\n"));
}
