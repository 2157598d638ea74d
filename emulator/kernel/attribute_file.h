// A sysfs-like attribute that stands in an injected file: its text is put there at open, and the model looks there when
// something was written.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "kernel/supervisor.h"

// Gives the readers of this open file their text.
void FillAttribute(const OpenFile& file, std::string_view text);

// What was written to the file since, blanks at the end removed. Nothing when it was only read.
std::optional<std::string> WrittenAttribute(const OpenFile& file);
