#include "net/network_config.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

using MacBytes = std::array<uint8_t, 6>;

TEST(HardwareAddress, IsTheSixWordsBehindHwaddr) {
    const MacBytes address{0x00, 0x1A, 0x2b, 0xC3, 0xd4, 0xFF};
    EXPECT_EQ(ParseHardwareAddress("eth0      Link encap:Ethernet  HWaddr 00:1A:2b:C3:d4:ff  \n"), address);
    EXPECT_EQ(ParseHardwareAddress("eth0      Link encap:Ethernet  HWaddr 00:1A:2b\n"),
              (MacBytes{0x00, 0x1A, 0x2b, 0, 0, 0}));
    for (const char* nothing : {"", "\n", "eth0", "eth0 Link encap:Ethernet  HWaddr"})
        EXPECT_EQ(ParseHardwareAddress(nothing), MacBytes{}) << nothing;
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
