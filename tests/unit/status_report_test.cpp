#include "commands/status_report.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <algorithm>
#include <regex>

#include "net/telnet_server.h"

using testing::HasSubstr;

static void Put(Ipv4& field, const std::array<uint8_t, 4>& octets) { std::ranges::copy(octets, field.begin()); }

static StatusFacts Facts() {
    StatusFacts facts{};
    facts.osVersion = "20190412";
    facts.hdmi = {{{.locked = true, .width = 1024, .height = 768}, {.locked = true, .width = 800, .height = 600}}};
    facts.addressFound = facts.macFound = true;
    facts.settings.Input = 4;
    facts.settings.UsbStream = 255;
    Put(facts.settings.IpAddress, {10, 0, 0, 5});
    Put(facts.settings.Netmask, {255, 255, 254, 0});
    Put(facts.settings.Gateway, {10, 0, 0, 1});
    return facts;
}

TEST(StatusReport, ChecksumIsZlibsWithoutLeadingZeros) {
    StatusFacts facts = Facts();
    bool anyShort = false;
    for (facts.frameCount = 0; facts.frameCount < 200; ++facts.frameCount) {
        const std::string text = ReportText(facts, kReportFramed);
        const size_t covered = text.find("CHECKSUM");
        const auto checksum = crc32(0, reinterpret_cast<const Bytef*>(text.data()), static_cast<uInt>(covered));
        std::array<char, 60> line;
        snprintf(line.data(), line.size(), "CHECKSUM_CRC32 => 0x%lX\nIMX->FX3 DONE\n", checksum);
        EXPECT_EQ(text.substr(covered), line.data());
        anyShort = anyShort || checksum <= 0x0FFFFFFF;
    }
    EXPECT_TRUE(anyShort) << "no checksum among them began with a zero";
}

TEST(StatusReport, VariantsWithFourInputsNameTheInputThatACommandSelects) {
    StatusFacts facts = Facts();
    const std::string inputs = "Input 3 => 1024x768\nInput 4 => 800x600\nVIEW => IN4\nBLACK => disabled\n";
    for (facts.deviceId = 1; facts.deviceId <= 3; ++facts.deviceId)
        for (ReportForm form : {kReportPlain, kReportFramed}) EXPECT_THAT(ReportText(facts, form), HasSubstr(inputs));
    facts.deviceId = 1;
    facts.hdmi = {};
    facts.settings.Input = 9;
    EXPECT_THAT(ReportText(facts, kReportNetwork),
                HasSubstr("Input 1 => Unlocked\r\nInput 2 => Unlocked\r\nInput 3 => Unlocked\r\nInput 4 => "
                          "Unlocked\r\nVIEW => \r\nBLACK"));
    facts.deviceId = 0;
    facts.settings.Swap = 1;  // as a key leaves it: no command selects S1 so
    EXPECT_THAT(ReportText(facts, kReportPlain), HasSubstr("VIEW => \nBLACK"));
}

TEST(StatusReport, AddressesThatAreMissing) {
    struct Case {
        bool found, stored;
        const char *local, *network;  // IP, netmask, gateway
    };
    static constexpr const char* kNone = "Not found Not found Not found";
    static constexpr Case kCases[] = {
        {false, false, kNone, kNone},
        {true, false, "0.0.0.0 Not found Not found", "0.0.0.0 0.0.0.0 0.0.0.0"},  // no lease
        {false, true, "Not found 255.255.254.0 10.0.0.1", kNone},                 // the interface does not tell
    };
    for (const Case& row : kCases) {
        StatusFacts facts = Facts();
        facts.addressFound = row.found;
        for (Ipv4* field : {&facts.settings.IpAddress, &facts.settings.Netmask, &facts.settings.Gateway})
            if (!row.stored) Put(*field, {});
        const auto addresses = [&facts](ReportForm form) {
            const std::regex lines("[^]*\nIP => (.*?)\r?\nNETMASK => (.*?)\r?\nMAC[^]*\nGATEWAY => (.*?)\r?\nAIN1[^]*");
            return std::regex_replace(ReportText(facts, form), lines, "$1 $2 $3");
        };
        EXPECT_EQ(addresses(kReportPlain), row.local);
        EXPECT_EQ(addresses(kReportFramed), row.local);
        EXPECT_EQ(addresses(kReportNetwork), row.network);
    }
}

TEST(StatusReport, EveryThirteenthWhileTheLogIsRead) {
    CopySettings(Settings, DefaultSettings);
    Settings.Dhcp = 0;  // with an address: no tool is asked
    Settings.EnLog = 1;
    const auto reports = [](int calls) {  // '1' for each call that reported
        std::string made;
        for (int call = 0; call < calls; ++call) {
            testing::internal::CaptureStdout();
            BuildStatusReport();
            made += testing::internal::GetCapturedStdout().empty() ? '0' : '1';
        }
        return made;
    };
    EXPECT_EQ(reports(1), "1") << "nobody is connected";
    TelnetClientCount = 1;
    EXPECT_EQ(reports(31), "0000000000001000000000000100000");
    Settings.EnLog = 0;
    EXPECT_EQ(reports(1), "1");
    Settings.EnLog = 1;
    EXPECT_EQ(reports(12), "000000000000") << "the count begins anew";
    TelnetClientCount = 0;
    CopySettings(Settings, DefaultSettings);
}
