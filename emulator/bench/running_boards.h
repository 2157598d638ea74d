// The boards that this user has running, so that `ctl` finds one without being told its folder. Each is a link to its
// folder in the user's runtime folder, named by the emulator's process.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <vector>

// Private to the user, made when needed; empty when there is no place for it.
std::filesystem::path RuntimeFolder();

void AnnounceBoard(const std::filesystem::path& folder);  // of the calling process
void WithdrawBoard();
std::filesystem::path BoardOf(pid_t emulator);       // empty: it has none, or not yet
std::vector<std::filesystem::path> RunningBoards();  // also clears away what killed emulators left
