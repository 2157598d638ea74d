#include "sound/sound_tones.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

static constexpr double kFullScale = 32767;
static constexpr unsigned kTonePeriodsPerSecond = 10;  // after a tenth of a second every tone begins anew

using Complex = std::complex<float>;

double Decibels(double amplitude) { return amplitude > 1e-6 ? 20 * std::log10(amplitude) : kSilence; }

double Amplitude(double decibels) { return std::pow(10, decibels / 20); }

std::vector<int16_t> MakeTone(unsigned frequency, unsigned rate, double decibels) {
    std::vector<int16_t> tone(rate / kTonePeriodsPerSecond);
    const double step = 2 * std::numbers::pi * frequency / rate, peak = kFullScale * Amplitude(decibels);
    for (size_t i = 0; i < tone.size(); ++i) {
        const double sample = peak * std::sin(step * static_cast<double>(i));
        tone[i] = static_cast<int16_t>(std::lround(std::clamp(sample, -kFullScale, kFullScale)));
    }
    return tone;
}

static size_t SmallestFactor(size_t number) {
    size_t factor = 2;
    while (factor * factor <= number && number % factor != 0) ++factor;
    return number % factor == 0 ? factor : number;
}

// Decimation in time over any factors. `roots` are the N-th roots of unity of the whole transform.
static void Transform(const Complex* in, size_t stride, std::span<Complex> out, std::span<const Complex> roots) {
    if (out.size() == 1) {
        out[0] = *in;
        return;
    }
    const size_t parts = SmallestFactor(out.size()), length = out.size() / parts;
    for (size_t part = 0; part < parts; ++part)
        Transform(in + part * stride, stride * parts, out.subspan(part * length, length), roots);
    std::vector<Complex> column(parts);
    for (size_t row = 0; row < length; ++row) {
        for (size_t part = 0; part < parts; ++part) column[part] = out[part * length + row];
        for (size_t k = 0; k < parts; ++k) {
            const size_t bin = k * length + row;
            Complex sum = 0;
            for (size_t part = 0; part < parts; ++part) sum += column[part] * roots[part * bin * stride % roots.size()];
            out[bin] = sum;
        }
    }
}

std::vector<float> Spectrum(std::span<const int16_t> samples) {
    const size_t count = samples.size();
    std::vector<Complex> in(samples.begin(), samples.end()), out(count), roots(count);
    for (size_t i = 0; i < count; ++i)
        roots[i] =
            Complex(std::polar(1.0, -2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(count)));
    if (count > 0) Transform(in.data(), 1, out, roots);
    std::vector<float> amplitudes(count / 2);
    const auto scale = static_cast<float>(2 / (kFullScale * static_cast<double>(count)));
    std::transform(out.begin(), out.begin() + static_cast<ptrdiff_t>(amplitudes.size()), amplitudes.begin(),
                   [scale](Complex bin) { return std::abs(bin) * scale; });
    return amplitudes;
}

double ExactFrequency(std::span<const int16_t> samples, unsigned frequency, unsigned rate) {
    const size_t half = samples.size() / 2;
    const auto turn = std::polar(1.0, -2 * std::numbers::pi * frequency / rate);
    std::complex<double> first = 0, second = 0, phase = 1;
    for (size_t i = 0; i < 2 * half; ++i, phase *= turn) (i < half ? first : second) += double(samples[i]) * phase;
    if (half == 0) return frequency;
    const double moved = std::arg(second * std::conj(first)) / (2 * std::numbers::pi);  // turns
    return frequency + moved * rate / static_cast<double>(half);
}

double Level(std::span<const int16_t> samples) {
    if (samples.empty()) return kSilence;
    double power = 0;
    for (const double sample : samples) power += sample * sample;
    return Decibels(std::sqrt(2 * power / static_cast<double>(samples.size())) / kFullScale);
}

double ToneLevel(std::span<const int16_t> samples, unsigned frequency, unsigned rate) {
    const auto count = static_cast<double>(samples.size());
    const auto turn = std::polar(1.0, 2 * std::numbers::pi * frequency / rate);
    const auto windowTurn = std::polar(1.0, 2 * std::numbers::pi / count);
    std::complex<double> sum = 0, phase = 1, window = windowTurn;
    for (const double sample : samples) {
        sum += sample * (1 - window.real()) * phase;  // Hann
        phase *= turn;
        window *= windowTurn;
    }
    return count > 0 ? Decibels(2 * std::abs(sum) / (kFullScale * count)) : kSilence;
}
