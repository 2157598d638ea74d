#include "bench/trace.h"

#include <algorithm>
#include <deque>
#include <map>
#include <utility>

#include "kernel/supervisor.h"

static constexpr size_t kTraceLines = 200'000;

static constexpr int64_t kPollTime = 100'000;  // microseconds
static constexpr unsigned kRepeatsKept = 3;

struct Repetition {
    std::string content;
    int64_t last = 0;
    unsigned count = 0;
};

static std::map<std::pair<std::string_view, unsigned>, Repetition> repetitions;
static std::deque<std::string> lines;
static const int64_t start = NowMicroseconds();
static void (*follower)(const std::string&) = nullptr;

int64_t TraceTime(int64_t microseconds) { return microseconds - start; }

void Trace(std::string_view what, const Json& fields) {
    Json record{{"t", TraceTime(NowMicroseconds())}, {"what", what}};
    record.update(fields);
    // Arguments of programs and serial lines may carry any bytes.
    lines.push_back(record.dump(-1, ' ', false, Json::error_handler_t::replace));
    if (lines.size() > kTraceLines) lines.pop_front();
    if (follower) follower(lines.back());
}

void ClearTrace() {
    lines.clear();
    repetitions.clear();
}

bool IsPolling(std::string_view kind, unsigned place, std::string_view content) {
    Repetition& repetition = repetitions[{kind, place}];
    const int64_t now = NowMicroseconds(), since = now - std::exchange(repetition.last, now);
    const bool repeated = repetition.count > 0 && since < kPollTime && repetition.content == content;
    if (!repeated) {
        repetition.content = content;
        repetition.count = 0;
    }
    return ++repetition.count > kRepeatsKept;
}

std::string TraceText(size_t newest) {
    std::string text;
    for (size_t at = lines.size() - std::min(newest, lines.size()); at < lines.size(); ++at)
        text.append(lines[at]).push_back('\n');
    return text;
}

void OnTrace(void (*followed)(const std::string&)) { follower = followed; }
