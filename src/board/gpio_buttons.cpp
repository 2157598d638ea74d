#include "board/gpio_buttons.h"

#include <bit>

#include "board/gpio.h"
#include "settings/device_settings.h"

uint8_t LastSelectedInput = 0;

uint8_t ChooseInput(uint8_t heldButtons, uint8_t selected) {
    return heldButtons == 0 ? selected : static_cast<uint8_t>(std::bit_width(heldButtons));
}

// Between the two switches of its direction the line floats to its pull-up, unless the button pulls it down.
static bool IsHeld(int gpio) {
    uint8_t level = 1;
    GpioSetDirection(gpio, false);
    GpioRead(gpio, level);
    GpioSetDirection(gpio, true);
    return level == 0;
}

// The selected input's line stays an output: its LED is on.
static uint8_t ReadButtons(uint8_t selected) {
    uint8_t held = 0;
    for (uint8_t input = 1; input <= 4; ++input)
        if (input != selected && IsHeld(kGpioInputButtons[input - 1])) held |= static_cast<uint8_t>(1 << (input - 1));
    return held;
}

void ScanGpioButtons() {
    const uint8_t before = Settings.Input;
    const uint8_t selected = ChooseInput(ReadButtons(before), before);
    if (selected != before) Settings.Input = selected;
    if (selected != LastSelectedInput) Settings.VideoRefresh = 1;
    LastSelectedInput = selected;
    for (uint8_t input = 1; input <= 4; ++input) GpioWrite(kGpioInputButtons[input - 1], input == selected);
}
