#include "stand_ins.h"

#include <dlfcn.h>
#include <regex.h>

#include <array>
#include <cstdarg>
#include <map>

#include "commands/command_tables.h"
#include "commands/handlers.h"
#include "commands/reply_channel.h"
#include "commands/serial_port.h"
#include "commands/status_report.h"
#include "core/log.h"
#include "fuzz.h"
#include "net/log_download.h"

std::string Calls, Told;

static int NoteCall(const char* handler, const int32_t* arguments) {
    Calls += handler;
    for (size_t i = 0; arguments != nullptr && i < kArguments; ++i) Calls += ' ' + std::to_string(arguments[i]);
    Calls += '\n';
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
    Told += text;
    return true;
}
bool IsLogClient(int) { return false; }
int WriteSerial(const char* text, size_t count) {
    Told.append(text, count);
    return 0;
}

static void NoteText(const char* format, va_list values) {
    std::array<char, 200> text;
    vsnprintf(text.data(), text.size(), format, values);
    Told += text.data();
}
void PrintOut(const char* format, ...) {
    va_list values;
    va_start(values, format);
    NoteText(format, values);
    va_end(values);
}
void LogInfo(const char* format, ...) {
    Told += "log: ";
    va_list values;
    va_start(values, format);
    NoteText(format, values);
    va_end(values);
}
void LogError(const char* text) { Told += text; }

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
