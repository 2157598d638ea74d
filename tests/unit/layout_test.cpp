#include "video/layout.h"

#include <gtest/gtest.h>

#include "settings/device_identity.h"

// In the namespace of Window, where the test library looks for it.
static void PrintTo(const Window& w, std::ostream* out) {
    *out << w.left << ',' << w.top << ' ' << w.right << ',' << w.bottom;
}

namespace {

constexpr FrameSize kFullHd = {1920, 1080};

struct PlacesCase {
    FrameSize frame, first, second;
    ViewId view;
    Window a, b;
};

// Worked out by hand: a full HD frame with a 4:3 inset, a panel whose halves are odd, and a frame with no even side.
constexpr PlacesCase kPlaces[] = {
    {kFullHd, {1280, 720}, {640, 480}, kViewS1, {0, 0, 1920, 1080}, {0, 0, 1, 1}},
    {kFullHd, {1280, 720}, {640, 480}, kViewS2, {0, 0, 1, 1}, {0, 0, 1920, 1080}},
    {kFullHd, {1280, 720}, {640, 480}, kViewSS, {0, 0, 960, 1080}, {960, 0, 1920, 1080}},
    {kFullHd, {1280, 720}, {640, 480}, kViewBS, {0, 0, 1344, 1080}, {1344, 0, 1920, 1080}},
    {kFullHd, {1280, 720}, {640, 480}, kViewPPTL, {0, 0, 1920, 1080}, {19, 10, 640, 475}},
    {kFullHd, {1280, 720}, {640, 480}, kViewPPTR, {0, 0, 1920, 1080}, {1279, 19, 1901, 486}},
    {kFullHd, {1280, 720}, {640, 480}, kViewPPBL, {0, 0, 1920, 1080}, {19, 595, 640, 1061}},
    {kFullHd, {1280, 720}, {640, 480}, kViewPPBR, {0, 0, 1920, 1080}, {1279, 594, 1901, 1061}},
    {kFullHd, {1280, 720}, {1280, 720}, kViewPPBR, {0, 0, 1920, 1080}, {1279, 711, 1901, 1061}},
    {kFullHd, {1280, 720}, {640, 480}, kViewTB, {480, 0, 1440, 540}, {600, 540, 1320, 1080}},

    {{1366, 768}, {640, 480}, {1280, 720}, kViewSS, {0, 0, 683, 768}, {683, 0, 1366, 768}},
    {{1366, 768}, {640, 480}, {1280, 720}, kViewBS, {0, 0, 956, 768}, {956, 0, 1366, 768}},
    {{1366, 768}, {640, 480}, {1280, 720}, kViewPPTL, {171, 0, 1195, 768}, {13, 7, 455, 255}},
    {{1366, 768}, {640, 480}, {1280, 720}, kViewPPTR, {171, 0, 1195, 768}, {910, 13, 1353, 262}},
    {{1366, 768}, {640, 480}, {1280, 720}, kViewPPBL, {171, 0, 1195, 768}, {13, 506, 455, 755}},
    {{1366, 768}, {640, 480}, {1280, 720}, kViewPPBR, {171, 0, 1195, 768}, {910, 506, 1353, 755}},
    {{1366, 768}, {640, 480}, {1280, 720}, kViewTB, {427, 0, 939, 384}, {342, 384, 1024, 768}},

    {{1280, 720}, {1920, 1080}, {1024, 576}, kViewPPTR, {0, 0, 1280, 720}, {853, 12, 1268, 246}},
    {{1280, 720}, {1920, 1080}, {1024, 576}, kViewTB, {320, 0, 960, 360}, {320, 360, 960, 720}},

    {{801, 601}, {848, 480}, {160, 90}, kViewSS, {0, 0, 400, 601}, {400, 0, 801, 601}},
    {{801, 601}, {848, 480}, {160, 90}, kViewPPTL, {0, 73, 801, 528}, {8, 6, 267, 151}},
    {{801, 601}, {848, 480}, {160, 90}, kViewPPBL, {0, 73, 801, 528}, {8, 447, 267, 593}},
    {{801, 601}, {848, 480}, {160, 90}, kViewTB, {135, 0, 665, 300}, {133, 300, 667, 601}},
};

// Two full HD cameras and an HDMI input, all fine, on variant 0.
LayoutInputs EverythingPresent() {
    return {.deviceId = 0,
            .view = kViewSS,
            .swap = 0,
            .swHdmi = 0,
            .input = 1,
            .black = 0,
            .inversion = {},
            .frame = kFullHd,
            .cameras = {FrameSize{1920, 1080}, FrameSize{1920, 1080}},
            .cameraPresent = {true, true},
            .hdmiActive = true,
            .hdmiInterlaced = false,
            .hdmiSyncLost = false,
            .hdmiSignal = true,
            .hdmiAltValid = true,
            .hdmiPort = 0};
}

Placement Place(const LayoutInputs& inputs) {
    Placement placement{};
    EXPECT_TRUE(ComputePlacement(inputs, placement));
    return placement;
}

std::array<double, 3> Alphas(const LayoutInputs& inputs) {
    const Placement placement = Place(inputs);
    return {placement[0].alpha, placement[1].alpha, placement[2].alpha};
}

std::array<int, 3> Rotations(const LayoutInputs& inputs) {
    const Placement placement = Place(inputs);
    return {placement[0].rotate, placement[1].rotate, placement[2].rotate};
}

constexpr std::array kAllShown = {1.0, 1.0, 1.0};
constexpr std::array kAllHidden = {0.0, 0.0, 0.0};

}  // namespace

TEST(Layout, PlacesOfEveryView) {
    for (const PlacesCase& expected : kPlaces) {
        Window a, b;
        ASSERT_TRUE(ComputePlaces(expected.view, expected.frame, expected.first, expected.second, a, b));
        EXPECT_EQ(a, expected.a) << "view " << int{expected.view} << " on " << expected.frame.width;
        EXPECT_EQ(b, expected.b) << "view " << int{expected.view} << " on " << expected.frame.width;
    }
}

TEST(Layout, SurvivesSizesThatMakeNoSense) {
    constexpr FrameSize kSizes[] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {65535, 1}, {1, 65535}, {65535, 65535}, {799, 3}};
    for (int view = 0; view < 256; ++view)
        for (FrameSize frame : kSizes)
            for (FrameSize first : kSizes)
                for (FrameSize second : kSizes) {
                    Window a, b;
                    ComputePlaces(static_cast<uint8_t>(view), frame, first, second, a, b);
                }
    Window a, b, absentA, absentB;
    ComputePlaces(kViewTB, kFullHd, {0, 0}, {640, 0}, a, b);
    ComputePlaces(kViewTB, kFullHd, {640, 360}, {640, 360}, absentA, absentB);
    EXPECT_EQ(a, absentA);
    EXPECT_EQ(b, absentB);
}

// A place that sticks out of a narrow frame wraps around at 16 bits, and its width survives the wrapping.
TEST(Layout, WindowWiderThanTheFrameKeepsItsWidth) {
    Window a, b;
    ASSERT_TRUE(ComputePlaces(kViewTB, {100, 1000}, {1280, 720}, {1280, 720}, a, b));
    EXPECT_EQ(a, (Window{65536 - 394, 0, 494, 500}));
}

TEST(Layout, SwapExchangesThePlacesAndTheCamerasThatShapeThem) {
    LayoutInputs inputs = EverythingPresent();
    inputs.view = kViewPPBR;
    inputs.cameras = {FrameSize{1280, 720}, FrameSize{640, 480}};
    Placement placement = Place(inputs);
    EXPECT_EQ(placement[0].window, (Window{0, 0, 1920, 1080}));
    EXPECT_EQ(placement[1].window, (Window{1279, 594, 1901, 1061}));
    EXPECT_EQ(placement[2].window, placement[1].window);

    inputs.swap = 1;
    placement = Place(inputs);
    EXPECT_EQ(placement[0].window, (Window{1279, 711, 1901, 1061}));
    EXPECT_EQ(placement[1].window, (Window{240, 0, 1680, 1080}));
    EXPECT_EQ(placement[2].window, placement[1].window);
}

TEST(Layout, StackingFollowsSwapAndSwHdmi) {
    constexpr struct {
        uint8_t swap, swHdmi;
        std::array<int, 3> zorder;
    } kCases[] = {{0, 0, {0, 2, 1}}, {0, 1, {0, 1, 2}}, {1, 0, {2, 1, 0}}, {1, 1, {2, 0, 1}}};
    for (const auto& expected : kCases) {
        LayoutInputs inputs = EverythingPresent();
        inputs.swap = expected.swap;
        inputs.swHdmi = expected.swHdmi;
        const Placement placement = Place(inputs);
        for (size_t pad = 0; pad < 3; ++pad) EXPECT_EQ(placement[pad].zorder, expected.zorder[pad]);
    }
}

TEST(Layout, ComposedPictureHidesWhatHasNoSource) {
    LayoutInputs inputs = EverythingPresent();
    EXPECT_EQ(Alphas(inputs), kAllShown);
    inputs.hdmiSyncLost = true;
    EXPECT_EQ(Alphas(inputs), (std::array{1.0, 1.0, 0.0}));
    inputs.hdmiSyncLost = false;
    inputs.hdmiActive = false;
    EXPECT_EQ(Alphas(inputs), (std::array{1.0, 1.0, 0.0}));
    inputs = EverythingPresent();
    inputs.black = 1;
    for (int view : {kViewS1, kViewSS, kViewTB}) {
        inputs.view = static_cast<uint8_t>(view);
        EXPECT_EQ(Alphas(inputs), kAllHidden);
    }
}

TEST(Layout, InterlacedHdmiKeepsItsAspect) {
    for (uint8_t deviceId = 0; deviceId <= 1; ++deviceId) {
        LayoutInputs inputs = EverythingPresent();
        inputs.deviceId = deviceId;
        EXPECT_TRUE(Place(inputs)[2].keepRatio);
        inputs.hdmiInterlaced = true;
        EXPECT_FALSE(Place(inputs)[2].keepRatio);
        EXPECT_TRUE(Place(inputs)[0].keepRatio);
        EXPECT_TRUE(Place(inputs)[1].keepRatio);
    }
}

TEST(Layout, InversionTurnsThePadOfItsInput) {
    LayoutInputs inputs = EverythingPresent();
    inputs.inversion = {1, 2, 1, 2};
    EXPECT_EQ(Rotations(inputs), (std::array{5, 4, 5}));
    inputs.inversion = {3, 0, 255, 1};
    EXPECT_EQ(Rotations(inputs), (std::array{0, 0, 0}));

    inputs.deviceId = 2;
    inputs.inversion = {0, 0, 1, 2};
    constexpr int kPad2[] = {-1, -1, 5, 4};  // of inputs 1 to 4
    for (uint8_t input = 1; input <= 4; ++input) {
        inputs.input = input;
        EXPECT_EQ(Place(inputs)[2].rotate, kPad2[input - 1]);
    }
}

TEST(Layout, SwitcherShowsTheSelectedInputAlone) {
    constexpr Window kOut = {0, 0, 1, 1};
    constexpr struct {
        FrameSize frame;
        uint8_t input;
        std::array<Window, 3> windows;
    } kCases[] = {
        {{1920, 1080}, 1, {{{0, 0, 1920, 1080}, kOut, kOut}}}, {{2000, 1080}, 1, {{{40, 0, 1960, 1080}, kOut, kOut}}},
        {{1366, 768}, 2, {{kOut, {0, 0, 1366, 768}, kOut}}},   {{1280, 1024}, 2, {{kOut, {0, 152, 1280, 872}, kOut}}},
        {{1280, 1024}, 1, {{{0, 0, 1280, 1024}, kOut, kOut}}}, {{1280, 720}, 3, {{kOut, kOut, {0, 0, 1280, 720}}}},
        {{1280, 720}, 4, {{kOut, kOut, {0, 0, 1280, 720}}}},
    };
    for (const auto& expected : kCases) {
        LayoutInputs inputs = EverythingPresent();
        inputs.deviceId = 1;
        inputs.view = 99;  // has no say
        inputs.frame = expected.frame;
        inputs.input = expected.input;
        const Placement placement = Place(inputs);
        for (size_t pad = 0; pad < 3; ++pad) {
            EXPECT_EQ(placement[pad].window, expected.windows[pad]) << "input " << int{expected.input};
            EXPECT_EQ(placement[pad].zorder, -1);
        }
    }
}

TEST(Layout, SwitcherHidesAnInputWithoutPicture) {
    LayoutInputs inputs = EverythingPresent();
    inputs.deviceId = 3;
    inputs.cameraPresent = {true, false};
    EXPECT_EQ(Alphas(inputs), kAllShown);
    inputs.input = 2;
    EXPECT_EQ(Alphas(inputs), kAllHidden);

    // Input, port that is captured, picture there, picture on the other port, signal: shown?
    constexpr struct {
        uint8_t input, port;
        bool active, altValid, signal, shown;
    } kCases[] = {
        {3, 0, true, false, true, true},  {3, 0, false, true, true, false}, {3, 0, true, true, false, false},
        {3, 1, true, false, true, false}, {3, 1, false, true, true, true},  {4, 1, true, false, true, true},
        {4, 1, false, true, true, false}, {4, 0, true, false, true, false}, {4, 0, false, true, true, true},
    };
    for (const auto& expected : kCases) {
        inputs.input = expected.input;
        inputs.hdmiPort = expected.port;
        inputs.hdmiActive = expected.active;
        inputs.hdmiAltValid = expected.altValid;
        inputs.hdmiSignal = expected.signal;
        inputs.black = 0;
        EXPECT_EQ(Alphas(inputs), expected.shown ? kAllShown : kAllHidden);
        inputs.black = 1;
        EXPECT_EQ(Alphas(inputs), kAllHidden);
    }
}

TEST(Layout, ApplyingStoresTheWindowsAndClearsSwapOfOneSourceViews) {
    DeviceId = 0;
    DeviceSettings record{};
    record.View = kViewS2;
    record.Swap = 1;
    EXPECT_EQ(ApplyLayout(record, kFullHd, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(record.Swap, 0);
    EXPECT_EQ(record.Pad0Rect.right, 1);
    EXPECT_EQ(record.Pad1Rect.right, 1920);
    EXPECT_EQ(record.Pad2Rect.bottom, 1080);

    record.View = kViewPP;  // only stands in commands
    record.Swap = 1;
    EXPECT_EQ(ApplyLayout(record, {640, 480}, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(record.Swap, 1);
    EXPECT_EQ(record.Pad1Rect.right, 1920);
}
