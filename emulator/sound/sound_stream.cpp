// The life of a PCM stream: its pointers follow the clock, a timer plays the interrupt at the end of each period.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cmath>
#include <utility>

#include "bench/trace.h"
#include "sound/sound_device.h"
#include "sound/sound_tones.h"

static constexpr size_t kPageBytes = 4096;
static constexpr off_t kStatusOffset = 0x8000'0000, kControlOffset = 0x8100'0000, kFileBytes = 0x8200'0000;

// A PC has moments in which nobody runs, and a board has none of them: so long a card stands still with its clock and
// waits for its program, before it breaks off.
static constexpr int64_t kPatience = 2'000'000;  // microseconds

static int64_t longestStandstill;  // of any stream, added up, microseconds

// ---- Pages shared with the program

template <typename T>
static T* MapPage(const OpenFile& file, off_t offset) {
    void* page = mmap(nullptr, kPageBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.descriptor, offset);
    return page == MAP_FAILED ? nullptr : static_cast<T*>(page);
}

template <typename T>
static void UnmapPage(T*& page) {
    if (page != nullptr) munmap(page, kPageBytes);
    page = nullptr;
}

static void Publish(SoundStream& stream) {
    if (stream.status == nullptr) return;
    const int64_t now = NowMicroseconds();
    stream.status->tstamp = {.tv_sec = now / 1'000'000, .tv_nsec = now % 1'000'000 * 1000};
    std::atomic_ref(stream.status->hw_ptr).store(stream.hardware, std::memory_order_release);
    std::atomic_ref(stream.status->state).store(stream.state, std::memory_order_release);
}

// The program may have written anything there. It can be late, but never ahead of what there is.
uint64_t ApplicationPointer(const SoundStream& stream) {
    const uint64_t pointer = std::atomic_ref(stream.control->appl_ptr).load(std::memory_order_acquire);
    const bool plays = stream.direction == kPlayback;
    return std::min(pointer, plays ? stream.hardware + stream.format.bufferFrames : stream.hardware);
}

void SetApplicationPointer(SoundStream& stream, uint64_t frame) {
    std::atomic_ref(stream.control->appl_ptr).store(frame, std::memory_order_release);
}

uint64_t AvailableFrames(const SoundStream& stream) {
    const uint64_t application = ApplicationPointer(stream);
    if (stream.direction == kCapture) return stream.hardware - application;
    return stream.hardware + stream.format.bufferFrames - application;
}

int AccessError(const SoundStream& stream) {
    if (stream.state == SNDRV_PCM_STATE_XRUN) return -EPIPE;
    if (stream.state == SNDRV_PCM_STATE_PREPARED || stream.state == SNDRV_PCM_STATE_RUNNING) return 0;
    return stream.state == SNDRV_PCM_STATE_DRAINING && stream.direction == kCapture ? 0 : -EBADFD;
}

// ---- Sound

static StreamCounters& CountersOf(const SoundStream& stream) {
    return SoundPlaces[stream.card.traits.place].counters[stream.direction];
}

static std::span<int16_t> FrameAt(const SoundStream& stream, uint64_t frame) {
    auto* samples = reinterpret_cast<int16_t*>(stream.ring.data());
    return {samples + frame % stream.format.bufferFrames * stream.format.channels, stream.format.channels};
}

static void Capture(SoundStream& stream, uint64_t until) {
    const bool silent = stream.tone.empty();
    for (uint64_t frame = stream.hardware; frame < until; ++frame) {
        std::ranges::fill(FrameAt(stream, frame), silent ? int16_t{0} : stream.tone[stream.toneNext]);
        if (!silent) stream.toneNext = (stream.toneNext + 1) % stream.tone.size();
    }
}

static int16_t Mean(std::span<const int16_t> samples, double gain) {
    double sum = 0;
    for (const int16_t sample : samples) sum += sample;
    const double mean = gain * sum / static_cast<double>(samples.size());
    return static_cast<int16_t>(std::clamp(std::lround(mean), long{INT16_MIN}, long{INT16_MAX}));
}

static int64_t TimeOf(const SoundStream& stream, uint64_t frame);

// What the program has not written in time is silence here.
static void Play(SoundStream& stream, uint64_t until) {
    const uint64_t written = ApplicationPointer(stream);
    std::vector<int16_t> heard;
    heard.reserve(until - stream.hardware);
    for (uint64_t frame = stream.hardware; frame < until; ++frame) {
        const std::span<int16_t> samples = FrameAt(stream, frame);
        heard.push_back(frame < written ? Mean(samples, stream.gain) : int16_t{0});
        if (stream.silenceSize > 0) std::ranges::fill(samples, int16_t{0});
    }
    Hear(stream.history, heard, TimeOf(stream, until), kSoundPlaces[stream.card.traits.place].name);
}

void RefreshGain(SoundStream& stream) {
    Advance(stream);  // what was before sounds as before
    const bool wasSilent = stream.tone.empty();
    stream.gain = MixerGain(stream.card, stream.direction);
    if (stream.direction == kPlayback) return;
    const SoundPlace place = stream.card.traits.place;
    const bool sounds = SoundPlaces[place].toneOn && stream.gain > 0 && stream.format.rate > 0;
    stream.tone.clear();
    if (sounds)
        stream.tone = MakeTone(kSoundPlaces[place].tone, stream.format.rate, kSourceLevel + Decibels(stream.gain));
    if (wasSilent || stream.toneNext >= stream.tone.size()) stream.toneNext = 0;
}

// ---- Time

static double FramesPerMicrosecond(const SoundStream& stream) {
    return stream.format.rate * (1 + stream.ppm / 1e6) / 1e6;
}

static uint64_t FrameNow(const SoundStream& stream) {
    const auto passed = static_cast<double>(NowMicroseconds() - stream.startedAt);
    return stream.startFrame + static_cast<uint64_t>(std::max(0.0, passed) * FramesPerMicrosecond(stream));
}

static int64_t TimeOf(const SoundStream& stream, uint64_t frame) {
    const auto frames = static_cast<double>(frame - stream.startFrame);
    return stream.startedAt + static_cast<int64_t>(frames / FramesPerMicrosecond(stream)) + 1;
}

static bool IsMoving(const SoundStream& stream) {
    return stream.state == SNDRV_PCM_STATE_RUNNING ||
           (stream.state == SNDRV_PCM_STATE_DRAINING && stream.direction == kPlayback);
}

static void TraceEvent(const SoundStream& stream, std::string_view event) {
    Trace("sound", {{"card", stream.card.number},
                    {"place", kSoundPlaces[stream.card.traits.place].name},
                    {"stream", stream.direction == kPlayback ? "playback" : "capture"},
                    {"event", event}});
}

static void Stop(SoundStream& stream, snd_pcm_state_t state, std::string_view event) {
    if (IsMoving(stream) || state == SNDRV_PCM_STATE_XRUN) TraceEvent(stream, event);
    CancelCall(stream.interrupt);
    stream.interrupt = 0;
    stream.state = state;
    stream.triggeredAt = NowMicroseconds();
    Publish(stream);
    if (stream.owner != nullptr) Wake(*stream.owner);
}

void StopByXrun(SoundStream& stream) {
    ++CountersOf(stream).xruns;
    Stop(stream, SNDRV_PCM_STATE_XRUN, stream.direction == kPlayback ? "underrun" : "overrun");
}

// Of a long standstill only what fits the buffer can still be moved.
static void MoveTo(SoundStream& stream, uint64_t until) {
    CountersOf(stream).frames += until - stream.hardware;
    if (until - stream.hardware > stream.format.bufferFrames) stream.hardware = until - stream.format.bufferFrames;
    (stream.direction == kPlayback ? Play : Capture)(stream, until);
    stream.hardware = until;
}

// How far the stream can move before its program is too late.
static uint64_t LastFrameInTime(const SoundStream& stream) {
    const uint64_t ahead = stream.direction == kPlayback ? stream.format.bufferFrames : 0;
    const uint64_t tooLate = ApplicationPointer(stream) + stream.stopThreshold;
    return std::max(tooLate > ahead ? tooLate - ahead - 1 : 0, stream.hardware);
}

static void Pause(SoundStream& stream, int64_t time) {
    stream.startedAt += time;
    stream.stoodStill += time;
    longestStandstill = std::max(longestStandstill, stream.stoodStill);
}

static uint64_t StandStill(SoundStream& stream) {
    const int64_t now = NowMicroseconds();
    if (stream.waitsSince == 0) {
        stream.waitsSince = now;
        ++CountersOf(stream).waits;
    }
    if (now - stream.waitsSince > kPatience) return FrameNow(stream);
    const uint64_t last = LastFrameInTime(stream);
    Pause(stream, std::max<int64_t>(now - TimeOf(stream, last), 0));
    return last;
}

// Where one stream has stood still, the others follow: they would otherwise drift apart until the program has no room
// left for what is between them.
static void FollowOthers(SoundStream& stream) {
    const int64_t now = NowMicroseconds(), passed = now - std::exchange(stream.lookedAt, now);
    Pause(stream, std::min(longestStandstill - stream.stoodStill, passed));
}

static uint64_t FrameInTime(SoundStream& stream) {
    FollowOthers(stream);
    const uint64_t now = FrameNow(stream);
    if (stream.stopThreshold >= stream.boundary) return now;  // it wants the card to run on without it
    if (now > LastFrameInTime(stream)) return StandStill(stream);
    stream.waitsSince = 0;
    return now;
}

void Advance(SoundStream& stream) {
    if (!IsMoving(stream)) return;
    const bool draining = stream.state == SNDRV_PCM_STATE_DRAINING;
    const uint64_t until = draining ? std::min(FrameNow(stream), ApplicationPointer(stream)) : FrameInTime(stream);
    if (until > stream.hardware) MoveTo(stream, until);
    Publish(stream);
    if (draining && stream.hardware >= ApplicationPointer(stream)) {
        Stop(stream, SNDRV_PCM_STATE_SETUP, "drained");
    } else if (!draining && AvailableFrames(stream) >= stream.stopThreshold) {
        StopByXrun(stream);
    }
}

static void ScheduleInterrupt(SoundStream& stream) {
    const uint64_t period = stream.format.periodFrames;
    uint64_t frame = (stream.hardware / period + 1) * period;
    if (stream.state == SNDRV_PCM_STATE_DRAINING) frame = std::min(frame, ApplicationPointer(stream));
    CancelCall(stream.interrupt);
    stream.interrupt = CallAt(TimeOf(stream, frame), [&stream] {
        stream.interrupt = 0;
        Advance(stream);
        if (!IsMoving(stream)) return;
        Wake(*stream.owner);
        ScheduleInterrupt(stream);
    });
}

// ---- Operations

int OpenStream(SoundStream& stream, OpenFile& file) {
    if (ftruncate(file.descriptor, kFileBytes) != 0) return -errno;
    stream.status = MapPage<snd_pcm_mmap_status>(file, kStatusOffset);
    stream.control = MapPage<snd_pcm_mmap_control>(file, kControlOffset);
    stream.owner = &file;
    stream.state = SNDRV_PCM_STATE_OPEN;
    stream.transfer = {};
    if (stream.status == nullptr || stream.control == nullptr) {
        CloseStream(stream);
        return -ENOMEM;
    }
    Publish(stream);
    return 0;
}

static void UnmapRing(SoundStream& stream) {
    if (!stream.ring.empty()) munmap(stream.ring.data(), stream.ring.size());
    stream.ring = {};
}

void CloseStream(SoundStream& stream) {
    stream.owner = nullptr;
    Stop(stream, SNDRV_PCM_STATE_OPEN, "closed");
    UnmapRing(stream);
    UnmapPage(stream.status);
    UnmapPage(stream.control);
    stream.format = {};
}

void DisconnectStream(SoundStream& stream) {
    if (stream.owner != nullptr) Stop(stream, SNDRV_PCM_STATE_DISCONNECTED, "disconnected");
}

int SetFormat(SoundStream& stream, const SoundFormat& format) {
    UnmapRing(stream);
    const size_t bytes = size_t{format.bufferFrames} * format.channels * kSampleBytes;
    void* ring = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, stream.owner->descriptor, 0);
    if (ring == MAP_FAILED) return -ENOMEM;
    stream.ring = {static_cast<uint8_t*>(ring), bytes};
    std::ranges::fill(stream.ring, uint8_t{0});
    stream.format = format;
    stream.startThreshold = 1;
    stream.stopThreshold = stream.boundary = format.bufferFrames;
    while (stream.boundary * 2 <= uint64_t{LONG_MAX} - format.bufferFrames) stream.boundary *= 2;
    stream.silenceSize = 0;
    stream.hardware = 0;
    stream.control->avail_min = format.periodFrames;
    SetApplicationPointer(stream, 0);
    ResetHistory(stream.history, format.rate);
    RefreshGain(stream);
    stream.state = SNDRV_PCM_STATE_SETUP;
    Publish(stream);
    return 0;
}

void FreeFormat(SoundStream& stream) {
    UnmapRing(stream);
    stream.state = SNDRV_PCM_STATE_OPEN;
    stream.format = {};
    Publish(stream);
}

int PrepareStream(SoundStream& stream) {
    if (stream.state == SNDRV_PCM_STATE_OPEN) return -EBADFD;
    if (IsMoving(stream)) return -EBUSY;
    stream.hardware = 0;
    SetApplicationPointer(stream, 0);
    stream.transfer = {};
    stream.state = SNDRV_PCM_STATE_PREPARED;
    Publish(stream);
    return 0;
}

static bool HasSoundToPlay(const SoundStream& stream) {
    return stream.stopThreshold >= stream.boundary || AvailableFrames(stream) < stream.format.bufferFrames;
}

int StartStream(SoundStream& stream) {
    if (stream.state != SNDRV_PCM_STATE_PREPARED) return -EBADFD;
    if (stream.direction == kPlayback && !HasSoundToPlay(stream)) return -EPIPE;
    stream.state = SNDRV_PCM_STATE_RUNNING;
    stream.startedAt = stream.triggeredAt = NowMicroseconds();
    stream.startFrame = stream.hardware;
    stream.lookedAt = stream.startedAt;
    stream.stoodStill = longestStandstill;
    stream.waitsSince = 0;
    Publish(stream);
    TraceEvent(stream, "started");
    ScheduleInterrupt(stream);
    return 0;
}

int DropStream(SoundStream& stream) {
    if (stream.state == SNDRV_PCM_STATE_OPEN) return -EBADFD;
    Advance(stream);
    Stop(stream, SNDRV_PCM_STATE_SETUP, "dropped");
    return 0;
}

static void DrainCapture(SoundStream& stream) {
    Advance(stream);
    const bool left = stream.state == SNDRV_PCM_STATE_RUNNING && AvailableFrames(stream) > 0;
    Stop(stream, left ? SNDRV_PCM_STATE_DRAINING : SNDRV_PCM_STATE_SETUP, "drained");
}

int DrainStream(SoundStream& stream, const NonBlocking& nonBlocking) {
    if (stream.state == SNDRV_PCM_STATE_OPEN) return -EBADFD;
    if (stream.state == SNDRV_PCM_STATE_SETUP) return 0;
    if (stream.direction == kCapture) return DrainCapture(stream), 0;
    if (stream.state == SNDRV_PCM_STATE_PREPARED && HasSoundToPlay(stream)) StartStream(stream);
    if (!IsMoving(stream)) {
        Stop(stream, SNDRV_PCM_STATE_SETUP, "drained");
        return 0;
    }
    if (stream.state == SNDRV_PCM_STATE_RUNNING) {
        stream.state = SNDRV_PCM_STATE_DRAINING;
        Advance(stream);
        if (!IsMoving(stream)) return 0;
        ScheduleInterrupt(stream);
    }
    return nonBlocking ? -EAGAIN : kHold;
}
