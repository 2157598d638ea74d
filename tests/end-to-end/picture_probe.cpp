#include "picture_probe.h"

#include <array>
#include <cmath>
#include <cstdlib>

struct SourceColour {
    char source;
    int cb, cr;
};
static constexpr std::array kColours = {
    SourceColour{'1', 200, 90},
    SourceColour{'2', 90, 200},
    SourceColour{'3', 80, 80},
    SourceColour{'4', 170, 170},
};
static constexpr int kColourTolerance = 28;
static constexpr unsigned kEdgeTolerance = 3;  // pixels: chroma of 4:2:0 and scaling blur an edge

char SourceAt(const Picture& picture, size_t x, size_t y) {
    const uint8_t* pixel = picture.At(x, y);
    const double blue = pixel[0], green = pixel[1], red = pixel[2];
    const int cb = int(128 - 0.148 * red - 0.291 * green + 0.439 * blue);
    const int cr = int(128 + 0.439 * red - 0.368 * green - 0.071 * blue);
    for (const SourceColour& colour : kColours)
        if (std::abs(cb - colour.cb) < kColourTolerance && std::abs(cr - colour.cr) < kColourTolerance)
            return colour.source;
    return '.';
}

struct Point {
    long x, y;
};

static bool Outside(const Picture& picture, Point point, char source) {
    if (point.x < 0 || point.y < 0 || point.x >= long(picture.width) || point.y >= long(picture.height)) return true;
    return SourceAt(picture, size_t(point.x), size_t(point.y)) != source;
}

bool Shows(const Picture& picture, const Shown& shown) {
    if (shown.right > picture.width || shown.bottom > picture.height) return false;
    const auto mark = MarkIn(picture, {shown.left, shown.top, shown.right - shown.left, shown.bottom - shown.top});
    if (!mark || char('0' + int(mark->source)) != shown.source) return false;
    // Probes at three quarters of the height and a quarter of the width keep clear of the mark above and the number
    // inside.
    const long y = shown.top + (shown.bottom - shown.top) * 3 / 4, x = shown.left + (shown.right - shown.left) / 4;
    const long edge = kEdgeTolerance;
    const std::array inside = {Point{shown.left + edge, y}, Point{shown.right - 1 - edge, y},
                               Point{x, shown.bottom - 1 - edge}};
    const std::array outside = {Point{shown.left - edge, y}, Point{shown.right - 1 + edge, y},
                                Point{x, shown.bottom - 1 + edge}, Point{x, long(shown.top) - edge}};
    for (const Point& point : inside)
        if (SourceAt(picture, size_t(point.x), size_t(point.y)) != shown.source) return false;
    for (const Point& point : outside)
        if (!Outside(picture, point, shown.source)) return false;
    return true;
}

bool ShowsAll(const Picture& picture, const std::vector<Shown>& all) {
    for (const Shown& shown : all)
        if (!Shows(picture, shown)) return false;
    return true;
}

std::string Map(const Picture& picture) {
    std::string map = std::to_string(picture.width) + "x" + std::to_string(picture.height) + "\n";
    for (size_t line = 0; line < 18 && picture.width > 0; ++line) {
        for (size_t column = 0; column < 64; ++column)
            map += SourceAt(picture, (2 * column + 1) * picture.width / 128, (2 * line + 1) * picture.height / 36);
        map += '\n';
    }
    return map;
}

std::string Seen(const Board& board) { return Map(TakePicture(board).value_or(Picture{})) + Output(board); }

bool ShowsFull(const Board& board, char source, double seconds) {
    std::optional<PictureMark> before;
    return WaitUntilPicture(board, seconds, [&](const Picture& picture) {
        const Window display{0, 0, picture.width, picture.height};
        const Shown whole{source, 0, 0, unsigned(picture.width), unsigned(picture.height)};
        const auto mark = MarkIn(picture, display);
        if (!mark || !Shows(picture, whole)) return false;
        if (!before) before = mark;
        return mark->milliseconds != before->milliseconds;
    });
}
