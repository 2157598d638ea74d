#include "page/page_server.h"

#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bench/trace.h"
#include "capture/camera_profiles.h"
#include "devices/monitor.h"
#include "kernel/event_loop.h"
#include "kernel/supervisor.h"
#include "page/page_board.h"
#include "page/page_events.h"
#include "page/page_files.h"
#include "page/page_picture.h"
#include "sound/sound_profiles.h"
#include "text.h"

static constexpr size_t kBodyLimit = 64 * 1024;
static constexpr unsigned kConnections = 64;
static constexpr unsigned kIdleSeconds = 60;                                  // of a connection that asks nothing
static constexpr int64_t kPictureLook = 4'000, kPicturePatience = 1'000'000;  // microseconds
// Whoever has a frame gets the next one no sooner than that after asking: 30 a second of a display that shows 60.
static constexpr int64_t kPicturePause = 24'000;
static constexpr const char* kJson = "application/json";

// A request from its first byte to its answer's last.
struct Request {
    MHD_Connection* connection;
    std::string path;
    std::string method;
    std::string body;
    bool started = false, waiting = false;
    MHD_Response* response = nullptr;  // the answer, once there is one
    unsigned status = MHD_HTTP_OK;

    // Of /picture
    uint32_t width = 0;
    uint64_t after = 0;
    int64_t since = 0;
};

static MHD_Daemon* server = nullptr;
static int port = 0;

// ---- Who may ask

bool IsOwnRequest(std::string_view host, std::string_view origin, std::string_view fetchSite, int ownPort) {
    const std::string digits = std::to_string(ownPort);
    for (const char* name : {"127.0.0.1:", "localhost:"}) {
        const std::string own = name + digits;
        if (host == own)
            return (origin.empty() || origin == "http://" + own) &&
                   (fetchSite.empty() || fetchSite == "same-origin" || fetchSite == "none");
    }
    return false;
}

static std::string_view Header(MHD_Connection* connection, const char* name) {
    const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value ? value : "";
}

static bool IsOwn(MHD_Connection* connection) {
    return IsOwnRequest(Header(connection, "Host"), Header(connection, "Origin"), Header(connection, "Sec-Fetch-Site"),
                        port);
}

// Also what a link on another site leads to.
static bool MaySeeFiles(MHD_Connection* connection) { return IsOwnRequest(Header(connection, "Host"), "", "", port); }

// ---- Answers

static constexpr const char* kPolicy =
    "default-src 'self'; img-src 'self' blob: data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

static void Finish(Request& request, unsigned status, MHD_Response* response, const char* type) {
    MHD_add_response_header(response, "Content-Type", type);
    MHD_add_response_header(response, "Cache-Control", "no-store");
    MHD_add_response_header(response, "Content-Security-Policy", kPolicy);
    MHD_add_response_header(response, "Cross-Origin-Resource-Policy", "same-origin");
    MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
    request.status = status;
    request.response = response;
    if (!request.waiting) return;
    request.waiting = false;
    MHD_resume_connection(request.connection);
}

static void Finish(Request& request, unsigned status, std::string_view text, const char* type) {
    MHD_Response* response =
        MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY);
    Finish(request, status, response, type);
}

// The answer follows: the connection sleeps until Finish.
static void Wait(Request& request) {
    request.waiting = true;
    MHD_suspend_connection(request.connection);
}

// ---- Routes

static void SendProfiles(Request& request) {
    Json profiles{{"camera", Json::array()}, {"sound", Json::array()}, {"monitor", Json::array()}};
    const auto add = [&](const char* kind, const auto& list) {
        for (const auto& item : list)
            profiles[kind].push_back({{"name", item.name}, {"description", item.description}});
    };
    add("camera", ListCameraProfiles());
    add("sound", ListSoundProfiles());
    add("monitor", ListMonitors());
    Finish(request, MHD_HTTP_OK, profiles.dump(), kJson);
}

static void CarryOutVerb(Request& request) {
    // A page of another site cannot send this type without asking first.
    if (!Header(request.connection, "Content-Type").starts_with(kJson))
        return Finish(request, MHD_HTTP_UNSUPPORTED_MEDIA_TYPE, "The words come as JSON.\n", "text/plain");
    std::vector<std::string> words;
    try {
        words = Json::parse(request.body).get<std::vector<std::string>>();
    } catch (const Json::exception&) {
        return Finish(request, MHD_HTTP_BAD_REQUEST, "A verb is a list of words.\n", "text/plain");
    }
    for (const std::string& word : words)
        if (word == "--follow" || word.find('\0') != word.npos)
            return Finish(request, MHD_HTTP_BAD_REQUEST, "No such word.\n", "text/plain");
    Wait(request);
    AskBoardAsync(words, [&request](bool good, const std::string& text) {
        const Json answer{{"good", good}, {"text", text}};
        Finish(request, MHD_HTTP_OK, answer.dump(-1, ' ', false, Json::error_handler_t::replace), kJson);
    });
}

// Viewers wait for the next frame here; with nobody waiting, nothing is looked at and nothing is compressed.
static std::set<Request*> viewers;
static TimerId nextLook = 0;

static void SendPicture(Request& request) {
    const PagePicture picture = NewestPagePicture(request.width);
    MHD_Response* response = MHD_create_response_from_buffer(
        picture.jpeg.size(), const_cast<uint8_t*>(picture.jpeg.data()), MHD_RESPMEM_MUST_COPY);
    MHD_add_response_header(response, "X-Frame", std::to_string(picture.frame).c_str());
    MHD_add_response_header(response, "X-Display", Text("%ux%u", picture.width, picture.height).c_str());
    Finish(request, picture.frame == 0 ? unsigned{MHD_HTTP_NO_CONTENT} : MHD_HTTP_OK, response, "image/jpeg");
}

static void LookAtDisplay() {
    nextLook = 0;
    const uint64_t frame = ShownFrames();
    const int64_t now = NowMicroseconds();
    for (auto next = viewers.begin(); next != viewers.end();) {
        Request& viewer = **next;
        const int64_t waited = now - viewer.since;
        const bool fresh = frame != 0 && frame != viewer.after && (viewer.after == 0 || waited >= kPicturePause);
        if (!fresh && waited < kPicturePatience) {
            ++next;
            continue;
        }
        next = viewers.erase(next);
        fresh ? SendPicture(viewer) : Finish(viewer, MHD_HTTP_NO_CONTENT, "", "image/jpeg");
    }
    if (!viewers.empty()) nextLook = CallAt(now + kPictureLook, LookAtDisplay);
}

static uint64_t Argument(MHD_Connection* connection, const char* name) {
    const char* value = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, name);
    return value ? strtoull(value, nullptr, 10) : 0;
}

static void AwaitPicture(Request& request) {
    request.width = uint32_t(std::min<uint64_t>(Argument(request.connection, "width"), UINT16_MAX));
    request.after = Argument(request.connection, "after");
    request.since = NowMicroseconds();
    Wait(request);
    viewers.insert(&request);
    if (nextLook == 0) nextLook = CallAt(request.since, LookAtDisplay);
}

static void StartEvents(Request& request) {
    Finish(request, MHD_HTTP_OK, OpenEvents(request.connection), "text/event-stream");
}

struct Route {
    std::string_view method, path;
    void (*serve)(Request& request);
};
static constexpr std::array kRoutes{
    Route{"GET", "/profiles", SendProfiles},
    Route{"GET", "/picture", AwaitPicture},
    Route{"GET", "/events", StartEvents},
    Route{"POST", "/verb", CarryOutVerb},
};

static void Refuse(Request& request) {
    Finish(request, MHD_HTTP_FORBIDDEN, "This bench serves its own page only.\n", "text/plain");
}

static void Serve(Request& request) {
    for (const PageFile& file : PageFiles()) {
        if (file.path != request.path || request.method != "GET") continue;
        return MaySeeFiles(request.connection) ? Finish(request, MHD_HTTP_OK, file.text, file.type) : Refuse(request);
    }
    if (!IsOwn(request.connection)) return Refuse(request);
    if (request.body.size() > kBodyLimit)
        return Finish(request, MHD_HTTP_CONTENT_TOO_LARGE, "Too long.\n", "text/plain");
    for (const Route& route : kRoutes)
        if (route.path == request.path && route.method == request.method) return route.serve(request);
    Finish(request, MHD_HTTP_NOT_FOUND, "There is nothing here.\n", "text/plain");
}

// ---- The HTTP library

// Called for the head, for each piece of the body, at its end, and again after a wait.
static MHD_Result TakeRequest(void*, MHD_Connection* connection, const char* path, const char* method, const char*,
                              const char* data, size_t* size, void** context) {
    if (*context == nullptr) {
        *context = new Request{.connection = connection, .path = path, .method = method, .body = {}};
        return MHD_YES;
    }
    Request& request = *static_cast<Request*>(*context);
    if (*size > 0) {
        if (request.body.size() <= kBodyLimit) request.body.append(data, *size);
        *size = 0;
        return MHD_YES;
    }
    if (!std::exchange(request.started, true)) Serve(request);
    if (request.response == nullptr) return MHD_YES;
    const MHD_Result queued = MHD_queue_response(connection, request.status, request.response);
    MHD_destroy_response(std::exchange(request.response, nullptr));
    return queued;
}

static void ForgetRequest(void*, MHD_Connection*, void** context, MHD_RequestTerminationCode) {
    auto* request = static_cast<Request*>(*context);
    if (request != nullptr && request->response != nullptr) MHD_destroy_response(request->response);
    delete request;
    *context = nullptr;
}

static void RunServer() {
    static TimerId timeout = 0;
    MHD_run(server);
    CancelCall(timeout);
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    timeout = MHD_get_timeout(server, &milliseconds) == MHD_YES
                  ? CallAt(NowMicroseconds() + int64_t(milliseconds) * 1000, RunServer)
                  : 0;
}

static int PortOf(int listening) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

int ServePage(int listening) {
    port = PortOf(listening);
    server = MHD_start_daemon(MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, TakeRequest, nullptr,
                              MHD_OPTION_LISTEN_SOCKET, listening, MHD_OPTION_CONNECTION_LIMIT, kConnections,
                              MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_NOTIFY_COMPLETED, ForgetRequest,
                              nullptr, MHD_OPTION_END);
    if (server == nullptr) return fprintf(stderr, "Page: the HTTP server does not start.\n"), 1;
    const int events = MHD_get_daemon_info(server, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    // A timer's or the board's event may have woken a connection: that is no event of the library's own.
    WatchDescriptor(events, [](uint32_t) {});
    AfterEachEvent(RunServer);
    // The board's end ends this process too: nobody is left whom it could serve.
    const int board = FollowBoard(
        {"journal", "--last", "0", "--follow"}, [](std::string_view) {}, [] { EndEvents(0); });
    if (board < 0) return fprintf(stderr, "Page: no board is running there.\n"), 1;
    return RunEvents();
}
