#include "sound/sound_card.h"

#include <cctype>
#include <optional>

#include "bench/trace.h"
#include "capture/camera.h"
#include "sound/sound_device.h"
#include "sound/sound_profiles.h"

std::array<PlaceState, kSoundPlaces.size()> SoundPlaces;
std::array<std::shared_ptr<SoundCard>, kSoundCards> SoundCards;

static constexpr size_t kIdLimit = 15;

// ---- Mixers

static constexpr const char* kHighPassItems[] = {"Disabled", "0.0045xFs", "0.0125xFs", "0.025xFs"};

// As the codec's driver names its registers. What they hold before anybody sets them is audibly not what is wanted.
static constexpr std::array kCodecMixer = {
    MixerElement{.name = "PCM Playback Volume",
                 .kind = MixerKind::kVolume,
                 .direction = kPlayback,
                 .values = 2,
                 .maximum = 127,
                 .initial = 103,
                 .step = 0.5,
                 .unity = 127},
    MixerElement{.name = "PGA Capture Volume",
                 .kind = MixerKind::kVolume,
                 .direction = kCapture,
                 .values = 2,
                 .maximum = 119,
                 .initial = 20,
                 .step = 0.5},
    MixerElement{.name = "PGA Capture Switch",
                 .kind = MixerKind::kSwitch,
                 .direction = kCapture,
                 .values = 2,
                 .maximum = 1,
                 .initial = 1},
    MixerElement{.name = "ADC HPF Cut-off",
                 .kind = MixerKind::kList,
                 .direction = kCapture,
                 .values = 2,
                 .maximum = std::size(kHighPassItems) - 1,
                 .initial = 0,
                 .items = kHighPassItems},
};

static constexpr std::array kUsbMixer = {
    MixerElement{.name = "PCM Playback Switch",
                 .kind = MixerKind::kSwitch,
                 .direction = kPlayback,
                 .values = 1,
                 .maximum = 1,
                 .initial = 1},
    MixerElement{.name = "PCM Playback Volume",
                 .kind = MixerKind::kVolume,
                 .direction = kPlayback,
                 .values = 1,
                 .maximum = 64,
                 .initial = 40,
                 .step = 0.5,
                 .unity = 64},
    MixerElement{.name = "Mic Capture Switch",
                 .kind = MixerKind::kSwitch,
                 .direction = kCapture,
                 .values = 1,
                 .maximum = 1,
                 .initial = 1},
    MixerElement{.name = "Mic Capture Volume",
                 .kind = MixerKind::kVolume,
                 .direction = kCapture,
                 .values = 1,
                 .maximum = 40,
                 .initial = 20,
                 .step = 0.5,
                 .unity = 20},
};

// ---- Cards

SoundCard* CardAt(SoundPlace place) {
    for (const auto& card : SoundCards)
        if (card && card->traits.place == place) return card.get();
    return nullptr;
}

static bool IsIdTaken(const std::string& id) {
    return std::ranges::any_of(SoundCards, [&id](const auto& card) { return card && card->id == id; });
}

// As the kernel makes one up: letters and digits of the name's last word, numbered when taken.
static std::string IdFor(const std::string& name) {
    std::string id;
    for (const char letter : name.substr(name.rfind(' ') + 1))
        if (isalnum(static_cast<unsigned char>(letter)) != 0 && id.size() < kIdLimit) id += letter;
    if (id.empty()) id = "Default";
    for (int number = 1; IsIdTaken(id); ++number) {
        const std::string suffix = "_" + std::to_string(number);
        id.resize(std::min(id.size(), kIdLimit - suffix.size()));
        id += suffix;
    }
    return id;
}

static std::string ControlPath(const SoundCard& card) { return "/dev/snd/controlC" + std::to_string(card.number); }

static std::string PcmPath(const SoundCard& card, unsigned direction) {
    return "/dev/snd/pcmC" + std::to_string(card.number) + "D0" + (direction == kPlayback ? "p" : "c");
}

static constexpr unsigned kMinorsPerCard = 32, kFirstPcmMinor = 16, kMinorsPerDirection = 8;

static void AddNodes(const SoundCard& card) {
    const auto number = static_cast<unsigned>(card.number);
    const unsigned minor = number * kMinorsPerCard;
    AddNode(ControlPath(card), kSoundControlModel, card.number, kSoundMajor, minor);
    for (const unsigned direction : {kPlayback, kCapture}) {
        if (!card.streams[direction]) continue;
        AddNode(PcmPath(card, direction), kSoundPcmModel, static_cast<int>(number * 2 + direction), kSoundMajor,
                minor + kFirstPcmMinor + direction * kMinorsPerDirection);
    }
}

static void TracePlug(const SoundCard& card, bool plugged) {
    Trace("plug", {{"action", plugged ? "add" : "remove"},
                   {"subsystem", "sound"},
                   {"card", card.number},
                   {"name", card.traits.longName}});
}

// Takes the lowest free number from `first` on: those below the USB cards' are kept for the board's own, whose numbers
// never change.
static std::string AddCard(CardTraits traits, size_t first) {
    const auto free = std::find(SoundCards.begin() + static_cast<ptrdiff_t>(first), SoundCards.end(), nullptr);
    if (free == SoundCards.end()) return "no sound card number is free";
    auto card = std::make_shared<SoundCard>();
    card->number = static_cast<int>(free - SoundCards.begin());
    card->id = IdFor(traits.name);
    for (const unsigned direction : {kPlayback, kCapture}) {
        const SoundLimits& limits = direction == kPlayback ? traits.playback : traits.capture;
        if (limits.rates.empty()) continue;
        card->streams[direction] = std::make_unique<SoundStream>(
            SoundStream{.card = *card, .direction = direction, .limits = limits, .ppm = traits.ppm});
    }
    card->traits = std::move(traits);
    SetUpMixer(*card);
    AddNodes(*card);
    TracePlug(*card, true);
    *free = std::move(card);
    return {};
}

static void RemoveCardAt(SoundPlace place) {
    SoundCard* at = CardAt(place);
    if (at == nullptr) return;
    const std::shared_ptr<SoundCard> card = std::move(SoundCards[static_cast<size_t>(at->number)]);
    card->gone = true;
    RemoveNode(ControlPath(*card));
    WakeModel(kSoundControlModel, card->number);
    for (const unsigned direction : {kPlayback, kCapture}) {
        RemoveNode(PcmPath(*card, direction));
        if (card->streams[direction]) DisconnectStream(*card->streams[direction]);
    }
    TracePlug(*card, false);
}

// ---- On the board

struct OnboardRow {
    SoundPlace place;
    const char* name;
    const char* pcmId;
    std::span<const MixerElement> mixer;
    std::span<const unsigned> playbackRates, captureRates;
};

static constexpr unsigned kCodecRates[] = {8000, 16000, 32000, 44100, 48000, 96000};
static constexpr unsigned kFpgaRates[] = {48000};
static constexpr unsigned kHdmiRates[] = {32000, 44100, 48000};
static constexpr std::array kOnboard = {
    OnboardRow{.place = kAnalogPlace,
               .name = "tlv320aic3x-audio",
               .pcmId = "HiFi tlv320aic3x-hifi-0",
               .mixer = kCodecMixer,
               .playbackRates = kCodecRates,
               .captureRates = kCodecRates},
    OnboardRow{.place = kFpgaPlace,
               .name = "fpga-audio",
               .pcmId = "HiFi fpga-hifi-0",
               .mixer = {},
               .playbackRates = kFpgaRates,
               .captureRates = kFpgaRates},
    OnboardRow{.place = kHdmiPlace,
               .name = "imx-hdmi-soc",
               .pcmId = "i.MX HDMI Audio Tx hdmi-hifi-0",
               .mixer = {},
               .playbackRates = kHdmiRates,
               .captureRates = {}},
};

static SoundLimits Stereo(std::span<const unsigned> rates) {
    return {.fewestChannels = 2, .mostChannels = 2, .rates = {rates.begin(), rates.end()}};
}

static std::string AddOnboard(const OnboardRow& row) {
    return AddCard({.place = row.place,
                    .driver = row.name,
                    .name = row.name,
                    .longName = row.name,
                    .pcmId = row.pcmId,
                    .pcmName = "",
                    .mixer = row.mixer,
                    .playback = Stereo(row.playbackRates),
                    .capture = Stereo(row.captureRates)},
                   static_cast<size_t>(&row - kOnboard.data()));
}

// ---- On the USB ports

struct UsbPort {
    const char* busPath;
    SoundPlace cameraPlace, devicePlace;
    bool hostBound = true;
    std::optional<SoundDeviceProfile> plugged;  // stays through a reset of the board, as cables do
};
static std::array Ports = {
    UsbPort{.busPath = "usb-ci_hdrc.0-1", .cameraPlace = kUsb1Place, .devicePlace = kSound1Place, .plugged = {}},
    UsbPort{.busPath = "usb-ci_hdrc.1-1", .cameraPlace = kUsb2Place, .devicePlace = kSound2Place, .plugged = {}},
};

static SoundLimits LimitsOf(const SoundProfile& profile) {
    if (!profile.present) return {};
    return {.fewestChannels = profile.channels, .mostChannels = profile.channels, .rates = profile.rates};
}

static std::string AddUsbCard(SoundPlace place, const std::string& name, const std::string& busPath,
                              const SoundProfile& microphone, const SoundProfile& speaker) {
    if (SoundPlaces[place].gone) return {};
    return AddCard({.place = place,
                    .driver = "USB-Audio",
                    .name = name,
                    .longName = name + " at " + busPath + ", high speed",
                    .pcmId = "USB Audio",
                    .pcmName = "USB Audio",
                    .mixer = kUsbMixer,
                    .playback = LimitsOf(speaker),
                    .capture = LimitsOf(microphone),
                    .ppm = microphone.present ? microphone.ppm : speaker.ppm},
                   kOnboard.size());
}

static UsbPort& PortOf(int number) { return Ports.at(static_cast<size_t>(number - 1)); }

static std::string AddCameraCard(int camera) {
    const UsbPort& port = PortOf(camera);
    const CameraProfile* profile = ConnectedCamera(camera);
    if (profile == nullptr || (!profile->microphone.present && !profile->speaker.present)) return {};
    return AddUsbCard(port.cameraPlace, profile->card, port.busPath, profile->microphone, profile->speaker);
}

static std::string AddDeviceCard(const UsbPort& port) {
    if (!port.plugged || !port.hostBound) return {};
    const SoundDeviceProfile& profile = *port.plugged;
    const std::string hub = profile.hubPort > 0 ? "." + std::to_string(profile.hubPort) : "";
    return AddUsbCard(port.devicePlace, profile.card, port.busPath + hub, profile.microphone, profile.speaker);
}

static void FollowCamera(int camera, const CameraProfile* profile) {
    RemoveCardAt(PortOf(camera).cameraPlace);
    const std::string error = profile != nullptr ? AddCameraCard(camera) : "";
    if (!error.empty()) fprintf(stderr, "sound of camera %d: %s\n", camera, error.c_str());
}

void SoundHostBound(int host, bool bound) {
    UsbPort& port = PortOf(host + 1);
    if (port.hostBound == bound) return;
    port.hostBound = bound;
    RemoveCardAt(port.devicePlace);
    AddDeviceCard(port);
}

static std::string PlugDevice(int number, const std::string& name) {
    UsbPort& port = PortOf(number);
    if (port.plugged) return "port " + std::to_string(number) + " has a sound device already: " + port.plugged->name;
    SoundDeviceResult result = LoadSoundProfile(name);
    if (!result.error.empty()) return result.error;
    if (ConnectedCamera(number) != nullptr && result.profile.hubPort == 0)
        return "a camera is on port " + std::to_string(number) + ": only a device behind a hub finds room there";
    port.plugged = std::move(result.profile);
    return AddDeviceCard(port);
}

static std::string UnplugDevice(int number) {
    UsbPort& port = PortOf(number);
    if (!port.plugged) return "no sound device is on port " + std::to_string(number);
    RemoveCardAt(port.devicePlace);
    port.plugged.reset();
    return {};
}

std::string PluggedSound(int port) { return PortOf(port).plugged ? PortOf(port).plugged->name : ""; }

VerbAnswer SoundVerb(const VerbWords& words) {
    const bool known = words.size() >= 2 && (words[0] == "1" || words[0] == "2");
    const bool plug = known && words.size() == 3 && words[1] == "plug";
    if (!plug && !(known && words.size() == 2 && words[1] == "unplug")) return Usage("sound");
    const int number = words[0] == "1" ? 1 : 2;
    const std::string error = plug ? PlugDevice(number, words[2]) : UnplugDevice(number);
    return error.empty() ? VerbAnswer{} : Bad(error);
}

// ---- Faults

static std::string AddCardAt(SoundPlace place) {
    if (CardAt(place) != nullptr) return {};
    for (const OnboardRow& row : kOnboard)
        if (row.place == place) return AddOnboard(row);
    for (int number : {1, 2}) {
        if (PortOf(number).cameraPlace == place) return AddCameraCard(number);
        if (PortOf(number).devicePlace == place) return AddDeviceCard(PortOf(number));
    }
    return {};
}

static std::string TurnBusy(SoundPlace place) {
    SoundPlaces[place].busy = true;
    return {};
}

static std::string TurnGone(SoundPlace place) {
    SoundPlaces[place].gone = true;
    RemoveCardAt(place);
    return {};
}

static std::string CauseXrun(SoundPlace place) {
    bool any = false;
    SoundCard* card = CardAt(place);
    for (const unsigned direction : {kPlayback, kCapture}) {
        SoundStream* stream = card != nullptr ? card->streams[direction].get() : nullptr;
        if (stream == nullptr || stream->state != SNDRV_PCM_STATE_RUNNING) continue;
        StopByXrun(*stream);
        any = true;
    }
    return any ? "" : "nothing is running there";
}

static std::string EndFaults(SoundPlace place) {
    SoundPlaces[place].busy = SoundPlaces[place].gone = false;
    return AddCardAt(place);
}

struct SoundFault {
    std::string_view word;
    std::string (*run)(SoundPlace place);  // what was wrong
};
static constexpr std::array kFaults = {SoundFault{"busy", TurnBusy}, SoundFault{"gone", TurnGone},
                                       SoundFault{"xrun", CauseXrun}, SoundFault{"off", EndFaults}};

VerbAnswer SoundFaultVerb(const VerbWords& words) {
    VerbAnswer usage = Bad("usage: fault sound PLACE busy|gone|xrun|off");
    if (words.size() != 2) return usage;
    const auto place = std::ranges::find(kSoundPlaces, std::string_view(words[0]), &SoundPlaceRow::name);
    const auto fault = std::ranges::find(kFaults, std::string_view(words[1]), &SoundFault::word);
    if (place == kSoundPlaces.end() || fault == kFaults.end()) return usage;
    Trace("fault", {{"sound", words[0]}, {"fault", words[1]}});
    const std::string error = fault->run(SoundPlace(place - kSoundPlaces.begin()));
    return error.empty() ? VerbAnswer{} : Bad(error);
}

// ---- Power

void PowerOnSound() {
    SoundCards.fill(nullptr);
    for (PlaceState& place : SoundPlaces) place.counters = {};
    OnCameraPlug(FollowCamera);
    for (const OnboardRow& row : kOnboard)
        if (!SoundPlaces[row.place].gone) AddOnboard(row);
    for (UsbPort& port : Ports) {
        port.hostBound = true;
        AddDeviceCard(port);
    }
}
