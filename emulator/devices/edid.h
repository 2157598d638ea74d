// EDID, the 128-byte blocks in which a monitor describes itself, as data files in hex text.
#pragma once

#include <linux/fb.h>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct EdidFile {
    std::string description;     // first comment line of the file
    std::vector<uint8_t> bytes;  // empty: the monitor has no EDID to give
    bool fixedMode = false;      // "!fixed": a panel that knows its preferred timing only
};

// Pairs of hex digits, blanks between them; '#' starts a comment; a line "!fixed" marks a panel with a single mode.
// Nothing when the text has anything else.
std::optional<EdidFile> ParseEdidFile(std::string_view text);

// The preferred timing, the first 18-byte descriptor, as the frame buffer takes it. Nothing when the EDID has none.
std::optional<fb_var_screeninfo> PreferredTiming(const std::vector<uint8_t>& edid);
