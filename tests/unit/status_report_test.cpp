#include "commands/status_report.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <cstdlib>
#include <regex>

#include "board/hdmi_receiver.h"
#include "core/crc32.h"
#include "net/telnet_server.h"
#include "settings/device_identity.h"

using testing::HasSubstr;
using testing::Not;

static void Put(Ipv4& field, std::array<uint8_t, 4> octets) {
    for (size_t i = 0; i < octets.size(); ++i) field[i] = octets[i];
}

// Every value is another one, so that no line can take its neighbour's.
static StatusFacts Facts() {
    StatusFacts facts{
        .deviceId = 0,
        .osVersion = "20190412",
        .edidVersion = 7,
        .keypadVersion = 0xD1,
        .cameras = {{{.video = {.locked = true, .width = 1920, .height = 1080}, .format = "MJPEG", .rate = 30},
                     {.video = {.locked = true, .width = 1280, .height = 720}, .format = "YUYV", .rate = 10}}},
        .hdmi = {{{.locked = true, .width = 1024, .height = 768}, {.locked = true, .width = 800, .height = 600}}},
        .addressFound = true,
        .macFound = true,
        .settings = {},
        .muteIn = 1,
        .output = {.width = 1920, .height = 1080, .refresh = 60},
        .temperature = -5,
        .frameCount = 123456,
    };
    DeviceSettings& settings = facts.settings;
    settings.View = kViewSS;
    settings.Swap = 1;
    settings.Input = 4;
    settings.Black = 1;
    settings.AudioJack = 1;
    settings.Dhcp = 1;
    Put(settings.IpAddress, {10, 0, 0, 5});
    Put(settings.Netmask, {255, 255, 254, 0});
    Put(settings.Gateway, {10, 0, 0, 1});
    for (size_t i = 0; i < 6; ++i) settings.MacAddress[i] = static_cast<uint8_t>(0xA0 + i);
    settings.MacAddress[1] = 0x04;
    SharedByte* numbered[] = {&settings.Ain1,       &settings.Ain2,       &settings.Ain3,     &settings.Ain4,
                              &settings.Aout1,      &settings.Aout2,      &settings.Aout3,    &settings.Aout4,
                              &settings.AoutHdmi,   &settings.AoutAnalog, &settings.AoutUsb1, &settings.AoutUsb2,
                              &settings.Acfg,       &settings.Inv1,       &settings.Inv2,     &settings.Inv3,
                              &settings.Inv4,       &settings.Sbtn,       &settings.Blank,    &settings.EnLog,
                              &settings.EnJpegParse};
    uint8_t number = 21;
    for (SharedByte* field : numbered) *field = number++;
    settings.Ain1 = 251;  // -5 dB
    settings.UsbStream = 255;
    return facts;
}

static constexpr const char* kFramed = R"(IMX->FX3 START
Tesselvisor => 2.0.12
DeviceID => 0
FX3 => N/A
FPGA => N/A
EDID => 7
OS => 20190412
KEYPAD => 13.1
Input 1 => 1920x1080 MJPEG 30Hz
Input 2 => 1280x720 YUYV 10Hz
Input 3 => 1024x768
Audio Jack => Detected
VIEW => SS2
BLACK => enabled
DHCP => 1
IP => 10.0.0.5
NETMASK => 255.255.254.0
MAC => a0:04:a2:a3:a4:a5
GATEWAY => 10.0.0.1
AIN1 => 251
AIN2 => 22
AIN3 => 23
AIN4 => 24
AOUT1 => 25
AOUT2 => 26
AOUT3 => 27
AOUT4 => 28
AOUTHDMI => 29
AOUTANALOG => 30
AOUTUSB1 => 31
AOUTUSB2 => 32
ACFG => 33
INV1 => 34
INV2 => 35
INV3 => 36
INV4 => 37
MUTEIN => 1
SBTN => 38
USBOUT => STREAM
BLANK => 39
HDMI => 1920x1080 60Hz
TEMP => -5
ENLOG => 40
ENJPEGPARSE => 41
FRAMECNT => 123456
)";

static std::string Without(const std::string& text, const std::string& lines) {
    return std::regex_replace(text, std::regex("(^|\n)(" + lines + ")[^\n]*(?=\n)"), "");
}

static std::string WithLineEnds(const std::string& text, const char* lineEnd) {
    return std::regex_replace(text, std::regex("\n"), lineEnd);
}

static uint32_t ZlibCrc(const std::string& text) {
    return static_cast<uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(text.data()), static_cast<uInt>(text.size())));
}

static std::string Checksum(const std::string& text) {
    std::array<char, 60> line;
    snprintf(line.data(), line.size(), "CHECKSUM_CRC32 => 0x%X\nIMX->FX3 DONE\n", ZlibCrc(text));
    return line.data();
}

TEST(StatusReport, ThreeForms) {
    const StatusFacts facts = Facts();
    const std::string framed = kFramed, unframed = framed.substr(framed.find("Tesselvisor"));
    EXPECT_EQ(ReportText(facts, kReportFramed), framed + Checksum(framed));
    EXPECT_EQ(ReportText(facts, kReportPlain), Without(unframed, "TEMP|ENLOG|ENJPEGPARSE|FRAMECNT"));
    EXPECT_EQ(ReportText(facts, kReportNetwork), WithLineEnds(Without(unframed, "OS"), "\r\n"));
}

TEST(StatusReport, ChecksumIsZlibsWithoutLeadingZeros) {
    std::string bytes;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(Crc32(bytes), ZlibCrc(bytes)) << bytes.size();
        bytes += static_cast<char>(i * 7);
    }
    StatusFacts facts = Facts();
    bool anyShort = false;
    for (facts.frameCount = 0; facts.frameCount < 200; ++facts.frameCount) {
        const std::string text = ReportText(facts, kReportFramed);
        const std::string covered = text.substr(0, text.find("CHECKSUM"));
        EXPECT_EQ(text, covered + Checksum(covered));
        anyShort = anyShort || ZlibCrc(covered) <= 0x0FFFFFFF;
    }
    EXPECT_TRUE(anyShort) << "no checksum among them began with a zero";
}

TEST(StatusReport, VariantsWithFourInputsNameTheInput) {
    StatusFacts facts = Facts();
    for (uint8_t variant = 1; variant <= 3; ++variant) {
        facts.deviceId = variant;
        const std::string id = "DeviceID => " + std::to_string(variant);
        const std::string inputs = "Input 3 => 1024x768\nInput 4 => 800x600\nVIEW => IN4\nBLACK => enabled\n";
        for (ReportForm form : {kReportPlain, kReportFramed}) {
            EXPECT_THAT(ReportText(facts, form), HasSubstr(id + "\n"));
            EXPECT_THAT(ReportText(facts, form), HasSubstr(inputs));
        }
        EXPECT_THAT(ReportText(facts, kReportNetwork), HasSubstr(WithLineEnds(inputs, "\r\n")));
    }
    facts.hdmi = {};
    facts.cameras = {};
    facts.settings.Input = 9;
    EXPECT_THAT(ReportText(facts, kReportPlain),
                HasSubstr("Input 1 => Unlocked\nInput 2 => Unlocked\nInput 3 => Unlocked\nInput 4 => Unlocked\nVIEW => "
                          "\nBLACK"));
}

TEST(StatusReport, AStateThatNoCommandSelectsHasNoName) {
    StatusFacts facts = Facts();
    facts.settings.View = kViewS1;  // with Swap 1, as a key leaves it
    facts.settings.AudioJack = 0;
    facts.settings.Black = 0;
    EXPECT_THAT(ReportText(facts, kReportPlain),
                HasSubstr("Audio Jack => Not Detected\nVIEW => \nBLACK => disabled\n"));
    EXPECT_THAT(ReportText(facts, kReportNetwork), HasSubstr("\r\nVIEW => \r\nBLACK => disabled\r\n"));
}

struct AddressCase {
    const char* what;
    bool found;
    std::array<uint8_t, 4> ip, netmask, gateway;
    const char *local, *network;  // IP, netmask, gateway
};

TEST(StatusReport, AddressesThatAreMissing) {
    const AddressCase cases[] = {
        {"no answer", false, {}, {}, {}, "Not found Not found Not found", "Not found Not found Not found"},
        {"no lease", true, {}, {}, {}, "0.0.0.0 Not found Not found", "0.0.0.0 0.0.0.0 0.0.0.0"},
        {"interface does not tell",
         false,
         {1, 2, 3, 4},
         {255, 0, 0, 0},
         {0, 0, 0, 1},
         "Not found 255.0.0.0 0.0.0.1",
         "Not found Not found Not found"},
    };
    for (const AddressCase& row : cases) {
        StatusFacts facts = Facts();
        facts.addressFound = row.found;
        Put(facts.settings.IpAddress, row.ip);
        Put(facts.settings.Netmask, row.netmask);
        Put(facts.settings.Gateway, row.gateway);
        const auto addresses = [&facts](ReportForm form) {
            static const std::regex lines(
                "\nIP => (.*?)\r?\nNETMASK => (.*?)\r?\nMAC => .*?\r?\nGATEWAY => (.*?)\r?\n");
            std::smatch match;
            const std::string text = ReportText(facts, form);
            return std::regex_search(text, match, lines) ? match.format("$1 $2 $3") : text;
        };
        EXPECT_EQ(addresses(kReportPlain), row.local) << row.what;
        EXPECT_EQ(addresses(kReportFramed), row.local) << row.what;
        EXPECT_EQ(addresses(kReportNetwork), row.network) << row.what;
    }
}

TEST(StatusReport, UnknownItemsAreLeftOut) {
    StatusFacts facts = Facts();
    facts.macFound = false;
    facts.output = {};
    facts.settings.UsbStream = 0;
    for (ReportForm form : {kReportPlain, kReportFramed, kReportNetwork}) {
        const std::string text = ReportText(facts, form);
        EXPECT_THAT(text, Not(testing::ContainsRegex("MAC =>|HDMI =>.*Hz|FRAMECNT =>")));
        EXPECT_THAT(text, HasSubstr("USBOUT => NSTREAM"));
    }
    EXPECT_THAT(ReportText(facts, kReportFramed), HasSubstr("ENJPEGPARSE => 41\nCHECKSUM_CRC32 => 0x"));
    EXPECT_TRUE(ReportText(facts, kReportNetwork).ends_with("ENJPEGPARSE => 41\r\n"));
}

class StatusOperations : public testing::Test {
protected:
    void SetUp() override {
        CopySettings(Settings, DefaultSettings);
        Settings.Dhcp = 0;  // with an address: no tool is asked
    }
    void TearDown() override {
        CopySettings(Settings, DefaultSettings);
        TelnetClientCount = 0;
        DeviceId = 0;
        CopySharedBytes(&HdmiInput, std::array<uint8_t, sizeof HdmiInput>{}.data(), sizeof HdmiInput);
    }

    static std::string Report() {
        testing::internal::CaptureStdout();
        EXPECT_EQ(BuildStatusReport(), 0);
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(StatusOperations, EveryThirteenthReportWhileTheLogIsRead) {
    Settings.EnLog = 1;
    EXPECT_NE(Report(), "") << "nobody is connected";
    TelnetClientCount = 1;
    for (int round = 0; round < 2; ++round) {
        for (int call = 1; call <= 12; ++call) EXPECT_EQ(Report(), "") << call;
        EXPECT_NE(Report(), "");
    }
    for (int call = 1; call <= 5; ++call) Report();
    Settings.EnLog = 0;
    EXPECT_NE(Report(), "");
    Settings.EnLog = 1;
    for (int call = 1; call <= 12; ++call) EXPECT_EQ(Report(), "") << "the count begins anew";
}

TEST_F(StatusOperations, InputsThreeAndFourAreThePortsWhicheverIsSelected) {
    HdmiInput.InputValid = 1;
    HdmiInput.Width = 1280;
    HdmiInput.Height = 720;
    HdmiInput.AltWidth = 640;
    HdmiInput.AltHeight = 480;
    DeviceId = 2;
    EXPECT_THAT(Report(), HasSubstr("Input 3 => Unlocked\nInput 4 => 1280x720\n"));
    HdmiInput.AltValid = 1;
    EXPECT_THAT(Report(), HasSubstr("Input 3 => 640x480\nInput 4 => 1280x720\n"));
    HdmiInput.PortIsA = 1;
    EXPECT_THAT(Report(), HasSubstr("Input 3 => 1280x720\nInput 4 => 640x480\n"));
    DeviceId = 0;
    HdmiInput.PortIsA = 0;
    EXPECT_THAT(Report(), HasSubstr("Input 3 => 1280x720\nAudio Jack")) << "one input only, whatever the receiver says";
}
