#include "system/places.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "bench/running_boards.h"

namespace fs = std::filesystem;

static fs::path ProgramFolder() {
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).parent_path();
}

// Seen from the program, so that a package may be unpacked anywhere. The paths into a package come from the build.
static constexpr std::array kPlaces{
    ".",                           // in a build
    "..",                          // in a build, for its tests
    TESSEL_FROM_BINARIES_TO_DATA,  // architecture-independent
    TESSEL_FROM_BINARIES_TO_LIBRARIES,
};
static constexpr std::array kDaemons{"Tesselvisor", TESSEL_FROM_BINARIES_TO_DAEMON};

fs::path EmulatorFile(std::string_view name) {
    const fs::path program = ProgramFolder();
    const auto at = [&](const char* place) { return (program / place / name).lexically_normal(); };
    const auto place = std::ranges::find_if(kPlaces, [&](const char* folder) { return fs::exists(at(folder)); });
    return at(place == kPlaces.end() ? kPlaces[0] : *place);
}

std::string OwnDaemon() {
    const fs::path program = ProgramFolder();
    for (const char* daemon : kDaemons)
        if (access((program / daemon).c_str(), X_OK) == 0) return (program / daemon).lexically_normal();
    return "";
}

fs::path CacheFolder() {
    const fs::path program = ProgramFolder();
    const bool isBuild = fs::exists(program / "cameras") && access(program.c_str(), W_OK) == 0;
    return isBuild ? program : RuntimeFolder();
}
