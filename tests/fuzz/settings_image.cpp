// A settings file with any bytes: loaded whole or not at all, saved and loaded again without loss; and whatever it
// holds, the report and the panel take it. What stands behind the image is the rest of the board's state.
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <numeric>
#include <string>

#include "board/keypad.h"
#include "commands/status_report.h"
#include "fuzz.h"
#include "settings/device_settings.h"
#include "video/camera_formats.h"

static const int file = memfd_create("settings", 0);
static const std::string path = "/proc/self/fd/" + std::to_string(file);

static bool Same(const DeviceSettings& a, const DeviceSettings& b) { return memcmp(&a, &b, sizeof a) == 0; }

static uint8_t SumOf(const uint8_t* image) {
    return static_cast<uint8_t>(std::accumulate(image + 1, image + 4, 0) + image[6] + image[7] +
                                std::accumulate(image + 36, image + 41, 0) + image[45]);
}

static void SaveAndLoad(DeviceSettings& record) {
    SaveSettings(record, path.c_str());
    struct stat status;
    Require(fstat(file, &status) == 0 && status.st_size == sizeof record, "file size");
    DeviceSettings again{};
    Require(LoadSettings(again, path.c_str()) == 0 && Same(again, record), "what was saved is loaded");
    const auto* image = reinterpret_cast<const uint8_t*>(&again);
    Require(image[0] == SumOf(image) && image[0] == ComputeChecksum(again), "checksum");
    Require(image[1] == 0xAB && image[2] == 0x01 && image[3] == 0, "signature");
}

static void Report(const DeviceSettings& record, uint8_t deviceId, Input& rest) {
    StatusFacts facts{};
    facts.deviceId = deviceId;
    facts.osVersion = "fuzzed";
    CopySettings(facts.settings, record);
    facts.cameras[0] = {.video = {.locked = true, .width = rest.Word(), .height = rest.Word()},
                        .format = FourccName(rest.Word()),
                        .rate = rest.Word()};
    facts.output = {.width = rest.Word(), .height = rest.Word(), .refresh = rest.Word()};
    for (ReportForm form : {kReportPlain, kReportFramed, kReportNetwork}) {
        const std::string text = ReportText(facts, form);
        Require(text.ends_with('\n') && text.find('\0') == text.npos, "report");
    }
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < sizeof(DeviceSettings)) return 0;
    DeviceSettings record{};
    Require(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size), "file");
    Require(LoadSettings(record, path.c_str()) == 0 && memcmp(&record, data, sizeof record) == 0, "loaded whole");
    Input rest{.data = data + sizeof record, .left = size - sizeof record};
    const uint8_t deviceId = rest.Byte() & 3;
    Report(record, deviceId, rest);
    Require((PanelLedBits(deviceId, record, rest.Byte()) & 0x80) == 0, "LEDs");
    SaveAndLoad(record);
    return 0;
}
