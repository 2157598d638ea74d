// The command vocabulary: one row per command word, for the serial port and the console (framed <S1>, <AIN1 5>) and for
// telnet and HTTP (framed $S1$, $AIN1_5$).
//
// A received text is searched for every row's pattern (POSIX extended, not anchored), in table order, and every row
// that matches is executed. A row carries a handler, or only the layout or input that it selects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr size_t kArguments = 10;  // slots a handler receives; missing ones hold kMissingArgument
inline constexpr int32_t kMissingArgument = 65535;
inline constexpr uint8_t kNoValue = 255;

enum CommandKind : uint8_t { kLayout = 0, kInput = 2, kAction = 3 };

using CommandHandler = int (*)(const int32_t* arguments);  // 0: success; null arguments for rows that take none

struct CommandEntry {
    const char* pattern;
    CommandKind kind = kAction;
    uint8_t value1 = kNoValue;         // layout: ViewId, input: 1..4, otherwise 255
    uint8_t value2 = 0;                // layout: Swap to set, 255: leave it
    CommandHandler handler = nullptr;  // null: the row selects value1 and value2
    uint8_t argumentCount = 0;         // 0..10
    uint8_t numberBase = 10;           // 10, 16, or 0: chosen by prefix
};

extern const std::span<const CommandEntry> SerialCommandTable;
extern const std::span<const CommandEntry> NetworkCommandTable;
