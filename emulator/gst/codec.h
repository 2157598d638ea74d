// The decoders behind vpudec. A codec takes one coded frame at a time and gives pictures, which it then writes into
// planes that its caller provides. Broken input gives no picture, never an error.
#pragma once

#include <gst/video/video.h>

#include <cstdint>
#include <span>

struct DecodedShape {
    GstVideoFormat format;
    int width, height;
    GstVideoColorimetry colorimetry;  // range unknown: as the stream's caps say
    uint32_t number;                  // of the coded frame that this is
};

struct Codec {
    const char* mediaType;
    unsigned delay;   // frames it may hold back
    void* (*open)();  // null: out of memory
    void (*close)(void* state);
    void (*feed)(void* state, std::span<const uint8_t> coded, uint32_t number);  // valid until the next feed
    bool (*next)(void* state, DecodedShape& shape);                              // false: no more pictures for now
    bool (*write)(void* state, GstVideoFrame& frame);                            // the picture of the last next()
};

extern const Codec kJpegCodec, kH264Codec;
