#include "camera/ptz.h"

#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include "camera/presets.h"

struct Move {
    ControlRange range;
    int32_t current, value, target;
};

TEST(Ptz, StepsByTheControlsOwnStepOrByAHundredthOfItsRange) {
    static constexpr ControlRange kCoarse = {-100, 100, 10}, kFine = {0, 1000, 1}, kHundred = {0, 100, 1};
    static constexpr ControlRange kOdd = {0, 1050, 10}, kWhole = {INT32_MIN, INT32_MAX, 1};
    static constexpr Move kMoves[] = {
        {kCoarse, 0, 3, 30},
        {kCoarse, -90, -3, -100},
        {kFine, 500, -5, 450},
        {kHundred, 50, 1, 51},                         //
        {{0, 1005, 10}, 0, 20, 200},                   // 100 steps, with a rest, still count as coarse: not 201
        {{0, 101, 1}, 50, 5, 55},                      // 101 do not: 505 / 100
        {{0, 150, 1}, 50, -1, 49},                     // toward zero, not -2
        {kOdd, 500, 1, 510},                           // 105 steps of 10: a hundredth of 1050 is 10.5
        {{0, 1000, 300}, 0, 1, 300},                   // 3 steps, with a rest
        {{0, 1000, 0}, 500, 1, 510},                   // a driver that states no step
        {kFine, 500, INT32_MAX, 1000},                 // no overflow anywhere
        {kFine, 500, INT32_MIN, 0},                    //
        {kCoarse, 0, INT32_MIN, -100},                 //
        {kWhole, 0, INT32_MAX, INT32_MAX},             //
        {kWhole, INT32_MIN, 1, INT32_MIN + 42949672},  //
    };
    for (const Move& move : kMoves)
        EXPECT_EQ(StepPosition(move.range, move.current, move.value), move.target)
            << move.range.minimum << ".." << move.range.maximum << " at " << move.current << " by " << move.value;
}

TEST(Ptz, ZoomPositionsSpanTheRange) {
    static constexpr ControlRange kRange = {100, 1000, 1};
    static constexpr Move kZooms[] = {
        {kRange, 0, 100, 100},  {kRange, 0, 101, 102},     {kRange, 0, 499, 997},
        {kRange, 0, 500, 1000}, {{-7, -6, 1}, 0, 499, -6}, {{0, INT32_MAX, 1}, 0, 500, INT32_MAX},
    };
    for (const Move& zoom : kZooms) EXPECT_EQ(ZoomPosition(zoom.range, zoom.value), zoom.target) << zoom.value;
    for (const int32_t value : {100, 500}) EXPECT_TRUE(IsZoomPosition(V4L2_CID_ZOOM_ABSOLUTE, value));
    for (const int32_t value : {-100, 0, 99, 501}) EXPECT_FALSE(IsZoomPosition(V4L2_CID_ZOOM_ABSOLUTE, value));
    EXPECT_FALSE(IsZoomPosition(V4L2_CID_PAN_ABSOLUTE, 300));
}

TEST(Ptz, OneNumberMovesTheCameraOnDisplayOrElseTheLastOne) {
    // Layouts: the camera in the first place, whether present or not.
    for (uint8_t view = 0; view < 32; ++view) {
        const bool composed = (view >= 2 && view <= 7) || view == 21;
        for (uint8_t swap = 0; swap <= 1; ++swap) {
            const PtzChoice choice = ChoosePtzCamera(
                {.deviceId = 0, .view = view, .swap = swap, .input = 2, .lastCamera = 2, .present = {}});
            EXPECT_EQ(choice.camera, view == 0 || (composed && swap == 0) ? 1 : 2) << int(view) << ", " << int(swap);
            EXPECT_TRUE(choice.shown);
        }
    }

    struct Case {
        uint8_t input, lastCamera;
        bool present1, present2;
        PtzChoice choice;
    };
    static constexpr Case kCases[] = {
        {1, 2, false, true, {1, true}}, {2, 1, true, false, {2, true}},  {3, 1, true, true, {1, false}},
        {4, 2, true, true, {2, false}}, {4, 2, true, false, {0, false}}, {3, 1, false, true, {0, false}},
        {3, 0, true, true, {0, false}}, {3, 9, true, true, {0, false}},  {0, 2, true, true, {2, false}},
    };
    for (uint8_t id = 1; id <= 3; ++id)
        for (const Case& row : kCases) {
            const PtzChoice choice =
                ChoosePtzCamera({id, /*view*/ 1, /*swap*/ 1, row.input, row.lastCamera, {row.present1, row.present2}});
            EXPECT_EQ(choice.camera, row.choice.camera) << int(row.input) << ", last " << int(row.lastCamera);
            EXPECT_EQ(choice.shown, row.choice.shown) << int(row.input);
        }
}

TEST(Presets, TheFirstNameInTheTableDecidesTheMaker) {
    EXPECT_EQ(FindPresetMaker("AVer VB342 Pro"), kAVer);
    EXPECT_EQ(FindPresetMaker("CAM520 by Logitech"), kLogitech);
    EXPECT_EQ(FindPresetMaker("Unknown Logitech"), kNoMaker);
    for (const char* card : {"", "logitech", "Full HD Webcam"}) EXPECT_EQ(FindPresetMaker(card), kNoMaker) << card;
}
