// How long an indicator keeps its level while it blinks.
#include <gtest/gtest.h>

#include "board/status_leds.h"

TEST(StatusLeds, AnIndicatorKeepsItsLevelForFiftyPasses) {
    IndicatorBlink blink;
    for (const int phase : {1, 0, 1}) {
        for (int pass = 0; pass < 50; ++pass) ASSERT_FALSE(TickBlink(blink));
        ASSERT_TRUE(TickBlink(blink));
        EXPECT_EQ(blink.phase, phase);
    }
}
