#include "video/edid.h"

#include <algorithm>

static constexpr uint8_t kHeader[] = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};

static constexpr size_t kVendor = 8;
static constexpr size_t kFeatures = 24;
static constexpr uint8_t kHasPreferredTiming = 0x02;

bool HasEdidHeader(EdidBytes edid) { return std::ranges::equal(edid.first<sizeof kHeader>(), kHeader); }

std::array<char, 3> EdidVendor(EdidBytes edid) {
    const unsigned packed = unsigned{edid[kVendor]} << 8 | edid[kVendor + 1];  // three letters of five bits, 1 is 'A'
    const auto letter = [packed](unsigned shift) { return static_cast<char>(((packed >> shift) & 0x1F) + 0x40); };
    return {letter(10), letter(5), letter(0)};
}

EdidDescriptor FirstDescriptor(EdidBytes edid) { return edid.subspan<54, 18>(); }

bool IsDisplayDescriptor(EdidDescriptor descriptor) { return descriptor[0] == 0 && descriptor[1] == 0; }

std::optional<PreferredTiming> EdidPreferredTiming(EdidBytes edid) {
    const EdidDescriptor bytes = FirstDescriptor(edid);
    if (IsDisplayDescriptor(bytes) || !(edid[kFeatures] & kHasPreferredTiming)) return std::nullopt;

    const unsigned width = bytes[2] + ((bytes[4] & 0xF0u) << 4);
    const unsigned widthBlank = bytes[3] + ((bytes[4] & 0x0Fu) << 8);
    const unsigned height = bytes[5] + ((bytes[7] & 0xF0u) << 4);
    const unsigned heightBlank = bytes[6] + ((bytes[7] & 0x0Fu) << 8);
    if (width + widthBlank == 0 || height + heightBlank == 0) return std::nullopt;

    const double clock = (bytes[0] + 256.0 * bytes[1]) * 10000.0;
    return PreferredTiming{
        .width = width, .height = height, .refresh = clock / (width + widthBlank) / (height + heightBlank)};
}
