// The panel of the switchers and the status LEDs: what their lines mean.
#include <gtest/gtest.h>

#include "board/gpio_buttons.h"
#include "board/status_leds.h"

TEST(GpioButtons, TheHighestButtonWins) {
    EXPECT_EQ(ChooseInput(0b0000, 2), 2);
    EXPECT_EQ(ChooseInput(0b0001, 2), 1);
    EXPECT_EQ(ChooseInput(0b0101, 2), 3);
    EXPECT_EQ(ChooseInput(0b1111, 0), 4);
    EXPECT_EQ(ChooseInput(0b0000, 9), 9) << "no button, no opinion";
}

TEST(StatusLeds, AnIndicatorKeepsItsLevelForFiftyPasses) {
    IndicatorBlink blink;
    for (const int phase : {1, 0, 1}) {
        for (int pass = 0; pass < 50; ++pass) ASSERT_FALSE(TickBlink(blink));
        ASSERT_TRUE(TickBlink(blink));
        EXPECT_EQ(blink.phase, phase);
    }
}
