// What can be asked about sound: the verbs `audio` and `tone`.
#include <cmath>

#include "bench/trace.h"
#include "sound/sound_card.h"
#include "sound/sound_device.h"
#include "sound/sound_tones.h"

static constexpr double kTold = -70;  // dB: below that a tone is not listed

static constexpr double kAudible = -60;  // of a quick look: the window's neighbours stay below

static double Rounded(double value) { return std::round(value * 100) / 100; }

// The newest fifth of a second that the output was given.
static void DescribeSound(Json& report, const SoundHistory& history) {
    const std::vector<int16_t> samples = Newest(history, history.rate / kBinHertz);
    const std::vector<float> spectrum = Spectrum(samples);
    const double level = Level(samples);
    report["level"] = Rounded(level);
    const auto loudest = std::max_element(spectrum.begin() + 1, spectrum.end());
    const auto nearest = static_cast<unsigned>(loudest - spectrum.begin()) * kBinHertz;
    report["frequency"] = level > kTold ? std::lround(ExactFrequency(samples, nearest, history.rate)) : 0;
    const auto tell = [&](std::string_view source, unsigned frequency) {
        const size_t bin = frequency / kBinHertz;
        const double tone = bin > 0 && bin < spectrum.size() ? Decibels(spectrum[bin]) : kSilence;
        if (tone > kTold) report["tones"][std::string(source)] = Rounded(tone);
    };
    for (const SoundPlaceRow& place : kSoundPlaces) tell(place.source, place.tone);
    tell("test", kTestTone);
}

static Json StreamReport(SoundPlace place, unsigned direction, SoundStream*& running) {
    SoundCard* card = CardAt(place);
    SoundStream* stream = card != nullptr ? card->streams[direction].get() : nullptr;
    if (stream != nullptr) Advance(*stream);
    running = stream != nullptr && stream->state == SNDRV_PCM_STATE_RUNNING ? stream : nullptr;
    const StreamCounters& counters = SoundPlaces[place].counters[direction];
    return {{"card", stream != nullptr ? Json(card->number) : Json(nullptr)},
            {"running", running != nullptr},
            {"rate", running != nullptr ? running->format.rate : 0},
            {"frames", counters.frames},
            {direction == kPlayback ? "underruns" : "overruns", counters.xruns},
            {"waits", counters.waits}};
}

static Json OutputReport(SoundPlace place) {
    SoundStream* running = nullptr;
    Json report = StreamReport(place, kPlayback, running);
    report["level"] = kSilence;
    report["frequency"] = 0;
    report["tones"] = Json::object();
    if (running != nullptr) DescribeSound(report, running->history);
    return report;
}

static Json InputReport(SoundPlace place) {
    SoundStream* running = nullptr;
    Json report = StreamReport(place, kCapture, running);
    report["tone"] = kSoundPlaces[place].tone;
    report["on"] = SoundPlaces[place].toneOn;
    return report;
}

VerbAnswer AudioVerb(const VerbWords& words) {
    if (!words.empty()) return Usage("audio");
    Json outputs = Json::object(), inputs = Json::object();
    for (size_t place = 0; place < kSoundPlaces.size(); ++place) {
        outputs[std::string(kSoundPlaces[place].name)] = OutputReport(SoundPlace(place));
        const std::string_view source = kSoundPlaces[place].source;
        if (!source.empty()) inputs[std::string(source)] = InputReport(SoundPlace(place));
    }
    return {.text = Json{{"outputs", outputs}, {"inputs", inputs}}.dump(4)};
}

// The few known tones instead of a spectrum: a page asks ten times a second.
static Json QuickLook(SoundPlace place, const SoundStream* running) {
    const PlaceState& state = SoundPlaces[place];
    Json look{{"running", running != nullptr}, {"level", kSilence}, {"tones", Json::array()}};
    if (state.busy || state.gone) look["fault"] = state.busy ? "busy" : "gone";
    if (running == nullptr) return look;
    const SoundHistory& history = running->history;
    const double level = Level(Newest(history, history.rate / 20));
    look["level"] = Rounded(level);
    if (level <= kTold) return look;
    const std::vector<int16_t> samples = Newest(history, history.rate / 50);
    const auto tell = [&](std::string_view source, unsigned frequency) {
        if (frequency > 0 && ToneLevel(samples, frequency, history.rate) > kAudible) look["tones"].push_back(source);
    };
    for (const SoundPlaceRow& row : kSoundPlaces) tell(row.source, row.tone);
    tell("test", kTestTone);
    return look;
}

Json SoundLevels() {
    Json levels = Json::object();
    for (size_t place = 0; place < kSoundPlaces.size(); ++place) {
        SoundStream* running = nullptr;
        if (StreamReport(SoundPlace(place), kPlayback, running)["card"].is_null() && !SoundPlaces[place].gone) continue;
        levels[std::string(kSoundPlaces[place].name)] = QuickLook(SoundPlace(place), running);
    }
    return levels;
}

// The line in the trace has the moment: the first sample of the tone is captured then.
VerbAnswer ToneVerb(const VerbWords& words) {
    if (words.size() != 2 || words[0].empty() || (words[1] != "on" && words[1] != "off")) return Usage("tone");
    const auto row = std::ranges::find(kSoundPlaces, std::string_view(words[0]), &SoundPlaceRow::source);
    if (row == kSoundPlaces.end()) return Usage("tone");
    const auto place = SoundPlace(row - kSoundPlaces.begin());
    SoundPlaces[place].toneOn = words[1] == "on";
    SoundCard* card = CardAt(place);
    if (card != nullptr && card->streams[kCapture]) RefreshGain(*card->streams[kCapture]);
    Trace("sound", {{"source", words[0]}, {"event", "tone " + words[1]}});
    return {};
}
