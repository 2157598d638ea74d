#include "board/panel_expander.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr uint8_t kLock = 32, kShift = 64;

uint8_t Port(int held) { return uint8_t((held & 0x7F) ^ 0x3F); }

struct Hold {
    int held;  // buttons
    int passes = 10;
};

std::vector<int> Play(PanelGestures& state, const std::vector<Hold>& holds) {
    std::vector<int> keys;
    for (const Hold& hold : holds)
        for (int pass = 0; pass < hold.passes; ++pass)
            if (const uint8_t key = StepPanel(state, Port(hold.held)).key) keys.push_back(key);
    return keys;
}

struct Gesture {
    const char* what;
    std::vector<Hold> holds;
    std::vector<int> keys;
    bool locked = false;
};

const Gesture kGestures[] = {
    {"a key counts on release", {{4}, {0}}, {4}},
    {"not before", {{4, 1000}}, {}},
    {"long without 32 is short", {{16, 100}, {0}}, {16}},
    {"32 held short", {{kLock, 40}, {0}}, {32}},
    {"twice", {{2}, {0}, {2}, {0}}, {2, 2}},
    {"a combination", {{3}, {0}}, {3}},
    {"the last one held counts", {{1}, {3}, {2}, {0}}, {2}},
    {"64 alone", {{kShift}, {0}}, {64}},
    {"shifted", {{kShift}, {65}, {kShift}}, {65}},
    {"shifted twice", {{kShift}, {65}, {kShift}, {72}, {kShift}, {0}}, {65, 72}},
    {"pressed in one go", {{65}, {kShift}, {0}}, {65}},
    {"let go in one go", {{kShift}, {65}, {0}}, {65}},
    {"shift added later", {{1}, {65}, {kShift}, {0}}, {65}},
    {"shift let go first", {{kShift}, {65}, {1}, {0}}, {1}},
    {"nothing behind a shifted key", {{kShift}, {65}, {kShift}, {66}, {2}, {0}}, {65}},
    {"afterwards all is as before", {{kShift}, {65}, {kShift}, {0}, {2}, {0}}, {65, 2}},
    {"shifted and long without 32", {{kShift}, {65, 100}, {kShift}, {0}}, {65}},
    {"32 held long locks and counts for nothing", {{kLock, 100}, {0}}, {}, true},
    {"locked", {{48, 100}, {0}, {1}, {0}, {kShift}, {65}, {kShift}, {0}}, {}, true},
    {"once a hold", {{kLock, 500}, {0}}, {}, true},
    {"unlocked", {{kLock, 100}, {0}, {33, 100}, {0}}, {}},
    {"usable again", {{kLock, 100}, {0}, {kLock, 100}, {0}, {kLock}, {0}}, {32}},
    {"shifted and long with 32", {{kShift}, {96, 100}, {kShift}, {0}}, {}, true},
    {"unlocked by the same, all up first", {{kLock, 100}, {0}, {kShift}, {96, 100}, {kShift}, {65}, {kShift}, {0}}, {}},
    {"lifting one finger does not lock again", {{33, 100}, {kLock, 100}, {0}}, {}, true},
    {"time counts from the last change", {{1, 50}, {33, 50}, {0}}, {33}},
    {"long after a change", {{1, 100}, {33, 100}, {0}}, {}, true},
    {"contact bounce", {{1, 3}, {0, 3}, {1, 2}, {0, 1}, {1}, {0, 2}, {1, 1}, {0}}, {1}},
    {"too short to be a key", {{1, 3}, {0, 100}}, {}},
};

TEST(PanelExpander, Gestures) {
    for (const Gesture& gesture : kGestures) {
        PanelGestures state;
        EXPECT_EQ(Play(state, gesture.holds), gesture.keys) << gesture.what;
        EXPECT_EQ(state.locked, gesture.locked) << gesture.what;
    }
}

TEST(PanelExpander, PassesAreExact) {
    PanelGestures state;
    for (int pass = 1; pass <= 3; ++pass) EXPECT_EQ(StepPanel(state, Port(kLock)).pressed, 0) << pass;
    EXPECT_EQ(StepPanel(state, Port(kLock)).pressed, kLock) << "seen, 1 quiet, armed, taken";
    Play(state, {{kLock, 59}});
    EXPECT_FALSE(state.locked);
    EXPECT_TRUE(StepPanel(state, Port(kLock)).keepLockLed);
    EXPECT_TRUE(state.locked);

    const auto passesToInversion = [&](int held) {
        for (int passes = 1; passes < 100; ++passes)
            if (StepPanel(state, Port(held)).invertLockLed) return passes;
        return -1;
    };
    EXPECT_EQ(passesToInversion(0), 11);
    EXPECT_EQ(passesToInversion(0), 11);
    Play(state, {{1, 100}});
    passesToInversion(0);
    EXPECT_EQ(passesToInversion(0), 2) << "a long press while locked blinks faster";
    Play(state, {{0}, {kLock, 100}, {0}, {kLock, 100}, {0}});
    passesToInversion(0);
    EXPECT_EQ(passesToInversion(0), 11) << "locking anew ends that";
}

TEST(PanelExpander, LedsWaitForTheStartAndBehindAChange) {
    PanelGestures state;
    for (int pass = 1; pass < 40; ++pass) EXPECT_FALSE(StepPanel(state, Port(0)).showLeds) << pass;
    EXPECT_TRUE(StepPanel(state, Port(0)).showLeds);
    for (int held : {1, 0}) {
        Play(state, {{held, 3}});
        EXPECT_FALSE(StepPanel(state, Port(held)).showLeds) << "the settings' LEDs are still those before the key";
        const PanelWishes wishes = StepPanel(state, Port(held));
        EXPECT_TRUE(wishes.showLeds);
        EXPECT_EQ(wishes.pressed, held);
        EXPECT_FALSE(wishes.keepLockLed);
    }
}

}  // namespace
