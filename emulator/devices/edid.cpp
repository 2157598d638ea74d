#include "devices/edid.h"

#include <charconv>

// Takes one line off `rest`, without its comment and the blanks around it. The comment lands in `comment`.
static std::string_view TakeLine(std::string_view& rest, std::string_view& comment) {
    const size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    const size_t hash = line.find('#');
    comment = hash == line.npos ? std::string_view{} : line.substr(hash + 1);
    return line.substr(0, hash);
}

static bool AppendHex(std::string_view line, std::vector<uint8_t>& bytes) {
    static constexpr std::string_view kBlanks = " \t\r";
    while (true) {
        const size_t start = line.find_first_not_of(kBlanks);
        if (start == line.npos) return true;
        line.remove_prefix(start);
        if (line.size() < 2) return false;
        uint8_t byte = 0;
        const auto [end, error] = std::from_chars(line.data(), line.data() + 2, byte, 16);
        if (error != std::errc() || end != line.data() + 2) return false;
        bytes.push_back(byte);
        line.remove_prefix(2);
    }
}

static std::string_view Trimmed(std::string_view text) {
    const size_t start = text.find_first_not_of(" \t\r");
    return start == text.npos ? std::string_view{} : text.substr(start, text.find_last_not_of(" \t\r") + 1 - start);
}

std::optional<EdidFile> ParseEdidFile(std::string_view text) {
    EdidFile file;
    while (!text.empty()) {
        std::string_view comment;
        const std::string_view line = Trimmed(TakeLine(text, comment));
        if (file.description.empty()) file.description = Trimmed(comment);
        if (line == "!fixed") {
            file.fixedMode = true;
        } else if (!AppendHex(line, file.bytes)) {
            return std::nullopt;
        }
    }
    return file;
}

std::optional<fb_var_screeninfo> PreferredTiming(const std::vector<uint8_t>& edid) {
    static constexpr size_t kFirst = 54, kDescriptorBytes = 18;
    if (edid.size() < kFirst + kDescriptorBytes) return std::nullopt;
    const uint8_t* descriptor = edid.data() + kFirst;
    const auto low = [=](size_t at) -> unsigned { return descriptor[at]; };
    const auto nibble = [=](size_t at, int shift) -> unsigned { return ((low(at) >> shift) & 0x0F) << 8; };
    const auto pair = [=](size_t at, int shift) -> unsigned { return (low(at) >> shift) & 3; };

    const unsigned clock = low(0) | low(1) << 8;  // in units of 10 kHz
    if (clock == 0) return std::nullopt;
    const unsigned width = low(2) | nibble(4, 4), widthBlank = low(3) | nibble(4, 0);
    const unsigned height = low(5) | nibble(7, 4), heightBlank = low(6) | nibble(7, 0);
    const unsigned widthFront = low(8) | pair(11, 6) << 8, widthSync = low(9) | pair(11, 4) << 8;
    const unsigned heightFront = low(10) >> 4 | pair(11, 2) << 4, heightSync = (low(10) & 0x0F) | pair(11, 0) << 4;
    if (widthFront + widthSync > widthBlank || heightFront + heightSync > heightBlank) return std::nullopt;

    fb_var_screeninfo timing{};
    timing.xres = timing.xres_virtual = width;
    timing.yres = timing.yres_virtual = height;
    timing.bits_per_pixel = 32;
    timing.pixclock = 100'000'000 / clock;  // picoseconds
    timing.left_margin = widthBlank - widthFront - widthSync;
    timing.right_margin = widthFront;
    timing.hsync_len = widthSync;
    timing.upper_margin = heightBlank - heightFront - heightSync;
    timing.lower_margin = heightFront;
    timing.vsync_len = heightSync;
    return timing;
}
