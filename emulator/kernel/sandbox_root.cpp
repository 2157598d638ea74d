// The board's root file system, built on a tmpfs and pivoted into.

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "kernel/sandbox_init.h"
#include "system/board.h"
#include "system/places.h"

namespace fs = std::filesystem;

enum class Access { kReadOnly, kWritable };

struct Bind {
    fs::path from;   // on the host
    const char* at;  // on the board
    Access access;
};

static constexpr std::array kEmptyFolders{"mnt",     "media",     "var/log",       "var/tmp",
                                          "var/lib", "var/cache", "opt/board/full"};
static constexpr std::array kProgramFolders{"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"};
static constexpr std::array kHostDevices{"null", "zero", "full", "random", "urandom", "tty"};

static bool Failed(const char* what, const std::string& where) {
    fprintf(stderr, "Board: cannot %s %s: %s\n", what, where.c_str(), strerror(errno));
    return false;
}

static bool MakeReadOnly(const fs::path& at) {
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    if (mount_setattr(AT_FDCWD, at.c_str(), AT_RECURSIVE, &attributes, sizeof attributes) == 0) return true;
    return Failed("make read-only", at);
}

static bool BindAt(const fs::path& root, const Bind& bind) {
    std::error_code error;
    fs::path at = root.string() + bind.at;
    if (fs::is_directory(bind.from, error)) {
        fs::create_directories(at, error);
    } else {
        fs::create_directories(at.parent_path(), error);
        close(open(at.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
    }
    // Recursive: a part of a tree whose mounts are locked cannot be bound alone.
    if (mount(bind.from.c_str(), at.c_str(), nullptr, MS_BIND | MS_REC, nullptr) < 0) return Failed("bind", bind.from);
    return bind.access == Access::kWritable || MakeReadOnly(at);
}

static bool BindBoardFolders(const fs::path& root) {
    const Bind binds[]{
        {"/usr", "/usr", Access::kReadOnly},
        {Board.folder / "etc", "/etc", Access::kWritable},
        {Board.folder / "home/root", "/home/root", Access::kWritable},
        {Volatile / "dev", "/dev", Access::kWritable},
        {Volatile / "sys", "/sys", Access::kWritable},
        {Volatile / "run", "/run", Access::kWritable},
        {Volatile / "tmp", "/tmp", Access::kWritable},
        {Volatile / "gstreamer", "/.cache/gstreamer-1.0", Access::kWritable},
        {Volatile / "state", "/opt/board/state", Access::kWritable},
        {Volatile / "display", "/opt/board/display", Access::kWritable},
        {Volatile / "faults", "/opt/board/faults", Access::kReadOnly},
        {EmulatorFile("tools"), "/opt/board/tools", Access::kReadOnly},
        {EmulatorFile("gst"), "/opt/board/gst", Access::kReadOnly},
        {fs::path(Board.daemon).parent_path(), "/opt/board/daemon", Access::kReadOnly},
    };
    for (const Bind& bind : binds)
        if (fs::exists(bind.from) && !BindAt(root, bind)) return false;
    const char* share = getenv("TESSEL_SHARE");
    return share == nullptr || BindAt(root, {share, share, Access::kWritable});
}

// /bin and its like are links into /usr, or folders where /usr is not merged.
static bool TakeProgramFolders(const fs::path& root) {
    for (const char* folder : kProgramFolders) {
        std::error_code error;
        if (fs::is_symlink(folder, error))
            fs::create_symlink(fs::read_symlink(folder), root.string() + folder, error);
        else if (fs::is_directory(folder, error) && !BindAt(root, {folder, folder, Access::kReadOnly}))
            return false;
    }
    return true;
}

static bool FillDev(const fs::path& dev) {
    std::error_code error;
    for (const char* name : kHostDevices)
        if (!BindAt(dev, {fs::path("/dev") / name, (std::string("/") + name).c_str(), Access::kWritable})) return false;
    const std::array<std::array<const char*, 2>, 5> links{{{"/proc/self/fd", "fd"},
                                                           {"/proc/self/fd/0", "stdin"},
                                                           {"/proc/self/fd/1", "stdout"},
                                                           {"/proc/self/fd/2", "stderr"},
                                                           {"pts/ptmx", "ptmx"}}};
    for (auto [target, name] : links) fs::create_symlink(target, dev / name, error);
    fs::create_directories(dev / "shm", error);
    fs::create_directories(dev / "pts", error);
    if (mount("devpts", (dev / "pts").c_str(), "devpts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666") < 0)
        return Failed("mount", "/dev/pts");
    return true;
}

static bool MountProc(const fs::path& root) {
    fs::path proc = root / "proc";
    mkdir(proc.c_str(), 0755);
    if (mount("proc", proc.c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) < 0)
        return Failed("mount", "/proc");
    // Root of the board may be root of the host: the host's kernel is not the board's to tune.
    if (!BindAt(root, {proc / "sys", "/proc/sys", Access::kReadOnly})) return false;
    if (!fs::exists(proc / "sysrq-trigger")) return true;
    return BindAt(root, {"/dev/null", "/proc/sysrq-trigger", Access::kReadOnly});
}

// Where new files can be made and not a byte written, for the fault of a full disk.
static bool MountFullDisk(const fs::path& at) {
    if (mount("full", at.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "size=4096") < 0) return Failed("mount", at);
    const std::array<char, 4096> block{};
    int filler = open((at / "filler").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    bool filled = write(filler, block.data(), block.size()) == ssize_t{block.size()};
    close(filler);
    return filled || Failed("fill", at);
}

static bool EnterRoot(const fs::path& root) {
    if (chdir(root.c_str()) < 0 || syscall(SYS_pivot_root, ".", ".") < 0) return Failed("enter", root);
    if (umount2(".", MNT_DETACH) < 0 || chdir("/") < 0) return Failed("leave", "the host's root");
    return true;
}

bool BuildBoardRoot() {
    fs::path root = Volatile / "root";
    umask(022);
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) < 0) return Failed("make private", "/");
    if (mount("board", root.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") < 0) return Failed("mount", root);
    std::error_code error;
    for (const char* folder : kEmptyFolders) fs::create_directories(root / folder, error);
    fs::create_symlink("/run", root / "var/run", error);
    return BindBoardFolders(root) && TakeProgramFolders(root) && FillDev(root / "dev") && MountProc(root) &&
           MountFullDisk(root / "opt/board/full") && EnterRoot(root);
}
