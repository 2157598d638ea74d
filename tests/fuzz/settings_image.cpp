// Whatever a settings file holds, the report and the panel take it. What stands behind the image is the rest of the
// board's state. Loading and saving any bytes is the campaign's (tests/campaign/settings.cpp).
#include <cstring>

#include "board/keypad.h"
#include "commands/status_report.h"
#include "fuzz.h"
#include "settings/device_settings.h"
#include "video/camera_formats.h"

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
    memcpy(reinterpret_cast<uint8_t*>(&record), data, sizeof record);
    Input rest{.data = data + sizeof record, .left = size - sizeof record};
    const uint8_t deviceId = rest.Byte() & 3;
    Report(record, deviceId, rest);
    Require((PanelLedBits(deviceId, record, rest.Byte()) & 0x80) == 0, "LEDs");
    return 0;
}
