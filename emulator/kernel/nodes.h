// The board's emulated nodes and the open files behind the programs' descriptors.
//
// A program's descriptor of a node describes a fresh unlinked file in the volatile folder. Its inode is its name: found
// by looking at /proc, it survives dup, fork and passing on. The kernel tells of writes and of the last close through
// inotify, before the thread that wrote or closed goes on. Supervisor's thread; nothing blocks.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "kernel/supervisor.h"
#include "kernel/trapped_call.h"

struct Node {
    const DeviceModel* model;
    int unit;
    unsigned majorNumber, minorNumber;
    std::string path;  // as the board sees it
};

void StartNodes();  // after the volatile folder was made
void ClearNodes();  // power off: every open file is closed, every node gone

// False for an ordinary user, whose nodes all carry 0:0; then DescribeNode() tells the truth.
bool NodesCarryNumbers();

// The absolute path that `path` means for the caller, relative to one of its descriptors or AT_FDCWD.
std::string AbsolutePath(pid_t thread, int folder, const std::string& path);

// The node or tree that the board finds at an absolute path, also through links; null: not emulated.
const Node* FindNode(const std::string& path);
bool BoardHas(const std::string& path);  // anything at all, by the board's own root
bool DescribeNode(const Node& node, struct stat& status);

// Opens it for the caller and answers the call.
void OpenNode(const TrappedCall& call, const Node& node, const std::string& path, int flags);

OpenFile* FileOf(pid_t thread, int descriptor);  // null: not emulated
OpenFile* FileOfInode(ino_t inode);              // null: closed
ino_t InodeOf(const OpenFile& file);
std::map<std::string, unsigned> OpenNodes();     // how often each path is open, also of nodes that are gone

// Tells models what programs have written and closed by now.
void TakeFileEvents();
