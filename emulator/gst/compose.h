// Composition of the display picture: any number of scaled, turned, stacked video pictures into one 32-bit canvas.
//
// Everything here is a function of its arguments: no clock, no device, no state between frames. A frame is composed in
// two steps. ArrangeScene decides what will be seen and prepares the scaling; PaintBand then paints any band of rows
// and may run on several threads at once, on bands that do not overlap. A painted band is complete: what no window
// covers is black, so that a canvas may come with an older picture in it.
//
// Each row is fetched, scaled and converted while it is in the processor's first cache; a source row is scaled once
// even where it serves several canvas rows.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

inline constexpr int kPictureLimit = 4096;      // pixels, either side of a source
inline constexpr int kCanvasWidthLimit = 3840;  // pixels
inline constexpr int kOpaque = 256;
inline constexpr int kHalvingsLimit = 4;  // a picture is averaged down by 2 to the power of this at most

struct Rectangle {
    int left, top, width, height;
    bool operator==(const Rectangle&) const = default;
};

enum class Colours : uint8_t { kRgb, kBt601, kBt601Full, kBt709, kBt709Full, kBt2020, kBt2020Full };

// Numbered as the compositor's "rotate" property; quarter turns are clockwise.
enum class Turn : uint8_t { kNone, kQuarter, kHalf, kThreeQuarters, kMirror, kFlip };

// One colour component of a picture, in place: packed formats have a step above one byte.
struct VideoPlane {
    const uint8_t* samples;  // null in planes 1 and 2 of a picture without colour
    ptrdiff_t stride;        // bytes from a row to the next
    int step;                // bytes from a sample to the next
    int width, height;       // samples
};

struct VideoPicture {
    std::array<VideoPlane, 3> planes;  // Y, U, V or R, G, B
    Colours colours;
};

struct VideoWindow {
    VideoPicture picture;
    Rectangle area;  // on the canvas, may reach beyond it
    Turn turn;
    int alpha;  // 0 to kOpaque
};

struct Canvas {
    uint8_t* pixels;  // B, G, R, unused
    ptrdiff_t stride;
    int width, height;
};

// The largest rectangle of shape width:height that fits into the area, centred.
Rectangle FitRatio(int64_t width, int64_t height, Rectangle area);

// The geometry of one axis: `level` samples become `size` pixels.
struct Axis {
    int64_t step;  // samples per pixel, 32 fractional bits
    int level, size;
    bool mirrored;
};

// What a pixel is made of.
struct AxisSample {
    int left, right;  // the samples on both sides; the same at the edges
    int weight;       // of the right one, 0 to 255
};

// Sample and pixel centres line up: the outermost half pixels repeat the edge.
AxisSample SampleAt(const Axis& axis, int pixel);

// Sixteen neighbouring pixels of a scaled row, in two halves: the samples that make a half lie within 16 bytes. The two
// weights of a pixel add up to 256, which alone would not fit: then both samples are the same.
inline constexpr int kBlockPixels = 16;
struct ColumnBlock {
    alignas(32) std::array<uint8_t, 32> pairs;    // offsets from the half's base: left and right sample of each pixel
    alignas(32) std::array<uint8_t, 32> weights;  // of the left and the right sample, 1 to 255
    std::array<int, 2> bases;
};

// When a plane's rows get their width on the canvas: before two of them are mixed, where a row serves several canvas
// rows, else after that.
enum class Across : uint8_t { kNever, kFirst, kLast };

struct PlaneScale {
    int halvingsX, halvingsY;  // averaged away before interpolation, which alone would skip samples
    Axis vertical;
    Across across;
    std::vector<ColumnBlock> columns;  // unless never: the samples fit the pixels
    int offset, width;                 // of rows as they are mixed: the first sample and how many
};

struct Layer {
    VideoPicture picture;
    Rectangle area, visible;  // visible: the part on the canvas
    int alpha;
    bool halfChroma;                   // the chroma rows stay at half the width, for the conversion to double
    std::array<PlaneScale, 2> scales;  // of plane 0; of planes 1 and 2
    std::vector<uint8_t> turned;       // the samples of a picture turned by a quarter
};

using Scene = std::vector<Layer>;  // bottom to top

// Windows come bottom to top. Those that cannot be seen (transparent, of at most one pixel, outside of the canvas,
// behind an opaque one) are left out and cost nothing. The scene points into the pictures, which must outlive it.
Scene ArrangeScene(std::span<const VideoWindow> windows, int canvasWidth, int canvasHeight);

// Paints the canvas rows from top (inclusive) to bottom (exclusive).
void PaintBand(const Scene& scene, const Canvas& canvas, int top, int bottom);
