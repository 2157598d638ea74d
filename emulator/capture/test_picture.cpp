#include "capture/test_picture.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

static constexpr uint8_t kBlack = 16, kWhite = 235, kNeutral = 128;  // video range

// ---- The static picture

struct PatternPoint {
    int x, y;  // pixels
    int unit;  // pixels, about a fifteenth of the height
    int centreX, centreY;
};

static bool DiagonalStripes(const PatternPoint& at) { return ((at.x + at.y) / at.unit) % 2 != 0; }
static bool Checks(const PatternPoint& at) { return (at.x / at.unit + at.y / at.unit) % 2 != 0; }
static bool Bars(const PatternPoint& at) { return (at.y / at.unit) % 2 != 0; }
static bool Diamonds(const PatternPoint& at) {
    return ((std::abs(at.x - at.centreX) + std::abs(at.y - at.centreY)) / at.unit) % 2 != 0;
}

struct SourceLook {
    PictureSource source;
    uint8_t y, cb, cr;
    bool (*raised)(const PatternPoint& at);  // the lighter half of the pattern
    std::array<uint8_t, 7> digit;            // 5 x 7, the leftmost point in bit 4
};

static constexpr std::array kLooks = {
    SourceLook{.source = PictureSource::kCamera1,
               .y = 90,
               .cb = 200,
               .cr = 90,
               .raised = DiagonalStripes,
               .digit = {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    SourceLook{.source = PictureSource::kCamera2,
               .y = 90,
               .cb = 90,
               .cr = 200,
               .raised = Checks,
               .digit = {0b01110, 0b10001, 0b00001, 0b00110, 0b01000, 0b10000, 0b11111}},
    SourceLook{.source = PictureSource::kHdmi0,
               .y = 110,
               .cb = 80,
               .cr = 80,
               .raised = Bars,
               .digit = {0b11111, 0b00010, 0b00100, 0b00010, 0b00001, 0b10001, 0b01110}},
    SourceLook{.source = PictureSource::kHdmi1,
               .y = 110,
               .cb = 170,
               .cr = 170,
               .raised = Diamonds,
               .digit = {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010}},
};

static const SourceLook& LookOf(PictureSource source) {
    for (const SourceLook& look : kLooks) {
        if (look.source == source) return look;
    }
    return kLooks[0];
}

// Grain of a cheap sensor. Without it a JPEG frame would be a tenth of what real cameras send over the bus.
static int Grain(size_t x, size_t y) {
    uint32_t hash = static_cast<uint32_t>(x) * 0x9e3779b1u ^ static_cast<uint32_t>(y) * 0x85ebca77u;
    hash = (hash ^ hash >> 15) * 0x2c1b3c6du;
    return static_cast<int>(hash >> 27) - 16;
}

struct Digit {
    size_t left, top, dot;  // pixels; 5 x 7 dots
};

static bool OnDigit(const SourceLook& look, const Digit& digit, size_t x, size_t y) {
    if (x < digit.left || y < digit.top) return false;
    const size_t column = (x - digit.left) / digit.dot, line = (y - digit.top) / digit.dot;
    return column < 5 && line < look.digit.size() && (look.digit[line] >> (4 - column) & 1) != 0;
}

struct Line422 {
    std::span<uint8_t> y, cb, cr;
};

// A line below the mark. Chroma follows the left pixel of each pair.
static void DrawLine(const SourceLook& look, size_t lineNumber, size_t width, size_t height, const Line422& line) {
    const size_t dot = std::max<size_t>(height / 16, 1);
    const Digit digit = {.left = width > 5 * dot ? (width - 5 * dot) / 2 : 0, .top = height / 2 - 3 * dot, .dot = dot};
    PatternPoint at = {.x = 0,
                       .y = static_cast<int>(lineNumber),
                       .unit = static_cast<int>(std::max<size_t>(height / 15, 2)),
                       .centreX = static_cast<int>(width / 2),
                       .centreY = static_cast<int>(height / 2)};
    for (size_t x = 0; x < width; ++x) {
        at.x = static_cast<int>(x);
        const bool white = OnDigit(look, digit, x, lineNumber);
        const int base = white ? kWhite - 16 : look.y + (look.raised(at) ? 40 : 0);
        line.y[x] = static_cast<uint8_t>(base + Grain(x, lineNumber));
        if (x % 2 == 0 && x / 2 < line.cb.size()) {  // an odd last pixel has no chroma of its own
            line.cb[x / 2] = white ? kNeutral : look.cb;
            line.cr[x / 2] = white ? kNeutral : look.cr;
        }
    }
}

static bool CarriesMark(size_t width, size_t height) { return width >= kMarkLeastWidth && height >= kMarkLeastHeight; }

static size_t MarkLines(size_t width, size_t height) {
    return CarriesMark(width, height) ? kMarkRows * MarkRowLines(height) : 0;
}

static void BlackenLine(const Line422& line) {
    std::ranges::fill(line.y, kBlack);
    std::ranges::fill(line.cb, kNeutral);
    std::ranges::fill(line.cr, kNeutral);
}

void DrawPicture(PictureSource source, const Planes422& planes) {
    const SourceLook& look = LookOf(source);
    for (size_t lineNumber = 0; lineNumber < planes.height; ++lineNumber) {
        const Line422 line = {.y = planes.y.subspan(lineNumber * planes.lumaRow, planes.width),
                              .cb = planes.cb.subspan(lineNumber * planes.chromaRow, planes.width / 2),
                              .cr = planes.cr.subspan(lineNumber * planes.chromaRow, planes.width / 2)};
        if (lineNumber < MarkLines(planes.width, planes.height)) {
            BlackenLine(line);
        } else {
            DrawLine(look, lineNumber, planes.width, planes.height, line);
        }
    }
}

void DrawPictureYuyv(PictureSource source, std::span<uint8_t> yuyv, size_t width, size_t height, size_t rowBytes) {
    const SourceLook& look = LookOf(source);
    std::vector<uint8_t> y(width), cb(width / 2), cr(width / 2);
    for (size_t lineNumber = 0; lineNumber < height; ++lineNumber) {
        const Line422 line = {.y = y, .cb = cb, .cr = cr};
        if (lineNumber < MarkLines(width, height)) {
            BlackenLine(line);
        } else {
            DrawLine(look, lineNumber, width, height, line);
        }
        uint8_t* out = yuyv.subspan(lineNumber * rowBytes, width * 2).data();
        for (size_t pair = 0; pair < width / 2; ++pair) {
            out[4 * pair] = y[2 * pair];
            out[4 * pair + 1] = cb[pair];
            out[4 * pair + 2] = y[2 * pair + 1];
            out[4 * pair + 3] = cr[pair];
        }
    }
}

// ---- The mark
//
// A row is 32 cells, white = 1, from the left: 110, row number (1 bit), data (20 bits), check (6 bits), 01. The ends
// differ so that a mirrored row cannot be taken for a straight one. Row 0 carries source (4) and counter (16); row 1
// the time, and its check covers row 0 as well: rows of two frames do not go together.

static constexpr uint32_t kLeftEnd = 0b110, kRightEnd = 0b01, kDataMask = (1u << 20) - 1;

static uint32_t Check6(uint64_t value, int bits) {
    uint32_t check = 0x3f;
    for (int bit = bits - 1; bit >= 0; --bit) {
        const uint32_t carry = (check >> 5 ^ static_cast<uint32_t>(value >> bit)) & 1;
        check = (check << 1 & 0x3f) ^ (carry != 0 ? 0x03 : 0);
    }
    return check;
}

static uint32_t RowWord(uint32_t row, uint32_t data, uint32_t firstRowData) {
    const uint32_t numbered = row << 20 | data;
    const uint32_t check = row == 0 ? Check6(numbered, 21) : Check6(uint64_t{firstRowData} << 21 | numbered, 41);
    return kLeftEnd << 29 | numbered << 8 | check << 2 | kRightEnd;
}

static uint32_t FirstRowData(const PictureMark& mark) {
    return static_cast<uint32_t>(mark.source) << 16 | mark.counter;
}

static uint32_t MarkWord(const PictureMark& mark, size_t row) {
    const uint32_t first = FirstRowData(mark);
    return row == 0 ? RowWord(0, first, 0) : RowWord(1, mark.milliseconds % kMarkTimeModulo, first);
}

void DrawMarkLine(const PictureMark& mark, size_t row, std::span<uint8_t> luma) {
    const uint32_t word = MarkWord(mark, row);
    for (size_t cell = 0; cell < kMarkCells; ++cell) {
        const size_t from = cell * luma.size() / kMarkCells, to = (cell + 1) * luma.size() / kMarkCells;
        const bool white = (word >> (kMarkCells - 1 - cell) & 1) != 0;
        std::fill(luma.begin() + static_cast<ptrdiff_t>(from), luma.begin() + static_cast<ptrdiff_t>(to),
                  white ? kWhite : kBlack);
    }
}

void DrawMark(const PictureMark& mark, const Planes422& planes) {
    if (!CarriesMark(planes.width, planes.height)) return;
    const size_t lines = MarkRowLines(planes.height);
    for (size_t line = 0; line < kMarkRows * lines; ++line) {
        DrawMarkLine(mark, line / lines, planes.y.subspan(line * planes.lumaRow, planes.width));
    }
}

void DrawMarkLineYuyv(const PictureMark& mark, size_t row, std::span<uint8_t> yuyv) {
    std::vector<uint8_t> luma(yuyv.size() / 2);
    DrawMarkLine(mark, row, luma);
    for (size_t x = 0; x < luma.size(); ++x) {
        yuyv[2 * x] = luma[x];
        yuyv[2 * x + 1] = kNeutral;
    }
}

void DrawMarkYuyv(const PictureMark& mark, std::span<uint8_t> yuyv, size_t width, size_t height, size_t rowBytes) {
    if (!CarriesMark(width, height)) return;
    const size_t lines = MarkRowLines(height);
    std::vector<uint8_t> packed(width * 2);
    for (size_t row = 0; row < kMarkRows; ++row) {
        DrawMarkLineYuyv(mark, row, packed);
        for (size_t line = row * lines; line < (row + 1) * lines; ++line)
            std::ranges::copy(packed, yuyv.subspan(line * rowBytes, width * 2).begin());
    }
}

// ---- Reading

static constexpr int kMiddleLuma = 128, kLeastContrast = 30;  // a cell nearer to the middle is a blend of two rows
static constexpr size_t kLeastCellPixels = 2;

static int Luma(const uint8_t* pixel) { return (pixel[0] + 2 * pixel[1] + pixel[2]) / 4; }

// The 32 cells of a displayed line, from its first to its last bright pixel. None when it cannot be a line of a mark.
static std::optional<uint32_t> LineWord(const uint8_t* line, size_t width) {
    size_t left = 0, right = width;
    while (left < right && Luma(line + 4 * left) < kMiddleLuma) ++left;
    while (right > left && Luma(line + 4 * (right - 1)) < kMiddleLuma) --right;
    const size_t extent = right - left;
    if (extent < kLeastCellPixels * kMarkCells) return std::nullopt;
    uint32_t word = 0;
    for (size_t cell = 0; cell < kMarkCells; ++cell) {
        const size_t from = left + (10 * cell + 3) * extent / (10 * kMarkCells);
        const size_t to = std::max(left + (10 * cell + 7) * extent / (10 * kMarkCells), from + 1);
        int sum = 0;
        for (size_t x = from; x < to; ++x) sum += Luma(line + 4 * x) - kMiddleLuma;
        const int mean = sum / static_cast<int>(to - from);
        if (std::abs(mean) < kLeastContrast) return std::nullopt;
        word = word << 1 | (mean > 0 ? 1u : 0u);
    }
    return word;
}

static uint32_t Mirrored(uint32_t word) {
    uint32_t mirrored = 0;
    for (size_t cell = 0; cell < kMarkCells; ++cell) mirrored |= (word >> cell & 1) << (kMarkCells - 1 - cell);
    return mirrored;
}

static uint32_t DataOf(uint32_t word) { return word >> 8 & kDataMask; }

static bool IsFirstRow(uint32_t word) { return word == RowWord(0, DataOf(word), 0); }

struct MarkLine {
    size_t y;
    uint32_t straight, mirrored;  // the same cells, read either way
};

static std::optional<PictureMark> SecondRowFor(const MarkLine& first, bool mirrored, std::span<const MarkLine> lines) {
    const uint32_t data = DataOf(mirrored ? first.mirrored : first.straight);
    const uint32_t source = data >> 16;
    if (source < static_cast<uint32_t>(PictureSource::kCamera1) ||
        source > static_cast<uint32_t>(PictureSource::kHdmi1))
        return std::nullopt;
    for (const MarkLine& line : lines) {
        const uint32_t word = mirrored ? line.mirrored : line.straight;
        if (word != RowWord(1, DataOf(word), data)) continue;
        return PictureMark{.source = static_cast<PictureSource>(source),
                           .counter = static_cast<uint16_t>(data),
                           .milliseconds = DataOf(word),
                           .mirrored = mirrored,
                           .upsideDown = line.y < first.y};
    }
    return std::nullopt;
}

std::optional<PictureMark> ReadPictureMark(std::span<const uint8_t> bgrx, size_t width, size_t height, size_t rowBytes,
                                           Window window) {
    if (window.x > width || window.width > width - window.x) return std::nullopt;
    if (window.y > height || window.height > height - window.y) return std::nullopt;
    if (rowBytes < 4 * width || bgrx.size() < rowBytes * height) return std::nullopt;
    std::vector<MarkLine> lines;
    for (size_t y = window.y; y < window.y + window.height; ++y) {
        const auto word = LineWord(bgrx.data() + y * rowBytes + 4 * window.x, window.width);
        if (word) lines.push_back({.y = y, .straight = *word, .mirrored = Mirrored(*word)});
    }
    for (const MarkLine& line : lines) {
        for (const bool mirrored : {false, true}) {
            if (!IsFirstRow(mirrored ? line.mirrored : line.straight)) continue;
            if (const auto mark = SecondRowFor(line, mirrored, lines)) return mark;
        }
    }
    return std::nullopt;
}
