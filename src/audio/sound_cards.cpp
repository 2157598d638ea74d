#include "audio/sound_cards.h"

#include <alsa/asoundlib.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>

#include "core/log.h"
#include "core/shell.h"
#include "settings/device_identity.h"

OnboardAudio OnboardAudioCards = {};
UsbAudioEndpoint Usb1AudioIn = {}, Usb2AudioIn = {}, Usb1AudioOut = {}, Usb2AudioOut = {};

static int usbAudioCount = 0;  // cards taken by the last detection

// Cards whose long name contains one of these are never used for audio.
static constexpr const char* kRejectedAudioCards[] = {"PTZ Optics Camera", "Webcam gadget", "VC-TR1", "innex cube"};

struct OnboardCard {
    const char* longName;
    char (OnboardAudio::*device)[16];
};
static constexpr std::array<OnboardCard, 3> kOnboardCards = {{
    {.longName = "tlv320aic3x-audio", .device = &OnboardAudio::AnalogCodecDevice},
    {.longName = "fpga-audio", .device = &OnboardAudio::FpgaAudioDevice},
    {.longName = "imx-hdmi-soc", .device = &OnboardAudio::HdmiOutAudioDevice},
}};

// The first port of a host controller; a card behind a hub on it carries the text as well.
struct UsbAudioPort {
    const char* place;
    UsbAudioEndpoint *in, *out;
};
static constexpr UsbAudioPort kUsbPorts[] = {
    {.place = "usb-ci_hdrc.0-1", .in = &Usb1AudioIn, .out = &Usb1AudioOut},
    {.place = "usb-ci_hdrc.1-1", .in = &Usb2AudioIn, .out = &Usb2AudioOut},
};

// ---- Enumeration ----

static void ForEachCard(const std::function<bool(int card)>& goOn) {
    int card = -1;
    for (;;) {
        const int error = snd_card_next(&card);
        if (error < 0) LogInfo("Can't get the next card number: %s\n", snd_strerror(error));
        if (error < 0 || card < 0 || !goOn(card)) break;
    }
    snd_config_update_free_global();
}

static std::optional<std::string> LongName(int card) {
    char* name = nullptr;
    if (snd_card_get_longname(card, &name) < 0) return std::nullopt;
    std::string copy = name;
    free(name);
    return copy;
}

int CountSoundCards(int& count) {
    count = 0;
    ForEachCard([&count](int) {
        ++count;
        return true;
    });
    return 0;
}

// ---- On the board ----

int FindOnboardAudioCards() {
    size_t found = 0;
    ForEachCard([&found](int card) {
        const std::optional<std::string> name = LongName(card);
        if (!name) LogInfo("Can't get card #%i name", card);
        for (const OnboardCard& onboard : kOnboardCards) {
            if (!name || *name != onboard.longName) continue;
            auto& device = OnboardAudioCards.*onboard.device;
            snprintf(device, sizeof device, "hw:%i", card);
            ++found;
        }
        return found < kOnboardCards.size();
    });
    return found == kOnboardCards.size() ? 0 : 1;
}

// ---- On the USB ports ----

// The first line by which a tool lists the card. The pattern also fits cards 10 and up when it names card 1.
static std::optional<std::string> ListedAs(const char* tool, int card) {
    std::array<char, 101> command;
    snprintf(command.data(), command.size(), "%s -l | grep 'card %d'", tool, card);
    const ToolAnswer answer = ReadFirstLine(command.data(), "IsCurrentCardSpeakerphone: pclose failed", 1000);
    if (answer.started) return answer.text;
    LogInfo("Failed to detect Speakerphone: %s\n", command.data());
    return std::nullopt;
}

// A card that plays and records is listed by the same line among both kinds of devices.
int IsCurrentCardSpeakerphone(int card) {
    if (DeviceId != 0) return 0;
    const std::optional<std::string> plays = ListedAs("aplay", card);
    if (!plays) return 0;
    const std::optional<std::string> records = ListedAs("arecord", card);
    if (!records || plays->empty() || records->empty()) return 0;
    return plays->find(*records) != std::string::npos ? 1 : 0;
}

static bool IsRejected(const std::string& longName) {
    for (const char* fragment : kRejectedAudioCards)
        if (longName.find(fragment) != std::string::npos) return true;
    return false;
}

static void Take(UsbAudioEndpoint& endpoint, const std::string& longName, int card) {
    endpoint.present = 1;
    snprintf(endpoint.longName, sizeof endpoint.longName, "%s", longName.c_str());
    snprintf(endpoint.device, sizeof endpoint.device, "hw:%d", card);
}

// True when the card is used. A speakerphone keeps its port from a plain microphone that is listed behind it.
static bool TakeForPort(const UsbAudioPort& port, const std::string& longName, int card) {
    if (IsCurrentCardSpeakerphone(card)) {
        Take(*port.in, longName, card);
        Take(*port.out, longName, card);
        RunShell("amixer -c %d set PCM 100%% > /dev/null", card);
        return true;
    }
    if (port.out->present) return false;
    Take(*port.in, longName, card);
    return true;
}

static int TakeCard(int card) {
    const std::optional<std::string> name = LongName(card);
    if (!name) return 0;
    if (IsRejected(*name)) {
        LogInfo("Bad audio card, abort capturing audio from this device.\r\n");
        return 0;
    }
    int taken = 0;
    for (const UsbAudioPort& port : kUsbPorts)
        if (name->find(port.place) != std::string::npos && TakeForPort(port, *name, card)) ++taken;
    return taken;
}

int DetectUsbAudio(int& count) {
    for (const UsbAudioPort& port : kUsbPorts) port.in->present = port.out->present = 0;
    count = 0;
    ForEachCard([&count](int card) {
        count += TakeCard(card);
        return true;
    });
    const bool changed = count != usbAudioCount;
    usbAudioCount = count;
    return changed ? 1 : 0;
}
