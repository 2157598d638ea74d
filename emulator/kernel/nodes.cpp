#include "kernel/nodes.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "kernel/sandbox.h"
#include "system/board.h"

namespace fs = std::filesystem;

struct TrackedFile {
    OpenFile file;
    ino_t inode;
    int watch;
};

// What an open(2) flag means for the injected file too; the others are the node's business.
static constexpr int kKeptFlags = O_ACCMODE | O_APPEND | O_NONBLOCK | O_SYNC | O_DSYNC;

// Read-only or the kernel's: no path below leads to a node, so most opens of a program are known by their text.
static constexpr std::array<std::string_view, 6> kNoNodesBelow{"/usr/", "/lib", "/bin/", "/sbin/", "/proc/", "/opt/"};

static std::map<std::string, Node, std::less<>> nodes;
static std::vector<Node> trees;
static std::unordered_map<ino_t, std::unique_ptr<TrackedFile>> files;
static std::unordered_map<int, ino_t> watched;
static int fileEvents = -1;  // inotify
static dev_t volatileDevice = 0;
static bool carryNumbers = false;

// Nodes

static bool TryDeviceNumbers() {
    fs::path probe = Volatile / "probe";
    bool possible = mknod(probe.c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0;
    unlink(probe.c_str());
    return possible;
}

void StartNodes() {
    struct stat status {};
    stat(Volatile.c_str(), &status);
    volatileDevice = status.st_dev;
    carryNumbers = TryDeviceNumbers();
    if (fileEvents >= 0) return;
    fileEvents = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (fileEvents < 0 || !WatchDescriptor(fileEvents, [](uint32_t) { TakeFileEvents(); })) perror("Board: inotify");
}

bool NodesCarryNumbers() { return carryNumbers; }

void AddNode(const std::string& path, const DeviceModel& model, int unit, unsigned majorNumber, unsigned minorNumber) {
    fs::path host = HostPath(path);
    std::error_code error;
    fs::create_directories(host.parent_path(), error);
    unlink(host.c_str());
    dev_t number = carryNumbers ? makedev(majorNumber, minorNumber) : makedev(0, 0);
    if (mknod(host.c_str(), S_IFCHR | 0660, number) < 0) perror(("Board: node " + path).c_str());
    nodes.insert_or_assign(path, Node{&model, unit, majorNumber, minorNumber, path});
}

void AddTree(std::string prefix, const DeviceModel& model, int unit) {
    std::error_code error;
    fs::create_directories(HostPath(prefix), error);
    RemoveNode(prefix);
    trees.push_back({&model, unit, 0, 0, std::move(prefix)});
}

void RemoveNode(std::string_view path) {
    std::erase_if(trees, [&](const Node& tree) { return tree.path == path; });
    auto node = nodes.find(path);
    if (node == nodes.end()) return;
    unlink(HostPath(node->first).c_str());
    nodes.erase(node);
}

// Paths

static std::string ReadLink(const std::string& link) {
    std::array<char, 4096> target;
    ssize_t size = readlink(link.c_str(), target.data(), target.size());
    return {target.data(), size > 0 ? size_t(size) : 0};
}

std::string AbsolutePath(pid_t thread, int folder, const std::string& path) {
    if (path.starts_with('/')) return path;
    std::string process = "/proc/" + std::to_string(thread);
    return ReadLink(folder == AT_FDCWD ? process + "/cwd" : process + "/fd/" + std::to_string(folder)) + "/" + path;
}

// Whoever removes a node's file from the board's /dev has removed the device.
static bool StillThere(const Node& node) { return access(HostPath(node.path).c_str(), F_OK) == 0; }

static const Node* FindByText(const std::string& path) {
    if (auto node = nodes.find(path); node != nodes.end() && StillThere(node->second)) return &node->second;
    for (const Node& tree : trees)
        if (path.size() > tree.path.size() && path.starts_with(tree.path)) return &tree;
    return nullptr;
}

static int BoardRoot() {
    static pid_t owner = 0;
    static int root = -1;
    if (owner == SandboxInit()) return root;
    owner = SandboxInit();
    if (root >= 0) close(root);
    return root = open(("/proc/" + std::to_string(owner) + "/root").c_str(), O_PATH | O_CLOEXEC);
}

static int FindOnBoard(const std::string& path) {
    open_how how{.flags = O_PATH | O_CLOEXEC, .mode = 0, .resolve = RESOLVE_IN_ROOT};
    return int(syscall(SYS_openat2, BoardRoot(), path.c_str(), &how, sizeof how));
}

bool BoardHas(const std::string& path) {
    int found = FindOnBoard(path);
    if (found >= 0) close(found);
    return found >= 0;
}

// The path that links lead to, when a character node of the board stands there.
static std::string FollowLinks(const std::string& path) {
    int found = FindOnBoard(path);
    if (found < 0) return {};
    struct stat status {};
    bool isNode = fstat(found, &status) == 0 && S_ISCHR(status.st_mode) && status.st_dev == volatileDevice;
    std::string real = isNode ? ReadLink("/proc/self/fd/" + std::to_string(found)) : std::string();
    close(found);
    return real;
}

const Node* FindNode(const std::string& path) {
    if (const Node* node = FindByText(path)) return node;
    for (std::string_view folder : kNoNodesBelow)
        if (path.starts_with(folder) && path.find("/..") == std::string::npos) return nullptr;
    if (path.find("/.") != std::string::npos || path.find("//") != std::string::npos)
        if (const Node* node = FindByText(fs::path(path).lexically_normal())) return node;
    return FindByText(FollowLinks(path));
}

bool DescribeNode(const Node& node, struct stat& status) {
    if (lstat(HostPath(node.path).c_str(), &status) < 0) return false;
    status.st_rdev = makedev(node.majorNumber, node.minorNumber);
    status.st_uid = status.st_gid = 0;
    return true;
}

// Open files

static std::string OwnLink(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

static void CloseFile(TrackedFile& tracked) {
    if (tracked.file.model->close) tracked.file.model->close(tracked.file);
    close(tracked.file.descriptor);
}

static void ForgetFile(ino_t inode) {
    auto node = files.extract(inode);
    if (node.empty()) return;
    Wake(node.mapped()->file);  // who still waits for it shall see that it is gone
    CloseFile(*node.mapped());
}

void OpenNode(const TrappedCall& call, const Node& node, const std::string& path, int flags) {
    if (node.model->openReal) {
        int real = node.model->openReal(path, flags, node.unit);
        if (real < 0) return Answer(call, real);
        AnswerDescriptor(call, real, flags & O_CLOEXEC);
        close(real);
        return;
    }
    int own = open(Volatile.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (own < 0) return Answer(call, -errno);
    auto tracked = std::make_unique<TrackedFile>(
        TrackedFile{.file = {node.model, node.unit, path, flags, own, nullptr}, .inode = 0, .watch = -1});
    if (int error = node.model->open ? node.model->open(tracked->file) : 0; error < 0) {
        close(own);
        return Answer(call, error);
    }
    struct stat status {};
    fstat(own, &status);
    int given = open(OwnLink(own).c_str(), (flags & kKeptFlags) | O_CLOEXEC);
    tracked->inode = status.st_ino;
    const uint32_t events = node.model->written ? IN_MODIFY | IN_CLOSE : IN_CLOSE | IN_ONESHOT;
    tracked->watch = inotify_add_watch(fileEvents, OwnLink(own).c_str(), events);
    watched[tracked->watch] = status.st_ino;
    files[status.st_ino] = std::move(tracked);
    // Where the caller does not get it, our own close below is the last one and inotify tells so.
    AnswerDescriptor(call, given, flags & O_CLOEXEC);
    close(given);
}

OpenFile* FileOf(pid_t thread, int descriptor) {
    std::array<char, 48> path;
    snprintf(path.data(), path.size(), "/proc/%d/fd/%d", thread, descriptor);
    struct stat status;
    if (stat(path.data(), &status) < 0 || status.st_dev != volatileDevice) return nullptr;
    return FileOfInode(status.st_ino);
}

OpenFile* FileOfInode(ino_t inode) {
    auto found = files.find(inode);
    return found == files.end() ? nullptr : &found->second->file;
}

ino_t InodeOf(const OpenFile& file) {
    struct stat status {};
    fstat(file.descriptor, &status);
    return status.st_ino;
}

std::map<std::string, unsigned> OpenNodes() {
    std::map<std::string, unsigned> open;
    for (const auto& [inode, tracked] : files) ++open[tracked->file.path];
    return open;
}

static void TakeFileEvent(const inotify_event& event) {
    const auto found = watched.find(event.wd);
    if (found == watched.end()) return;  // a second close, or the end of the watch
    const ino_t inode = found->second;
    if (OpenFile* file = event.mask & IN_MODIFY ? FileOfInode(inode) : nullptr) file->model->written(*file);
    if ((event.mask & IN_CLOSE) == 0) return;
    watched.erase(event.wd);
    ForgetFile(inode);
}

void TakeFileEvents() {
    alignas(inotify_event) std::array<char, 4096> buffer;
    for (ssize_t size; (size = read(fileEvents, buffer.data(), buffer.size())) > 0;) {
        for (char* at = buffer.data(); at < buffer.data() + size;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(at);
            at += sizeof event + event.len;
            TakeFileEvent(event);
        }
    }
}

void ClearNodes() {
    TakeFileEvents();
    while (!files.empty()) {
        inotify_rm_watch(fileEvents, files.begin()->second->watch);
        ForgetFile(files.begin()->first);
    }
    watched.clear();
    nodes.clear();
    trees.clear();
}
