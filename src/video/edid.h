// What a monitor's EDID says about its maker and its preferred timing. Pure.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

inline constexpr size_t kEdidBufferSize = 1024;  // what is read of a monitor; only the base block is looked at
using EdidBytes = std::span<const uint8_t, kEdidBufferSize>;
using EdidDescriptor = std::span<const uint8_t, 18>;

bool HasEdidHeader(EdidBytes edid);

std::array<char, 3> EdidVendor(EdidBytes edid);  // three letters

struct PreferredTiming {
    unsigned width, height;  // pixels
    double refresh;          // Hz, as computed from clock and totals
};

// The first descriptor, when it is a timing and the monitor declares it as its preferred one; nothing otherwise.
std::optional<PreferredTiming> EdidPreferredTiming(EdidBytes edid);

EdidDescriptor FirstDescriptor(EdidBytes edid);
bool IsDisplayDescriptor(EdidDescriptor descriptor);  // text, range limits and the like instead of a timing
