// imxcompositor_g2d: places any number of video inputs on the display picture, as the board's 2D graphics unit does.
//
// Pads "sink_%u" carry the placement of their input: xpos, ypos, width, height, zorder, alpha, rotate, keep-ratio. They
// may be set from any thread at any time; what one g_object_set() call sets is taken over as a whole, and so is what is
// set on several pads while their notification is frozen. An input that has given no frame yet is not drawn; one that
// stalls keeps its last picture and holds nobody up for longer than "latency". The frame rate is the highest of the
// inputs, as far as the display follows.
#pragma once

#include <gst/video/gstvideoaggregator.h>

G_DECLARE_FINAL_TYPE(TesselCompositor, tessel_compositor, TESSEL, COMPOSITOR, GstVideoAggregator)
G_DECLARE_FINAL_TYPE(TesselCompositorPad, tessel_compositor_pad, TESSEL, COMPOSITOR_PAD, GstVideoAggregatorPad)
