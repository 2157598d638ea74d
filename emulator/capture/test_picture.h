// The picture of an emulated video source, and the mark by which a test recognises it on the display.
//
// Each source has its own colour, pattern and large number. Along the top edge runs the mark: two rows of 32 black and
// white cells, each as wide as the picture, that tell source, frame counter and time. Every line of a row says the
// whole row, guarded by a check value, so that the reader needs no vertical geometry; the first and the last cell are
// white, so that it finds the picture's sides between black bars by itself. The mark survives JPEG, 4:2:0 and scaling
// to windows some 200 pixels wide.
//
// Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

enum class PictureSource : uint8_t { kCamera1 = 1, kCamera2 = 2, kHdmi0 = 3, kHdmi1 = 4 };

struct PictureMark {
    PictureSource source{};
    uint16_t counter = 0;       // frames of this stream, wraps
    uint32_t milliseconds = 0;  // CLOCK_MONOTONIC when the frame was captured, modulo kMarkTimeModulo
    bool mirrored = false;      // reading only: left and right are exchanged
    bool upsideDown = false;    // reading only; both: rotated by 180 degrees
};
inline constexpr uint32_t kMarkTimeModulo = 1u << 20;  // about 17 minutes

inline constexpr size_t kMarkRows = 2;
inline constexpr size_t kMarkCells = 32;
inline constexpr size_t kMarkLeastWidth = 32, kMarkLeastHeight = 16;  // smaller pictures carry no mark

// Lines of one row of cells: a multiple of 8, at least 8, about a sixteenth of the picture's height.
constexpr size_t MarkRowLines(size_t height) {
    const size_t lines = (height / 16 + 4) / 8 * 8;
    return lines < 8 ? 8 : lines;
}

// Planar 4:2:2 (JPEG's and x264's): a luma plane and two chroma planes of half its width.
struct Planes422 {
    std::span<uint8_t> y, cb, cr;
    size_t width, height;       // of luma; even width
    size_t lumaRow, chromaRow;  // bytes from a row to the next
};

// The whole static picture; its mark rows are black until a mark is drawn.
void DrawPicture(PictureSource source, const Planes422& planes);
void DrawPictureYuyv(PictureSource source, std::span<uint8_t> yuyv, size_t width, size_t height, size_t rowBytes);

// One line of one row of cells in luma (8 bits a pixel), video range.
void DrawMarkLine(const PictureMark& mark, size_t row, std::span<uint8_t> luma);

// The same line, packed; `yuyv` is twice as many bytes as the picture has pixels.
void DrawMarkLineYuyv(const PictureMark& mark, size_t row, std::span<uint8_t> yuyv);

// Both rows, on every line they cover. The 4:2:2 form leaves chroma alone: DrawPicture made it neutral there.
void DrawMark(const PictureMark& mark, const Planes422& planes);
void DrawMarkYuyv(const PictureMark& mark, std::span<uint8_t> yuyv, size_t width, size_t height, size_t rowBytes);

// Looks for a mark inside a window of a displayed frame (B, G, R, unused). The window may be larger than the picture as
// long as the rest of it is dark. None: no mark, a torn frame, or one that is half covered.
struct Window {
    size_t x, y, width, height;
};
std::optional<PictureMark> ReadPictureMark(std::span<const uint8_t> bgrx, size_t width, size_t height, size_t rowBytes,
                                           Window window);
