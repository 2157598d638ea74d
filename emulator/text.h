// printf into a string, for lines that people read.
#pragma once

#include <string>

std::string Text(const char* format, ...) __attribute__((format(printf, 1, 2)));
