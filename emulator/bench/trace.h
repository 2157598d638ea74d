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
// "plug", "reset", "daemon", "file", "serial", "framebuffer", "fault", "journal", "sound", "panel" (what hands do to
// it), "led".
void Trace(std::string_view what, const Json& fields);
int64_t TraceTime(int64_t microseconds);  // of NowMicroseconds(), as "t" tells it
void ClearTrace();

// Whether a record is one more of a series that a program repeats without end, as it does when it polls: the same
// content at the same place of its kind, for the fourth time or more, and less than 100 ms after the last time. Such
// records are left out by their makers: they say nothing new, and a thousand a second would push out all others. `kind`
// must be a literal: it is kept.
bool IsPolling(std::string_view kind, unsigned place, std::string_view content);

std::string TraceText(size_t newest = SIZE_MAX);          // so many lines at most
void OnTrace(void (*followed)(const std::string& line));  // one follower; lines without newline
