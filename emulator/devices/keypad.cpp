#include "devices/keypad.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "devices/i2c_bus.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "text.h"

static constexpr size_t kReportBytes = 25;
static constexpr uint8_t kKeyReport = 235, kSwapReport = 238, kViewReport = 239;
static constexpr uint8_t kFirmware[] = {2, 4};

// An LED frame: the bits, two marks by which the controller knows it, and filling.
static constexpr size_t kFrameBytes = 10;
static constexpr uint8_t kFrameMarks[] = {0xAB, 0xCD};

static constexpr int64_t kFetchTime = 2'000'000;  // microseconds that `key` waits for the board

// What follows the sequence number.
struct Report {
    uint8_t type = kKeyReport;
    uint8_t first = kFirmware[0], second = kFirmware[1];
    uint8_t code = 0, count = 0;
};

static uint8_t leds;
static unsigned framesTaken, framesRefused;
static std::array<uint8_t, kFrameBytes> frame;
static size_t frameFill;

// The `key` verb whose report has not been fetched.
static uint64_t presser;
static TimerId patience;

static void AnswerPresser(const VerbAnswer& answer) {
    if (presser == 0) return;
    CancelCall(patience);
    AnswerLater(presser, answer);
    presser = 0;
}

static uint8_t ReadReport(I2cDevice& device, unsigned offset) {
    if (offset == kReportBytes - 1) AnswerPresser({});
    return offset < kReportBytes ? device.registers[offset] : 0;
}

static void TakeFrameByte(I2cDevice&, unsigned offset, uint8_t value) {
    if (offset == 0) frameFill = 0;
    if (offset < kFrameBytes) frame[offset] = value;
    ++frameFill;
}

static void SetLeds(uint8_t bits) {
    if (bits != leds) Trace("led", {{"led", "panel"}, {"value", bits}});
    leds = bits;
}

static void TakeFrame(I2cDevice& device) {
    const bool whole = frameFill == kFrameBytes && device.pointer == kFrameBytes;
    const bool marked = std::equal(std::begin(kFrameMarks), std::end(kFrameMarks), frame.begin() + 1);
    ++(whole && marked ? framesTaken : framesRefused);
    if (whole && marked) SetLeds(frame[0]);
    frameFill = 0;
}

static I2cDevice keypad{
    .name = "keypad", .bus = 2, .address = 0x08, .read = ReadReport, .write = TakeFrameByte, .written = TakeFrame};

static void ShowReport(uint8_t sequence, const Report& report) {
    const std::array bytes{sequence, report.type, report.first, report.second, report.code, report.count};
    keypad.registers.fill(0);
    std::ranges::copy(bytes, keypad.registers.begin());
}

void PowerOnKeypad() {
    AnswerPresser(Bad("key: the power went off"));
    if (Board.panel != "keypad") return;
    ShowReport(0, {});
    SetLeds(0);
    framesTaken = framesRefused = 0;
    frameFill = 0;
    AddI2cDevice(keypad);
}

Json KeypadLeds() { return {{"leds", leds}, {"frames", framesTaken}, {"refused", framesRefused}}; }

struct Press {
    uint8_t steps = 1;  // of the sequence number
    Report report;
};

static Report KeyReport(uint8_t code) { return {.code = code, .count = 1}; }

// Bytes of ones: who takes them for another report shows it.
static Report Garbage(uint8_t type) { return {.type = type, .first = 1, .second = 1, .code = 1, .count = 1}; }

struct PressRow {
    std::string_view word;
    size_t leastWords, mostWords;  // the second one is a number
    Press (*make)(uint8_t number);
};

static constexpr PressRow kPresses[] = {
    {.word = "swap",
     .leastWords = 1,
     .mostWords = 1,
     .make = [](uint8_t) { return Press{.report = {.type = kSwapReport, .first = 0, .second = 0}}; }},
    {.word = "view",
     .leastWords = 2,
     .mostWords = 2,
     .make = [](uint8_t view) { return Press{.report = {.type = kViewReport, .first = view, .second = 0}}; }},
    {.word = "repeat",
     .leastWords = 2,
     .mostWords = 2,
     .make = [](uint8_t code) { return Press{.steps = 0, .report = KeyReport(code)}; }},
    {.word = "garbage",
     .leastWords = 1,
     .mostWords = 2,
     .make = [](uint8_t type) { return Press{.report = Garbage(type)}; }},
};

static std::optional<uint8_t> ParseByte(std::string_view text) {
    const std::optional<unsigned> number = ParseNumber(text, 255);
    return number ? std::optional(static_cast<uint8_t>(*number)) : std::nullopt;
}

static std::optional<Press> ParsePress(const VerbWords& words) {
    if (words.empty()) return std::nullopt;
    const PressRow* row = std::ranges::find(kPresses, std::string_view(words[0]), &PressRow::word);
    if (row == std::end(kPresses)) {
        const std::optional<uint8_t> code = words.size() == 1 ? ParseByte(words[0]) : std::nullopt;
        return code ? std::optional(Press{.report = KeyReport(*code)}) : std::nullopt;
    }
    if (words.size() < row->leastWords || words.size() > row->mostWords) return std::nullopt;
    const std::optional<uint8_t> number = words.size() == 2 ? ParseByte(words[1]) : uint8_t{0};
    return number ? std::optional(row->make(*number)) : std::nullopt;
}

VerbAnswer KeyVerb(const VerbWords& words) {
    const std::optional<Press> press = ParsePress(words);
    if (!press) return Usage("key");
    if (Board.panel != "keypad") return Bad("key: this board has no keypad (run --panel keypad)");
    AnswerPresser(Bad("key: another one came before the board fetched it"));
    const auto sequence = static_cast<uint8_t>(keypad.registers[0] + press->steps);
    ShowReport(sequence, press->report);
    Trace("panel", {{"key", words.size() == 1 ? words[0] : words[0] + " " + words[1]}, {"sequence", sequence}});

    presser = LaterAnswer();
    patience = CallAt(NowMicroseconds() + kFetchTime,
                      [] { AnswerPresser(Bad("key: nobody has fetched it yet; it stands in the keypad")); });
    return {.later = presser};
}
