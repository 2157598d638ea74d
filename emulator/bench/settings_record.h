// The daemon's settings record, decoded: 136 bytes as they stand in its memory and in its file. Read live from the
// running daemon where its program still has its symbols, else from the file it saved last. Supervisor's thread.
#pragma once

#include <cstdint>
#include <span>

#include "bench/control.h"
#include "bench/trace.h"

inline constexpr size_t kSettingsBytes = 136;

// {"View": 2, ..., "IpAddress": "192.168.0.57"}. Pure; null for a record of another size.
Json DescribeSettings(std::span<const uint8_t> record);

Json SettingsNow();  // {"from": "memory" | "file", "fields": {...}}; fields are null when there is neither

VerbAnswer SettingsVerb(const VerbWords& words);
