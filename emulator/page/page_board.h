// The bench page's line to its board: verbs over the control socket, answered through the event loop of the page's own
// process. Nothing blocks.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

// Sends the verb and calls `answered` once, with its result or with what is wrong.
void AskBoardAsync(const std::vector<std::string>& words, std::function<void(bool good, std::string text)> answered);

// Sends a verb that follows something. `heard` is called with each piece that comes, until Unfollow or the board's end,
// which `ended` tells. -1: no board.
int FollowBoard(const std::vector<std::string>& words, std::function<void(std::string_view piece)> heard,
                std::function<void()> ended);
void Unfollow(int following);  // -1 is fine
