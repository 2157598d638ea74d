#include "text.h"

#include <algorithm>
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
