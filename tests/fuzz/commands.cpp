// Every text on every channel ends well: it stays within its bytes, each command is answered, what is none is told so,
// and the settings stay those of a board. The local channels call the same handlers with the same numbers. The first
// byte chooses the channels, the second the board's variant.
#include <algorithm>
#include <cstring>
#include <vector>

#include "commands/dispatch.h"
#include "fuzz.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"
#include "stand_ins.h"

static constexpr const char* kFraming = "Commands must be between the '<' and '>' characters.\n";

static size_t Count(const std::string& text, std::string_view part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
    return count;
}

// What was called.
static std::string Play(const std::string& text, void (*dispatch)(char* text)) {
    Calls.clear(), Told.clear();
    CopySettings(Settings, DefaultSettings);
    std::vector<char> buffer(text.c_str(), text.c_str() + strlen(text.c_str()) + 1);  // of its exact size
    dispatch(buffer.data());
    Require(Count(Told, "ACK\r\n") >= Count(Calls, "\n"), "each command is answered");
    Require(Calls.empty() || !Told.ends_with(kFraming), "a command or none");
    Require(Settings.View <= kViewPPBR || Settings.View == kViewTB, "view");
    Require(Settings.Swap <= 1 && Settings.Input >= 1 && Settings.Input <= 4 && Settings.Reserved9 == 0, "selection");
    return Calls;
}

static void DispatchNetwork(char* text) {
    const bool matched = DispatchNetworkText(text, 1);
    Require(matched == !Told.empty() && Told.find(kFraming) == Told.npos, "nothing is said to what is none");
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    DeviceId = data[1] & 3;
    const std::string text(data + 2, data + size);
    if (data[0] != 's' && data[0] != 'c') {
        Play(text, DispatchNetwork);
    } else {
        const std::string calls = Play(text, [](char* line) { DispatchSerialText(line); });
        Require(Play(text, [](char* line) { DispatchConsoleText(line); }) == calls, "handlers of both local channels");
    }
    return 0;
}
