#include "devices/expander.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "devices/i2c_bus.h"
#include "kernel/supervisor.h"
#include "system/board.h"
#include "text.h"

// Registers come in pairs, port 0 and port 1; a transfer of several bytes goes back and forth within its pair.
static constexpr unsigned kInput = 0, kOutput = 2, kInversion = 4, kConfiguration = 6;  // configuration: 1 for an input
static constexpr unsigned kDriveStrength = 0x40;
static constexpr unsigned kPowerOnOnes[] = {kOutput, kConfiguration, kDriveStrength};

static constexpr unsigned kButtons = 0x7F;
static constexpr unsigned kActiveLow = 0x3F;                               // of the buttons
static constexpr uint8_t kPullUp = 0x80;                                   // the pin of port 1 that leads nowhere
static constexpr unsigned kLongestHold = 60'000, kLongestBounce = 10'000;  // ms
static constexpr int64_t kMillisecond = 1000;

static unsigned pressed;      // the buttons that are down now
static unsigned heldButtons;  // those of the last `buttons` without a time
static uint64_t holder;       // the `buttons` verb with a time that is under way
static TimerId holdEnd;
static int64_t bounceTime;  // microseconds that contacts bounce; 0: they do not
static int64_t bouncesUntil;
static unsigned bouncing;  // the buttons that do
static bool bouncedBack;
static uint8_t leds;
static unsigned looks;

// While contacts bounce, every other look finds them as they were.
static uint8_t BounceNow() {
    if (bouncing == 0 || NowMicroseconds() >= bouncesUntil) return 0;
    bouncedBack = !bouncedBack;
    return bouncedBack ? static_cast<uint8_t>(bouncing) : 0;
}

static void StepWithinPair(I2cDevice& device, unsigned at) { device.pointer = (at ^ 1) - 1; }  // the bus adds one

static uint8_t ReadRegister(I2cDevice& device, unsigned offset) {
    const unsigned at = offset & 0xFF;
    StepWithinPair(device, at);
    if (at != kInput + 1) return device.registers[at];
    ++looks;
    return device.registers[at] ^ BounceNow();
}

static void WriteRegister(I2cDevice& device, unsigned offset, uint8_t value) {
    const unsigned at = offset & 0xFF;
    StepWithinPair(device, at);
    if (at > kInput + 1) device.registers[at] = value;
}

static void ShowPins(I2cDevice& device) {
    auto& registers = device.registers;
    // LEDs pull their pins down, buttons and the free pin have resistors of their own.
    const uint8_t outside[] = {0, static_cast<uint8_t>(kPullUp | (pressed ^ kActiveLow))};
    for (unsigned port = 0; port < 2; ++port) {
        const uint8_t inputs = registers[kConfiguration + port];
        const int pins = (registers[kOutput + port] & ~inputs) | (outside[port] & inputs);
        registers[kInput + port] = static_cast<uint8_t>(pins ^ registers[kInversion + port]);
    }
    const auto lit = static_cast<uint8_t>(registers[kOutput] & ~registers[kConfiguration]);
    if (lit != leds) Trace("led", {{"led", "panel"}, {"value", lit}});
    leds = lit;
}

static I2cDevice expander{.name = "panel expander",
                          .bus = 2,
                          .address = 0x21,
                          .read = ReadRegister,
                          .write = WriteRegister,
                          .written = ShowPins};

static void ResetExpander() {
    expander.registers.fill(0);
    for (const unsigned pair : kPowerOnOnes) std::fill_n(expander.registers.begin() + pair, 2, uint8_t{0xFF});
    ShowPins(expander);
}

void PowerOnExpander() {
    if (Board.panel != "expander") return;
    ResetExpander();
    looks = 0;
    AddI2cDevice(expander);
}

Json ExpanderLeds() {
    return {{"leds", leds}, {"configured", expander.registers[kConfiguration] == 0}, {"looks", looks}};
}

static void Press(unsigned buttons) {
    if (buttons == pressed) return;
    bouncing = buttons ^ pressed;
    bouncesUntil = NowMicroseconds() + bounceTime;
    bouncedBack = false;
    pressed = buttons;
    Trace("panel", {{"buttons", buttons}});
    ShowPins(expander);
}

static void EndHold() {
    if (holder == 0) return;
    CancelCall(holdEnd);
    AnswerLater(holder, {});
    holder = 0;
}

static void LetGo() {
    Press(heldButtons);
    EndHold();
}

VerbAnswer ButtonsVerb(const VerbWords& words) {
    const bool timed = words.size() == 3 && words[1] == "for";
    if (!timed && words.size() != 1) return Usage("buttons");
    const std::optional<unsigned> buttons = ParseNumber(words[0], kButtons);
    const std::optional<unsigned> time = ParseNumber(timed ? words[2] : "0", kLongestHold);
    if (!buttons || !time) return Usage("buttons");
    if (Board.panel != "expander") return Bad("buttons: this board's panel has no expander (run --panel expander)");
    EndHold();
    Press(*buttons);
    if (!timed) {
        heldButtons = *buttons;
        return {};
    }
    holder = LaterAnswer();
    holdEnd = CallAt(NowMicroseconds() + *time * kMillisecond, LetGo);
    return {.later = holder};
}

VerbAnswer ExpanderFaultVerb(const VerbWords& words) {
    static constexpr const char* kUsage = "usage: fault expander reset | bounce MS | off";
    const bool bounce = words.size() == 2 && words[0] == "bounce";
    const std::optional<unsigned> time = bounce ? ParseNumber(words[1], kLongestBounce) : std::nullopt;
    const bool reset = words.size() == 1 && words[0] == "reset", off = words.size() == 1 && words[0] == "off";
    if (!time && !reset && !off) return Bad(kUsage);
    Trace("fault", {{"expander", words[0]}});
    if (reset) {
        ResetExpander();
    } else {
        bounceTime = time.value_or(0) * kMillisecond;
        bouncing = 0;
    }
    return {};
}
