#include "devices/gpio.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bench/trace.h"
#include "kernel/attribute_file.h"
#include "kernel/supervisor.h"
#include "text.h"

static constexpr std::string_view kPrefix = "/sys/class/gpio/";
static constexpr int kLines = 224;  // seven banks of 32

struct GpioLine {
    int number;
    const char* role;
    const char* led = nullptr;  // its name
    bool rest = false;          // what the outside drives when nobody touches it
};

// Lines that lead somewhere. Every other line is an unconnected pin, low when nobody drives it.
static constexpr GpioLine kGpioLines[] = {
    {.number = kGpioReceiverEnable2, .role = "HDMI receiver enable"},
    {.number = 7, .role = "status LED", .led = "status"},
    {.number = 8, .role = "USB camera 1 indicator", .led = "camera1"},
    {.number = 9, .role = "USB camera 2 indicator", .led = "camera2"},
    {.number = kGpioReceiverReset, .role = "HDMI receiver reset", .rest = true},
    {.number = kGpioReceiverEnable1, .role = "HDMI receiver enable"},
    {.number = 83, .role = "HDMI port 0 indicator", .led = "hdmi0"},
    {.number = kGpioAudioJack, .role = "analog audio jack detect"},
    {.number = 103, .role = "button and LED of input 4", .led = "input4", .rest = true},
    {.number = 104, .role = "button and LED of input 1", .led = "input1", .rest = true},
    {.number = 105, .role = "HDMI port 0 indicator, extension board", .led = "hdmi0-top"},
    {.number = 106, .role = "button and LED of input 3", .led = "input3", .rest = true},
    {.number = 126, .role = "HDMI port 1 indicator", .led = "hdmi1"},
    {.number = 154, .role = "button and LED of input 2", .led = "input2", .rest = true},
    {.number = kGpioStrap60, .role = "60 Hz output allowed", .rest = true},
};
static_assert(std::ranges::is_sorted(kGpioLines, {}, &GpioLine::number));
static_assert(std::ranges::all_of(kGpioLines, [](const GpioLine& line) { return line.number < kLines; }));

struct LineState {
    bool exported = false;
    bool output = false;
    bool driven = false;   // by the board, when it is an output
    bool outside = false;  // by the world around it, when it is an input
    bool lit = false;      // of a line with an LED
};

struct EdgeListener {
    int line;
    void (*changed)(bool level);
    bool operator==(const EdgeListener&) const = default;
};

// The world around the board outlives a reset: a jack stays in its socket.
static std::array<LineState, kLines> MakeLines() {
    std::array<LineState, kLines> lines{};
    for (const GpioLine& line : kGpioLines) lines[static_cast<size_t>(line.number)].outside = line.rest;
    return lines;
}

static std::array<LineState, kLines> lines = MakeLines();
static std::vector<EdgeListener> listeners;

static LineState& State(int line) { return lines[static_cast<size_t>(line)]; }
static bool Level(const LineState& state) { return state.output ? state.driven : state.outside; }

bool GpioLevel(int line) { return Level(State(line)); }

void OnGpioChange(int line, void (*changed)(bool level)) {
    const EdgeListener listener{line, changed};
    if (std::ranges::find(listeners, listener) == listeners.end()) listeners.push_back(listener);
}

static const GpioLine* FindRow(int line) {
    const GpioLine* row = std::ranges::find(kGpioLines, line, &GpioLine::number);
    return row == std::end(kGpioLines) ? nullptr : row;
}

static void DriveLed(int line, LineState& next) {
    const GpioLine* row = FindRow(line);
    if (row == nullptr || row->led == nullptr) return;
    const bool before = next.lit;
    next.lit = next.output ? next.driven : next.exported && before;
    if (next.lit != before) Trace("led", {{"led", row->led}, {"value", next.lit ? 1 : 0}});
}

static void ChangeLine(int line, LineState next) {
    const bool before = Level(State(line));
    DriveLed(line, next);
    State(line) = next;
    const bool after = Level(next);
    if (before == after) return;
    for (const EdgeListener& listener : listeners) {
        if (listener.line == line) listener.changed(after);
    }
}

void SetGpioOutside(int line, bool level, std::string_view by) {
    LineState next = State(line);
    next.outside = level;
    Trace("gpio", {{"line", line}, {"value", level ? 1 : 0}, {"by", by}});
    ChangeLine(line, next);
}

// The attributes of a line and the two files that make and remove them.
enum class Attribute { kExport, kUnexport, kDirection, kValue };

struct GpioFile {
    Attribute attribute;
    int line = 0;
};

static std::optional<int> ParseLine(std::string_view text) {
    int line = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), line);
    const bool good = error == std::errc() && end == text.data() + text.size() && line >= 0 && line < kLines;
    return good ? std::optional(line) : std::nullopt;
}

static std::optional<GpioFile> ParsePath(std::string_view path) {
    path.remove_prefix(kPrefix.size());
    if (path == "export") return GpioFile{Attribute::kExport};
    if (path == "unexport") return GpioFile{Attribute::kUnexport};
    const size_t slash = path.find('/');
    if (!path.starts_with("gpio") || slash == path.npos) return std::nullopt;
    const std::optional<int> line = ParseLine(path.substr(4, slash - 4));
    const std::string_view name = path.substr(slash + 1);
    if (!line || !State(*line).exported || (name != "direction" && name != "value")) return std::nullopt;
    return GpioFile{name == "value" ? Attribute::kValue : Attribute::kDirection, *line};
}

static int OpenGpioFile(OpenFile& file) {
    const std::optional<GpioFile> target = ParsePath(file.path);
    if (!target) return -ENOENT;
    const bool writeOnly = target->attribute == Attribute::kExport || target->attribute == Attribute::kUnexport;
    const int access = file.flags & O_ACCMODE;
    if (writeOnly && access != O_WRONLY) return -EACCES;
    if (access == O_WRONLY) return 0;

    const LineState& state = State(target->line);
    if (target->attribute == Attribute::kValue) {
        FillAttribute(file, Level(state) ? "1\n" : "0\n");
    } else {
        FillAttribute(file, state.output ? "out\n" : "in\n");
    }
    return 0;
}

static void WriteExport(std::string_view text, bool exported) {
    const std::optional<int> line = ParseLine(text);
    if (!line) return;
    LineState next = State(*line);
    next.exported = exported;
    if (!exported) next.output = false;
    Trace("gpio", {{"line", *line}, {"exported", exported}, {"by", "board"}});
    ChangeLine(*line, next);
}

static void WriteDirection(int line, std::string_view text) {
    static constexpr std::string_view kDirections[] = {"in", "out", "low", "high"};
    const auto* direction = std::ranges::find(kDirections, text);
    if (direction == std::end(kDirections)) return;
    LineState next = State(line);
    next.output = text != "in";
    next.driven = text == "high";
    // Each direction for itself: a button that carries an LED is turned in and out for every look at it.
    if (!IsPolling(*direction, static_cast<unsigned>(line), text))
        Trace("gpio", {{"line", line}, {"direction", text}, {"by", "board"}});
    ChangeLine(line, next);
}

// Several writes into one open file stand there side by side; the kernel takes each for itself, so the last one holds.
static void WriteValue(int line, std::string_view text) {
    LineState next = State(line);
    const char digit = text.empty() ? '?' : text.back();
    if (!next.output || digit < '0' || digit > '9') return;
    next.driven = digit != '0';
    if (!IsPolling("value", static_cast<unsigned>(line), next.driven ? "1" : "0"))
        Trace("gpio", {{"line", line}, {"value", next.driven ? 1 : 0}, {"by", "board"}});
    ChangeLine(line, next);
}

static void WriteGpioFile(OpenFile& file) {
    const std::optional<std::string> text = WrittenAttribute(file);
    const std::optional<GpioFile> target = ParsePath(file.path);
    if (!text || !target) return;
    switch (target->attribute) {
        case Attribute::kExport:
            WriteExport(*text, true);
            break;
        case Attribute::kUnexport:
            WriteExport(*text, false);
            break;
        case Attribute::kDirection:
            WriteDirection(target->line, *text);
            break;
        case Attribute::kValue:
            WriteValue(target->line, *text);
            break;
    }
}

static const DeviceModel kGpioModel{.name = "gpio", .open = OpenGpioFile, .written = WriteGpioFile};

void PowerOnGpio() {
    for (int line = 0; line < kLines; ++line) {
        ChangeLine(line, {.exported = false,
                          .output = false,
                          .driven = false,
                          .outside = State(line).outside,
                          .lit = State(line).lit});
    }
    AddTree(std::string(kPrefix), kGpioModel, 0);
}

static const char* Role(int line) {
    const GpioLine* row = FindRow(line);
    return row == nullptr ? "unconnected" : row->role;
}

VerbAnswer GpioVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("gpio");
    std::string text;
    for (int line = 0; line < kLines; ++line) {
        const LineState& state = State(line);
        if (!state.exported) continue;
        text += Text("%-3d %-3s %d %s\n", line, state.output ? "out" : "in", Level(state), Role(line));
    }
    return {.good = true, .text = text};
}

Json GpioLeds() {
    Json leds = Json::object();
    for (const GpioLine& row : kGpioLines) {
        if (row.led == nullptr) continue;
        const LineState& state = State(row.number);
        leds[row.led] = state.exported ? Json(state.lit ? 1 : 0) : Json(nullptr);
    }
    return leds;
}

// Of inputs 1 to 4. A pressed button pulls its line down.
static constexpr int kButtonLines[] = {104, 154, 106, 103};

VerbAnswer GpioButtonVerb(const VerbWords& words) {
    const bool known = words.size() == 2 && (words[1] == "press" || words[1] == "release");
    const unsigned input = known ? ParseNumber(words[0], std::size(kButtonLines)).value_or(0) : 0;
    if (input == 0) return Usage("gpio-button");
    SetGpioOutside(kButtonLines[input - 1], words[1] == "release", "gpio-button " + words[0] + " " + words[1]);
    return {};
}

static VerbAnswer SwitchVerb(const std::string& verb, const VerbWords& words, int line, std::string_view low,
                             std::string_view high) {
    if (words.size() != 1 || (words[0] != low && words[0] != high)) return Usage(verb);
    SetGpioOutside(line, words[0] == high, verb + " " + words[0]);
    return {};
}

VerbAnswer JackVerb(const VerbWords& words) { return SwitchVerb("jack", words, kGpioAudioJack, "out", "in"); }
VerbAnswer Strap60Verb(const VerbWords& words) { return SwitchVerb("strap60", words, kGpioStrap60, "off", "on"); }
