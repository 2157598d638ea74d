#include "bench/display_picture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>

#include "devices/display.h"

// Reading

static std::optional<Picture> CopySlot(const uint8_t* memory, uint32_t index) {
    const auto* header = reinterpret_cast<const DisplayHeader*>(memory);
    const DisplaySlot& slot = header->slots[index % kDisplaySlots];
    const uint32_t before = slot.sequence.load(std::memory_order_acquire);
    Picture picture{.width = slot.width, .height = slot.height};
    if (before % 2 != 0 || picture.width > kDisplayWidthLimit || picture.height > kDisplayHeightLimit)
        return std::nullopt;
    const uint8_t* pixels = memory + kDisplayFirstSlot + index % kDisplaySlots * kDisplaySlotBytes;
    picture.bgrx.assign(pixels, pixels + picture.width * picture.height * 4);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (slot.sequence.load(std::memory_order_relaxed) != before) return std::nullopt;
    return picture;
}

// Null: no such memory.
static void* MapDisplay(const std::filesystem::path& display) {
    const int file = open(display.c_str(), O_RDONLY | O_CLOEXEC);
    void* mapped = file < 0 ? MAP_FAILED : mmap(nullptr, kDisplayFileBytes, PROT_READ, MAP_SHARED, file, 0);
    if (file >= 0) close(file);
    return mapped == MAP_FAILED ? nullptr : mapped;
}

int64_t LastShownAt(const std::filesystem::path& display) {
    void* mapped = MapDisplay(display);
    if (mapped == nullptr) return 0;
    const auto* header = static_cast<const DisplayHeader*>(mapped);
    const size_t newest = header->newest.load(std::memory_order_acquire) % kDisplaySlots;
    const int64_t shownAt = header->frames.load() == 0 ? 0 : header->slots[newest].shownAt;
    munmap(mapped, kDisplayFileBytes);
    return shownAt;
}

std::optional<Picture> ReadDisplay(const std::filesystem::path& display) {
    void* mapped = MapDisplay(display);
    if (mapped == nullptr) return std::nullopt;
    const auto* memory = static_cast<const uint8_t*>(mapped);
    const auto* header = reinterpret_cast<const DisplayHeader*>(memory);
    std::optional<Picture> picture;
    constexpr int kAttempts = 100;  // a writer would have to overtake the reader each time
    for (int attempt = 0; attempt < kAttempts && !picture && header->frames.load() != 0; ++attempt)
        picture = CopySlot(memory, header->newest.load(std::memory_order_acquire));
    munmap(mapped, kDisplayFileBytes);
    return picture;
}

// What is seen

std::optional<PictureMark> MarkIn(const Picture& picture, Window window) {
    return ReadPictureMark(picture.bgrx, picture.width, picture.height, picture.width * 4, window);
}

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

std::string Map(const Picture& picture) {
    std::string map = std::to_string(picture.width) + "x" + std::to_string(picture.height) + "\n";
    for (size_t line = 0; line < 18 && picture.width > 0; ++line) {
        for (size_t column = 0; column < 64; ++column)
            map += SourceAt(picture, (2 * column + 1) * picture.width / 128, (2 * line + 1) * picture.height / 36);
        map += '\n';
    }
    return map;
}
