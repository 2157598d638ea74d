#include "bench/control_client.h"

#include <fcntl.h>
#include <png.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>

#include "bench/display_picture.h"
#include "bench/running_boards.h"

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

// Passes the answer on as it comes, since a followed trace has no end. `take` is told whether it is good.
template <typename Take>
static bool ReadAnswer(int server, Take take) {
    std::array<char, 65536> chunk;
    char status = 0;
    for (ssize_t size; (size = read(server, chunk.data(), chunk.size())) > 0;) {
        const size_t from = status == 0 ? 1 : 0;
        if (status == 0) status = chunk[0];
        take(status == '0', std::string_view(chunk.data() + from, size_t(size) - from));
    }
    return status != 0;
}

int SendVerb(const fs::path& folder, const std::vector<std::string>& words) {
    const int server = Connect(folder);
    if (server < 0 || SendWords(server, words)) return server;
    close(server);
    return -1;
}

static constexpr const char* kGone = "The board is gone.";

static std::string NoBoard(const fs::path& folder) { return "No board is running in " + folder.string() + "."; }

static int PrintAnswer(int server) {
    char last = '\n';
    FILE* to = stdout;
    const bool answered = ReadAnswer(server, [&](bool good, std::string_view text) {
        to = good ? stdout : stderr;
        fwrite(text.data(), 1, text.size(), to);
        fflush(to);
        if (!text.empty()) last = text.back();
    });
    if (!answered) return Complain(kGone);
    if (last != '\n') fputc('\n', to);
    return to == stdout ? 0 : 1;
}

static int PrintVerb(const fs::path& folder, const std::vector<std::string>& words) {
    const int server = SendVerb(folder, words);
    if (server < 0) return Complain(NoBoard(folder));
    const int status = PrintAnswer(server);
    close(server);
    return status;
}

BoardAnswer AskBoard(const fs::path& folder, const std::vector<std::string>& words) {
    const int server = SendVerb(folder, words);
    if (server < 0) return {.text = NoBoard(folder)};
    BoardAnswer answer;
    const bool answered = ReadAnswer(server, [&](bool good, std::string_view text) {
        answer.good = good;
        answer.text += text;
    });
    close(server);
    return answered ? answer : BoardAnswer{.ended = true, .text = kGone};
}

// The picture

static bool IsBlanked(const fs::path& volatileFolder) {
    std::ifstream blank(volatileFolder / "sys/class/graphics/fb0/blank");
    int level = 0;
    return blank >> level && level != 0;
}

static bool WritePng(const std::string& path, const Picture& picture) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = uint32_t(picture.width);
    image.height = uint32_t(picture.height);
    image.format = PNG_FORMAT_BGR;
    std::vector<uint8_t> rows;  // the fourth byte is no opacity
    rows.reserve(picture.bgrx.size() / 4 * 3);
    for (size_t at = 0; at + 3 < picture.bgrx.size(); at += 4)
        rows.insert(rows.end(), &picture.bgrx[at], &picture.bgrx[at] + 3);
    return png_image_write_to_file(&image, path.c_str(), 0, rows.data(), 0, nullptr) != 0;
}

std::optional<Picture> ShownPicture(const fs::path& folder) {
    // The board leaves a link to its volatile folder beside its control socket.
    const fs::path volatileFolder = folder / "volatile";
    std::optional<Picture> picture = ReadDisplay(volatileFolder / "display");
    if (picture && IsBlanked(volatileFolder)) std::ranges::fill(picture->bgrx, uint8_t{0});
    return picture;
}

static int SavePicture(const fs::path& folder, const std::string& path) {
    if (!fs::is_symlink(folder / "volatile")) return Complain(NoBoard(folder));
    const std::optional<Picture> picture = ShownPicture(folder);
    if (!picture) return Complain("The display has not shown a frame yet.");
    return WritePng(path, *picture) ? 0 : Complain("Cannot write " + path + ".");
}

int RunVerb(const fs::path& folder, const std::vector<std::string>& words) {
    const std::string verb = words.empty() ? "" : words[0];
    if (verb == "picture")
        return words.size() == 2 ? SavePicture(folder, words[1]) : Complain("usage: picture FILE.png");
    if (verb != "record" || words.size() != 3) return PrintVerb(folder, words);
    return PrintVerb(folder, {verb, words[1], fs::absolute(words[2])});  // the board works in another folder
}
