#include "board/led_thread.h"

#include <unistd.h>

#include "board/gpio_buttons.h"
#include "board/hdmi_receiver.h"
#include "board/keypad.h"
#include "board/panel_expander.h"
#include "board/status_leds.h"
#include "settings/device_identity.h"

static constexpr useconds_t kPanelPass = 25'000, kPlainPass = 1'000;  // microseconds

// Asked in every pass: a command can change the variant while we run.
static bool HasPanel(uint8_t deviceId) { return deviceId == 0 || (deviceId == 2 && FrontPanel.ExpanderPresent); }

static void PanelPass() {
    if (!FrontPanel.KeypadPresent) ScanExpanderKeys();
    HandleKeyReport(false);
    SendPanelLeds();
    usleep(kPanelPass);
}

static void PlainPass() {
    if (TopBoard == 0 && NewKernel == 0) ScanGpioButtons();
    usleep(kPlainPass);
}

void LedThreadMain() {
    if (ProbeExpander() == 0) ProbeKeypad();
    HandleKeyReport(true);
    for (;;) {
        UpdateStatusLeds(HdmiInput);
        if (HasPanel(DeviceId))
            PanelPass();
        else
            PlainPass();
    }
}
