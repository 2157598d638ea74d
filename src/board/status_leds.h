// The board's own indicators and its jack detect, a pass at a time. LED thread only; blocks for two register reads on
// bus 1.
#pragma once

#include <cstdint>

#include "board/hdmi_receiver.h"

inline constexpr uint8_t kIndicatorPasses = 50;  // a blinking indicator keeps its level so long

// One for both HDMI indicators: only the selected port's can blink.
struct IndicatorBlink {
    uint8_t counter = 0;  // passes since the phase changed, 0..kIndicatorPasses
    uint8_t phase = 0;
};
bool TickBlink(IndicatorBlink& blink);  // whether the phase changed

// Drives every indicator and takes the jack's level into the settings.
void UpdateStatusLeds(const HdmiInputStatus& status);
