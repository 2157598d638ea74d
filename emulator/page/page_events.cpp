#include "page/page_events.h"

#include <microhttpd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <list>
#include <string>
#include <utility>

#include "bench/trace.h"
#include "kernel/supervisor.h"
#include "page/page_board.h"

static constexpr size_t kBlock = 32 * 1024;
static constexpr size_t kBacklogLimit = size_t{8} << 20;
static constexpr int64_t kLookTime = 100'000;  // microseconds between two looks at the bench

struct FeedRow {
    const char* event;
    std::vector<std::string> verb;
};
static const std::array kFeeds{
    FeedRow{"trace", {"trace", "--last", "300", "--follow"}},
    FeedRow{"journal", {"journal", "--last", "500", "--follow"}},
    FeedRow{"console", {"console", "--follow"}},
};

struct EventStream {
    MHD_Connection* connection;
    bool asleep = false;
    bool knowsBench = false;
    std::string outgoing = {};
    std::array<int, kFeeds.size()> feeds{-1, -1, -1};
};

static std::list<EventStream> streams;
static TimerId nextLook = 0;
static Json bench = Json::object();  // as the streams know it

static void Send(EventStream& stream, const char* event, const std::string& data) {
    if (stream.outgoing.size() > kBacklogLimit) return;  // it ends when it is read again
    stream.outgoing.append("event: ").append(event).append("\ndata: ").append(data).append("\n\n");
    if (!std::exchange(stream.asleep, false)) return;
    MHD_resume_connection(stream.connection);
}

// ---- The bench

static Json ChangedParts(const Json& now) {
    Json changed = Json::object();
    for (const auto& [part, value] : now.items())
        if (!bench.contains(part) || bench[part] != value) changed[part] = value;
    return changed;
}

static void TellBench(const Json& now) {
    const Json changed = ChangedParts(now);
    for (EventStream& stream : streams) {
        const bool knows = std::exchange(stream.knowsBench, true);
        if (!knows || !changed.empty()) Send(stream, "bench", (knows ? changed : now).dump());
    }
    bench = now;
}

static void LookAtBench() {
    nextLook = 0;
    if (streams.empty()) return;
    AskBoardAsync({"bench"}, [](bool good, const std::string& text) {
        const Json now = good ? Json::parse(text, nullptr, false) : Json();
        if (now.is_object()) TellBench(now);
        nextLook = CallAt(NowMicroseconds() + kLookTime, LookAtBench);
    });
}

// ---- Streams

static ssize_t ReadStream(void* context, uint64_t, char* to, size_t room) {
    auto& stream = *static_cast<EventStream*>(context);
    if (stream.outgoing.size() > kBacklogLimit) return MHD_CONTENT_READER_END_OF_STREAM;
    if (stream.outgoing.empty()) {
        stream.asleep = true;
        MHD_suspend_connection(stream.connection);
        return 0;
    }
    const size_t size = std::min(room, stream.outgoing.size());
    stream.outgoing.copy(to, size);
    stream.outgoing.erase(0, size);
    return ssize_t(size);
}

static void CloseStream(void* context) {
    const auto* stream = static_cast<EventStream*>(context);
    for (const int feed : stream->feeds) Unfollow(feed);
    streams.remove_if([stream](const EventStream& one) { return &one == stream; });
}

MHD_Response* OpenEvents(MHD_Connection* connection) {
    EventStream& stream = streams.emplace_back(EventStream{.connection = connection});
    for (size_t i = 0; i < kFeeds.size(); ++i) {
        const char* event = kFeeds[i].event;
        stream.feeds[i] = FollowBoard(
            kFeeds[i].verb,
            [&stream, event](std::string_view piece) {
                // As a JSON text: whatever bytes it has stay within their line.
                Send(stream, event, Json(piece).dump(-1, ' ', false, Json::error_handler_t::replace));
            },
            [] {});
    }
    if (nextLook == 0) nextLook = CallAt(NowMicroseconds(), LookAtBench);
    return MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kBlock, ReadStream, &stream, CloseStream);
}
