#include "trace.h"

#include <deque>

#include "supervisor.h"

static constexpr size_t kTraceLines = 200'000;

static std::deque<std::string> lines;
static const int64_t start = NowMicroseconds();
static void (*follower)(const std::string&) = nullptr;

int64_t TraceTime(int64_t microseconds) { return microseconds - start; }

void Trace(std::string_view what, Json fields) {
    Json record{{"t", TraceTime(NowMicroseconds())}, {"what", what}};
    record.update(fields);
    // Arguments of programs and serial lines may carry any bytes.
    lines.push_back(record.dump(-1, ' ', false, Json::error_handler_t::replace));
    if (lines.size() > kTraceLines) lines.pop_front();
    if (follower) follower(lines.back());
}

void ClearTrace() { lines.clear(); }

std::string TraceText() {
    std::string text;
    for (const std::string& line : lines) text.append(line).push_back('\n');
    return text;
}

void OnTrace(void (*followed)(const std::string&)) { follower = followed; }
