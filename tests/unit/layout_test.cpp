#include "video/layout.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "settings/device_identity.h"

// In the namespace of Window, where the test library looks for it.
static void PrintTo(const Window& w, std::ostream* out) {
    *out << w.left << ',' << w.top << ' ' << w.right << ',' << w.bottom;
}

// As much of a compositor's pad as a layout sets.
struct FakePad {
    GObject parent;
    int left;
};
struct FakePadClass {
    GObjectClass parent;
};
G_DEFINE_TYPE(FakePad, fake_pad, G_TYPE_OBJECT)

static void fake_pad_init(FakePad*) {}

static void SetFakePad(GObject* object, guint, const GValue* value, GParamSpec* spec) {
    FakePad* const pad = reinterpret_cast<FakePad*>(object);
    if (g_str_equal(spec->name, "xpos")) pad->left = g_value_get_int(value);
}

static void fake_pad_class_init(FakePadClass* type) {
    GObjectClass* const object = G_OBJECT_CLASS(type);
    object->set_property = SetFakePad;
    object->get_property = [](GObject*, guint, GValue*, GParamSpec*) {};  // only what can be read tells of itself
    guint id = 0;
    const auto install = [&](GParamSpec* property) { g_object_class_install_property(object, ++id, property); };
    for (const char* const name : {"width", "height", "xpos", "ypos", "rotate", "zorder", "keep-ratio"})
        install(g_param_spec_int(name, name, name, 0, G_MAXINT16, 0, G_PARAM_READWRITE));
    install(g_param_spec_double("alpha", "alpha", "alpha", 0, 1, 0, G_PARAM_READWRITE));
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
    {kFullHd, {1280, 720}, {640, 480}, kViewSS, {0, 0, 960, 1080}, {960, 0, 1920, 1080}},
    {kFullHd, {1280, 720}, {640, 480}, kViewBS, {0, 0, 1344, 1080}, {1344, 0, 1920, 1080}},
    {{1370, 768}, {640, 480}, {1280, 720}, kViewBS, {0, 0, 958, 768}, {958, 0, 1370, 768}},
    {kFullHd, {1280, 720}, {640, 480}, kViewPPTL, {0, 0, 1920, 1080}, {19, 10, 640, 475}},
    {kFullHd, {1280, 720}, {640, 480}, kViewPPTR, {0, 0, 1920, 1080}, {1279, 19, 1901, 486}},
    {kFullHd, {1280, 720}, {640, 480}, kViewPPBL, {0, 0, 1920, 1080}, {19, 595, 640, 1061}},
    {kFullHd, {1280, 720}, {640, 480}, kViewPPBR, {0, 0, 1920, 1080}, {1279, 594, 1901, 1061}},
    {kFullHd, {1280, 720}, {640, 480}, kViewTB, {480, 0, 1440, 540}, {600, 540, 1320, 1080}},

    {{1366, 768}, {640, 480}, {1280, 720}, kViewBS, {0, 0, 956, 768}, {956, 0, 1366, 768}},
    {{1366, 768}, {640, 480}, {1280, 720}, kViewPPTL, {171, 0, 1195, 768}, {13, 7, 455, 255}},
    {{1366, 768}, {640, 480}, {1280, 720}, kViewPPBR, {171, 0, 1195, 768}, {910, 506, 1353, 755}},
    {{1366, 768}, {640, 480}, {1280, 720}, kViewTB, {427, 0, 939, 384}, {342, 384, 1024, 768}},

    {{801, 601}, {848, 480}, {160, 90}, kViewPPBL, {0, 73, 801, 528}, {8, 447, 267, 593}},
    {{801, 601}, {848, 480}, {160, 90}, kViewTB, {135, 0, 665, 300}, {133, 300, 667, 601}},
};

// Two full HD cameras and an HDMI input, all fine, on variant 0.
LayoutInputs EverythingPresent() {
    LayoutInputs inputs{};
    inputs.view = kViewSS;
    inputs.input = 1;
    inputs.frame = kFullHd;
    inputs.cameras = {kFullHd, kFullHd};
    inputs.cameraPresent = {true, true};
    inputs.hdmiActive = inputs.hdmiSignal = inputs.hdmiAltValid = true;
    return inputs;
}

Placement Place(const LayoutInputs& inputs) {
    Placement placement{};
    EXPECT_TRUE(ComputePlacement(inputs, placement));
    return placement;
}

// One field of the three pads.
template <typename T>
std::array<T, 3> Each(T PadPlacement::*field, const LayoutInputs& inputs) {
    const Placement placement = Place(inputs);
    return {placement[0].*field, placement[1].*field, placement[2].*field};
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
    Window a, b;
    for (int view = 0; view < 256; ++view)
        for (FrameSize frame : kSizes)
            for (FrameSize first : kSizes)
                for (FrameSize second : kSizes) ComputePlaces(uint8_t(view), frame, first, second, a, b);

    // A camera without a size counts as absent.
    Window absentA, absentB;
    ComputePlaces(kViewTB, kFullHd, {0, 0}, {640, 0}, a, b);
    ComputePlaces(kViewTB, kFullHd, {640, 360}, {640, 360}, absentA, absentB);
    EXPECT_EQ(a, absentA);
    EXPECT_EQ(b, absentB);

    // A place that sticks out of a narrow frame wraps around at 16 bits, and its width survives the wrapping.
    ASSERT_TRUE(ComputePlaces(kViewTB, {100, 1000}, {1280, 720}, {1280, 720}, a, b));
    EXPECT_EQ(a, (Window{65536 - 394, 0, 494, 500}));
}

TEST(Layout, SwapExchangesThePlacesAndTheCamerasThatShapeThem) {
    LayoutInputs inputs = EverythingPresent();
    inputs.view = kViewPPBR;
    inputs.cameras = {FrameSize{1280, 720}, FrameSize{640, 480}};
    constexpr Window kFull = {0, 0, 1920, 1080}, kTall = {1279, 594, 1901, 1061};
    EXPECT_EQ(Each(&PadPlacement::window, inputs), (std::array{kFull, kTall, kTall}));
    inputs.swap = 1;
    constexpr Window kFlat = {1279, 711, 1901, 1061}, kPillarbox = {240, 0, 1680, 1080};
    EXPECT_EQ(Each(&PadPlacement::window, inputs), (std::array{kFlat, kPillarbox, kPillarbox}));
}

TEST(Layout, ComposedPictureHidesWhatHasNoSource) {
    LayoutInputs inputs = EverythingPresent();
    EXPECT_EQ(Each(&PadPlacement::alpha, inputs), kAllShown);
    for (bool LayoutInputs::*field : {&LayoutInputs::hdmiSyncLost, &LayoutInputs::hdmiActive}) {
        inputs = EverythingPresent();
        inputs.*field = !(inputs.*field);
        EXPECT_EQ(Each(&PadPlacement::alpha, inputs), (std::array{1.0, 1.0, 0.0}));
    }
    inputs.black = 1;
    EXPECT_EQ(Each(&PadPlacement::alpha, inputs), kAllHidden);
}

TEST(Layout, InversionTurnsThePadOfItsInputAndInterlacedHdmiKeepsItsAspect) {
    LayoutInputs inputs = EverythingPresent();
    inputs.inversion = {1, 2, 1, 2};
    EXPECT_EQ(Each(&PadPlacement::rotate, inputs), (std::array{5, 4, 5}));
    inputs.inversion = {3, 0, 255, 1};
    EXPECT_EQ(Each(&PadPlacement::rotate, inputs), (std::array{0, 0, 0}));
    for (inputs.deviceId = 0; inputs.deviceId <= 1; ++inputs.deviceId)
        for (const bool interlaced : {false, true}) {
            inputs.hdmiInterlaced = interlaced;
            EXPECT_EQ(Each(&PadPlacement::keepRatio, inputs), (std::array{true, true, !interlaced}));
        }

    inputs.deviceId = 2;
    inputs.inversion = {0, 0, 1, 2};
    constexpr int kPad2[] = {-1, -1, 5, 4};  // of inputs 1 to 4
    for (inputs.input = 1; inputs.input <= 4; ++inputs.input)
        EXPECT_EQ(Place(inputs)[2].rotate, kPad2[inputs.input - 1]);
}

TEST(Layout, SwitcherShowsTheSelectedInputAlone) {
    constexpr Window kOut = {0, 0, 1, 1};
    constexpr struct {
        FrameSize frame;
        uint8_t input;
        std::array<Window, 3> windows;
    } kCases[] = {
        {{2000, 1080}, 1, {{{40, 0, 1960, 1080}, kOut, kOut}}}, {{1366, 768}, 2, {{kOut, {0, 0, 1366, 768}, kOut}}},
        {{1280, 1024}, 1, {{{0, 0, 1280, 1024}, kOut, kOut}}},  {{1280, 720}, 3, {{kOut, kOut, {0, 0, 1280, 720}}}},
        {{1280, 1024}, 2, {{kOut, {0, 152, 1280, 872}, kOut}}}, {{1280, 720}, 4, {{kOut, kOut, {0, 0, 1280, 720}}}},
    };
    LayoutInputs inputs = EverythingPresent();
    inputs.deviceId = 1;
    inputs.view = 99;  // has no say
    for (const auto& expected : kCases) {
        inputs.frame = expected.frame;
        inputs.input = expected.input;
        EXPECT_EQ(Each(&PadPlacement::window, inputs), expected.windows) << "input " << int{expected.input};
        EXPECT_EQ(Each(&PadPlacement::zorder, inputs), (std::array{-1, -1, -1}));
    }
}

TEST(Layout, SwitcherHidesAnInputWithoutPicture) {
    LayoutInputs inputs = EverythingPresent();
    inputs.deviceId = 3;
    inputs.cameraPresent = {true, false};
    EXPECT_EQ(Each(&PadPlacement::alpha, inputs), kAllShown);
    inputs.input = 2;
    EXPECT_EQ(Each(&PadPlacement::alpha, inputs), kAllHidden);

    // Input, port that is captured, picture there, picture on the other port, signal: shown?
    constexpr struct {
        uint8_t input, port;
        bool active, altValid, signal, shown;
    } kCases[] = {
        {3, 0, true, false, true, true},  {3, 0, false, true, true, false}, {3, 0, true, true, false, false},
        {3, 1, true, false, true, false}, {3, 1, false, true, true, true},  {4, 1, true, false, true, true},
        {4, 1, false, true, true, false}, {4, 0, true, false, true, false}, {4, 0, false, true, true, true},
    };
    for (const auto& expected : kCases)
        for (inputs.black = 0; inputs.black <= 1; ++inputs.black) {
            inputs.input = expected.input;
            inputs.hdmiPort = expected.port;
            inputs.hdmiActive = expected.active;
            inputs.hdmiAltValid = expected.altValid;
            inputs.hdmiSignal = expected.signal;
            const bool shown = expected.shown && !inputs.black;
            EXPECT_EQ(Each(&PadPlacement::alpha, inputs), shown ? kAllShown : kAllHidden);
        }
}

TEST(Layout, ApplyingStoresTheWindowsAndClearsSwapOfOneSourceViews) {
    DeviceId = 0;
    DeviceSettings record{};
    StoreViewAndSwap(record, kViewS2, 1);
    EXPECT_EQ(ApplyLayout(record, kFullHd, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(record.Swap, 0);
    EXPECT_EQ(record.Pad0Rect.right, 1);
    StoreViewAndSwap(record, kViewPP, 1);  // only stands in commands
    EXPECT_EQ(ApplyLayout(record, {640, 480}, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(record.Swap, 1);
    EXPECT_EQ(record.Pad1Rect.right, 1920);
}

// A frame that is composed while the first pad tells must find the others at their new places already.
TEST(Layout, PadsTellOfTheirNewPlacesTogether) {
    DeviceId = 0;
    DeviceSettings record{};
    StoreViewAndSwap(record, kViewSS, 0);
    static std::array<FakePad*, 3> pads;
    static std::array<int, 3> left;
    std::array<GstPad*, 3> gstPads;
    for (size_t i = 0; i < pads.size(); ++i) {
        pads[i] = static_cast<FakePad*>(g_object_new(fake_pad_get_type(), nullptr));
        gstPads[i] = reinterpret_cast<GstPad*>(pads[i]);
    }
    const auto look = +[] { std::ranges::transform(pads, left.begin(), &FakePad::left); };
    g_signal_connect(pads[0], "notify::xpos", G_CALLBACK(look), nullptr);
    EXPECT_EQ(ApplyLayout(record, kFullHd, gstPads[0], gstPads[1], gstPads[2]), 0);
    EXPECT_EQ(left, (std::array<int, 3>{record.Pad0Rect.left, record.Pad1Rect.left, record.Pad2Rect.left}));
    EXPECT_EQ(left[1], 960);
    for (FakePad* const pad : pads) g_object_unref(pad);
}
