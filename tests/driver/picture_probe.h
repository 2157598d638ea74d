// Whether the board's display shows what it should: display_picture.h tells what is seen, this waits for it.
#pragma once

#include "board_run.h"

bool ShowsAll(const Picture& picture, const std::vector<Shown>& all);
bool WaitToShow(const Board& board, const std::vector<Shown>& all, double seconds);

// Waits until the source alone fills the display with a running picture: one that stood there before does not count.
bool ShowsFull(const Board& board, char source, double seconds = 8);

// Tells what is seen instead, for failure messages: a coarse map of the picture now, and the console.
std::string Seen(const Board& board);
