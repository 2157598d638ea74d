#include "commands/reply_channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "core/log.h"
#include "settings/device_settings.h"

static constexpr int kPatienceMs = 2'000;

thread_local int ReplyChannel = -1;

static bool WaitForRoom() {
    pollfd client = {.fd = ReplyChannel, .events = POLLOUT, .revents = 0};
    const int ready = poll(&client, 1, kPatienceMs);
    if (ready == 0) shutdown(ReplyChannel, SHUT_RDWR);
    return ready > 0 || (ready < 0 && errno == EINTR);
}

bool WriteToClient(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = send(ReplyChannel, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) text.remove_prefix(static_cast<size_t>(count));
        if (count >= 0 || errno == EINTR) continue;
        if (errno != EAGAIN || !WaitForRoom()) return false;
    }
    return true;
}

int SetNetworkLog(int enable) {
    Settings.EnLog = static_cast<uint8_t>(enable);
    if (Settings.EnLog != 0) {
        // The programs that we start write to it as well: once the client stops reading, they must not wait for it.
        fcntl(ReplyChannel, F_SETFL, O_NONBLOCK);
        RedirectLog(ReplyChannel);
    } else {
        RestoreLog();
        LogInfo("STDOUT/STDERR to console.\n");
    }
    return 0;
}

bool IsLogClient(int socket) {
    struct stat client, output;
    if (fstat(socket, &client) != 0 || fstat(STDOUT_FILENO, &output) != 0) return false;
    return client.st_dev == output.st_dev && client.st_ino == output.st_ino;
}
