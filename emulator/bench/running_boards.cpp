#include "bench/running_boards.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

namespace fs = std::filesystem;

static bool MakePrivate(const fs::path& folder) {
    struct stat status {};
    mkdir(folder.c_str(), 0700);
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           access(folder.c_str(), W_OK) == 0;
}

fs::path RuntimeFolder() {
    // The variable may survive a change of user.
    if (const char* session = getenv("XDG_RUNTIME_DIR"))
        if (fs::path folder = fs::path(session) / "tessel-emulator"; MakePrivate(folder)) return folder;
    fs::path folder = "/tmp/tessel-emulator-" + std::to_string(geteuid());
    return MakePrivate(folder) ? folder : fs::path();
}

static fs::path LinkOf(pid_t emulator) { return RuntimeFolder() / ("board-" + std::to_string(emulator)); }

static fs::path OwnLink() { return LinkOf(getpid()); }

void AnnounceBoard(const fs::path& folder) {
    std::error_code error;
    fs::remove(OwnLink(), error);
    fs::create_symlink(folder, OwnLink(), error);
}

void WithdrawBoard() {
    std::error_code error;
    fs::remove(OwnLink(), error);
}

fs::path BoardOf(pid_t emulator) {
    std::error_code error;
    return fs::read_symlink(LinkOf(emulator), error);
}

std::vector<fs::path> RunningBoards() {
    std::vector<fs::path> boards;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(RuntimeFolder(), error)) {
        std::string name = entry.path().filename();
        if (!name.starts_with("board-")) continue;
        pid_t process = pid_t(strtol(name.c_str() + 6, nullptr, 10));
        if (kill(process, 0) == 0 || errno == EPERM)
            boards.push_back(fs::read_symlink(entry.path(), error));
        else
            fs::remove(entry.path(), error);
    }
    return boards;
}
