// Which source a pixel of the displayed picture belongs to, and whether a source fills exactly a window.
#pragma once

#include "board_run.h"

// '1' and '2' the cameras, '3' and '4' the HDMI ports, '.' none of them (black, white).
char SourceAt(const Picture& picture, size_t x, size_t y);

// What a layout should put where: the source's own picture, without the black bars beside it. Pixels, exclusive.
struct Shown {
    char source;
    unsigned left, top, right, bottom;
};

// True when the source's mark is readable in the window and its colour begins and ends at the window's edges.
bool Shows(const Picture& picture, const Shown& shown);
bool ShowsAll(const Picture& picture, const std::vector<Shown>& all);

// Waits until the source alone fills the display with a running picture: one that stood there before does not count.
bool ShowsFull(const Board& board, char source, double seconds = 8);

// Tells what is seen instead, for failure messages: a coarse map of the picture, one character a cell.
std::string Map(const Picture& picture);
std::string Seen(const Board& board);  // that map of the picture now, and the console
