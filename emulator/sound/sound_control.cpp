// The control nodes: what a card is, which PCM devices it has, and its mixer.
#include <poll.h>
#include <sys/ioctl.h>

#include <cmath>
#include <cstring>

#include "bench/trace.h"
#include "kernel/ioctl_table.h"
#include "sound/sound_device.h"
#include "sound/sound_tones.h"

static constexpr int kProtocol = SNDRV_PROTOCOL_VERSION(2, 0, 7);  // of a 4.9 kernel
static constexpr uint32_t kListLimit = 1024;
static constexpr unsigned kAccess = SNDRV_CTL_ELEM_ACCESS_READWRITE;

static_assert(sizeof(snd_ctl_card_info) == 376 && sizeof(snd_ctl_elem_list) == 80 && sizeof(snd_ctl_elem_info) == 272 &&
              sizeof(snd_ctl_elem_value) == 1224);

struct ControlCall {
    SoundCard& card;
    const IoctlCall& ioctl;
};

template <typename Field>
static void CopyText(Field& to, std::string_view from) {
    memset(to, 0, sizeof to);
    memcpy(to, from.data(), std::min(from.size(), sizeof to - 1));
}

// ---- The card

static int GetProtocol(const ControlCall&, int& version) {
    version = kProtocol;
    return 0;
}

static int GetCardInfo(const ControlCall& call, snd_ctl_card_info& info) {
    const CardTraits& traits = call.card.traits;
    info = {.card = call.card.number};
    CopyText(info.id, call.card.id);
    CopyText(info.driver, traits.driver);
    CopyText(info.name, traits.name);
    CopyText(info.longname, traits.longName);
    CopyText(info.mixername, traits.name);
    return 0;
}

void DescribePcm(const SoundCard& card, const SoundStream& stream, snd_pcm_info& info) {
    info = {.stream = static_cast<int>(stream.direction),
            .card = card.number,
            .subdevices_count = 1,
            .subdevices_avail = stream.owner == nullptr ? 1u : 0u};
    CopyText(info.id, card.traits.pcmId);
    CopyText(info.name, card.traits.pcmName);
    CopyText(info.subname, "subdevice #0");
}

static int NextPcmDevice(const ControlCall&, int& device) {
    device = device < 0 ? 0 : -1;  // one on each card
    return 0;
}

static int NoNextDevice(const ControlCall&, int& device) {
    device = -1;
    return 0;
}

static int GetPcmInfo(const ControlCall& call, snd_pcm_info& info) {
    if (info.device != 0) return -ENXIO;
    const auto direction = static_cast<unsigned>(info.stream);
    if (direction > kCapture) return -EINVAL;
    const auto& stream = call.card.streams[direction];
    if (!stream) return -ENOENT;
    if (info.subdevice != 0) return -ENXIO;
    DescribePcm(call.card, *stream, info);
    return 0;
}

static int PreferSubdevice(const ControlCall&, int&) { return 0; }

static int GetPowerState(const ControlCall&, int& state) {
    state = SNDRV_CTL_POWER_D0;
    return 0;
}

static int Subscribe(const ControlCall&, int&) { return 0; }

// ---- The mixer. Elements are numbered from 1.

void SetUpMixer(SoundCard& card) {
    for (const MixerElement& element : card.traits.mixer) {
        if (!card.streams[element.direction]) continue;
        card.mixer.push_back(element);
        card.mixerValues.emplace_back(element.values, element.initial);
    }
}

double MixerGain(const SoundCard& card, unsigned direction) {
    double decibels = 0;
    for (size_t i = 0; i < card.mixer.size(); ++i) {
        const MixerElement& element = card.mixer[i];
        const long value = card.mixerValues[i].front();
        if (element.direction != direction) continue;
        if (element.kind == MixerKind::kSwitch && value == 0) return 0;
        decibels += static_cast<double>(value - element.unity) * element.step;
    }
    return Amplitude(decibels);
}

static snd_ctl_elem_id IdOf(const SoundCard& card, size_t row) {
    snd_ctl_elem_id id = {.numid = static_cast<unsigned>(row + 1), .iface = SNDRV_CTL_ELEM_IFACE_MIXER};
    CopyText(id.name, card.mixer[row].name);
    return id;
}

static constexpr size_t kNoRow = SIZE_MAX;

static size_t RowOf(const SoundCard& card, const snd_ctl_elem_id& id) {
    if (id.numid != 0) return id.numid <= card.mixer.size() ? id.numid - 1 : kNoRow;
    const std::string_view name(reinterpret_cast<const char*>(id.name),
                                strnlen(reinterpret_cast<const char*>(id.name), sizeof id.name));
    const auto element = std::ranges::find_if(card.mixer, [&](const auto& known) { return name == known.name; });
    if (element == card.mixer.end() || id.iface != SNDRV_CTL_ELEM_IFACE_MIXER || id.index != 0) return kNoRow;
    return static_cast<size_t>(element - card.mixer.begin());
}

static int ListElements(const ControlCall& call, snd_ctl_elem_list& list) {
    const size_t count = call.card.mixer.size(), first = std::min<size_t>(list.offset, count);
    std::vector<snd_ctl_elem_id> ids;
    for (size_t row = first; row < count && ids.size() < std::min(list.space, kListLimit); ++row)
        ids.push_back(IdOf(call.card, row));
    list.count = static_cast<unsigned>(count);
    list.used = static_cast<unsigned>(ids.size());
    const auto address = reinterpret_cast<uint64_t>(list.pids);
    return ids.empty() || call.ioctl.memory.Write(address, ids.data(), ids.size() * sizeof ids[0]) ? 0 : -EFAULT;
}

static constexpr snd_ctl_elem_type_t TypeOf(MixerKind kind) {
    if (kind == MixerKind::kList) return SNDRV_CTL_ELEM_TYPE_ENUMERATED;
    return kind == MixerKind::kSwitch ? SNDRV_CTL_ELEM_TYPE_BOOLEAN : SNDRV_CTL_ELEM_TYPE_INTEGER;
}

static int GetElementInfo(const ControlCall& call, snd_ctl_elem_info& info) {
    const size_t row = RowOf(call.card, info.id);
    if (row == kNoRow) return -ENOENT;
    const MixerElement& element = call.card.mixer[row];
    const auto item =
        std::min<size_t>(info.value.enumerated.item, element.items.empty() ? 0 : element.items.size() - 1);
    info = {.id = IdOf(call.card, row), .type = TypeOf(element.kind), .access = kAccess, .count = element.values};
    if (element.kind == MixerKind::kList) {
        info.value.enumerated.items = static_cast<unsigned>(element.items.size());
        info.value.enumerated.item = static_cast<unsigned>(item);
        CopyText(info.value.enumerated.name, element.items[item]);
    } else {
        info.value.integer.max = element.maximum;
    }
    return 0;
}

static int ReadElement(const ControlCall& call, snd_ctl_elem_value& value) {
    const size_t row = RowOf(call.card, value.id);
    if (row == kNoRow) return -ENOENT;
    value = {.id = IdOf(call.card, row)};
    const std::vector<long>& values = call.card.mixerValues[row];
    for (size_t i = 0; i < values.size(); ++i) {
        if (call.card.mixer[row].kind == MixerKind::kList)
            value.value.enumerated.item[i] = static_cast<unsigned>(values[i]);
        else
            value.value.integer.value[i] = values[i];
    }
    return 0;
}

static std::vector<long> ValuesIn(const snd_ctl_elem_value& value, const MixerElement& element) {
    std::vector<long> values;
    for (size_t i = 0; i < element.values; ++i)
        values.push_back(element.kind == MixerKind::kList ? long{value.value.enumerated.item[i]}
                                                          : value.value.integer.value[i]);
    return values;
}

// 1 when something changed, as the kernel tells it.
static int WriteElement(const ControlCall& call, snd_ctl_elem_value& value) {
    SoundCard& card = call.card;
    const size_t row = RowOf(card, value.id);
    if (row == kNoRow) return -ENOENT;
    const std::vector<long> values = ValuesIn(value, card.mixer[row]);
    for (const long wanted : values)
        if (wanted < 0 || wanted > card.mixer[row].maximum) return -EINVAL;
    Trace("sound", {{"card", card.number},
                    {"place", kSoundPlaces[card.traits.place].name},
                    {"event", "mixer"},
                    {"element", card.mixer[row].name},
                    {"values", values}});
    if (values == card.mixerValues[row]) return 0;
    card.mixerValues[row] = values;
    RefreshGain(*card.streams[card.mixer[row].direction]);
    return 1;
}

// ---- The table

static constexpr std::array kIoctls = {
    Row<GetCardInfo>(SNDRV_CTL_IOCTL_CARD_INFO),
    Row<GetProtocol>(SNDRV_CTL_IOCTL_PVERSION),
    Row<ListElements>(SNDRV_CTL_IOCTL_ELEM_LIST),
    Row<GetElementInfo>(SNDRV_CTL_IOCTL_ELEM_INFO),
    Row<ReadElement>(SNDRV_CTL_IOCTL_ELEM_READ),
    Row<WriteElement>(SNDRV_CTL_IOCTL_ELEM_WRITE),
    Row<Subscribe>(SNDRV_CTL_IOCTL_SUBSCRIBE_EVENTS),
    Row<NextPcmDevice>(SNDRV_CTL_IOCTL_PCM_NEXT_DEVICE),
    Row<GetPcmInfo>(SNDRV_CTL_IOCTL_PCM_INFO),
    Row<PreferSubdevice>(SNDRV_CTL_IOCTL_PCM_PREFER_SUBDEVICE),
    Row<NoNextDevice>(SNDRV_CTL_IOCTL_HWDEP_NEXT_DEVICE),
    Row<NoNextDevice>(SNDRV_CTL_IOCTL_RAWMIDI_NEXT_DEVICE),
    Row<GetPowerState>(SNDRV_CTL_IOCTL_POWER_STATE),
};

// ---- Files

static SoundSession& SessionOf(const OpenFile& file) { return *static_cast<SoundSession*>(file.state); }

static int OpenControlNode(OpenFile& file) {
    std::shared_ptr<SoundCard> card = SoundCards[static_cast<size_t>(file.unit)];
    if (!card) return -ENODEV;
    file.state = new SoundSession{.card = std::move(card), .stream = nullptr};
    return 0;
}

static int IoctlControl(const IoctlCall& ioctl) {
    SoundCard& card = *SessionOf(ioctl.file).card;
    if (card.gone) return -ENODEV;
    return AnswerIoctl(kIoctls, ControlCall{.card = card, .ioctl = ioctl});
}

static unsigned ReadyControl(const OpenFile& file) { return SessionOf(file).card->gone ? POLLERR | POLLNVAL : 0; }

static void CloseControlNode(OpenFile& file) {
    delete &SessionOf(file);
    file.state = nullptr;
}

const DeviceModel kSoundControlModel = {.name = "sound card",
                                        .open = OpenControlNode,
                                        .ioctl = IoctlControl,
                                        .ready = ReadyControl,
                                        .close = CloseControlNode};
