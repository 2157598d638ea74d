#include "commands/report_view.h"

#include <string_view>

#include "core/log.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"

static bool SelectsView(const CommandEntry& row, const ShownView& shown) {
    if (shown.deviceId == 0) return row.kind == kLayout && row.value1 == shown.view && row.value2 == shown.swap;
    return row.kind == kInput && row.value1 == shown.input;
}

std::string ViewName(std::span<const CommandEntry> table, const ShownView& shown) {
    static constexpr std::string_view kDelimiters = "<>$\\";
    static constexpr size_t kPatternLimit = 20;
    for (const CommandEntry& row : table) {
        if (!SelectsView(row, shown)) continue;
        std::string name;
        for (char c : std::string_view(row.pattern).substr(0, kPatternLimit))
            if (kDelimiters.find(c) == std::string_view::npos) name += c;
        return name;
    }
    return {};
}

int ReportView() {
    if (Settings.EnLog != 0) return 0;
    const std::string name =
        ViewName(SerialCommandTable,
                 {.deviceId = DeviceId, .view = Settings.View, .swap = Settings.Swap, .input = Settings.Input});
    if (name.empty()) return 1;
    PrintOut("VIEW => %s\n\n", name.c_str());
    return 0;
}
