// imxv4l2sink: the board's HDMI output.
//
// Takes frames of the framebuffer's present size and shows each at the next refresh of the display, so that a pipeline
// without a clock runs at the display's pace. Upstream is offered the display memory itself to draw into.
#pragma once

#include <gst/video/gstvideosink.h>

G_DECLARE_FINAL_TYPE(TesselDisplaySink, tessel_display_sink, TESSEL, DISPLAY_SINK, GstVideoSink)
