// A camera's frame, of even width, as a display shows it without a board in between.
#pragma once

#include <algorithm>

#include "bench/display_picture.h"

inline Picture DrawnPicture(const PictureMark& mark, size_t width, size_t height) {
    std::vector<uint8_t> yuyv(width * height * 2);
    DrawPictureYuyv(mark.source, yuyv, width, height, width * 2);
    DrawMarkYuyv(mark, yuyv, width, height, width * 2);
    const auto channel = [](double value) { return uint8_t(std::clamp(value, 0.0, 255.0)); };
    Picture picture{.width = width, .height = height};
    for (size_t pixel = 0; pixel < width * height; ++pixel) {
        const uint8_t* pair = &yuyv[pixel / 2 * 4];
        const double y = 1.164 * (yuyv[pixel * 2] - 16), cb = pair[1] - 128.0, cr = pair[3] - 128.0;
        picture.bgrx.insert(picture.bgrx.end(), {channel(y + 2.018 * cb), channel(y - 0.391 * cb - 0.813 * cr),
                                                 channel(y + 1.596 * cr), uint8_t{0}});
    }
    return picture;
}
