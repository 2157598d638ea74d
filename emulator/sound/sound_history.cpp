// What an output was given lately, and the moments at which a known tone begins or ends in it.
#include "bench/trace.h"
#include "sound/sound_device.h"
#include "sound/sound_tones.h"

static constexpr unsigned kHistoriesPerSecond = 2;  // half a second is kept
static constexpr unsigned kChecksPerSecond = 100, kWindowsPerSecond = 50;
static constexpr int kSureAfter = 3;         // checks: while a window holds a tone in part, it seems to hold any tone
static constexpr double kAudible = -60;      // dB
static constexpr double kBelowLoudest = 30;  // dB: beneath that a tone may be another one's shadow

struct KnownTone {
    std::string_view source;
    unsigned frequency;
};

static KnownTone ToneOf(size_t row) {
    if (row == kSoundPlaces.size()) return {"test", kTestTone};
    return {kSoundPlaces[row].source, kSoundPlaces[row].tone};
}

void ResetHistory(SoundHistory& history, unsigned rate) {
    history.rate = rate;
    history.samples.assign(rate / kHistoriesPerSecond, 0);
    history.next = 0;
    history.untilCheck = rate / kChecksPerSecond;
    history.tones = {};
}

std::vector<int16_t> Newest(const SoundHistory& history, size_t count) {
    const size_t size = history.samples.size();
    std::vector<int16_t> newest(std::min(count, size));
    for (size_t i = 0; i < newest.size(); ++i)
        newest[i] = history.samples[(history.next + size - newest.size() + i) % size];
    return newest;
}

static bool Changes(HeardTone& tone, bool audible, int64_t at) {
    tone.differs = audible == tone.audible ? 0 : tone.differs + 1;
    if (tone.differs == 1) tone.differsSince = at;
    if (tone.differs < kSureAfter) return false;
    tone.audible = audible;
    tone.differs = 0;
    return true;
}

static void TellChanges(SoundHistory& history, int64_t at, std::string_view output) {
    const std::vector<int16_t> window = Newest(history, history.rate / kWindowsPerSecond);
    std::array<double, kSoundPlaces.size() + 1> levels;
    double loudest = kAudible + kBelowLoudest;
    for (size_t row = 0; row < levels.size(); ++row) {
        const unsigned frequency = ToneOf(row).frequency;
        levels[row] = frequency > 0 ? ToneLevel(window, frequency, history.rate) : kSilence;
        loudest = std::max(loudest, levels[row]);
    }
    for (size_t row = 0; row < levels.size(); ++row) {
        HeardTone& tone = history.tones[row];
        if (!Changes(tone, levels[row] > loudest - kBelowLoudest, at)) continue;
        Trace("sound", {{"output", output},
                        {"event", tone.audible ? "heard" : "no longer heard"},
                        {"source", ToneOf(row).source},
                        {"at", TraceTime(tone.differsSince)}});
    }
}

void Hear(SoundHistory& history, std::span<const int16_t> samples, int64_t endsAt, std::string_view output) {
    for (size_t i = 0; i < samples.size(); ++i) {
        history.samples[history.next] = samples[i];
        history.next = (history.next + 1) % history.samples.size();
        if (--history.untilCheck > 0) continue;
        history.untilCheck = history.rate / kChecksPerSecond;
        const auto remaining = static_cast<int64_t>(samples.size() - 1 - i);
        TellChanges(history, endsAt - remaining * 1'000'000 / history.rate, output);
    }
}
