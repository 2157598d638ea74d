// Every text on every channel does what the tables say: the same handlers with the same numbers, the same answers and
// the same settings as the oracle's. The first byte chooses the channel, the second the board's variant.
#include <cstring>
#include <vector>

#include "command_oracle.h"
#include "commands/dispatch.h"
#include "fuzz.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"

struct Effects {
    std::string record;
    DeviceSettings settings;
};

template <typename Play>
static Effects EffectsOf(Play play) {
    Record.clear();
    CopySettings(Settings, DefaultSettings);
    play();
    Effects effects{.record = Record, .settings = {}};
    CopySettings(effects.settings, Settings);
    return effects;
}

static void Dispatch(Channel channel, char* text) {
    if (channel == Channel::kSerial) DispatchSerialText(text);
    if (channel == Channel::kConsole) DispatchConsoleText(text);
    if (channel == Channel::kNetwork) DispatchNetworkText(text, 1);
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const Channel channel = data[0] == 's' ? Channel::kSerial : data[0] == 'c' ? Channel::kConsole : Channel::kNetwork;
    DeviceId = data[1] & 3;
    const std::string text(data + 2, data + size);
    const Effects expected = EffectsOf([&] { PlayOracle(channel, text); });
    std::vector<char> buffer(text.c_str(), text.c_str() + size - 1);  // of its exact size
    const Effects effects = EffectsOf([&] { Dispatch(channel, buffer.data()); });
    Require(effects.record == expected.record, "handlers and answers");
    Require(memcmp(&effects.settings, &expected.settings, sizeof effects.settings) == 0, "settings");
    return 0;
}
