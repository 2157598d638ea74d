#include "commands/reply_channel.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "core/log.h"
#include "settings/device_settings.h"

thread_local int ReplyChannel = -1;

void WriteToClient(const char* text) {
    for (size_t left = strlen(text); left > 0;) {
        const ssize_t count = send(ReplyChannel, text, left, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        text += count;
        left -= static_cast<size_t>(count);
    }
}

int SetNetworkLog(int enable) {
    Settings.EnLog = static_cast<uint8_t>(enable);
    if (Settings.EnLog != 0) {
        RedirectLog(ReplyChannel);
    } else {
        RestoreLog();
        LogInfo("STDOUT/STDERR to console.\n");
    }
    return 0;
}
