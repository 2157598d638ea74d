// The GStreamer elements of the board's media units. They are made by name only: no rank, nothing to autoplug.
#include <gst/gst.h>

#include "gst/element_faults.h"
#include "gst/imxcompositor_g2d.h"
#include "gst/imxv4l2sink.h"
#include "gst/imxv4l2src.h"
#include "gst/vpudec.h"

static gboolean RegisterElements(GstPlugin* plugin) {
    return gst_element_register(plugin, "vpudec", GST_RANK_NONE, tessel_decoder_get_type()) &&
           gst_element_register(plugin, "imxv4l2src", GST_RANK_NONE, tessel_capture_source_get_type()) &&
           gst_element_register(plugin, "imxcompositor_g2d", GST_RANK_NONE, tessel_compositor_get_type()) &&
           gst_element_register(plugin, "imxv4l2sink", GST_RANK_NONE, tessel_display_sink_get_type()) &&
           RegisterElementFaults(plugin);
}

#define PACKAGE "tesselvisor"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, tesselboard, "Media units of the emulated board",
                  RegisterElements, "2.0.12", "MIT/X11", PACKAGE, "https://tesselvisor.invalid")
