// The page's files (emulator/page/), part of the program.
#pragma once

#include <span>
#include <string_view>

struct PageFile {
    std::string_view path;  // of the URL
    const char* type;
    std::string_view text;
};
std::span<const PageFile> PageFiles();
