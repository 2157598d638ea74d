// The name of what is shown, for whoever follows the console line.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "commands/command_tables.h"

// The word of the first row that selects this layout (variant 0) or this input (variants 1..3), without its delimiters;
// empty when no row does, for example S1 with Swap 1. Pure.
struct ShownView {
    uint8_t deviceId, view, swap, input;
};
std::string ViewName(std::span<const CommandEntry> table, const ShownView& shown);

// Prints the name on standard output, unless a network client takes the log. 0, or 1 when there is no name to print.
int ReportView();
