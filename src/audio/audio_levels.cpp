#include "audio/audio_levels.h"

#include <cmath>

#include "board/hdmi_receiver.h"
#include "core/log.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"
#include "settings/process_flags.h"

// How the inputs of variant 0 are mixed (Acfg). Other values leave their gains alone.
enum AudioPolicy : uint8_t { kFollowView = 0, kMixMicrophones = 2 };

float DbToGain(uint8_t byte) {
    const float decibels = byte > 100 ? static_cast<float>(byte) - 256.0F : static_cast<float>(byte);
    return static_cast<float>(std::pow(10.0, static_cast<double>(decibels / 20)));
}

AudioLevels AudioLevelsNow() {
    const DeviceSettings& s = Settings;
    return {.ain1 = s.Ain1,
            .ain2 = s.Ain2,
            .ain3 = s.Ain3,
            .ain4 = s.Ain4,
            .aout1 = s.Aout1,
            .aout2 = s.Aout2,
            .aout3 = s.Aout3,
            .aout4 = s.Aout4,
            .acfg = s.Acfg,
            .audioJack = s.AudioJack,
            .view = s.View,
            .muteIn = MuteIn,
            .input = s.Input};
}

AudioLevels FreshAudioLevels(uint8_t audioJack) {
    return {.ain1 = 255,
            .ain2 = 255,
            .ain3 = 255,
            .ain4 = 255,
            .aout1 = 255,
            .aout2 = 255,
            .aout3 = 255,
            .aout4 = 255,
            .acfg = 255,
            .audioJack = audioJack,
            .view = 0,
            .muteIn = 0,
            .input = 255};
}

bool ChooseInputGains(const AudioLevels& levels, InputGains& gains) {
    const auto gain = [&levels](uint8_t byte) { return levels.muteIn != 0 ? kMuteGain : DbToGain(byte); };
    if (levels.acfg != kFollowView && levels.acfg != kMixMicrophones) return false;
    const bool follows = levels.acfg == kFollowView, jack = levels.audioJack != 0;
    const bool usb1 = !follows || (!jack && levels.view != kViewS2);
    const bool usb2 = !follows || (!jack && levels.view != kViewS1);
    gains = {.usb1 = usb1 ? gain(levels.ain1) : 0.0,
             .usb2 = usb2 ? gain(levels.ain2) : 0.0,
             .analog = jack ? gain(levels.ain4) : 0.0};
    return true;
}

static void SetVolume(GstElement* element, double gain) { g_object_set(element, "volume", gain, nullptr); }

static void ApplyMix(const VolumeElements& volumes, const AudioLevels& now, AudioLevels& applied) {
    AudioLevels compared = now;
    compared.input = applied.input;  // nothing to this variant
    if (compared == applied) return;
    if (now.muteIn != applied.muteIn) LogInfo("MUTEIN => %d\n", now.muteIn);
    InputGains gains;
    if (ChooseInputGains(now, gains)) {
        SetVolume(volumes.volume1, gains.usb1);
        SetVolume(volumes.volume2, gains.usb2);
        SetVolume(volumes.volume3, gains.analog);
    }
    HdmiRxAudioMute(now.ain3 == kMuteByte || now.muteIn != 0);
    SetVolume(volumes.volumeAnaOut, DbToGain(now.aout1));
    SetVolume(volumes.volumeUsb1Out, DbToGain(now.aout2));
    SetVolume(volumes.volumeUsb2Out, DbToGain(now.aout3));
    SetVolume(volumes.volumeHdmiOut, DbToGain(now.aout4));
    applied = compared;
}

// Only the input is noted as applied: the receiver's mute is set again on every pass, because reading the input's
// format changes it.
static void ApplyInput(const VolumeElements& volumes, const AudioLevels& now, AudioLevels& applied) {
    if (now.ain1 == applied.ain1 && now.ain2 == applied.ain2 && now.ain3 == applied.ain3 && now.input == applied.input)
        return;
    SetVolume(volumes.volume1, now.input == 1 ? DbToGain(now.ain1) : 0.0);
    SetVolume(volumes.volume2, now.input == 2 ? DbToGain(now.ain2) : 0.0);
    HdmiRxAudioMute(now.input == 1 || now.input == 2 || now.ain3 == kMuteByte);
    applied.input = now.input;
}

void ApplyAudioSettings(const VolumeElements& volumes, AudioLevels& applied) {
    (DeviceId == 0 ? ApplyMix : ApplyInput)(volumes, AudioLevelsNow(), applied);
}
