// From settings to picture: three windows, their order, visibility and flip. Pure, but for ApplyLayout, which puts the
// result on the compositor's pads.
//
// Pad 0 carries USB input 1, pad 1 USB input 2, pad 2 the HDMI input. On variant 0 a layout has two places; pads 1 and
// 2 share one of them and the stacking decides which is seen. On variants 1..3 the selected input is shown alone.
#pragma once

#include <gst/gst.h>

#include <array>
#include <cstdint>

#include "settings/device_settings.h"

struct Window {  // pixels, right and bottom exclusive
    uint16_t left, top, right, bottom;
    bool operator==(const Window&) const = default;
};

struct FrameSize {
    uint16_t width, height;
    bool operator==(const FrameSize&) const = default;
};

struct PadPlacement {
    Window window;
    int zorder;      // -1: left as it is
    bool keepRatio;  // false: left as it is
    double alpha;    // 1.0 shown, 0.0 hidden
    int rotate;      // 0, 4, 5; -1: left as it is
};
using Placement = std::array<PadPlacement, 3>;

// Everything that placement depends on, read once per call so that one layout is made of one set of values.
struct LayoutInputs {
    uint8_t deviceId, view, swap, swHdmi, input, black;
    std::array<uint8_t, 4> inversion;  // Inv1..Inv4
    FrameSize frame;
    std::array<FrameSize, 2> cameras;  // selected sizes of USB inputs 1 and 2; 0 counts as an absent camera's
    std::array<bool, 2> cameraPresent;
    bool hdmiActive, hdmiInterlaced, hdmiSyncLost;
    bool hdmiSignal;    // on the port of input 3 or 4; variants 1..3 only, as the next two
    bool hdmiAltValid;  // the port that is not captured has a picture
    uint8_t hdmiPort;   // captured now; lags behind the selected input while a switch is under way
};

// Windows of variant 0 for the cameras in the first and in the second place; false for a view that has no layout.
bool ComputePlaces(uint8_t view, FrameSize frame, FrameSize first, FrameSize second, Window& a, Window& b);

// The whole placement; false for an unhandled view on variant 0.
bool ComputePlacement(const LayoutInputs& inputs, Placement& placement);

// Places the pads by the record's settings and the present state of the inputs, and stores the windows in the record;
// the one-source views take their source unswapped, so Swap is cleared there first. 0, or -1 for an unhandled view,
// with nothing changed. A pad that is not a valid object is skipped. Video thread; on variants 1..3 it asks the HDMI
// receiver.
int ApplyLayout(DeviceSettings& record, FrameSize frame, GstPad* pad0, GstPad* pad1, GstPad* pad2);
