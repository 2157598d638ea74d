#include "settings/device_settings.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

// A settings file of the test's own, gone with the test.
class SettingsFile : public testing::Test {
protected:
    void SetUp() override {
        close(mkstemp(path));
        CopySettings(record, DefaultSettings);
    }
    void TearDown() override { unlink(path); }

    void Write(const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }
    std::string Read() {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    char path[32] = "/tmp/settings_test.XXXXXX";
    DeviceSettings record;
};

// The file of a board that ran on x86-64: 1280x720 at 50 Hz, SS, a camera panned and zoomed. Another processor reads
// the same from it, whatever a longer record left behind it, and writes it back as it was, whole.
TEST_F(SettingsFile, IsTheSameForEveryProcessor) {
    // clang-format off
    static constexpr std::array<uint8_t, sizeof(DeviceSettings)> kImage = {
        0x54, 0xAB, 0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00,
        0x80, 0x02, 0xD0, 0x02, 0x80, 0x02, 0x00, 0x00, 0x00, 0x05, 0xD0, 0x02, 0x80, 0x02, 0x00, 0x00,
        0x00, 0x05, 0xD0, 0x02, 0xC0, 0xA8, 0x00, 0x39, 0x01, 0x00, 0x00, 0x00, 0x3C, 0x04, 0x00, 0x00,
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0xD0, 0x02, 0x88, 0x13, 0x00, 0x01, 0x54, 0x53,
        0x4C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xD4, 0xFE, 0xFF, 0xFF,
        0x00, 0x00, 0x00, 0x00, 0x5E, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
        0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0xFA, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x9F, 0x05,
        0x2A, 0x61, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF,
        0x00, 0x00, 0xC0, 0xA8, 0x00, 0x01, 0x00, 0x01,
    };
    // clang-format on
    const std::string bytes(kImage.begin(), kImage.end());
    Write(bytes + std::string(1000, '\x09'));
    ASSERT_EQ(LoadSettings(record, path), 0);
    EXPECT_EQ(ComputeChecksum(record), record.Checksum);
    EXPECT_EQ(record.View, kViewSS);
    EXPECT_EQ(record.Pad0Rect.right, 640);
    EXPECT_EQ(record.Pad2Rect.bottom, 720);
    EXPECT_EQ(record.OutputTiming, 4);
    EXPECT_EQ(record.OutputWidth, 1280);
    EXPECT_EQ(record.OutputRefresh100, 5000);
    EXPECT_EQ(record.PanCamera1, -300);
    EXPECT_EQ(record.ZoomCamera1, 350);
    EXPECT_EQ(record.Inv1, 1);
    EXPECT_EQ(record.Ain1, 250);
    EXPECT_EQ(record.EnJpegParse, 1);
    for (SharedByte* stamp : {&record.Checksum, &record.Signature[0], &record.Signature[1], &record.Reserved3})
        *stamp = 9;
    EXPECT_EQ(SaveSettings(record, path), 0);
    EXPECT_EQ(Read(), bytes);
    EXPECT_EQ(memcmp(&record, kImage.data(), sizeof record), 0) << "the live record carries the stamp";
}

TEST_F(SettingsFile, DamagedFileLeavesTheRecordAlone) {
    for (const std::string& bytes : {std::string(), std::string(135, 'x')}) {
        Write(bytes);
        EXPECT_EQ(LoadSettings(record, path), 1) << bytes.size();
    }
    EXPECT_EQ(LoadSettings(record, "/nowhere/config.bin"), 1);
    EXPECT_EQ(memcmp(&record, &DefaultSettings, sizeof record), 0);
}
