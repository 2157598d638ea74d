#include "video/layout.h"

#include <bit>
#include <span>

#include "board/hdmi_receiver.h"
#include "settings/device_identity.h"
#include "settings/process_flags.h"
#include "video/video_devices.h"

static constexpr Window kHidden = {.left = 0, .top = 0, .right = 1, .bottom = 1};
static constexpr FrameSize kAbsentCamera = {
    .width = static_cast<uint16_t>(ResolutionPreferenceTable[kAbsentCameraPreference].width),
    .height = static_cast<uint16_t>(ResolutionPreferenceTable[kAbsentCameraPreference].height)};

// Two thirds as the product has always counted them: insets would move by a pixel with a closer fraction.
static constexpr float kTwoThirds = std::bit_cast<float>(0x3F2AAAAAu);

static constexpr int kLeaveAsIs = -1;

// ---- Arithmetic, in single precision where a source is fitted into the frame ----

// The whole part of a real number of pixels; what rounding or an odd frame pushes below 0 is 0.
static uint16_t Whole(double pixels) {
    return pixels > 0 ? static_cast<uint16_t>(static_cast<uint32_t>(pixels)) : uint16_t{0};
}

// Windows wrap around at 16 bits, as they are stored.
static Window MakeWindow(int64_t left, int64_t top, int64_t right, int64_t bottom) {
    return {.left = static_cast<uint16_t>(left),
            .top = static_cast<uint16_t>(top),
            .right = static_cast<uint16_t>(right),
            .bottom = static_cast<uint16_t>(bottom)};
}

static Window FullFrame(FrameSize frame) { return MakeWindow(0, 0, frame.width, frame.height); }

static uint16_t SideMargin(FrameSize frame, FrameSize source) {
    const float width = 1.0F * frame.height * source.width / source.height;
    return Whole((frame.width - width) * 0.5F);
}

static uint16_t TopMargin(FrameSize frame, FrameSize source) {
    const float height = 1.0F * frame.width * source.height / source.width;
    return Whole((frame.height - height) * 0.5F);
}

static Window Pillarbox(FrameSize frame, FrameSize source) {
    const uint16_t margin = SideMargin(frame, source);
    return MakeWindow(margin, 0, frame.width - margin, frame.height);
}

static Window Letterbox(FrameSize frame, FrameSize source) {
    const uint16_t margin = TopMargin(frame, source);
    return MakeWindow(0, margin, frame.width, frame.height - margin);
}

static Window Fit(FrameSize frame, FrameSize source) {
    const bool wider = 1.0F * source.width / source.height > 1.0F * frame.width / frame.height;
    return wider ? Letterbox(frame, source) : Pillarbox(frame, source);
}

static int64_t ScaledHeight(int64_t width, FrameSize source) { return width * source.height / source.width; }

// ---- The two places of each view, variant 0 ----

struct Geometry {
    FrameSize frame, first, second;  // second: the camera in B, which gives an inset its shape
};

static void FirstAlone(const Geometry& g, Window& a, Window& b) {
    a = FullFrame(g.frame);
    b = kHidden;
}

static void SecondAlone(const Geometry& g, Window& a, Window& b) {
    a = kHidden;
    b = FullFrame(g.frame);
}

static void SplitAt(FrameSize frame, int x, Window& a, Window& b) {
    a = MakeWindow(0, 0, x, frame.height);
    b = MakeWindow(x, 0, frame.width, frame.height);
}

static void SideBySide(const Geometry& g, Window& a, Window& b) { SplitAt(g.frame, g.frame.width / 2, a, b); }

static void BigAndSmall(const Geometry& g, Window& a, Window& b) {
    SplitAt(g.frame, (70 * g.frame.width / 100) & ~1, a, b);
}

// A source scaled to half the frame's height, centred in the rows from top to bottom.
static Window CentredHalf(FrameSize frame, FrameSize source, int top, int bottom) {
    const int width = Whole(source.width * (frame.height * 0.5) / source.height);
    const int left = (frame.width - width) / 2;
    return MakeWindow(left, top, left + width, bottom);
}

static void TopAndBottom(const Geometry& g, Window& a, Window& b) {
    const int middle = g.frame.height / 2;
    a = CentredHalf(g.frame, g.first, 0, middle);
    b = CentredHalf(g.frame, g.second, middle, g.frame.height);
}

// The insets keep the margins the product has always had: only the top left one measures its vertical margin by the
// frame's height, and it is the one whose height follows from its width without the extra column.
static void InsetTopLeft(const Geometry& g, Window& a, Window& b) {
    const int left = g.frame.width / 100, top = g.frame.height / 100, right = g.frame.width / 3;
    a = Fit(g.frame, g.first);
    b = MakeWindow(left, top, right, top + ScaledHeight(right - left, g.second));
}

static void InsetTopRight(const Geometry& g, Window& a, Window& b) {
    const int margin = g.frame.width / 100, left = Whole(g.frame.width * kTwoThirds), right = g.frame.width - margin;
    a = Fit(g.frame, g.first);
    b = MakeWindow(left, margin, right, margin + ScaledHeight(right - left + 1, g.second));
}

static void InsetBottomLeft(const Geometry& g, Window& a, Window& b) {
    const int margin = g.frame.width / 100, right = g.frame.width / 3, bottom = g.frame.height - margin;
    a = Fit(g.frame, g.first);
    b = MakeWindow(margin, bottom - ScaledHeight(right - margin + 1, g.second), right, bottom);
}

static void InsetBottomRight(const Geometry& g, Window& a, Window& b) {
    const int margin = g.frame.width / 100, left = Whole(g.frame.width * kTwoThirds);
    const int right = g.frame.width - margin, bottom = g.frame.height - margin;
    a = Fit(g.frame, g.first);
    b = MakeWindow(left, bottom - ScaledHeight(right - left + 1, g.second), right, bottom);
}

struct LayoutRow {
    ViewId view;
    void (*places)(const Geometry& geometry, Window& a, Window& b);
};
static constexpr LayoutRow kLayouts[] = {
    {.view = kViewS1, .places = FirstAlone},        {.view = kViewS2, .places = SecondAlone},
    {.view = kViewSS, .places = SideBySide},        {.view = kViewBS, .places = BigAndSmall},
    {.view = kViewPPTL, .places = InsetTopLeft},    {.view = kViewPPTR, .places = InsetTopRight},
    {.view = kViewPPBL, .places = InsetBottomLeft}, {.view = kViewPPBR, .places = InsetBottomRight},
    {.view = kViewTB, .places = TopAndBottom},
};

static FrameSize UsableSize(FrameSize size) { return size.width && size.height ? size : kAbsentCamera; }

bool ComputePlaces(uint8_t view, FrameSize frame, FrameSize first, FrameSize second, Window& a, Window& b) {
    for (const LayoutRow& row : kLayouts) {
        if (row.view != view) continue;
        row.places({.frame = frame, .first = UsableSize(first), .second = UsableSize(second)}, a, b);
        return true;
    }
    return false;
}

// ---- Placement ----

// zorder of the three pads by Swap and SwHdmi.
static constexpr int kStacking[2][2][3] = {
    {{0, 2, 1}, {0, 1, 2}},
    {{2, 1, 0}, {2, 0, 1}},
};

static int RotationOf(uint8_t inversion) {
    if (inversion == 1) return 5;
    return inversion == 2 ? 4 : 0;
}

static bool PlaceComposed(const LayoutInputs& in, Placement& placement) {
    const bool swapped = in.swap != 0;
    Window a, b;
    if (!ComputePlaces(in.view, in.frame, in.cameras[swapped], in.cameras[!swapped], a, b)) return false;
    const bool hdmiShown = in.hdmiActive && !in.hdmiSyncLost;
    for (size_t i = 0; i < placement.size(); ++i)
        placement[i] = {.window = (i == 0) == swapped ? b : a,
                        .zorder = kStacking[swapped][in.swHdmi != 0][i],
                        .keepRatio = i != 2 || !in.hdmiInterlaced,
                        .alpha = in.black || (i == 2 && !hdmiShown) ? 0.0 : 1.0,
                        .rotate = RotationOf(in.inversion[i])};
    return true;
}

// While the receiver still captures the other port, what counts is whether the selected one, measured on the side, has
// a picture.
static bool SelectedHdmiHasPicture(const LayoutInputs& in) {
    return in.hdmiPort == in.input - 3 ? in.hdmiActive : in.hdmiAltValid;
}

static bool SelectedInputShown(const LayoutInputs& in) {
    if (in.black) return false;
    switch (in.input) {
        case 1:
        case 2:
            return in.cameraPresent[in.input - 1];
        case 3:
        case 4:
            return in.hdmiSignal && SelectedHdmiHasPicture(in);
        default:
            return true;
    }
}

static int SelectedHdmiRotation(const LayoutInputs& in) {
    return in.input == 3 || in.input == 4 ? RotationOf(in.inversion[in.input - 1]) : kLeaveAsIs;
}

static void PlaceSelected(const LayoutInputs& in, Placement& placement) {
    const double alpha = SelectedInputShown(in) ? 1.0 : 0.0;
    for (size_t i = 0; i < placement.size(); ++i)
        placement[i] = {.window = kHidden,
                        .zorder = kLeaveAsIs,
                        .keepRatio = i != 2 || !in.hdmiInterlaced,
                        .alpha = alpha,
                        .rotate = i == 2 ? SelectedHdmiRotation(in) : RotationOf(in.inversion[i])};
    if (in.input == 1)
        placement[0].window = Pillarbox(in.frame, kAbsentCamera);
    else if (in.input == 2)
        placement[1].window = Letterbox(in.frame, kAbsentCamera);
    else
        placement[2].window = FullFrame(in.frame);
}

bool ComputePlacement(const LayoutInputs& inputs, Placement& placement) {
    if (inputs.deviceId == 0) return PlaceComposed(inputs, placement);
    PlaceSelected(inputs, placement);
    return true;
}

// ---- Application ----

static FrameSize SelectedSize(const CameraInput& camera) {
    return {.width = static_cast<uint16_t>(camera.selected.width),
            .height = static_cast<uint16_t>(camera.selected.height)};
}

static LayoutInputs GatherInputs(const DeviceSettings& record, FrameSize frame) {
    return {.deviceId = DeviceId,
            .view = record.View,
            .swap = record.Swap,
            .swHdmi = record.SwHdmi,
            .input = record.Input,
            .black = record.Black,
            .inversion = {record.Inv1, record.Inv2, record.Inv3, record.Inv4},
            .frame = frame,
            .cameras = {SelectedSize(CameraInputs[0]), SelectedSize(CameraInputs[1])},
            .cameraPresent = {CameraInputs[0].present != 0, CameraInputs[1].present != 0},
            .hdmiActive = HdmiInput.InputValid != 0,
            .hdmiInterlaced = HdmiInput.Interlaced != 0,
            .hdmiSyncLost = HdmiSyncLost != 0,
            .hdmiSignal = false,
            .hdmiAltValid = false,
            .hdmiPort = 0};
}

// The input switchers decide visibility on fresh readings: the selection may just have moved to the other port.
static void AskReceiver(LayoutInputs& inputs) {
    if (inputs.input == 3 || inputs.input == 4)
        inputs.hdmiSignal = HdmiRxSignalDetect(static_cast<uint8_t>(inputs.input - 3)) != 0;
    ReadHdmiInputFormat(HdmiInput);
    inputs.hdmiActive = HdmiInput.InputValid != 0;
    inputs.hdmiAltValid = HdmiInput.AltValid != 0;
    inputs.hdmiPort = HdmiInput.Port;
}

static void StoreWindow(SharedWindow& stored, const Window& window) {
    stored.left = window.left;
    stored.top = window.top;
    stored.right = window.right;
    stored.bottom = window.bottom;
}

static void PlacePad(GstPad* pad, const PadPlacement& placement) {
    if (!G_IS_OBJECT(pad)) return;
    const Window& window = placement.window;
    const int width = static_cast<uint16_t>(window.right - window.left);
    const int height = static_cast<uint16_t>(window.bottom - window.top);
    g_object_set(pad, "width", width, "height", height, "xpos", int{window.left}, "ypos", int{window.top}, nullptr);
    if (placement.keepRatio) g_object_set(pad, "keep-ratio", TRUE, nullptr);
    if (placement.zorder != kLeaveAsIs) g_object_set(pad, "zorder", static_cast<guint>(placement.zorder), nullptr);
    g_object_set(pad, "alpha", placement.alpha, nullptr);
    if (placement.rotate != kLeaveAsIs) g_object_set(pad, "rotate", placement.rotate, nullptr);
}

int ApplyLayout(DeviceSettings& record, FrameSize frame, GstPad* pad0, GstPad* pad1, GstPad* pad2) {
    if (DeviceId == 0 && record.View <= kViewS2 && record.Swap != 0) record.Swap = 0;
    LayoutInputs inputs = GatherInputs(record, frame);
    if (inputs.deviceId != 0) AskReceiver(inputs);
    Placement placement;
    if (!ComputePlacement(inputs, placement)) return -1;

    const std::array pads = {pad0, pad1, pad2};
    const std::array stored = {&record.Pad0Rect, &record.Pad1Rect, &record.Pad2Rect};
    // The pads tell of their new places together: a frame between two of them would show half a layout.
    for (GstPad* const pad : pads)
        if (G_IS_OBJECT(pad)) g_object_freeze_notify(G_OBJECT(pad));
    for (size_t i = 0; i < placement.size(); ++i) {
        StoreWindow(*stored[i], placement[i].window);
        PlacePad(pads[i], placement[i]);
    }
    for (GstPad* const pad : pads)
        if (G_IS_OBJECT(pad)) g_object_thaw_notify(G_OBJECT(pad));
    return 0;
}
