// H.264 frames of a test picture, encoded live: constrained baseline, byte stream with parameter sets at each of the
// keyframes, one a second. Any thread, one at a time for each encoder.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "capture/test_picture.h"

struct H264Encoder;
struct CloseH264 {
    void operator()(H264Encoder* encoder) const;
};

// Null when the size or rate suits no encoder. Even width and height; rate in frames a second.
std::unique_ptr<H264Encoder, CloseH264> OpenH264(PictureSource source, size_t width, size_t height, unsigned rate);

std::vector<uint8_t> EncodeH264(H264Encoder& encoder, const PictureMark& mark);  // empty: the encoder failed
