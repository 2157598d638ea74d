// Where the emulator finds what it brings along: in a build beside its program, when installed in the folders of its
// package. The one place that knows them. Nothing here is kept: each call looks at the file system, for microseconds.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

// "cameras", "monitors", "sounds", "tools", "gst", "recording.mkv". What is nowhere is named as if beside the program,
// so that a complaint about it names a path.
std::filesystem::path EmulatorFile(std::string_view name);

// The daemon that belongs to this emulator; empty: there is none.
std::string OwnDaemon();

// Where a copy of something that takes long to make may lie: in a build beside the program, else the user's runtime
// folder. A package's folders are never written, not even by root.
std::filesystem::path CacheFolder();
