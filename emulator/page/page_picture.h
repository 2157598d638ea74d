// The display's picture for a browser: the newest frame, scaled to the width that is shown there, as a JPEG. Reads the
// board's display memory, which costs nobody else anything. Page's process only; takes some milliseconds.
#pragma once

#include <cstdint>
#include <span>
#include <string>

uint64_t ShownFrames();  // since power-on; 0: the display has not shown one

struct PagePicture {
    uint64_t frame = 0;                  // its number; 0: there is no picture
    uint32_t width = 0, height = 0;      // on the display
    std::span<const uint8_t> jpeg = {};  // until the next call
};

// At most `width` pixels wide, and never wider than on the display.
PagePicture NewestPagePicture(uint32_t width);
