// The panel of the input switchers without an extension board: four lines, each the button and the LED of an input. LED
// thread only. A pressed button is seen within one pass of 1 ms; the video thread is told by VideoRefresh.
#pragma once

#include <cstdint>

extern uint8_t LastSelectedInput;  // 1..4, 0 before the first pass

// The input that the buttons select: the highest one held, or the selected one when none is. Bit 0 is input 1's button.
uint8_t ChooseInput(uint8_t heldButtons, uint8_t selected);

void ScanGpioButtons();
