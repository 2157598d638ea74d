#include "net/http_server.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>

#include "commands/dispatch.h"
#include "commands/reply_channel.h"
#include "core/log.h"
#include "net/control_pages.h"
#include "net/tcp_socket.h"

static constexpr uint16_t kHttpPort = 80;
static constexpr int kBacklog = 3;
static constexpr timeval kReceiveLimit = {.tv_sec = 5, .tv_usec = 0};
static constexpr std::chrono::milliseconds kFarewellLimit{200};
static constexpr useconds_t kPause = 1'000;

static int HttpListenSocket = 0;              // 0: none yet
static thread_local int httpConnection = -1;  // being served; other threads have none to finish

using RequestText = std::array<char, 2000>;

static void CloseListener() {
    if (HttpListenSocket != 0) close(HttpListenSocket);
    HttpListenSocket = 0;
}

int SetUpHttpServer() {
    CloseListener();
    const int listener = OpenTcpSocket();
    if (listener < 0) {
        LogError("Could not create http socket");
        return 1;
    }
    HttpListenSocket = listener;
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (BindToPort(listener, kHttpPort) == 0) return 0;
    LogError("bind http failed. Error");
    CloseListener();
    return 1;
}

// ---- Closing ----

// Until the client has closed its side as well, or has had its time.
static void DiscardInput(int client) {
    using std::chrono::ceil, std::chrono::milliseconds, std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + kFarewellLimit;
    std::array<char, 4096> ignored;
    for (;;) {
        const auto left = ceil<milliseconds>(deadline - steady_clock::now()).count();
        pollfd input = {.fd = client, .events = POLLIN, .revents = 0};
        if (left <= 0 || poll(&input, 1, static_cast<int>(left)) <= 0) return;
        if (recv(client, ignored.data(), ignored.size(), MSG_DONTWAIT) <= 0) return;
    }
}

void FinishHttpConnection() {
    if (httpConnection < 0) return;
    if (!IsLogClient(httpConnection)) {
        shutdown(httpConnection, SHUT_WR);
        DiscardInput(httpConnection);
    }
    close(httpConnection);
    httpConnection = ReplyChannel = -1;
}

// ---- One connection ----

static bool AcceptConnection() {
    if (listen(HttpListenSocket, kBacklog) != 0) return false;
    PrintOut("Waiting for incoming connections...\n");
    sockaddr_in peer;
    httpConnection = AcceptClient(HttpListenSocket, peer);
    if (httpConnection < 0) {
        LogError("accept failed");
        return false;
    }
    PrintOut("Connection accepted\n");
    if (setsockopt(httpConnection, SOL_SOCKET, SO_RCVTIMEO, &kReceiveLimit, sizeof kReceiveLimit) == 0) return true;
    LogError("setsockopt SO_RCVTIMEO");
    FinishHttpConnection();
    return false;
}

static bool ReceiveRequest(RequestText& text) {
    const ssize_t count = recv(httpConnection, text.data(), text.size() - 1, 0);
    if (count > 0) {
        text[static_cast<size_t>(count)] = '\0';
        return true;
    }
    const int error = errno;
    LogInfo("recv() returned %d\n", static_cast<int>(count));
    errno = error;
    if (count == 0)
        PrintOut("Client disconnected\n");
    else
        LogError("recv failed");
    return false;
}

int ServeHttpConnection() {
    if (!AcceptConnection()) return 1;
    RequestText text;
    if (ReceiveRequest(text) && !DispatchNetworkText(text.data(), httpConnection)) WriteToClient(ControlPage());
    FinishHttpConnection();
    return 0;
}

static int ThenPause(int result) {
    usleep(kPause);
    return result;
}

void HttpThreadMain() {
    for (;;) {
        while (ThenPause(SetUpHttpServer()) != 0) continue;
        while (ThenPause(ServeHttpConnection()) == 0) continue;
    }
}
