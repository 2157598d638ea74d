// imxv4l2src: live frames of the board's HDMI input, as its capture unit gives them.
//
// Without a signal there are no frames and no error; a device that is gone is an error. The element may be restarted
// alone, inside a running pipeline.
#pragma once

#include <gst/base/gstpushsrc.h>

G_DECLARE_FINAL_TYPE(TesselCaptureSource, tessel_capture_source, TESSEL, CAPTURE_SOURCE, GstPushSrc)
