// Texts that people read and write.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// printf into a string.
std::string Text(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A whole text that is a number from 0 to the limit: decimal, or hexadecimal behind 0x. Nothing for any other text.
std::optional<unsigned> ParseNumber(std::string_view text, unsigned limit);
