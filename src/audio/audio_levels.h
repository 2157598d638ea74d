// Gains and mute: what the settings say, applied to the running audio pipeline's volume elements and to the HDMI
// receiver's audio mute, without a rebuild. Audio thread only; a change costs two I2C transfers.
//
// A gain byte is signed decibels: 0..100 mean 0..+100 dB, 101..255 mean value - 256 dB.
#pragma once

#include <gst/gst.h>

#include <cstdint>

inline constexpr float kMuteGain = 3.1622778e-05F;  // -90 dB, for a muted input
inline constexpr uint8_t kMuteByte = 166;           // the gain byte of -90 dB

float DbToGain(uint8_t byte);  // linear; above 10.0 the volume element refuses it and keeps what it has

// Everything that the levels follow, at one moment.
struct AudioLevels {
    uint8_t ain1, ain2, ain3, ain4, aout1, aout2, aout3, aout4;
    uint8_t acfg, audioJack, view, muteIn, input;
    bool operator==(const AudioLevels&) const = default;
};
AudioLevels AudioLevelsNow();

// What counts as applied when a pipeline has just been built; the jack starts as it was when the build began.
AudioLevels FreshAudioLevels(uint8_t audioJack);

// Linear gains of the microphones and the line input. Pure. False: they stay as they are.
struct InputGains {
    double usb1, usb2, analog;
    bool operator==(const InputGains&) const = default;
};
bool ChooseInputGains(const AudioLevels& levels, InputGains& gains);  // variant 0, by Acfg, jack and view

struct VolumeElements {  // all borrowed
    GstElement *volume1, *volume2, *volume3;
    GstElement *volumeAnaOut, *volumeUsb1Out, *volumeUsb2Out, *volumeHdmiOut;
};

// One pass: applies what differs from `applied` and notes it there.
void ApplyAudioSettings(const VolumeElements& volumes, AudioLevels& applied);
