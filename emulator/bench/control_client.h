// The other end of a board's control socket: `tessel-emulator ctl`. Blocks until the board has answered.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "bench/display_picture.h"

// The only board that this user has running; empty, with the reason on standard error, when there is none or a choice.
std::filesystem::path OnlyBoard();

// Carries out a verb; its result, or what is wrong.
struct BoardAnswer {
    bool good = false;
    bool ended = false;  // not good: it had the verb, and was switched off before it answered
    std::string text = {};
};
BoardAnswer AskBoard(const std::filesystem::path& folder, const std::vector<std::string>& words);

// What the display shows now: the newest frame, black when it is switched off. Nothing before the first frame.
std::optional<Picture> ShownPicture(const std::filesystem::path& folder);

// Carries out a verb and prints its result; returns the exit status: 0 good, 1 bad with the reason on standard error.
int RunVerb(const std::filesystem::path& folder, const std::vector<std::string>& words);

// Sends a verb. The descriptor on which its answer comes (see control.h), or -1: no board runs there. The caller
// closes.
int SendVerb(const std::filesystem::path& folder, const std::vector<std::string>& words);
