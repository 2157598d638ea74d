#include "control_client.h"

#include <fcntl.h>
#include <png.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>

#include "display.h"
#include "running_boards.h"

namespace fs = std::filesystem;

static int Complain(const std::string& text) {
    fprintf(stderr, "%s\n", text.c_str());
    return 1;
}

fs::path OnlyBoard() {
    std::vector<fs::path> boards = RunningBoards();
    if (boards.size() == 1) return boards.front();
    Complain(boards.empty() ? "No board is running." : "Several boards are running, choose one with --board DIR:");
    for (const fs::path& board : boards) Complain("    " + board.string());
    return {};
}

// Verbs

static int Connect(const fs::path& folder) {
    int there = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/control", there);
    bool connected = there >= 0 && connect(server, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    if (there >= 0) close(there);
    if (connected) return server;
    close(server);
    return -1;
}

static bool SendWords(int server, const std::vector<std::string>& words) {
    std::string request;
    for (const std::string& word : words) request.append(word).push_back('\0');
    return send(server, request.data(), request.size(), MSG_NOSIGNAL) == ssize_t(request.size()) &&
           shutdown(server, SHUT_WR) == 0;
}

// Prints as it comes: a followed trace has no end.
static int PrintAnswer(int server) {
    std::array<char, 65536> chunk;
    char status = 0, last = '\n';
    FILE* to = stdout;
    for (ssize_t size; (size = read(server, chunk.data(), chunk.size())) > 0;) {
        size_t from = 0;
        if (status == 0) {
            status = chunk[from++];
            to = status == '0' ? stdout : stderr;
        }
        fwrite(chunk.data() + from, 1, size_t(size) - from, to);
        if (size_t(size) > from) last = chunk[size_t(size) - 1];
        fflush(to);
    }
    if (status == 0) return Complain("The board is gone.");
    if (last != '\n') fputc('\n', to);
    return status == '0' ? 0 : 1;
}

int SendVerb(const fs::path& folder, const std::vector<std::string>& words) {
    int server = Connect(folder);
    if (server < 0 || SendWords(server, words)) return server;
    close(server);
    return -1;
}

static int AskBoard(const fs::path& folder, const std::vector<std::string>& words) {
    int server = SendVerb(folder, words);
    if (server < 0) return Complain("No board is running in " + folder.string() + ".");
    int status = PrintAnswer(server);
    close(server);
    return status;
}

// The picture

struct Picture {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> pixels = {};  // B, G, R, unused
};

static std::optional<Picture> CopySlot(const uint8_t* memory, uint32_t index) {
    const auto* header = reinterpret_cast<const DisplayHeader*>(memory);
    const DisplaySlot& slot = header->slots[index % kDisplaySlots];
    uint32_t before = slot.sequence.load(std::memory_order_acquire);
    Picture picture{.width = slot.width, .height = slot.height};
    if (before % 2 != 0 || picture.width > kDisplayWidthLimit || picture.height > kDisplayHeightLimit)
        return std::nullopt;
    const uint8_t* pixels = memory + kDisplayFirstSlot + index % kDisplaySlots * kDisplaySlotBytes;
    picture.pixels.assign(pixels, pixels + size_t{picture.width} * picture.height * 4);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (slot.sequence.load(std::memory_order_relaxed) != before) return std::nullopt;
    return picture;
}

static std::optional<Picture> NewestPicture(const fs::path& display) {
    int file = open(display.c_str(), O_RDONLY | O_CLOEXEC);
    void* mapped = file < 0 ? MAP_FAILED : mmap(nullptr, kDisplayFileBytes, PROT_READ, MAP_SHARED, file, 0);
    if (file >= 0) close(file);
    if (mapped == MAP_FAILED) return std::nullopt;
    const auto* memory = static_cast<const uint8_t*>(mapped);
    const auto* header = reinterpret_cast<const DisplayHeader*>(memory);
    std::optional<Picture> picture;
    constexpr int kAttempts = 100;  // a writer would have to overtake the reader each time
    for (int attempt = 0; attempt < kAttempts && !picture && header->frames.load() != 0; ++attempt)
        picture = CopySlot(memory, header->newest.load(std::memory_order_acquire));
    munmap(mapped, kDisplayFileBytes);
    return picture;
}

static bool IsBlanked(const fs::path& volatileFolder) {
    std::ifstream blank(volatileFolder / "sys/class/graphics/fb0/blank");
    int level = 0;
    return blank >> level && level != 0;
}

static bool WritePng(const std::string& path, const Picture& picture) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = PNG_FORMAT_BGR;
    std::vector<uint8_t> rows;  // the fourth byte is no opacity
    rows.reserve(picture.pixels.size() / 4 * 3);
    for (size_t at = 0; at + 3 < picture.pixels.size(); at += 4)
        rows.insert(rows.end(), &picture.pixels[at], &picture.pixels[at] + 3);
    return png_image_write_to_file(&image, path.c_str(), 0, rows.data(), 0, nullptr) != 0;
}

static int SavePicture(const fs::path& folder, const std::string& path) {
    // The board leaves a link to its volatile folder beside its control socket.
    std::error_code error;
    fs::path volatileFolder = fs::read_symlink(folder / "volatile", error);
    if (error) return Complain("No board is running in " + folder.string() + ".");
    std::optional<Picture> picture = NewestPicture(volatileFolder / "display");
    if (!picture) return Complain("The display has not shown a frame yet.");
    if (IsBlanked(volatileFolder)) std::fill(picture->pixels.begin(), picture->pixels.end(), uint8_t{0});
    return WritePng(path, *picture) ? 0 : Complain("Cannot write " + path + ".");
}

int RunVerb(const fs::path& folder, const std::vector<std::string>& words) {
    if (words.empty() || words[0] != "picture") return AskBoard(folder, words);
    if (words.size() != 2) return Complain("usage: picture FILE.png");
    return SavePicture(folder, words[1]);
}
