#include "text.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>

std::string Text(const char* format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(std::max(0, vsnprintf(nullptr, 0, format, arguments))), '\0');
    vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    return text;
}

std::optional<unsigned> ParseNumber(std::string_view text, unsigned limit) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) text.remove_prefix(2);
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, hexadecimal ? 16 : 10);
    const bool good = error == std::errc() && end == text.data() + text.size() && number <= limit;
    return good ? std::optional(number) : std::nullopt;
}
