#include "net/telnet_server.h"

#include <arpa/inet.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>

#include "commands/dispatch.h"
#include "commands/reply_channel.h"
#include "core/log.h"
#include "net/tcp_socket.h"
#include "settings/device_settings.h"

static constexpr int kBacklog = 3;
static constexpr size_t kTextLimit = 2000;  // bytes of one read
static constexpr useconds_t kRetryPause = 1'000;

struct TelnetClient {
    int socket;        // 0: the slot is empty
    sockaddr_in peer;  // kept, because a connection that was reset no longer tells it
};
static std::array<TelnetClient, kTelnetClients> TelnetClientTable;
Shared<uint8_t> TelnetClientCount{0};

using Slots = uint32_t;  // a bit for each slot of the table
static_assert(kTelnetClients <= 32);

// ---- Set-up ----

// 0, or -1 with what failed in `failure`.
static int PrepareListener(int listener, const char*& failure) {
    const int on = 1;
    failure = "telnet setsockopt error.\n";
    if (setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return -1;
    failure = "telnet bind failed";
    if (BindToPort(listener, kTelnetPort) != 0) return -1;
    LogInfo("Listener on port %d \n", kTelnetPort);
    failure = "telnet listen error.\n";
    return listen(listener, kBacklog);
}

static int SetUpListener() {
    const int listener = OpenTcpSocket();
    const char* failure = "telnet socket failed";
    if (listener >= 0 && PrepareListener(listener, failure) == 0) return listener;
    LogError(failure);
    if (listener >= 0) close(listener);
    return -1;
}

// ---- Clients ----

static void RemoveClient(TelnetClient& client) {
    close(client.socket);
    client = {};
    TelnetClientCount = static_cast<uint8_t>(TelnetClientCount - 1);
}

static void RemoveEveryClient() {
    for (TelnetClient& client : TelnetClientTable)
        if (client.socket != 0) RemoveClient(client);
}

static void AdmitClient(int listener) {
    if (TelnetClientCount >= kTelnetClients) {
        LogInfo("Max number of clients reached. Closing all pipes.\n");
        RemoveEveryClient();
    }
    TelnetClient client{};
    client.socket = AcceptClient(listener, client.peer);
    if (client.socket < 0) {
        LogError("accept error.\n");
        _exit(1);
    }
    if (client.socket >= FD_SETSIZE) {  // could not be waited for; a process with so many descriptors leaks them
        close(client.socket);
        return;
    }
    LogInfo("New connection: socket fd is %d, ip is: %s, port: %d\n", client.socket, inet_ntoa(client.peer.sin_addr),
            ntohs(client.peer.sin_port));
    const auto slot = std::ranges::find(TelnetClientTable, 0, &TelnetClient::socket);
    *slot = client;
    TelnetClientCount = static_cast<uint8_t>(TelnetClientCount + 1);
    ReplyChannel = client.socket;
    LogInfo("Adding to list of sockets as %d\n", static_cast<int>(slot - TelnetClientTable.begin()));
    SetNetworkLog(Settings.EnLog);
}

// Reads one text and runs it: false when the client had closed instead.
static bool ServeClient(TelnetClient& client) {
    std::array<char, kTextLimit + 1> text;
    // Never waits: the slot may have gone to a new client since it was found readable.
    const ssize_t count = recv(client.socket, text.data(), kTextLimit, MSG_DONTWAIT);
    if (count == 0) {
        LogInfo("Host disconnected , ip %s , port %d \n", inet_ntoa(client.peer.sin_addr), ntohs(client.peer.sin_port));
        RemoveClient(client);
        return false;
    }
    text[static_cast<size_t>(std::max<ssize_t>(count, 0))] = '\0';
    if (count > 0) DispatchNetworkText(text.data(), client.socket);
    return true;
}

// ---- Passes ----

struct Input {
    bool connection = false;
    Slots slots = 0;
};

static Input WaitForInput(int listener) {
    fd_set watched;
    FD_ZERO(&watched);
    FD_SET(listener, &watched);
    int highest = listener;
    for (const TelnetClient& client : TelnetClientTable) {
        if (client.socket == 0) continue;
        FD_SET(client.socket, &watched);
        highest = std::max(highest, client.socket);
    }
    if (select(highest + 1, &watched, nullptr, nullptr, nullptr) < 0) {
        if (errno != EINTR) LogError("select error");
        return {};
    }
    Input input{.connection = FD_ISSET(listener, &watched), .slots = 0};
    for (size_t i = 0; i < kTelnetClients; ++i)
        if (TelnetClientTable[i].socket != 0 && FD_ISSET(TelnetClientTable[i].socket, &watched))
            input.slots |= Slots{1} << i;
    return input;
}

// Serves one text of the lowest readable slot, and removes the closed ones before it. A slot in `served` had its turn
// while others were waiting: it waits for them, so that a client that floods does not silence the slots behind its own.
// Returns the next pass's `served`.
static Slots VisitSlots(Slots readable, Slots served) {
    Slots waiting = readable & ~served;
    if (waiting == 0) waiting = readable, served = 0;
    while (waiting != 0) {
        const int slot = std::countr_zero(waiting);
        waiting &= waiting - 1;
        if (!ServeClient(TelnetClientTable[static_cast<size_t>(slot)])) continue;
        return waiting != 0 ? served | Slots{1} << slot : 0;
    }
    return 0;
}

int RunTelnetServer() {
    TelnetClientTable = {};
    TelnetClientCount = 0;
    const int listener = SetUpListener();
    if (listener < 0) return 1;
    PrintOut("Telnet - Waiting for connections ...\n");
    for (Slots served = 0;;) {
        const Input input = WaitForInput(listener);
        if (input.connection) AdmitClient(listener);
        served = VisitSlots(input.slots, served);
    }
}

void LanThreadMain() {
    for (;;) {
        RunTelnetServer();
        usleep(kRetryPause);
    }
}
