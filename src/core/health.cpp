#include "core/health.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/log.h"
#include "core/shell.h"
#include "core/watchdog.h"
#include "settings/device_identity.h"

static const std::string kFlipTimeout = "mxc_sdc_fb fb@0: timeout when waiting for flip irq";
static constexpr size_t kInspectLimit = 1000;

void Terminate() {
    if (NoWatchdog == 0 && !WatchdogTest()) WatchdogClose(kWatchdogPath);

    // The first process of this name may be this one: it still ends with its own status, not by that signal.
    signal(SIGTERM, SIG_IGN);
    const int process = atoi(ReadFirstLine("ps | grep Tesselvisor").text.c_str());
    if (process > 0) RunShell("kill %d", process);  // 0 would be our whole process group
    _exit(0);                                       // the other threads are running: no destructor may run beneath them
}

int Reboot() {
    RunShell("reboot -f");
    return 0;
}

int KernelIssueCheck() {
    const ToolAnswer answer = ReadFirstLine(("dmesg | grep '" + kFlipTimeout + "'").c_str());
    return answer.text.find(kFlipTimeout) != std::string::npos ? 1 : 0;
}

int PluginBlacklistCheck() {
    static constexpr const char* kCommand = "gst-inspect-1.0 -b | grep \"Total count:\"";
    std::string output;
    const auto collect = [&output](const char* line) { output.append(line, 0, kInspectLimit - output.size()); };
    if (!ReadEveryLine(kCommand, "pclose failed", static_cast<int>(kInspectLimit), collect)) {
        LogInfo("Error opening pipe for command: %s\n", kCommand);
        return 1;
    }
    if (output.find("0 blacklisted files") == std::string::npos) {
        LogInfo("Detected blacklisted plugins, cleaning cache...\r\n");
        RunShell("rm -rf /.cache/gstreamer-1.0/");
    }
    return 0;
}

int ReadHdmiCableState(uint8_t& plugged) {
    const int file = open(kHdmiCableStatePath, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        LogInfo("Cannot open %s: %s\n", kHdmiCableStatePath, strerror(errno));
        return 1;
    }
    std::array<char, 257> text{};
    if (read(file, text.data(), text.size() - 1) < 0) text.front() = '\0';
    close(file);
    plugged = strstr(text.data(), "plugin") != nullptr ? 1 : 0;
    return 0;
}
