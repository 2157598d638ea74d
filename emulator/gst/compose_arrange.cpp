#include "gst/compose.h"

#include <libyuv/rotate.h>
#include <algorithm>

// Beyond this ratio samples are left out first, so that a block's samples stay within its 16 bytes.
static constexpr int kAverageLimit = 2 << kHalvingsLimit;

Rectangle FitRatio(int64_t width, int64_t height, Rectangle area) {
    if (width <= 0 || height <= 0) return area;
    Rectangle fit = area;
    if (width * area.height > height * area.width)
        fit.height = static_cast<int>(height * area.width / width);
    else
        fit.width = static_cast<int>(width * area.height / height);
    fit.left += (area.width - fit.width) / 2;
    fit.top += (area.height - fit.height) / 2;
    return fit;
}

static Rectangle Intersection(const Rectangle& a, const Rectangle& b) {
    const int left = std::max(a.left, b.left), top = std::max(a.top, b.top);
    const int right = std::min(a.left + a.width, b.left + b.width);
    const int bottom = std::min(a.top + a.height, b.top + b.height);
    return {left, top, std::max(right - left, 0), std::max(bottom - top, 0)};
}

static bool IsWorthPainting(const VideoWindow& window) {
    return window.alpha > 0 && window.area.width > 0 && window.area.height > 0 &&
           (window.area.width > 1 || window.area.height > 1);
}

static bool IsCovered(const Rectangle& visible, std::span<const VideoWindow> above) {
    return std::ranges::any_of(above, [&](const VideoWindow& window) {
        return window.alpha >= kOpaque && Intersection(visible, window.area) == visible;
    });
}

// Halving may leave a remainder without a sample of its own; the step counts it, or the picture would be stretched.
static Axis MakeAxis(int samples, int halvings, int size, bool mirrored) {
    return {.step = (int64_t{samples} << (32 - halvings)) / size,
            .level = samples >> halvings,
            .size = size,
            .mirrored = mirrored};
}

AxisSample SampleAt(const Axis& axis, int pixel) {
    if (axis.mirrored) pixel = axis.size - 1 - pixel;
    const int64_t position = axis.step * pixel + axis.step / 2 - (int64_t{1} << 31);
    const int64_t inside = std::clamp<int64_t>(position, 0, int64_t{axis.level - 1} << 32);
    const int left = static_cast<int>(inside >> 32);
    return {left, std::min(left + 1, axis.level - 1), static_cast<int>(inside >> 24 & 255)};
}

static void FillHalf(const Axis& axis, int firstPixel, size_t half, ColumnBlock& block) {
    std::array<AxisSample, 8> samples;
    int base = std::max(axis.level - 16, 0);
    for (int i = 0; i < 8; ++i) {
        samples[i] = SampleAt(axis, std::min(firstPixel + i, axis.size - 1));
        base = std::min(base, samples[i].left);
    }
    block.bases[half] = base;
    for (size_t i = 0; i < 8; ++i) {
        const auto& [left, right, weight] = samples[i];
        const size_t at = half * 16 + i * 2;
        block.pairs[at] = static_cast<uint8_t>(left - base);
        block.pairs[at + 1] = static_cast<uint8_t>((weight ? right : left) - base);
        block.weights[at] = static_cast<uint8_t>(weight ? 256 - weight : 255);
        block.weights[at + 1] = static_cast<uint8_t>(weight ? weight : 1);
    }
}

static ColumnBlock MakeColumnBlock(const Axis& axis, int firstPixel) {
    ColumnBlock block;
    for (int half = 0; half < 2; ++half) FillHalf(axis, firstPixel + 8 * half, static_cast<size_t>(half), block);
    return block;
}

static int Halvings(int samples, int size) {
    int halvings = 0;
    while (samples > int64_t{2 * size} << halvings && halvings < kHalvingsLimit) ++halvings;
    return halvings;
}

static void LeaveOutSamples(VideoPlane& plane, const Rectangle& area) {
    for (; plane.width > kAverageLimit * area.width; plane.width /= 2) plane.step *= 2;
    for (; plane.height > kAverageLimit * area.height; plane.height /= 2) plane.stride *= 2;
}

static PlaneScale MakeScale(const VideoPlane& plane, const Layer& layer, bool mirror, bool flip) {
    const int halvingsX = Halvings(plane.width, layer.area.width);
    const int halvingsY = Halvings(plane.height, layer.area.height);
    const int offset = layer.visible.left - layer.area.left, width = layer.visible.width;
    PlaneScale scale{.halvingsX = halvingsX,
                     .halvingsY = halvingsY,
                     .vertical = MakeAxis(plane.height, halvingsY, layer.area.height, flip),
                     .across = Across::kNever,
                     .columns = {},
                     .offset = offset,
                     .width = width};
    if (plane.width == layer.area.width && !mirror) return scale;
    const Axis axis = MakeAxis(plane.width, halvingsX, layer.area.width, mirror);
    scale.across = scale.vertical.level < scale.vertical.size ? Across::kFirst : Across::kLast;
    scale.offset = 0;
    scale.width = scale.across == Across::kFirst ? width : axis.level;
    scale.columns.reserve(static_cast<size_t>(width + kBlockPixels - 1) / kBlockPixels);
    for (int x = 0; x < width; x += kBlockPixels) scale.columns.push_back(MakeColumnBlock(axis, offset + x));
    return scale;
}

static bool MayStayHalf(const Layer& layer) {
    const PlaneScale& luma = layer.scales[0];
    const VideoPlane& chroma = layer.picture.planes[1];
    return layer.picture.colours != Colours::kRgb && chroma.samples && luma.across == Across::kNever &&
           luma.offset % 2 == 0 && chroma.width == (layer.area.width + 1) / 2;
}

// Turns by a quarter need whole columns: these pictures are copied, others are read in place.
static void TurnByQuarter(Layer& layer, libyuv::RotationMode mode) {
    auto& planes = layer.picture.planes;
    size_t total = 0;
    for (const VideoPlane& plane : planes) total += plane.samples ? static_cast<size_t>(plane.width) * plane.height : 0;
    layer.turned.resize(total);
    uint8_t* to = layer.turned.data();
    std::vector<uint8_t> tight;
    for (VideoPlane& plane : planes) {
        if (!plane.samples) continue;
        tight.resize(static_cast<size_t>(plane.width) * plane.height);
        uint8_t* sample = tight.data();
        for (int y = 0; y < plane.height; ++y)
            for (int x = 0; x < plane.width; ++x) *sample++ = plane.samples[y * plane.stride + x * plane.step];
        libyuv::RotatePlane(tight.data(), plane.width, to, plane.height, plane.width, plane.height, mode);
        plane = {.samples = to, .stride = plane.height, .step = 1, .width = plane.height, .height = plane.width};
        to += tight.size();
    }
}

static Layer MakeLayer(const VideoWindow& window, const Rectangle& visible) {
    Layer layer{.picture = window.picture,
                .area = window.area,
                .visible = visible,
                .alpha = window.alpha,
                .halfChroma = false,
                .scales = {},
                .turned = {}};
    if (window.turn == Turn::kQuarter) TurnByQuarter(layer, libyuv::kRotate90);
    if (window.turn == Turn::kThreeQuarters) TurnByQuarter(layer, libyuv::kRotate270);
    const bool mirror = window.turn == Turn::kMirror || window.turn == Turn::kHalf;
    const bool flip = window.turn == Turn::kFlip || window.turn == Turn::kHalf;

    for (VideoPlane& plane : layer.picture.planes) LeaveOutSamples(plane, layer.area);
    layer.scales[0] = MakeScale(layer.picture.planes[0], layer, mirror, flip);
    layer.halfChroma = MayStayHalf(layer);
    if (!layer.picture.planes[1].samples) return layer;
    PlaneScale& chroma = layer.scales[1] = MakeScale(layer.picture.planes[1], layer, mirror, flip);
    if (layer.halfChroma) {
        chroma.across = Across::kNever;
        chroma.offset = layer.scales[0].offset / 2;
        chroma.width = (layer.scales[0].width + 1) / 2;
    }
    return layer;
}

Scene ArrangeScene(std::span<const VideoWindow> windows, int canvasWidth, int canvasHeight) {
    Scene scene;
    for (size_t i = 0; i < windows.size(); ++i) {
        const Rectangle visible = Intersection(windows[i].area, {0, 0, canvasWidth, canvasHeight});
        if (!IsWorthPainting(windows[i]) || visible.width == 0 || visible.height == 0) continue;
        if (!IsCovered(visible, windows.subspan(i + 1))) scene.push_back(MakeLayer(windows[i], visible));
    }
    return scene;
}
