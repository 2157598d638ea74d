// What the compositor and its pads know of each other: an input's placement, and when its next frame is due.
#pragma once

#include <atomic>

#include "gst/compose.h"
#include "gst/imxcompositor_g2d.h"

struct Painters;

struct Placement {
    int x = 0, y = 0;
    int width = 0, height = 0;  // 0: as the source
    double alpha = 1;
    int turn = 0;
    gboolean keepRatio = FALSE;
    bool operator==(const Placement&) const = default;
};

struct _TesselCompositor {
    GstVideoAggregator parent;
    Painters* painters;
    gboolean backEnable;
    std::atomic<GstClockTime> latency;  // by which the base class waits for frames; none: not live
};

struct _TesselCompositorPad {
    GstVideoAggregatorPad parent;
    Placement wanted, placement;    // being set; notified. Under the pad's object lock.
    Placement shown;                // in the newest frame,
    size_t level;                   // counted from the bottom. Both: the compositor's streaming thread.
    GstClockTimeDiff shift;         // added to time stamps
    GstClockTime next;              // where the next frame starts if it does not say. Both: the pad's streaming thread.
    std::atomic<GstClockTime> due;  // running time of the frame after the newest; none: nothing is expected
};

// As notified, whole.
Placement PlacementOf(TesselCompositorPad* pad);
// Whether nothing else is being set.
bool IsSettledAt(TesselCompositorPad* pad, const Placement& placement);
