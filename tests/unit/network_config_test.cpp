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

// What a line lacks is zero in a hardware address, and stays what it was in an interface's.
TEST(ToolLines, MayEndTooEarly) {
    EXPECT_EQ(ParseHardwareAddress("eth0      Link encap:Ethernet  HWaddr 00:1A:2b\n"),
              (std::array<uint8_t, 6>{0x00, 0x1A, 0x2b, 0, 0, 0}));
    Ipv4 address = MakeIpv4({1, 2, 3, 4});
    ParseInterfaceAddress("          inet addr:10.0", address);
    EXPECT_EQ(Text(address), "10.0.3.4");
}

// Whole lines with any numbers, of every tool, are the fuzzer tool_output's.
TEST(ServiceAddresses, AreAddressNetmaskAndGateway) {
    const char* const kNone = "0.0.0.0 0.0.0.0 0.0.0.0";
    const std::pair<const char*, const char*> lines[] = {
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

    const std::string path = getenv("PATH");
    std::string folder;
};

static const char* const kServices =
    "[ \"$1\" != services ] || printf '    Wired ethernet_7_cable\\n*A wifi_1\\n*AO Wired  ethernet_1_cable\\n'";

TEST_F(NetworkTools, ModesConfigureTheActiveWiredService) {
    Tool("connmanctl", kServices);
    Settings.MacAddress[5] = 255;
    Settings.IpAddress[3] = 7;
    EXPECT_EQ(ApplyNetworkMode({1}), 0);
    EXPECT_EQ(Calls(), "connmanctl services\nconnmanctl config ethernet_0000000000ff_cable --ipv6 off --ipv4 dhcp\n");
    EXPECT_EQ(Settings.Dhcp, 1);

    // The field itself as mode: 2 must still mean "stored" after the field was set to 0.
    Settings.Dhcp = 2;
    EXPECT_EQ(ApplyNetworkMode(Settings.Dhcp), 0);
    EXPECT_THAT(Calls(), HasSubstr("--ipv4 manual 192.168.0.7 255.255.255.0 192.168.0.1\n"));
    EXPECT_EQ(Settings.Dhcp, 0);
}

// With SIGCHLD ignored nobody can wait for a shell: system(3) and pclose(3) return -1, as when a process table is full.
TEST_F(NetworkTools, WhatTheShellCouldNotRunIsNotRemembered) {
    for (const char* name : {"ifconfig", "route", "fw_setenv"}) Tool(name, "true");
    Tool("connmanctl", kServices);
    Settings.Dhcp = 0;
    const auto before = signal(SIGCHLD, SIG_IGN);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(ApplyIpAddress({10, 0, 0, 5}), 1);
    EXPECT_EQ(ApplyNetmask({255, 0, 0, 0}), 1);
    EXPECT_EQ(ApplyGateway({10, 0, 0, 1}), 0);
    EXPECT_EQ(StoreMacAddress({2, 0, 0, 0, 0, 255}), 1);
    EXPECT_EQ(ApplyNetworkMode({1}), 0);
    EXPECT_EQ(ApplyNetworkMode({2}), 1);
    const std::string output = testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    signal(SIGCHLD, before);
    EXPECT_EQ(Text(Settings.IpAddress) + " " + Text(Settings.Netmask) + " " + Text(Settings.Gateway),
              "192.168.0.81 255.255.255.0 192.168.0.1");
    EXPECT_THAT(output, HasSubstr("pclose failed: No child processes")) << "and the service was found all the same";
    EXPECT_THAT(output, HasSubstr("Took 0 seconds.\n"));
}
