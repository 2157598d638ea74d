#include "browser.h"

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <stdexcept>

static constexpr double kAnswerSeconds = 90;

Browser::Browser() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    std::string node = "node", script = TESSEL_BROWSER_SCRIPTS "/person.mjs";
    const std::array<char*, 3> words{node.data(), script.data(), nullptr};
    if (posix_spawnp(&process, "node", &actions, nullptr, words.data(), environ) != 0) process = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    line = ends[0];
}

// The end of its input ends the script, and that the browser.
Browser::~Browser() {
    if (line >= 0) close(line);
    if (process < 0) return;
    const auto ended = [this] { return waitpid(process, nullptr, WNOHANG) == process; };
    if (WaitUntil(20, ended)) return;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

static Json Ask(const Browser& browser, const std::string& request) {
    if (browser.process < 0) return {{"error", "node does not start; scripts/setup installs it"}};
    const std::string sent = request + "\n";
    send(browser.line, sent.data(), sent.size(), MSG_NOSIGNAL);  // lost when it did not start; its answer says why
    std::string answer;
    const auto deadline = std::chrono::steady_clock::now() + Seconds(kAnswerSeconds * Patience());
    while (!answer.ends_with('\n') && std::chrono::steady_clock::now() < deadline) {
        pollfd waiting{browser.line, POLLIN, 0};
        std::array<char, 4096> piece;
        if (poll(&waiting, 1, 1000) <= 0) continue;
        const ssize_t count = recv(browser.line, piece.data(), piece.size(), 0);
        if (count <= 0) break;
        answer.append(piece.data(), size_t(count));
    }
    return answer.ends_with('\n') ? Json::parse(answer) : Json{{"error", "no answer to " + request}};
}

Json Do(const Browser& browser, const std::vector<std::string>& lines) {
    Json answer;
    for (const std::string& line : lines) {
        answer = Ask(browser, line);
        if (answer.contains("error")) throw std::runtime_error(answer["error"].get<std::string>());
    }
    return answer;
}
