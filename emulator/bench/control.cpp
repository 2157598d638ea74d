#include "bench/control.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "bench/record.h"
#include "bench/trace.h"
#include "kernel/supervisor.h"
#include "text.h"

struct Client {
    std::string request;  // until its side is shut
    std::string outgoing = {};
    uint64_t later = 0;  // waits for this answer
    Feed follows = Feed::kNone;
    bool answered = false;
};

static constexpr size_t kRequestLimit = 64 * 1024;
static constexpr size_t kBacklogLimit = size_t{64} << 20;  // a follower that does not read is let go

static std::map<int, Client> clients;  // by descriptor
static int listening = -1;
static std::string socketPath;
static uint64_t lastLater = 0;

// Answers

VerbAnswer Bad(std::string text) { return {.good = false, .text = std::move(text)}; }

VerbAnswer Usage(std::string_view word) {
    for (const Verb& verb : Verbs())
        if (verb.word == word) return Bad("usage: " + std::string(verb.usage));
    return Bad("usage: " + std::string(word));
}

static VerbAnswer Help() {
    std::string text = "verbs:";
    for (const Verb& verb : Verbs()) text.append("\n    ").append(verb.usage);
    return Bad(text);
}

static VerbAnswer Run(const VerbWords& words) {
    if (words.empty()) return Help();
    for (const Verb& verb : Verbs()) {
        if (verb.word != words[0]) continue;
        VerbAnswer answer = verb.run({words.begin() + 1, words.end()});
        if (answer.good && answer.follow == Feed::kNone && words.size() > verb.actsWith) Record(words);
        return answer;
    }
    return Bad("there is no verb \"" + words[0] + "\"; without a verb, ctl lists them");
}

std::optional<Listing> ParseListing(const VerbWords& words) {
    Listing listing;
    for (size_t at = 0; at < words.size(); ++at) {
        const bool last = words[at] == "--last" && at + 1 < words.size();
        const std::optional<unsigned> number = last ? ParseNumber(words[++at], UINT32_MAX) : std::nullopt;
        if (number)
            listing.newest = *number;
        else if (!last && words[at] == "--follow")
            listing.follow = true;
        else if (!last && words[at] == "--clear")
            listing.clear = true;
        else
            return std::nullopt;
    }
    return listing;
}

// Clients

static void Leave(int client) {
    ForgetDescriptor(client);
    close(client);
    clients.erase(client);
}

// False when the client has left.
static bool SendPending(int descriptor) {
    Client& client = clients.at(descriptor);
    while (!client.outgoing.empty()) {
        ssize_t size = send(descriptor, client.outgoing.data(), client.outgoing.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size < 0 && errno == EINTR) continue;
        if (size < 0 && errno == EAGAIN) break;
        if (size < 0) return Leave(descriptor), false;
        client.outgoing.erase(0, size_t(size));
    }
    if (client.outgoing.size() > kBacklogLimit) return Leave(descriptor), false;
    if (client.outgoing.empty() && client.answered && client.follows == Feed::kNone) return Leave(descriptor), false;
    uint32_t events = client.outgoing.empty() ? 0 : uint32_t{EPOLLOUT};
    WatchDescriptor(
        descriptor, [descriptor](uint32_t now) { now& EPOLLHUP ? Leave(descriptor) : (void)SendPending(descriptor); },
        events);
    return true;
}

static void SendAnswer(int descriptor, const VerbAnswer& answer) {
    Client& client = clients.at(descriptor);
    client.outgoing = (answer.good ? "0" : "1") + answer.text;
    client.answered = true;
    client.later = 0;
    client.follows = answer.follow;
    SendPending(descriptor);
}

uint64_t LaterAnswer() { return ++lastLater; }

void AnswerLater(uint64_t id, const VerbAnswer& answer) {
    for (auto& [descriptor, client] : clients)
        if (client.later == id) return SendAnswer(descriptor, answer);
}

void PassToFollowers(Feed feed, std::string_view text) {
    for (auto next = clients.begin(); next != clients.end();) {
        auto& [descriptor, client] = *next++;  // sending may end it
        if (client.follows != feed) continue;
        client.outgoing.append(text);
        SendPending(descriptor);
    }
}

static VerbWords SplitRequest(const std::string& request) {
    VerbWords words;
    for (size_t at = 0; at < request.size(); at += words.back().size() + 1) words.emplace_back(request.c_str() + at);
    return words;
}

static void CarryOutRequest(int descriptor) {
    VerbAnswer answer = Run(SplitRequest(clients.at(descriptor).request));
    if (answer.later == 0) return SendAnswer(descriptor, answer);
    clients.at(descriptor).later = answer.later;
    SendPending(descriptor);
}

static void ReadRequest(int descriptor) {
    Client& client = clients.at(descriptor);
    std::array<char, 4096> chunk;
    ssize_t size = recv(descriptor, chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (size < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (size < 0) return Leave(descriptor);
    if (size == 0) return CarryOutRequest(descriptor);
    client.request.append(chunk.data(), size_t(size));
    if (client.request.size() > kRequestLimit) SendAnswer(descriptor, Bad("the request is too long"));
}

static void TakeClient() {
    int client = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return;
    clients.emplace(client, Client{});
    WatchDescriptor(client, [client](uint32_t) { ReadRequest(client); });
}

// The socket

bool OpenControl(const std::string& folder) {
    socketPath = folder + "/control";
    unlink(socketPath.c_str());
    // A socket's name is short, a folder's path need not be.
    int there = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/control", there);
    listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool open =
        bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 && listen(listening, 16) == 0;
    if (!open) fprintf(stderr, "Board: cannot open %s: %s\n", socketPath.c_str(), strerror(errno));
    close(there);
    if (!open) return false;
    WatchDescriptor(listening, [](uint32_t) { TakeClient(); });
    OnTrace([](const std::string& line) { PassToFollowers(Feed::kTrace, line + '\n'); });
    return true;
}

void CloseControl() {
    while (!clients.empty()) Leave(clients.begin()->first);
    ForgetDescriptor(listening);
    close(listening);
    unlink(socketPath.c_str());
}
