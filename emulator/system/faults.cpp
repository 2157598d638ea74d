#include "system/faults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <string_view>

#include "capture/camera.h"
#include "devices/expander.h"
#include "devices/i2c_bus.h"
#include "gst/element_faults.h"
#include "kernel/sandbox.h"
#include "kernel/udev_events.h"
#include "sound/sound_card.h"
#include "system/board.h"

namespace fs = std::filesystem;

enum class DiskFault { kNone, kFull, kReadOnly };

struct ToolFault {
    std::string_view word;
    const char* script;  // run in place of the tool; null: the tool is not found
};
static constexpr std::array kToolFaults{
    ToolFault{"fail", "#!/bin/sh\nexit 1\n"},
    ToolFault{"killed", "#!/bin/sh\nkill -9 $$\n"},
    // Until the fault ends: its script is gone then.
    ToolFault{"hang", "#!/bin/sh\nwhile [ -e \"$0\" ]; do /bin/sleep 1; done\nexit 1\n"},
    // As long, and busy.
    ToolFault{"spin", "#!/bin/sh\nwhile [ -e \"$0\" ]; do :; done\nexit 1\n"},
    ToolFault{"silent", "#!/bin/sh\nexit 0\n"},
    // 10 MB of numbered lines.
    ToolFault{"flood", "#!/bin/sh\nexec seq -f 'flood %06.0f of 200000, as long as fifty letters.' 200000\n"},
    // The tool itself, three seconds late.
    ToolFault{"slow", "#!/bin/sh\nsleep 3\nPATH=${PATH#*:} exec \"${0##*/}\" \"$@\"\n"},
    ToolFault{"absent", nullptr},
};

static DiskFault disk = DiskFault::kNone;
static std::map<std::string, const ToolFault*, std::less<>> tools;

// Tools

bool IsToolAbsent(const std::string& path) {
    if (tools.empty()) return false;
    auto fault = tools.find(path.substr(path.rfind('/') + 1));
    return fault != tools.end() && !fault->second->script;
}

static void PutUpTool(const std::string& name, const ToolFault& fault) {
    if (!fault.script) return;
    std::string path = "/opt/board/faults/" + name;
    WriteBoardFile(path, fault.script);
    chmod(HostPath(path).c_str(), 0755);
}

static VerbAnswer ToolFaultVerb(const VerbWords& words) {
    if (words.size() != 2 || words[0].empty() || words[0].find('/') != std::string::npos) return Usage("fault");
    std::error_code error;
    if (words[1] == "off") {
        tools.erase(words[0]);
        fs::remove(HostPath("/opt/board/faults/" + words[0]), error);
        return {};
    }
    for (const ToolFault& fault : kToolFaults) {
        if (fault.word != words[1]) continue;
        // system(3) and popen(3) name it by its path, so that nothing can be put in its place.
        if (words[0] == "sh" && fault.script) return Bad("the shell can only be absent");
        tools[words[0]] = &fault;
        fs::remove(HostPath("/opt/board/faults/" + words[0]), error);
        PutUpTool(words[0], fault);
        return {};
    }
    return Usage("fault");
}

// Elements of the daemon's pipelines: gst/element_faults.h takes the line at the other end.

static VerbAnswer ElementFaultVerb(const VerbWords& words) {
    if (words.size() < 2 || words.size() > 3) return Usage("fault");
    const int pipe = open(HostPath(kElementFaults).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (pipe < 0) return Bad("nobody listens: the board was not run with --env GST_TRACERS=tesselfaults");
    const std::string line = words[0] + ' ' + words[1] + ' ' + (words.size() == 3 ? words[2] : "0") + '\n';
    const bool sent = write(pipe, line.data(), line.size()) == ssize_t(line.size());
    close(pipe);
    Trace("fault", {{"element", words[0]}, {"fault", words[1]}});
    return sent ? VerbAnswer{} : Bad("the daemon does not read its faults");
}

// The disk

// Writing over what is there needs no room.
static bool NeedsRoom(const fs::path& file, int flags) {
    if ((flags & O_ACCMODE) == O_RDONLY) return false;
    return flags & (O_TRUNC | O_APPEND) || (flags & O_CREAT && !fs::exists(file));
}

// As the kernel does it: names can still be made and files cut to nothing, but no byte finds room. The caller's file is
// one on a file system that is full, so that fsync and the like behave as well.
bool OpenOnFaultyDisk(const TrappedCall& call, const std::string& path, int flags) {
    if (disk != DiskFault::kFull) return false;
    std::string file = fs::path(path).lexically_normal();
    if (!file.starts_with("/home/root/") || !NeedsRoom(HostPath(file), flags)) return false;
    constexpr mode_t kMode = 0644;
    int real = open(HostPath(file).c_str(), flags | O_CLOEXEC, kMode);
    if (real < 0) {
        Answer(call, -errno);
        return true;
    }
    close(real);
    std::string full = "/proc/" + std::to_string(SandboxInit()) + "/root/opt/board/full";
    constexpr int kDropped = O_CREAT | O_EXCL | O_TRUNC;
    int given = open(full.c_str(), (flags & ~kDropped) | O_TMPFILE | O_CLOEXEC, kMode);
    if (given < 0) {
        Answer(call, -ENOSPC);
        return true;
    }
    AnswerDescriptor(call, given, flags & O_CLOEXEC);
    close(given);
    return true;
}

static constexpr std::array kDiskWords{"off", "full", "readonly"};  // by DiskFault

Json FaultSummary() {
    Json summary{{"disk", kDiskWords.at(size_t(disk))}, {"tools", Json::object()}};
    for (const auto& [name, fault] : tools) summary["tools"][name] = fault->word;
    return summary;
}

static VerbAnswer SetDisk(DiskFault fault) {
    int error = RemountHome(fault == DiskFault::kReadOnly);
    if (error == -EBUSY) return Bad("a file of /home/root is open for writing");
    if (error < 0) return Bad(strerror(-error));
    disk = fault;
    return {};
}

static VerbAnswer DiskFaultVerb(const VerbWords& words) {
    if (words.size() != 1) return Usage("fault");
    if (words[0] == "off") return SetDisk(DiskFault::kNone);
    if (words[0] == "full") return SetDisk(DiskFault::kFull);
    if (words[0] == "readonly") return SetDisk(DiskFault::kReadOnly);
    return Usage("fault");
}

void PowerOnFaults() {
    for (const auto& [name, fault] : tools) PutUpTool(name, *fault);
    if (disk == DiskFault::kReadOnly) RemountHome(true);
}

struct FaultKind {
    std::string_view word;
    VerbAnswer (*run)(const VerbWords& words);
};
static constexpr std::array kKinds{
    FaultKind{"tool", ToolFaultVerb},   FaultKind{"disk", DiskFaultVerb},
    FaultKind{"i2c", I2cFaultVerb},     FaultKind{"camera", CameraFaultVerb},
    FaultKind{"sound", SoundFaultVerb}, FaultKind{"expander", ExpanderFaultVerb},
    FaultKind{"udev", UdevFaultVerb},   FaultKind{"element", ElementFaultVerb},
};

VerbAnswer FaultVerb(const VerbWords& words) {
    for (const FaultKind& kind : kKinds)
        if (!words.empty() && kind.word == words[0]) return kind.run({words.begin() + 1, words.end()});
    return Usage("fault");
}
