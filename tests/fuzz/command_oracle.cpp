#include "command_oracle.h"

#include <dlfcn.h>
#include <regex.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <map>
#include <optional>
#include <vector>

#include "commands/command_tables.h"
#include "commands/handlers.h"
#include "commands/reply_channel.h"
#include "commands/serial_port.h"
#include "commands/status_report.h"
#include "core/log.h"
#include "fuzz.h"
#include "net/log_download.h"
#include "settings/device_identity.h"
#include "settings/selection.h"

std::string Record;

// ---- Stand-ins ----

static int NoteCall(const char* handler, const int32_t* arguments) {
    Record += handler;
    for (size_t i = 0; arguments != nullptr && i < kArguments; ++i) Record += ' ' + std::to_string(arguments[i]);
    Record += '\n';
    return arguments != nullptr && arguments[0] % 3 == 1 ? 1 : 0;  // some fail
}

// clang-format off
#define HANDLERS(DO)                                                                                                  \
    DO(CycleCorner) DO(SwapCommand) DO(ShowHdmiAbove) DO(ShowUsbAbove) DO(PressFrontKey) DO(PressInputKey)            \
    DO(ShowBlack) DO(ShowPicture) DO(BlankOutput) DO(InvertInput) DO(NoteUsbStreaming) DO(NoteUsbIdle)                \
    DO(StoreHdmiAudioLocal) DO(StoreAnalogAudioLocal) DO(StoreUsb1AudioLocal) DO(StoreUsb2AudioLocal)                 \
    DO(StoreMuteButtonMode) DO(StartAudioTest) DO(StopAudioTest) DO(SetJpegParse) DO(SetOutputLocal)                  \
    DO(SetOutputNetwork) DO(ResetUsbInputsCommand) DO(Pan) DO(Tilt) DO(Zoom) DO(RecallCameraPreset)                   \
    DO(StoreCameraPreset) DO(Save) DO(RestoreDefaults) DO(SetDeviceId) DO(SetStatusBroadcast)                         \
    DO(SetNetworkLogCommand) DO(KeepFirmware) DO(SetIpAddressLocal) DO(SetIpAddressNetwork) DO(SetNetmaskLocal)       \
    DO(SetNetmaskNetwork) DO(SetDhcpLocal) DO(SetDhcpNetwork) DO(SetGateway) DO(SetMacAddress) DO(QuitLocal)          \
    DO(QuitNetwork) DO(RestartLocal) DO(RestartNetwork) DO(ResetLocal) DO(ResetNetwork) DO(RebootCommand)             \
    DO(SerialLoopTest) DO(TopTest) DO(I2cTest) DO(BuildStatusReport) DO(SendNetworkStatus) DO(SendSerialPoll)         \
    DO(SendNetworkPoll) DO(LanTest) DO(SendDiagnosticLog)
// clang-format on
#define STAND_IN(handler) \
    int handler(const int32_t* arguments) { return NoteCall(#handler, arguments); }
HANDLERS(STAND_IN)

thread_local int ReplyChannel = -1;
bool WriteToClient(std::string_view text) {
    Record += text;
    return true;
}
bool IsLogClient(int) { return false; }
int WriteSerial(const char* text, size_t count) {
    Record.append(text, count);
    return 0;
}

static void NoteText(const char* format, va_list values) {
    std::array<char, 200> text;
    vsnprintf(text.data(), text.size(), format, values);
    Record += text.data();
}
void PrintOut(const char* format, ...) {
    va_list values;
    va_start(values, format);
    NoteText(format, values);
    va_end(values);
}
void LogInfo(const char* format, ...) {
    Record += "log: ";
    va_list values;
    va_start(values, format);
    NoteText(format, values);
    va_end(values);
}
void LogError(const char* text) { Record += text; }

// A pattern is compiled once a process, not once a text: the C library is not what is looked at here.
extern "C" int regcomp(regex_t* compiled, const char* pattern, int flags) {
    static const auto original = reinterpret_cast<int (*)(regex_t*, const char*, int)>(dlsym(RTLD_NEXT, "regcomp"));
    static auto& known = *new std::map<const char*, regex_t>;  // until the process ends
    const auto [entry, isNew] = known.try_emplace(pattern);
    if (isNew) Require(original(&entry->second, pattern, flags) == 0, pattern);
    *compiled = entry->second;
    return 0;
}
extern "C" void regfree(regex_t*) {}

// ---- Oracle ----

struct Match {
    size_t begin, end;
};

// A pattern is letters, some behind a backslash, and at most one ".+".
static std::optional<Match> Find(std::string_view pattern, std::string_view text) {
    std::string letters;
    std::ranges::copy_if(pattern, std::back_inserter(letters), [](char c) { return c != '\\'; });
    const size_t gap = letters.find(".+");
    const std::string before = letters.substr(0, gap);
    const size_t begin = text.find(before);
    if (begin == text.npos) return std::nullopt;
    if (gap == letters.npos) return Match{.begin = begin, .end = begin + before.size()};
    const size_t last = text.rfind(letters.back());
    if (last == text.npos || last < begin + before.size() + 1) return std::nullopt;
    return Match{.begin = begin, .end = last + 1};
}

static std::vector<std::string> Words(std::string_view text, char separator) {
    std::vector<std::string> words;
    for (size_t begin = 0; (begin = text.find_first_not_of(separator, begin)) != text.npos;) {
        const size_t end = std::min(text.find(separator, begin), text.size());
        words.emplace_back(text.substr(begin, end - begin));
        begin = end;
    }
    return words;
}

static std::array<int32_t, kArguments> Numbers(const CommandEntry& row, std::string_view text, char separator) {
    std::array<int32_t, kArguments> numbers;
    numbers.fill(kMissingArgument);
    const std::vector<std::string> words = Words(text, separator);
    for (size_t i = 0; i < row.argumentCount && i + 1 < words.size(); ++i)
        numbers[i] = static_cast<int32_t>(
            std::clamp<long>(strtol(words[i + 1].c_str(), nullptr, row.numberBase), INT32_MIN, INT32_MAX));
    return numbers;
}

static bool PlaySelection(Channel channel, const CommandEntry& row) {
    const bool known = row.kind == (DeviceId == 0 ? kLayout : kInput);
    if (known && DeviceId == 0) SelectView(Settings, row.value1, row.value2);
    if (known && DeviceId != 0) Settings.Input = row.value1;
    return known || channel != Channel::kConsole;
}

bool PlayOracle(Channel channel, std::string_view text) {
    const bool network = channel == Channel::kNetwork;
    bool matched = false;
    text = text.substr(0, text.find('\0'));
    for (const CommandEntry& row : network ? NetworkCommandTable : SerialCommandTable) {
        const auto match = Find(row.pattern, text);
        if (!match) continue;
        matched = true;
        bool accepted = true;
        if (row.handler == nullptr) {
            accepted = PlaySelection(channel, row);
        } else if (row.argumentCount == 0) {
            row.handler(nullptr);
        } else if (network) {
            const auto command = text.substr(match->begin, std::min<size_t>(match->end - match->begin, 99));
            accepted = row.handler(Numbers(row, command, '_').data()) == 0;
        } else {
            const auto numbers = Numbers(row, text, ' ');
            text = text.substr(0, text.find(' ', text.find_first_not_of(' ')));  // cut behind its first word
            accepted = row.handler(numbers.data()) == 0;
        }
        Record += accepted ? "ACK\r\n" : "NACK\r\n";
        if (row.handler == nullptr && !accepted) Record += "log: Command not recognized.\n";
        Settings.Reserved9 = 0;
    }
    if (matched || network) return matched;
    Record += channel == Channel::kSerial ? "NACK\r\n" : "NACK\r\nlog: ";
    Record += "Commands must be between the '<' and '>' characters.\n";
    return false;
}
