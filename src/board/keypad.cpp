#include "board/keypad.h"

#include <algorithm>
#include <bit>
#include <span>
#include <utility>

#include "board/i2c.h"
#include "core/log.h"
#include "settings/device_identity.h"
#include "settings/process_flags.h"
#include "settings/selection.h"

static constexpr uint8_t kControllerAddress = 0x08;
static constexpr uint8_t kReportRegister = 0;  // reads a KeyReport
static constexpr uint8_t kFrameRegister = 0;   // takes a LedFrame
static constexpr uint8_t kExpanderPanelVersion[] = {0x0D, 0x01};

FrontPanelState FrontPanel;
Shared<uint8_t> KeypadVersion{0};

// ---- Keys ----

struct KeyRow {
    uint8_t code;
    void (*press)(DeviceSettings&);
};

template <ViewId view>
static void ChooseView(DeviceSettings& record) {
    SelectView(record, view);
    record.Reserved9 = 0;
}

static void ChooseNextCorner(DeviceSettings& record) {
    CyclePictureInPicture(record);
    record.Reserved9 = 0;
}

// 8 and 14 come out of old settings files, where they are side-by-side layouts, too.
static void ChooseHalves(DeviceSettings& record) {
    const uint8_t view = record.View;
    const bool sideBySide = view == kViewSS || view == 8 || view == 14;
    SelectView(record, sideBySide ? kViewTB : kViewSS);
    record.Reserved9 = 0;
}

static void Swap(DeviceSettings& record) {
    const uint8_t view = record.View;
    SwapSources(record);
    if (record.View != view) record.Reserved9 = 0;
}

template <uint8_t input>
static void ChooseInput(DeviceSettings& record) {
    record.Input = input;
}

static constexpr KeyRow kLayoutKeys[] = {
    {.code = 1, .press = ChooseView<kViewS1>},  {.code = 2, .press = ChooseView<kViewS2>},
    {.code = 4, .press = ChooseNextCorner},     {.code = 8, .press = ChooseHalves},
    {.code = 16, .press = ChooseView<kViewBS>}, {.code = kSwapKey, .press = Swap},
};
static constexpr KeyRow kInputKeys[] = {
    {.code = 1, .press = ChooseInput<1>}, {.code = 2, .press = ChooseInput<2>}, {.code = 4, .press = ChooseInput<3>},
    {.code = 8, .press = ChooseInput<4>}, {.code = 16, .press = ToggleBlack},
};

// A shift with one other key.
static bool IsShifted(uint8_t key) {
    return (key & ~(kMuteKey - 1)) == kMuteKey && std::has_single_bit(uint8_t(key & (kMuteKey - 1)));
}

void ApplyKey(uint8_t key, uint8_t deviceId, DeviceSettings& record, Shared<uint8_t>& muteIn) {
    if (key == kMuteKey && record.Sbtn == 1) muteIn = muteIn == 0 ? 1 : 0;
    if (IsShifted(key)) LogInfo("Shifted key: %x\n", unsigned{key});
    const std::span<const KeyRow> rows = deviceId == 0 ? std::span<const KeyRow>(kLayoutKeys) : kInputKeys;
    const auto row = std::ranges::find(rows, key, &KeyRow::code);
    if (row != rows.end()) row->press(record);
}

// ---- Direct views ----

struct DirectView {
    uint8_t code, view, swap;
};
static constexpr uint8_t kDirectViewLimit = 26;

// Every other code below the limit is the view itself and leaves Swap alone.
static constexpr DirectView kDirectViews[] = {
    {.code = 8, .view = kViewSS, .swap = 0},    {.code = 9, .view = kViewBS, .swap = 0},
    {.code = 10, .view = kViewPPTL, .swap = 0}, {.code = 11, .view = kViewPPTR, .swap = 0},
    {.code = 12, .view = kViewPPBL, .swap = 0}, {.code = 13, .view = kViewPPBR, .swap = 0},
    {.code = 14, .view = kViewSS, .swap = 1},   {.code = 15, .view = kViewBS, .swap = 1},
    {.code = 16, .view = kViewPPTL, .swap = 1}, {.code = 17, .view = kViewPPTR, .swap = 1},
    {.code = 18, .view = kViewPPBL, .swap = 1}, {.code = 19, .view = kViewPPBR, .swap = 1},
    {.code = 22, .view = kViewTB, .swap = 0},   {.code = 23, .view = kViewTB, .swap = 1},
};

void ApplyDirectView(uint8_t code, DeviceSettings& record) {
    if (code >= kDirectViewLimit) return;
    const auto row = std::ranges::find(kDirectViews, code, &DirectView::code);
    if (row != std::end(kDirectViews))
        StoreViewAndSwap(record, row->view, row->swap);
    else
        record.View = code;
    record.Reserved9 = 0;
}

// ---- Reports ----

static uint8_t Version(const uint8_t (&numbers)[2]) {
    return static_cast<uint8_t>(numbers[0] << 4 | (numbers[1] & 0x0F));
}

void ApplyKeyReport(const KeyReport& report, uint8_t deviceId, DeviceSettings& record, Shared<uint8_t>& muteIn) {
    switch (report.type) {
        case kReportKey:
            KeypadVersion = Version(report.payload);
            return ApplyKey(report.key, deviceId, record, muteIn);
        case kReportSwap:
            return Swap(record);
        case kReportDirectView:
            return ApplyDirectView(report.payload[0], record);
        default:
            return;
    }
}

// The event that the expander's panel left behind, in the controller's words.
static KeyReport TakePanelEvent() {
    KeypadVersion = Version(kExpanderPanelVersion);
    return {.sequence = FrontPanel.KeySequence,
            .type = kReportKey,
            .payload = {kExpanderPanelVersion[0], kExpanderPanelVersion[1]},
            .key = std::exchange(FrontPanel.KeyCode, uint8_t{0}),
            .rest = {1}};
}

static int ReadReport(KeyReport& report) {
    return I2cRead(kPanelBus, kControllerAddress, kReportRegister, reinterpret_cast<uint8_t*>(&report), sizeof report);
}

void HandleKeyReport(bool initial) {
    KeyReport report;
    if (!FrontPanel.KeypadPresent)
        report = TakePanelEvent();
    else if (ReadReport(report) != 0)
        return;
    if (report.sequence == FrontPanel.LastReportSequence) return;
    FrontPanel.LastReportSequence = report.sequence;
    if (!initial) ApplyKeyReport(report, DeviceId, Settings, MuteIn);
}

void ProbeKeypad() {
    std::array<uint8_t, 10> answer;
    I2cRead(kPanelBus, kControllerAddress, kReportRegister, answer.data(), answer.size());
    FrontPanel.KeypadPresent = 1;
}

// ---- LEDs ----

struct ViewLed {
    uint8_t first, last;  // views that light it
    uint8_t bit;
};
static constexpr ViewLed kViewLeds[] = {
    {.first = 0, .last = 0, .bit = 1},    {.first = 1, .last = 1, .bit = 2},   {.first = 4, .last = 7, .bit = 4},
    {.first = 16, .last = 19, .bit = 4},  {.first = 2, .last = 2, .bit = 8},   {.first = 14, .last = 14, .bit = 8},
    {.first = 21, .last = 21, .bit = 8},  {.first = 23, .last = 23, .bit = 8}, {.first = 3, .last = 3, .bit = 16},
    {.first = 15, .last = 15, .bit = 16},
};

static uint8_t LayoutLeds(const DeviceSettings& record) {
    const uint8_t view = record.View;
    const auto lit =
        std::ranges::find_if(kViewLeds, [view](const ViewLed& led) { return view >= led.first && view <= led.last; });
    const unsigned viewBit = lit == std::end(kViewLeds) ? 0 : lit->bit;
    return static_cast<uint8_t>(viewBit | (record.Swap == 1 ? kSwapKey : 0));
}

static uint8_t InputLeds(const DeviceSettings& record) {
    const uint8_t input = record.Input;
    const unsigned inputBit = input >= 1 && input <= 4 ? 1u << (input - 1) : 0;
    return static_cast<uint8_t>(inputBit | (record.Black == 1 ? 16 : 0));
}

uint8_t PanelLedBits(uint8_t deviceId, const DeviceSettings& record, uint8_t muteIn) {
    const uint8_t bits = deviceId == 0 ? LayoutLeds(record) : InputLeds(record);
    const bool muteLit = record.Sbtn == 1 && muteIn != 0;
    return static_cast<uint8_t>(bits | (muteLit ? kMuteKey : 0));
}

LedFrame MakeLedFrame(uint8_t bits) { return {bits, 0xAB, 0xCD}; }

void SendPanelLeds() {
    const uint8_t bits = PanelLedBits(DeviceId, Settings, MuteIn);
    if (!FrontPanel.KeypadPresent) {
        FrontPanel.PanelLeds = bits;
        return;
    }
    const LedFrame frame = MakeLedFrame(bits);
    if (I2cWrite(kPanelBus, kControllerAddress, kFrameRegister, frame.data(), frame.size()) != 0)
        LogInfo("i2c_write_to_device failure.\r\n");
}
