#include "settings/device_settings.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

using Image = std::array<uint8_t, sizeof(DeviceSettings)>;

// A settings file of the test's own, gone with the test.
class SettingsFile : public testing::Test {
protected:
    void SetUp() override { close(mkstemp(path)); }
    void TearDown() override { unlink(path); }

    void Write(const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }
    std::string Read() {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    char path[32] = "/tmp/settings_test.XXXXXX";
};

static DeviceSettings Defaults() {
    DeviceSettings record;
    CopySettings(record, DefaultSettings);
    return record;
}

TEST_F(SettingsFile, HoldsTheRecordByteForByte) {
    DeviceSettings record = Defaults();
    record.View = kViewTB;
    record.Swap = 1;
    record.PanCamera1 = -2;
    record.EnJpegParse = 7;
    record.Reserved3 = 9;
    ASSERT_EQ(SaveSettings(record, path), 0);

    Image expected{};
    expected[1] = 0xAB;
    expected[2] = 0x01;
    expected[6] = 21;
    expected[7] = 1;
    expected[10] = 1;
    const uint8_t address[] = {192, 168, 0, 81, 1};
    std::copy(std::begin(address), std::end(address), expected.begin() + 36);
    expected[72] = 1;
    const uint8_t pan[] = {0xFE, 0xFF, 0xFF, 0xFF};
    std::copy(std::begin(pan), std::end(pan), expected.begin() + 76);
    const uint8_t mask[] = {255, 255, 255, 0};
    std::copy(std::begin(mask), std::end(mask), expected.begin() + 125);
    const uint8_t gateway[] = {192, 168, 0, 1};
    std::copy(std::begin(gateway), std::end(gateway), expected.begin() + 130);
    expected[135] = 7;
    expected[0] = static_cast<uint8_t>(0xAB + 0x01 + 21 + 1 + 192 + 168 + 0 + 81 + 1);

    const std::string bytes = Read();
    ASSERT_EQ(bytes.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(uint8_t(bytes[i]), expected[i]) << "byte " << i;
    EXPECT_EQ(record.Checksum, expected[0]) << "the live record carries the stamp";
    EXPECT_EQ(record.Reserved3, 0);

    DeviceSettings loaded{};
    ASSERT_EQ(LoadSettings(loaded, path), 0);
    EXPECT_EQ(memcmp(&loaded, &record, sizeof record), 0);
    EXPECT_EQ(ComputeChecksum(loaded), loaded.Checksum);
}

TEST_F(SettingsFile, ChecksumCoversElevenBytes) {
    DeviceSettings record = Defaults();
    const uint8_t before = ComputeChecksum(record);
    std::string covered;
    for (size_t i = 0; i < sizeof record; ++i) {
        auto* bytes = reinterpret_cast<uint8_t*>(&record);
        ++bytes[i];
        if (ComputeChecksum(record) != before) covered += std::to_string(i) + " ";
        --bytes[i];
    }
    EXPECT_EQ(covered, "1 2 3 6 7 36 37 38 39 40 45 ");
}

TEST_F(SettingsFile, DamagedFileLeavesTheRecordAlone) {
    for (const std::string& bytes : {std::string(), std::string(135, 'x')}) {
        Write(bytes);
        DeviceSettings record = Defaults();
        EXPECT_EQ(LoadSettings(record, path), 1) << bytes.size();
        EXPECT_EQ(memcmp(&record, &DefaultSettings, sizeof record), 0);
    }
    DeviceSettings record = Defaults();
    EXPECT_EQ(LoadSettings(record, "/nowhere/config.bin"), 1);
    EXPECT_EQ(memcmp(&record, &DefaultSettings, sizeof record), 0);
}

TEST_F(SettingsFile, LongerFileIsReadAsFarAsARecordAndReplacedWhole) {
    Write(std::string(sizeof(DeviceSettings), '\x05') + std::string(1000, '\x09'));
    struct {
        DeviceSettings record;
        char behind[8];
    } guarded;
    memset(static_cast<void*>(&guarded), 0x77, sizeof guarded);
    ASSERT_EQ(LoadSettings(guarded.record, path), 0);
    EXPECT_EQ(guarded.record.EnJpegParse, 5);
    EXPECT_EQ(std::string(guarded.behind, sizeof guarded.behind), std::string(8, '\x77'));

    ASSERT_EQ(SaveSettings(guarded.record, path), 0);
    EXPECT_EQ(Read().size(), sizeof(DeviceSettings));
}

TEST_F(SettingsFile, FailedSaveKeepsTheLiveRecord) {
    DeviceSettings record = Defaults();
    record.View = kViewBS;
    EXPECT_EQ(SaveSettings(record, "/nowhere/config.bin"), 0);
    EXPECT_EQ(record.View, kViewBS);
    EXPECT_EQ(ComputeChecksum(record), record.Checksum);
}
