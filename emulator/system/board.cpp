#include "system/board.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "bench/running_boards.h"
#include "bench/trace.h"
#include "devices/devices.h"
#include "devices/display.h"
#include "kernel/event_loop.h"
#include "kernel/held_calls.h"
#include "kernel/nodes.h"
#include "kernel/sandbox.h"
#include "kernel/supervisor.h"
#include "kernel/udev_events.h"
#include "system/faults.h"
#include "system/places.h"
#include "system/port_forward.h"
#include "system/service_manager.h"

namespace fs = std::filesystem;

BoardOptions Board;
fs::path Volatile;

static constexpr const char* kMemory = "/dev/shm";
static constexpr std::string_view kVolatilePrefix = "tessel-board-";
static constexpr std::array kVolatileFolders{"dev", "sys", "run", "tmp", "state", "faults", "gstreamer", "root"};
static constexpr off_t kPhysicalMemory = off_t{4} << 30;
static constexpr std::string_view kEmulatorsOwn = "/opt/board";

static int volatileLock = -1, folderLock = -1;
static int stateWatch = -1;  // inotify
static int64_t poweredAt = 0;
static bool resetDue = false;

int64_t PowerOnTime() { return poweredAt; }

// Files

fs::path HostPath(const std::string& boardPath) {
    if (boardPath.starts_with("/home/root") || boardPath.starts_with("/etc")) return Board.folder.string() + boardPath;
    if (boardPath.starts_with(kEmulatorsOwn)) return Volatile.string() + boardPath.substr(kEmulatorsOwn.size());
    return Volatile.string() + boardPath;
}

void WriteBoardFile(const std::string& boardPath, const std::string& text) {
    fs::path file = HostPath(boardPath), draft = file;
    draft += ".new";
    std::error_code error;
    fs::create_directories(file.parent_path(), error);
    std::ofstream(draft, std::ios::binary) << text;
    fs::rename(draft, file, error);
    if (error) fprintf(stderr, "Board: cannot write %s: %s\n", file.c_str(), error.message().c_str());
}

// Flash

// What programs of the host's /usr expect in /etc. Written anew at each start: it must fit that /usr.
static constexpr std::array kHostFiles{"ld.so.cache", "alternatives", "alsa",     "fb.modes",
                                       "fonts",       "services",     "protocols"};

struct FlashFile {
    const char* name;
    const char* text;
};
static constexpr std::array kFlashFiles{
    FlashFile{"passwd", "root:x:0:0:root:/home/root:/bin/sh\nnobody:x:65534:65534:nobody:/:/usr/sbin/nologin\n"},
    FlashFile{"group", "root:x:0:\nvideo:x:44:\naudio:x:29:\nnogroup:x:65534:\n"},
    FlashFile{"hosts", "127.0.0.1 localhost tesselvisor\n::1 localhost\n"},
    FlashFile{"nsswitch.conf", "passwd: files\ngroup: files\nhosts: files\n"},
    FlashFile{"hostname", "tesselvisor\n"},
};

static void PrepareFlash() {
    std::error_code error;
    fs::create_directories(Board.folder / "home/root", error);
    fs::create_directories(Board.folder / "etc", error);
    constexpr auto kCopy = fs::copy_options::recursive | fs::copy_options::copy_symlinks;
    for (const char* name : kHostFiles) {
        fs::remove_all(Board.folder / "etc" / name, error);
        fs::copy(fs::path("/etc") / name, Board.folder / "etc" / name, kCopy, error);
    }
    for (const FlashFile& file : kFlashFiles)
        if (fs::path path = Board.folder / "etc" / file.name; !fs::exists(path)) std::ofstream(path) << file.text;
}

// The volatile folder. Its owner holds a lock on it, so that what a killed emulator left can be told and removed.

static int LockFolder(const fs::path& folder) {
    int lock = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (lock >= 0 && flock(lock, LOCK_EX | LOCK_NB) == 0) return lock;
    if (lock >= 0) close(lock);
    return -1;
}

static void RemoveLeftovers() {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(kMemory, error)) {
        if (!entry.path().filename().string().starts_with(kVolatilePrefix)) continue;
        int lock = LockFolder(entry.path());
        if (lock < 0) continue;
        fs::remove_all(entry.path(), error);
        close(lock);
    }
}

// Between making and locking, another emulator may take it for a leftover.
static bool MakeVolatile() {
    for (int attempt = 0; attempt < 10; ++attempt) {
        std::string name = std::string(kMemory) + "/" + std::string(kVolatilePrefix) + "XXXXXX";
        if (!mkdtemp(name.data())) break;
        volatileLock = LockFolder(name);
        if (volatileLock < 0 || !fs::exists(name)) continue;
        Volatile = name;
        return true;
    }
    perror("Board: cannot make a folder in /dev/shm");
    return false;
}

static void MakeSparse(const fs::path& file, off_t size) {
    int made = open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (made < 0 || ftruncate(made, size) < 0) perror(("Board: " + file.string()).c_str());
    close(made);
}

static void FillVolatile() {
    for (const char* folder : kVolatileFolders) fs::create_directory(Volatile / folder);
    MakeSparse(Volatile / "display", kDisplayFileBytes);
    MakeSparse(Volatile / "dev/mem", kPhysicalMemory);
}

// The flash of a board that was not given a folder lies in the volatile folder too, and stays.
static void EmptyVolatile() {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(Volatile, error))
        if (entry.path() != Board.folder) fs::remove_all(entry.path(), error);
}

bool OpenBoard() {
    RemoveLeftovers();
    if (!MakeVolatile()) return false;
    if (Board.folder.empty()) {
        Board.folder = Volatile / "flash";
        Board.temporary = true;
    }
    std::error_code error;
    fs::create_directories(Board.folder, error);
    Board.folder = fs::canonical(Board.folder, error);
    folderLock = error ? -1 : LockFolder(Board.folder);
    if (folderLock < 0) {
        fprintf(stderr, "Board: cannot use %s: %s\n", Board.folder.c_str(),
                error ? error.message().c_str() : "another emulator has it");
        return false;
    }
    PrepareFlash();
    fs::remove(Board.folder / "volatile", error);
    fs::create_directory_symlink(Volatile, Board.folder / "volatile", error);
    AnnounceBoard(Board.folder);
    return true;
}

// The registry of GStreamer plug-ins takes seconds to make. The first board makes it; the next ones start with its
// copy, which GStreamer itself checks against the plug-ins.

static fs::path RegistryCopy() { return CacheFolder() / "gst-registry.bin"; }

static fs::file_time_type registryTaken;

static void TakeRegistry() {
    std::error_code error;
    fs::path registry = Volatile / "gstreamer/registry.bin";
    fs::copy_file(RegistryCopy(), registry, error);
    registryTaken = fs::last_write_time(registry, error);
}

static void KeepRegistry() {
    std::error_code error;
    fs::path registry = Volatile / "gstreamer/registry.bin", copy = RegistryCopy(), draft = copy;
    auto written = fs::last_write_time(registry, error);
    if (error || written == registryTaken) return;
    draft += std::to_string(getpid());
    fs::copy_file(registry, draft, error);
    fs::rename(draft, copy, error);
}

// Power

static void WatchForReboot() {
    stateWatch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    inotify_add_watch(stateWatch, (Volatile / "state").c_str(), IN_CREATE | IN_MOVED_TO);
    WatchDescriptor(stateWatch, [](uint32_t) {
        std::array<char, 4096> events;
        while (read(stateWatch, events.data(), events.size()) > 0) continue;
        if (fs::exists(Volatile / "state/reboot")) ResetBoard("reboot");
    });
}

bool PowerOnBoard() {
    poweredAt = NowMicroseconds();
    FillVolatile();
    TakeRegistry();
    StartNodes();
    AfterEachEvent(RetryWoken);
    WatchForReboot();
    for (const Device& device : Devices()) device.powerOn();
    if (!StartSandbox()) return false;
    if (int socket = BoardSocket(AF_NETLINK, SOCK_RAW, NETLINK_KOBJECT_UEVENT); socket >= 0) SetUdevSocket(socket);
    PowerOnFaults();
    StartService();
    return true;
}

static void PowerOff() {
    StopService();
    ResetConnections();
    StopSandbox();
    DropHeldCalls();
    std::span<const Device> devices = Devices();
    for (auto device = devices.rbegin(); device != devices.rend(); ++device)
        if (device->powerOff) device->powerOff();
    ClearNodes();
    KeepRegistry();
    ForgetDescriptor(stateWatch);
    close(stateWatch);
}

void ResetBoard(const std::string& why) {
    if (resetDue) return;
    resetDue = true;
    CallAt(NowMicroseconds(), [why] {
        resetDue = false;
        Trace("reset", {{"why", why}});
        fprintf(stderr, "Board: reset (%s)\n", why.c_str());
        bool goesOn = ServiceOutlivesReset();
        PowerOff();
        EmptyVolatile();
        if (goesOn && !PowerOnBoard()) EndService(1);
    });
}

void CloseBoard() {
    if (!Volatile.empty() && volatileLock >= 0) {
        PowerOff();
        WithdrawBoard();
        std::error_code error;
        fs::remove(Board.folder / "volatile", error);
        fs::remove_all(Volatile, error);
    }
}
