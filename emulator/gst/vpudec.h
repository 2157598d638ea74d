// vpudec: decodes JPEG and H.264 to planar video, as the board's video unit does.
//
// A frame that cannot be decoded is dropped and nothing is reported: cameras send broken frames now and then, and the
// display simply keeps the one before.
#pragma once

#include <gst/video/gstvideodecoder.h>

G_DECLARE_FINAL_TYPE(TesselDecoder, tessel_decoder, TESSEL, DECODER, GstVideoDecoder)
