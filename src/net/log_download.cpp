#include "net/log_download.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "commands/reply_channel.h"
#include "commands/status_report.h"
#include "core/shell.h"
#include "settings/shared_field.h"
#include "video/video_devices.h"

static constexpr std::string_view kHeader =
    "HTTP/1.1 200 OK\r\n"
    "Content-type: binary/octet-stream\r\n"
    "Content-Disposition: attachment; filename=systemlog.qdx\r\n"
    "Accept-Ranges: bytes\r\n"
    "\r\n";
static_assert(kHeader.size() == 133);

static constexpr int kPieceLimit = 999;  // characters; a longer line is copied in pieces
static constexpr size_t kSeparatorWidth = 85;

struct LogSection {
    int camera = 0;               // 1, 2: the formats of that USB input, left out while it is absent
    const char* title = nullptr;  // the camera's sections make their own title and command
    const char* command = nullptr;
    const char* omitted = nullptr;  // lines that contain this text are noise
};
static constexpr LogSection kSections[] = {
    {.title = "Listing USB tree\n", .command = "lsusb -t"},
    {.title = "Listing V4L2 devices\n", .command = "v4l2-ctl --list-devices"},
    {.title = "Listing USB devices\n", .command = "lsusb -v"},
    {.camera = 1},
    {.camera = 2},
    {.title = "Get kernel dump\n", .command = "dmesg", .omitted = "ov5640: unsupported bit mode 0"},
    {.title = "Get application log dump\n", .command = "journalctl -u tesselvisor"},
};

static void WriteHeading(const std::string& title) {
    const std::string separator = std::string(kSeparatorWidth, '=') + '\n';
    WriteToClient(separator + title + separator);
}

static void CopyToolOutput(const std::string& title, const std::string& command, const char* omitted = nullptr) {
    const auto heading = [&] { WriteHeading(title); };
    const auto copy = [&](const char* piece) {
        if (omitted == nullptr || strstr(piece, omitted) == nullptr) WriteToClient(piece);
    };
    ReadEveryLine(command.c_str(), "pclose() failed", kPieceLimit, copy, heading);
}

// The video thread rewrites these texts at plug events.
template <size_t size>
static std::string TextOf(const char (&field)[size]) {
    std::array<char, size + 1> text{};
    CopySharedBytes(text.data(), field, size);
    return text.data();
}

static void WriteCameraFormats(int number) {
    const CameraInput& camera = CameraInputs[number - 1];
    if (camera.present == 0) return;
    const std::string card = TextOf(camera.card), path = TextOf(camera.devicePath);
    CopyToolOutput("Listing USB" + std::to_string(number) + " - " + card + " - " + path + "\n",
                   "v4l2-ctl --device " + path + " --list-formats-ext");
}

static void WriteSection(const LogSection& section) {
    if (section.camera != 0)
        WriteCameraFormats(section.camera);
    else
        CopyToolOutput(section.title, section.command, section.omitted);
}

int SendDiagnosticLog(const int32_t*) {
    if (!WriteToClient(kHeader)) {
        WriteToClient(kHeader);
        fprintf(stderr, "Error sending to client.\n");
        return 1;
    }
    WriteHeading("Get status from application\n");
    SendNetworkStatus();
    for (const LogSection& section : kSections) WriteSection(section);
    WriteHeading("END OF LOG\n");
    return 0;
}
