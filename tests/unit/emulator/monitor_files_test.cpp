// What is plugged into the board, as text: monitors in data files, signals in a word.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <numeric>

#include "devices/edid.h"
#include "devices/hdmi_receiver.h"
#include "devices/monitor.h"
#include "system/places.h"

static std::vector<uint8_t> EdidOf(const std::string& monitor) {
    std::ifstream file(EmulatorFile("monitors") / (monitor + ".edid"));
    return ParseEdidFile(std::string(std::istreambuf_iterator(file), {})).value_or(EdidFile{}).bytes;
}

TEST(MonitorFiles, CarryGoodEdidsExceptWhereTheyMeanNotTo) {
    static constexpr std::array<uint8_t, 8> kHeader{0, 255, 255, 255, 255, 255, 255, 0};
    const auto monitors = ListMonitors();
    EXPECT_GE(monitors.size(), 11u);
    for (const MonitorSummary& row : monitors) {
        SCOPED_TRACE(row.name);
        const std::vector<uint8_t> edid = EdidOf(row.name);
        EXPECT_EQ(edid.empty(), row.name == "none-ddc");
        if (edid.empty()) continue;
        ASSERT_TRUE(edid.size() == 128 || edid.size() == 256);
        EXPECT_EQ(edid[126] + 1u, edid.size() / 128);
        for (auto block = edid.begin(); block != edid.end(); block += 128)
            EXPECT_EQ(std::accumulate(block, block + 128, 0u) % 256, 0u);
        EXPECT_EQ(std::equal(kHeader.begin(), kHeader.end(), edid.begin()), row.name != "garbage");
    }
}

TEST(MonitorFiles, WithOtherThanHexAreRefused) {
    const auto good = ParseEdidFile("# words\n00 FFff\t01 # more\r\n");
    ASSERT_TRUE(good);
    EXPECT_THAT(good->bytes, testing::ElementsAre(0, 255, 255, 1));
    for (const char* text : {"0", "00 F", "0x00", "00,01", "!fix", "-1"}) EXPECT_FALSE(ParseEdidFile(text)) << text;
}

TEST(HdmiSignals, AreParsedWholeOrNotAtAll) {
    EXPECT_EQ(ParseHdmiSignal("1920x1080i60"),
              (HdmiSignal{.present = true, .width = 1920, .height = 1080, .rate = 60, .interlaced = true}));
    for (const char* text : {"", "1920x1080", "1920x1080p", "x1080p60", "1920x1080p60 ", "1920x1081i60", "4097x2160p30",
                             "1920x1080p0", "-1x1080p60", "99999999999x1080p60", "1920X1080p60"})
        EXPECT_FALSE(ParseHdmiSignal(text)) << text;
}
