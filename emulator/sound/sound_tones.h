// Tones: what each sound source of the board plays, and finding them again in what an output was given.
//
// The frequencies are primes times 10 Hz: none is a harmonic of another or of the 1000 Hz that a test tone has, and
// each repeats exactly ten times a second, so that 200 ms of sound hold whole periods of all of them and an exact
// Fourier transform tells them apart without a window. Levels are decibels relative to a sine of full scale (0 dB).
//
// Pure.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

inline constexpr double kSourceLevel = -20;  // of every source's tone
inline constexpr double kSilence = -120;     // lowest level that is told
inline constexpr unsigned kBinHertz = 5;     // of the spectrum; its length is 1/5 s

double Decibels(double amplitude);  // 1.0: full scale
double Amplitude(double decibels);

// Whole periods of a tone, from its rising zero: a tenth of a second.
std::vector<int16_t> MakeTone(unsigned frequency, unsigned rate, double decibels);

// Amplitude of each 5 Hz bin, for samples of 1/5 s. Quick for any usual rate (small prime factors).
std::vector<float> Spectrum(std::span<const int16_t> samples);

// Of the sine in whose 5 Hz bin this frequency is, for samples of 1/5 s: to a small part of a hertz, by how far its
// phase moves from one half of them to the other.
double ExactFrequency(std::span<const int16_t> samples, unsigned frequency, unsigned rate);

// Of the whole, or of one frequency under a window that hides neighbours more than 150 Hz away from 20 ms of samples.
double Level(std::span<const int16_t> samples);
double ToneLevel(std::span<const int16_t> samples, unsigned frequency, unsigned rate);
