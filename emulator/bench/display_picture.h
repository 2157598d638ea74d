// The picture on display, as whoever looks at it gets it (the `picture` verb, scenarios, tests): a copy of the newest
// whole frame, and which source is seen where in it. Pure functions but for reading; any thread; nothing blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "capture/test_picture.h"

struct Picture {
    size_t width = 0, height = 0;    // pixels
    std::vector<uint8_t> bgrx = {};  // B, G, R, unused
    const uint8_t* At(size_t x, size_t y) const { return bgrx.data() + (y * width + x) * 4; }
};

// From the display memory of a running board (DIR/volatile/display), as display.h lays it out. Nothing: no such file,
// no frame yet, or a writer that overtook the reader again and again.
std::optional<Picture> ReadDisplay(const std::filesystem::path& display);

int64_t LastShownAt(const std::filesystem::path& display);  // CLOCK_MONOTONIC microseconds; 0: no frame yet

std::optional<PictureMark> MarkIn(const Picture& picture, Window window);

// '1' and '2' the cameras, '3' and '4' the HDMI ports, '.' none of them (black, white).
char SourceAt(const Picture& picture, size_t x, size_t y);

// What a layout should put where: the source's own picture, without the black bars beside it. Pixels, exclusive.
struct Shown {
    char source;
    unsigned left, top, right, bottom;
};

// True when the source's mark is readable in the window and its colour begins and ends at the window's edges.
bool Shows(const Picture& picture, const Shown& shown);

// Its size, then a coarse map of 64 by 18 cells, one character a cell, as SourceAt tells them.
std::string Map(const Picture& picture);
