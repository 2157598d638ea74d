// Motion-JPEG frames of a test picture, spliced: the still part is encoded once, with a restart marker after each row
// of blocks; for a frame only the two rows of the mark are encoded, with the same tables, and put in the place of the
// first rows. Restart markers reset the decoder's state, so rows can be exchanged freely. 4:2:2, JFIF, all tables in
// each frame. Any thread, one at a time for each still.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "capture/test_picture.h"

struct JpegStill {
    size_t width = 0, height = 0;
    size_t markBlockRows = 0;                // rows of blocks in one row of the mark
    std::vector<uint8_t> header;             // SOI to SOS
    std::vector<std::vector<uint8_t>> rows;  // entropy-coded bytes, without markers
};

// Nothing when the size is beyond what JPEG can hold.
std::optional<JpegStill> EncodeStill(PictureSource source, size_t width, size_t height);

// One frame; its size, or 0 when `out` is too small.
size_t SpliceJpeg(const JpegStill& still, const PictureMark& mark, std::span<uint8_t> out);
