#include "board/status_leds.h"

#include "board/gpio.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"
#include "video/video_devices.h"

bool TickBlink(IndicatorBlink& blink) {
    if (++blink.counter <= kIndicatorPasses) return false;
    blink.counter = 0;
    blink.phase ^= 1;
    return true;
}

// On without a signal; blinks for a selected input that is too fast to be captured.
static void ShowHdmiPort(int gpio, uint8_t port, const HdmiInputStatus& status) {
    static IndicatorBlink blink;
    if (status.Port != port || ClockCanBeCaptured(status.TmdsMhz, NewKernel))
        GpioWrite(gpio, HdmiRxSignalDetect(port) == 0);
    else if (TickBlink(blink))
        GpioWrite(gpio, blink.phase);
}

static void SenseAudioJack() {
    uint8_t plugged = 0;
    if (DeviceId == 0) {
        plugged = Settings.AudioJack;
        GpioRead(kGpioAudioJack, plugged);
    }
    Settings.AudioJack = plugged;
}

void UpdateStatusLeds(const HdmiInputStatus& status) {
    GpioWrite(kGpioStatusLed, 0);
    for (int input = 0; input < 2; ++input) GpioWrite(kGpioCameraIndicators[input], CameraInputs[input].present == 0);
    ShowHdmiPort(HdmiPort0Indicator(), 0, status);
    ShowHdmiPort(kGpioHdmiPort1Indicator, 1, status);
    SenseAudioJack();
}
