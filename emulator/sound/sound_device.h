// The inside of the sound cards: places, cards, streams, and what each sound_*.cpp file does with them. Included by
// those files only.
//
// A place is where a card can be: on the board, or on a USB port. It outlives cards and power: its tone, its faults and
// its counters are the place's. A card lives from plug to unplug, or as long as a program still holds one of its nodes.
#pragma once

#include <sound/asound.h>
#include <array>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kernel/supervisor.h"
#include "sound/sound_params.h"

// An answer in a kernel record names what it tells; everything else, reserved fields too, is to be 0.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

inline constexpr unsigned kPlayback = SNDRV_PCM_STREAM_PLAYBACK, kCapture = SNDRV_PCM_STREAM_CAPTURE;
inline constexpr unsigned kSoundMajor = 116;

// ---- Places

enum SoundPlace : size_t { kAnalogPlace, kFpgaPlace, kHdmiPlace, kUsb1Place, kUsb2Place, kSound1Place, kSound2Place };

struct SoundPlaceRow {
    std::string_view name;    // of the place and of its output
    std::string_view source;  // what its microphone or input is called; empty: nothing to capture
    unsigned tone;            // Hz, of that source
};
inline constexpr std::array kSoundPlaces = {
    SoundPlaceRow{.name = "analog", .source = "line", .tone = 410},
    SoundPlaceRow{.name = "fpga", .source = "fpga", .tone = 610},
    SoundPlaceRow{.name = "hdmi", .source = {}, .tone = 0},
    SoundPlaceRow{.name = "usb1", .source = "microphone1", .tone = 790},
    SoundPlaceRow{.name = "usb2", .source = "microphone2", .tone = 1270},
    SoundPlaceRow{.name = "sound1", .source = "sound1", .tone = 1570},
    SoundPlaceRow{.name = "sound2", .source = "sound2", .tone = 1810},
};
inline constexpr unsigned kTestTone = 1000;  // Hz; what a test of the outputs usually plays

struct StreamCounters {  // since power-on
    uint64_t frames = 0;
    unsigned xruns = 0;
    unsigned waits = 0;  // for a program that was late; a board's card would have broken off
};

struct PlaceState {
    bool toneOn = true;
    bool busy = false, gone = false;  // faults
    std::array<StreamCounters, 2> counters;
};
extern std::array<PlaceState, kSoundPlaces.size()> SoundPlaces;

// ---- What an output was given lately: the mean of its channels.

struct HeardTone {
    bool audible = false;
    int differs = 0;           // checks in a row that found it otherwise,
    int64_t differsSince = 0;  // and when the first of them was
};

struct SoundHistory {
    unsigned rate = 0;
    std::vector<int16_t> samples;  // a ring of half a second
    size_t next = 0;
    unsigned untilCheck = 0;                                 // frames
    std::array<HeardTone, kSoundPlaces.size() + 1> tones{};  // rows as in kSoundPlaces, then the test tone
};

// ---- Streams

// A read or write that waits for room or sound keeps what it has moved so far.
struct Transfer {
    pid_t thread = 0;  // 0: none
    uint64_t address = 0, frames = 0, moved = 0;
};

struct SoundCard;

struct SoundStream {
    SoundCard& card;
    unsigned direction;  // kPlayback or kCapture
    SoundLimits limits;
    int ppm;  // how much too fast its clock is

    // While a program has it open.
    OpenFile* owner = nullptr;
    snd_pcm_state_t state = SNDRV_PCM_STATE_OPEN;
    snd_pcm_mmap_status* status = nullptr;    // pages that the program may have mapped
    snd_pcm_mmap_control* control = nullptr;  //
    std::span<uint8_t> ring;

    SoundFormat format;
    uint64_t startThreshold = 0, stopThreshold = 0, silenceSize = 0, boundary = 0;
    Transfer transfer;

    // The hardware's pointer. While moving it was `startFrame` at `startedAt`. Neither pointer ever reaches the
    // boundary at which the kernel lets them wrap: that is 2^61 frames away.
    uint64_t hardware = 0, startFrame = 0;
    int64_t startedAt = 0, triggeredAt = 0;
    int64_t waitsSince = 0;  // for a late program; 0: it is in time
    int64_t stoodStill = 0;  // microseconds, added up; starts at what the others have
    int64_t lookedAt = 0;    // when the pointer was followed last
    TimerId interrupt = 0;

    double gain = 1;            // of the card's mixer
    std::vector<int16_t> tone;  // capture: whole periods
    size_t toneNext = 0;        // its next sample
    SoundHistory history;       // playback
};

// ---- Cards

enum class MixerKind { kVolume, kSwitch, kList };

struct MixerElement {
    const char* name;
    MixerKind kind;
    unsigned direction;  // the stream to which it belongs
    unsigned values;
    long maximum;  // minimum is 0
    long initial;
    double step = 0;  // volume: decibels
    long unity = 0;   // volume: where the gain is 0 dB
    std::span<const char* const> items = {};
};

struct CardTraits {
    SoundPlace place;
    std::string driver, name, longName;
    std::string pcmId, pcmName;
    std::span<const MixerElement> mixer;
    SoundLimits playback, capture;  // without rates: no such stream
    int ppm = 0;
};

struct SoundCard {
    CardTraits traits;
    int number;
    std::string id;
    bool gone = false;
    std::array<std::unique_ptr<SoundStream>, 2> streams;
    std::vector<MixerElement> mixer;  // those of the streams that are there
    std::vector<std::vector<long>> mixerValues;
};

struct SoundSession {  // one open file
    std::shared_ptr<SoundCard> card;
    SoundStream* stream;  // null: of the control node
};

inline constexpr size_t kSoundCards = 32;
extern std::array<std::shared_ptr<SoundCard>, kSoundCards> SoundCards;
SoundCard* CardAt(SoundPlace place);  // null: none

extern const DeviceModel kSoundControlModel;  // unit: card
extern const DeviceModel kSoundPcmModel;      // unit: card * 2 + direction

void DescribePcm(const SoundCard& card, const SoundStream& stream, snd_pcm_info& info);

// ---- Mixer

void SetUpMixer(SoundCard& card);
double MixerGain(const SoundCard& card, unsigned direction);  // 0: switched off

// ---- The life of a stream, by its operations. Those that return a number: 0, -errno or kHold.

int OpenStream(SoundStream& stream, OpenFile& file);
void CloseStream(SoundStream& stream);
void DisconnectStream(SoundStream& stream);  // the card is gone, the program still there
int SetFormat(SoundStream& stream, const SoundFormat& format);
void FreeFormat(SoundStream& stream);

int PrepareStream(SoundStream& stream);
int StartStream(SoundStream& stream);
int DropStream(SoundStream& stream);
int DrainStream(SoundStream& stream, const NonBlocking& nonBlocking);
void StopByXrun(SoundStream& stream);

void Advance(SoundStream& stream);  // to now; may end in an xrun
uint64_t ApplicationPointer(const SoundStream& stream);
void SetApplicationPointer(SoundStream& stream, uint64_t frame);
uint64_t AvailableFrames(const SoundStream& stream);  // to write or to read
int AccessError(const SoundStream& stream);           // 0: sound can be moved

void RefreshGain(SoundStream& stream);  // after the mixer or the source's tone changed

// ---- What was heard

void ResetHistory(SoundHistory& history, unsigned rate);
// `endsAt`: when the last of these samples was played, microseconds.
void Hear(SoundHistory& history, std::span<const int16_t> samples, int64_t endsAt, std::string_view output);
std::vector<int16_t> Newest(const SoundHistory& history, size_t count);
