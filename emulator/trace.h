// The board's flight recorder: everything that crossed the boundary between daemon and hardware, one JSON object a
// line, with the time in microseconds since the emulator was started (it runs on through resets). Kept in memory (the
// newest 200,000 lines) for the `trace` verb, which can clear it and follow it. Supervisor's thread only.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

using Json = nlohmann::ordered_json;

// Records {"t": microseconds, "what": what, ...fields}. Kinds in use: "i2c", "gpio", "ioctl", "exec", "watchdog",
// "plug", "reset", "daemon", "file", "serial", "framebuffer", "fault", "journal", "sound".
void Trace(std::string_view what, Json fields);
int64_t TraceTime(int64_t microseconds);  // of NowMicroseconds(), as "t" tells it
void ClearTrace();

std::string TraceText();                                  // every line kept
void OnTrace(void (*followed)(const std::string& line));  // one follower; lines without newline
