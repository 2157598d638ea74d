#include "commands/dispatch.h"

#include <regex.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>

#include "commands/command_tables.h"
#include "commands/reply_channel.h"
#include "commands/serial_port.h"
#include "core/log.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"
#include "settings/selection.h"

static constexpr const char* kAck = "ACK\r\n";
static constexpr const char* kNack = "NACK\r\n";
static constexpr const char* kFraming = "Commands must be between the '<' and '>' characters.\n";
static constexpr size_t kMatchLimit = 99;  // characters of a network command that arguments are taken from

Shared<uint8_t> SerialCommandActive{0};
Shared<uint8_t> ConsoleCommandActive{0};

static std::atomic<int64_t> lastCommandTime{0};

int64_t LastCommandTime() { return lastCommandTime; }

// Asked a thousand times a second by the serial poll: the clock of the last tick is in memory, the exact one is a slow
// register of the board.
int64_t SecondsNow() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

void NoteCommandTime() { lastCommandTime = SecondsNow(); }

// ---- Channels ----

struct CommandChannel {
    const std::span<const CommandEntry>* table;
    const char* separator;    // between a command's words
    bool splitsInPlace;       // words of the whole text, which is cut up; otherwise of a copy of the matched part
    bool refusesForeignRows;  // a selection that this board's variant does not have is answered NACK
    void (*begin)();          // around each executed row
    void (*end)();
    void (*answer)(const char* text);
    void (*refuseText)();  // no row matched
};

static void WriteSerialText(const char* text) { WriteSerial(text, strlen(text)); }

static void Print(const char* text) { PrintOut("%s", text); }

static void Nothing() {}

static constexpr CommandChannel kSerial = {
    .table = &SerialCommandTable,
    .separator = " ",
    .splitsInPlace = true,
    .refusesForeignRows = false,
    .begin = [] { SerialCommandActive = 1; },
    .end = [] { SerialCommandActive = 0; },
    .answer = WriteSerialText,
    .refuseText =
        [] {
            WriteSerialText(kNack);
            WriteSerialText(kFraming);
        },
};
static constexpr CommandChannel kConsole = {
    .table = &SerialCommandTable,
    .separator = " ",
    .splitsInPlace = true,
    .refusesForeignRows = true,
    .begin =
        [] {
            NoteCommandTime();
            ConsoleCommandActive = 1;
        },
    .end = [] { ConsoleCommandActive = 0; },
    .answer = Print,
    .refuseText =
        [] {
            Print(kNack);
            LogInfo("%s", kFraming);
        },
};
static constexpr CommandChannel kNetwork = {
    .table = &NetworkCommandTable,
    .separator = "_",
    .splitsInPlace = false,
    .refusesForeignRows = false,
    .begin = Nothing,
    .end = Nothing,
    .answer = [](const char* text) { WriteToClient(text); },
    .refuseText = Nothing,
};

// ---- Rows ----

static bool Matches(const char* pattern, const char* text, regmatch_t& match) {
    regex_t compiled;
    if (regcomp(&compiled, pattern, REG_EXTENDED) != 0) {
        LogInfo("regcomp() failed\n");
        return false;
    }
    const bool found = regexec(&compiled, text, 1, &match, 0) == 0;
    regfree(&compiled);
    return found;
}

using Arguments = std::array<int32_t, kArguments>;

// A number ends at the first character that is no digit of the base, so the closing delimiter may stay.
static int32_t ParseNumber(const char* word, int base) {
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(std::clamp(strtol(word, nullptr, base), long{Limits::min()}, long{Limits::max()}));
}

// Cuts the text up to the last word that it needs; the first word is the command's.
static Arguments SplitArguments(const CommandEntry& row, char* text, const char* separator) {
    Arguments arguments;
    arguments.fill(kMissingArgument);
    char* rest = nullptr;
    strtok_r(text, separator, &rest);
    for (size_t i = 0; i < row.argumentCount; ++i) {
        const char* word = strtok_r(nullptr, separator, &rest);
        if (word == nullptr) break;
        arguments[i] = ParseNumber(word, row.numberBase);
    }
    return arguments;
}

static_assert(kNoValue == kKeepSwap);

// True when the row's kind is what this board's variant selects by.
static bool Select(const CommandEntry& row) {
    const CommandKind selectable = DeviceId == 0 ? kLayout : kInput;
    if (row.kind != selectable) return false;
    if (selectable == kLayout)
        SelectView(Settings, row.value1, row.value2);
    else
        Settings.Input = row.value1;
    return true;
}

static int RunSelection(const CommandChannel& channel, const CommandEntry& row) {
    const bool applies = Select(row);
    const bool accepted = applies || !channel.refusesForeignRows;
    channel.answer(accepted ? kAck : kNack);
    if (!accepted) LogInfo("Command not recognized.\n");
    return applies ? 0 : 1;
}

static int RunHandler(const CommandChannel& channel, const CommandEntry& row, char* words) {
    if (row.argumentCount == 0) {
        const int result = row.handler(nullptr);
        channel.answer(kAck);
        return result;
    }
    const Arguments arguments = SplitArguments(row, words, channel.separator);
    const int result = row.handler(arguments.data());
    channel.answer(result == 0 ? kAck : kNack);
    return result;
}

struct Outcome {
    bool matched = false;
    int result = 1;
};

static Outcome Dispatch(const CommandChannel& channel, char* text) {
    Outcome outcome;
    for (const CommandEntry& row : *channel.table) {
        regmatch_t match;
        if (!Matches(row.pattern, text, match)) continue;
        const auto length = static_cast<size_t>(match.rm_eo - match.rm_so);
        std::string command(text + match.rm_so, std::min(length, kMatchLimit));

        channel.begin();
        outcome.matched = true;
        outcome.result = row.handler == nullptr
                             ? RunSelection(channel, row)
                             : RunHandler(channel, row, channel.splitsInPlace ? text : command.data());
        channel.end();
        Settings.Reserved9 = 0;
    }
    if (!outcome.matched) channel.refuseText();
    return outcome;
}

int DispatchSerialText(char* text) { return Dispatch(kSerial, text).result; }

int DispatchConsoleText(char* text) { return Dispatch(kConsole, text).result; }

bool DispatchNetworkText(char* text, int client) {
    ReplyChannel = client;
    return Dispatch(kNetwork, text).matched;
}
