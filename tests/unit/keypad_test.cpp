#include "board/keypad.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

constexpr uint8_t kOldReserved = 7;

struct Panel {
    DeviceSettings record;
    Shared<uint8_t> muteIn{0};
    Panel() {
        CopySettings(record, DefaultSettings);
        record.Reserved9 = kOldReserved;
    }
};

struct LayoutKeyCase {
    uint8_t key, view, swap;  // pressed on this layout
    uint8_t nextView, nextSwap, reserved9;
    uint8_t s2Counts = 0;
};
constexpr LayoutKeyCase kLayoutKeyCases[] = {
    {1, 2, 1, 0, 1, 0},  {2, 2, 0, 1, 0, 0, 1}, {2, 1, 1, 1, 1, 0, 1}, {4, 2, 1, 4, 1, 0},  {4, 4, 0, 5, 0, 0},
    {4, 5, 0, 6, 0, 0},  {4, 6, 0, 7, 0, 0},    {4, 7, 0, 4, 0, 0},    {4, 21, 0, 4, 0, 0}, {8, 0, 1, 2, 1, 0},
    {8, 2, 1, 21, 1, 0}, {8, 8, 0, 21, 0, 0},   {8, 14, 0, 21, 0, 0},  {8, 21, 0, 2, 0, 0}, {8, 9, 0, 2, 0, 0},
    {16, 7, 1, 3, 1, 0}, {32, 0, 0, 1, 0, 0},   {32, 1, 0, 0, 0, 0},   {32, 0, 1, 0, 0, 7}, {32, 1, 1, 1, 0, 7},
    {32, 2, 0, 2, 1, 7}, {32, 2, 1, 2, 0, 7},   {32, 21, 0, 21, 1, 7},
};

TEST(Keypad, KeysChooseTheLayoutOnVariant0) {
    for (const LayoutKeyCase& row : kLayoutKeyCases) {
        Panel panel;
        StoreViewAndSwap(panel.record, row.view, row.swap);
        ApplyKey(row.key, 0, panel.record, panel.muteIn);
        const std::string what = "key " + std::to_string(row.key) + " on view " + std::to_string(row.view);
        EXPECT_EQ(panel.record.View, row.nextView) << what;
        EXPECT_EQ(panel.record.Swap, row.nextSwap) << what;
        EXPECT_EQ(panel.record.Reserved9, row.reserved9) << what;
        EXPECT_EQ(panel.record.S2Count, row.s2Counts) << what;
    }
}

// A shift with one button is told and does nothing else, every other code is not even told. The mute key works in its
// own mode only.
TEST(Keypad, OtherCodesChangeNothing) {
    for (uint8_t deviceId = 0; deviceId <= 1; ++deviceId) {
        Panel panel;
        panel.record.Sbtn = 2;
        DeviceSettings before;
        CopySettings(before, panel.record);
        testing::internal::CaptureStdout();
        for (int key = 0; key < 256; ++key) {
            if (key == 1 || key == 2 || key == 4 || key == 8 || key == 16) continue;
            if (key != kSwapKey || deviceId != 0) ApplyKey(uint8_t(key), deviceId, panel.record, panel.muteIn);
        }
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "Shifted key: 41\nShifted key: 42\nShifted key: 44\nShifted key: 48\nShifted key: 50\n"
                  "Shifted key: 60\n");
        EXPECT_EQ(std::memcmp(&panel.record, &before, sizeof before) + panel.muteIn, 0);
    }
}

TEST(Keypad, DirectViewCodes) {
    static constexpr struct {
        uint8_t code, view, swap;  // pressed on view 99, Swap 1
    } kCodes[] = {{7, 7, 1},   {8, 2, 0},   {13, 7, 0},  {14, 2, 1},  {19, 7, 1},  {20, 20, 1},
                  {22, 21, 0}, {23, 21, 1}, {25, 25, 1}, {26, 99, 1}, {255, 99, 1}};
    for (const auto& row : kCodes) {
        Panel panel;
        StoreViewAndSwap(panel.record, 99, 1);
        ApplyDirectView(row.code, panel.record);
        EXPECT_EQ(panel.record.View, row.view) << int{row.code};
        EXPECT_EQ(panel.record.Swap, row.swap) << int{row.code};
        EXPECT_EQ(panel.record.Reserved9, row.view == 99 ? kOldReserved : 0) << int{row.code};
    }
}

TEST(Keypad, ReportsByType) {
    Panel panel;
    const auto apply = [&](uint8_t type, uint8_t first, uint8_t second, uint8_t key) {
        const KeyReport report = {.sequence = 0, .type = type, .payload = {first, second}, .key = key, .rest = {}};
        ApplyKeyReport(report, 0, panel.record, panel.muteIn);
    };
    KeypadVersion = 0;
    apply(kReportSwap, 21, 0, 16);
    EXPECT_EQ(panel.record.View, kViewS2);
    apply(kReportDirectView, 21, 0, 16);
    EXPECT_EQ(panel.record.View, kViewTB);
    for (int type = 0; type < 256; ++type)
        if (type != kReportKey && type != kReportSwap && type != kReportDirectView) apply(uint8_t(type), 3, 3, 1);
    EXPECT_EQ(panel.record.View, kViewTB);
    EXPECT_EQ(KeypadVersion, 0) << "only key reports carry the version";
    apply(kReportKey, 0x12, 0xF3, 16);
    EXPECT_EQ(panel.record.View, kViewBS);
    EXPECT_EQ(KeypadVersion, 0x23);
}

TEST(Keypad, LedsFollowTheSettings) {
    constexpr int kViewLeds[] = {1, 2, 8, 16, 4, 4, 4, 4, 0, 0, 0, 0, 0, 0, 8, 16, 4, 4, 4, 4, 0, 8, 0, 8};
    for (int view = 0; view < 256; ++view) {
        const int expected = view < 24 ? kViewLeds[view] : 0;
        Panel panel;
        panel.record.Black = 1;
        StoreViewAndSwap(panel.record, uint8_t(view), 0);
        EXPECT_EQ(PanelLedBits(0, panel.record, 1), expected) << view;
        StoreViewAndSwap(panel.record, uint8_t(view), 1);
        EXPECT_EQ(PanelLedBits(0, panel.record, 0), expected + 32) << view;
    }
    EXPECT_EQ(MakeLedFrame(0x55), (LedFrame{0x55, 0xAB, 0xCD, 0, 0, 0, 0, 0, 0, 0}));
}

}  // namespace
