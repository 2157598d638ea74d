// A monitor's EDID: the emulator's frame buffer reads the same preferred timing from the same bytes, and what it
// chooses can be shown.
#include "video/edid.h"

#include <algorithm>
#include <cmath>

#include "devices/edid.h"
#include "fuzz.h"
#include "video/hdmi_output.h"

static bool IsVendorLetter(char letter) { return letter >= '@' && letter <= '_'; }

// The emulator also wants sync pulses that fit into the blanking, and does not ask for the monitor's declaration.
static void Compare(const struct PreferredTiming& timing, const fb_var_screeninfo& other) {
    Require(timing.width == other.xres && timing.height == other.yres, "size");
    const double total = double(other.xres + other.left_margin + other.right_margin + other.hsync_len) *
                         (other.yres + other.upper_margin + other.lower_margin + other.vsync_len);
    const double clock = timing.refresh * total / 10'000;
    Require(std::abs(clock - std::round(clock)) < 1e-6 && 100'000'000 / std::lround(clock) == other.pixclock, "clock");
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::array<uint8_t, kEdidBufferSize> edid{};
    std::copy_n(data, std::min(size, edid.size()), edid.begin());
    HasEdidHeader(edid);
    Require(std::ranges::all_of(EdidVendor(edid), IsVendorLetter), "vendor");
    const auto timing = EdidPreferredTiming(edid);
    if (!timing) return 0;
    const auto other = PreferredTiming({edid.begin(), edid.end()});
    if (other) Compare(*timing, *other);

    const uint8_t index = FindOutputTiming(timing->width, timing->height, timing->refresh);
    Require(index != 0 && index <= kOutputTimings, "row of the table");
    for (bool allow60 : {false, true}) {
        const OutputTimingRow& row = OutputTimingTable[PermittedTiming(index, allow60)];
        Require(allow60 || row.refresh != 60, "no 60 Hz without the strap");
        Require(index == kOutputTimings || (row.xres == timing->width && row.yres == timing->height), "its size");
    }
    return 0;
}
