#include "gst/compose.h"

#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>
#include <algorithm>
#include <cstring>

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace {

constexpr size_t kRowBytes = kPictureLimit + 64;
constexpr size_t kHalvedRows = 1 << kHalvingsLimit;

// Working rows of one band. About 120 KiB, of which a picture of usual size touches the part that fits the cache.
struct Scratch {
    alignas(64) uint8_t scaled[3][2][kRowBytes];  // of each plane, the two rows that a canvas row lies between
    alignas(64) uint8_t made[3][kRowBytes];
    alignas(64) uint8_t fetched[kRowBytes];
    alignas(64) uint8_t gathered[kHalvedRows][kRowBytes];
    alignas(64) uint8_t blended[kCanvasWidthLimit * 4];
};

struct ScaledRow {
    int row = -1;
    const uint8_t* samples = nullptr;
};

// Rows scaled already; a row and its successor never share a place.
using RowCache = std::array<std::array<ScaledRow, 2>, 3>;

constexpr auto kNeutral = [] {
    std::array<uint8_t, kCanvasWidthLimit> row{};
    row.fill(128);
    return row;
}();

}  // namespace

// The vector code of the library takes no coefficient above 2: a full BT.709 blue comes out as 243.
static const libyuv::YuvConstants& Matrix(Colours colours) {
    switch (colours) {
        case Colours::kBt601Full:
            return libyuv::kYuvJPEGConstants;
        case Colours::kBt709:
            return libyuv::kYuvH709Constants;
        case Colours::kBt709Full:
            return libyuv::kYuvF709Constants;
        case Colours::kBt2020:
            return libyuv::kYuv2020Constants;
        case Colours::kBt2020Full:
            return libyuv::kYuvV2020Constants;
        default:
            return libyuv::kYuvI601Constants;
    }
}

// --- one row of a plane, from its picture to its width on the canvas ---

static void ScaleColumnsPlain(const uint8_t* row, std::span<const ColumnBlock> columns, uint8_t* to) {
    for (const ColumnBlock& block : columns)
        for (size_t i = 0; i < 2 * kBlockPixels; i += 2) {
            const uint8_t* const base = row + block.bases[i / kBlockPixels];
            const int left = base[block.pairs[i]] * block.weights[i];
            const int right = base[block.pairs[i + 1]] * block.weights[i + 1];
            *to++ = static_cast<uint8_t>((left + right + 128) >> 8);
        }
}

template <int kStep>
[[gnu::always_inline]] static inline void GatherEvery(const uint8_t* from, int count, uint8_t* to) {
    for (int i = 0; i < count; ++i) to[i] = from[i * kStep];
}

[[gnu::always_inline]] static inline void GatherWith(const uint8_t* from, int step, int count, uint8_t* to) {
    switch (step) {
        case 1:
            std::memcpy(to, from, static_cast<size_t>(count));
            return;
        case 2:
            GatherEvery<2>(from, count, to);
            return;
        case 4:
            GatherEvery<4>(from, count, to);
            return;
        default:
            for (int i = 0; i < count; ++i) to[i] = from[i * step];
    }
}

#ifdef __x86_64__
// The pairs of a block, weighted and added by one instruction, which takes samples as signed: they are moved by 128.
[[gnu::target("avx2")]] static inline __m256i ScaleBlockAvx2(const uint8_t* row, const ColumnBlock& block) {
    const auto load = [&](size_t half) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + block.bases[half]));
    };
    const __m256i samples = _mm256_inserti128_si256(_mm256_castsi128_si256(load(0)), load(1), 1);
    const __m256i pairs = _mm256_shuffle_epi8(samples, *reinterpret_cast<const __m256i*>(block.pairs.data()));
    const __m256i moved = _mm256_xor_si256(pairs, _mm256_set1_epi8(-128));
    const __m256i sums = _mm256_maddubs_epi16(*reinterpret_cast<const __m256i*>(block.weights.data()), moved);
    return _mm256_srai_epi16(_mm256_add_epi16(sums, _mm256_set1_epi16(128)), 8);
}

[[gnu::target("avx2")]] static void ScaleColumnsAvx2(const uint8_t* row, std::span<const ColumnBlock> columns,
                                                     uint8_t* to) {
    for (const ColumnBlock& block : columns) {
        const __m256i words = ScaleBlockAvx2(row, block);
        const __m256i moved = _mm256_permute4x64_epi64(_mm256_packs_epi16(words, words), 0b1000);
        const __m128i pixels = _mm_xor_si128(_mm256_castsi256_si128(moved), _mm_set1_epi8(-128));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), pixels);
        to += kBlockPixels;
    }
}

[[gnu::target("avx2")]] static void GatherAvx2(const uint8_t* from, int step, int count, uint8_t* to) {
    GatherWith(from, step, count, to);
}
static const bool kHasAvx2 = __builtin_cpu_supports("avx2");
#else
static constexpr bool kHasAvx2 = false;
static void ScaleColumnsAvx2(const uint8_t*, std::span<const ColumnBlock>, uint8_t*) {}
static void GatherAvx2(const uint8_t*, int, int, uint8_t*) {}
#endif

static void ScaleColumns(const uint8_t* row, std::span<const ColumnBlock> columns, uint8_t* to) {
    kHasAvx2 ? ScaleColumnsAvx2(row, columns, to) : ScaleColumnsPlain(row, columns, to);
}

static void Gather(const uint8_t* from, int step, int count, uint8_t* to) {
    kHasAvx2 ? GatherAvx2(from, step, count, to) : GatherWith(from, step, count, to);
}

// A row of the (halved) plane: in the picture itself where it can be read from there, else made in `into`. At least 16
// bytes may be read from it in any case.
static const uint8_t* FetchRow(const VideoPlane& plane, const PlaneScale& scale, int row, uint8_t* into,
                               Scratch& scratch) {
    const int rows = 1 << scale.halvingsY;
    const uint8_t* source = plane.samples + row * rows * plane.stride;
    if (scale.halvingsX == 0 && scale.halvingsY == 0) {
        if (plane.step == 1 && plane.width >= 16) return source;
        Gather(source, plane.step, plane.width, into);
        return into;
    }
    int stride = static_cast<int>(plane.stride);
    if (plane.step != 1) {
        for (int i = 0; i < rows; ++i) Gather(source + i * plane.stride, plane.step, plane.width, scratch.gathered[i]);
        source = scratch.gathered[0];
        stride = kRowBytes;
    }
    const int width = plane.width >> scale.halvingsX;
    // What the library has no short way for.
    if (scale.halvingsX == 0 && rows == 2)
        libyuv::InterpolatePlane(source, stride, source + stride, stride, into, width, width, 1, 128);
    else
        libyuv::ScalePlane(source, stride, width << scale.halvingsX, rows, into, width, width, 1, libyuv::kFilterBox);
    return into;
}

static const uint8_t* RowToMix(const Layer& layer, size_t plane, int row, RowCache& cache, Scratch& scratch) {
    ScaledRow& entry = cache[plane][row & 1];
    if (entry.row == row) return entry.samples;
    const PlaneScale& scale = layer.scales[plane != 0];
    uint8_t* const made = scratch.scaled[plane][row & 1];
    const VideoPlane& source = layer.picture.planes[plane];
    entry.row = row;
    if (scale.across == Across::kFirst) {
        ScaleColumns(FetchRow(source, scale, row, scratch.fetched, scratch), scale.columns, made);
        entry.samples = made;
    } else {
        entry.samples = FetchRow(source, scale, row, made, scratch) + scale.offset;
    }
    return entry.samples;
}

static const uint8_t* RowAt(const Layer& layer, size_t plane, int y, RowCache& cache, Scratch& scratch) {
    if (!layer.picture.planes[plane].samples) return kNeutral.data();
    const PlaneScale& scale = layer.scales[plane != 0];
    const AxisSample sample = SampleAt(scale.vertical, y);
    const uint8_t* row = RowToMix(layer, plane, sample.left, cache, scratch);
    uint8_t* const made = scratch.made[plane];
    if (sample.weight != 0) {
        const uint8_t* const lower = RowToMix(layer, plane, sample.right, cache, scratch);
        uint8_t* const mixed = scale.across == Across::kLast ? scratch.fetched : made;
        libyuv::InterpolatePlane(row, 0, lower, 0, mixed, 0, scale.width, 1, sample.weight);
        row = mixed;
    }
    if (scale.across != Across::kLast) return row;
    ScaleColumns(row, scale.columns, made);
    return made;
}

// --- canvas rows ---

static void MergeRow(const Layer& layer, const std::array<const uint8_t*, 3>& rows, int left, int width, uint8_t* to) {
    const int chromaLeft = layer.halfChroma ? left / 2 : left;
    const uint8_t *const a = rows[0] + left, *const b = rows[1] + chromaLeft, *const c = rows[2] + chromaLeft;
    if (layer.picture.colours == Colours::kRgb)
        libyuv::MergeARGBPlane(a, 0, b, 0, c, 0, nullptr, 0, to, 0, width, 1);
    else if (layer.halfChroma)
        libyuv::I422ToARGBMatrix(a, 0, b, 0, c, 0, to, 0, &Matrix(layer.picture.colours), width, 1);
    else
        libyuv::I444ToARGBMatrix(a, 0, b, 0, c, 0, to, 0, &Matrix(layer.picture.colours), width, 1);
}

static void BlendRow(const uint8_t* over, int alpha, size_t bytes, uint8_t* under) {
    for (size_t i = 0; i < bytes; ++i)
        under[i] = static_cast<uint8_t>((over[i] * alpha + under[i] * (kOpaque - alpha) + kOpaque / 2) / kOpaque);
}

// From x to the end of what is alike there: under opaque layers (true) or not.
static bool CoveredRun(std::span<const Layer> above, int x, int y, int& end) {
    for (const Layer& layer : above) {
        const Rectangle& visible = layer.visible;
        if (layer.alpha < kOpaque || y < visible.top || y >= visible.top + visible.height) continue;
        if (visible.left > x) {
            end = std::min(end, visible.left);
        } else if (x < visible.left + visible.width) {
            end = visible.left + visible.width;
            return true;
        }
    }
    return false;
}

// Calls paint(left, right) for each part of the row that no opaque layer covers.
static void ForUncovered(std::span<const Layer> above, int left, int right, int y, auto paint) {
    for (int x = left, end; x < right; x = end) {
        end = right;
        if (!CoveredRun(above, x, y, end)) paint(x, end);
    }
}

static void PaintLayer(const Layer& layer, std::span<const Layer> above, const Canvas& canvas, int top, int bottom,
                       Scratch& scratch) {
    RowCache cache;
    const Rectangle& visible = layer.visible;
    const int end = std::min(bottom, visible.top + visible.height);
    for (int y = std::max(top, visible.top); y < end; ++y) {
        std::array<const uint8_t*, 3> rows;
        for (size_t plane = 0; plane < rows.size(); ++plane)
            rows[plane] = RowAt(layer, plane, y - layer.area.top, cache, scratch);
        ForUncovered(above, visible.left, visible.left + visible.width, y, [&](int x, int right) {
            const int left = (x - visible.left) & ~1, width = right - visible.left - left;  // chroma comes in pairs
            uint8_t* const pixels = canvas.pixels + y * canvas.stride + (visible.left + left) * 4;
            if (layer.alpha >= kOpaque) {
                MergeRow(layer, rows, left, width, pixels);
            } else {
                MergeRow(layer, rows, left, width, scratch.blended);
                BlendRow(scratch.blended, layer.alpha, static_cast<size_t>(width) * 4, pixels);
            }
        });
    }
}

static void ClearUncovered(const Scene& scene, const Canvas& canvas, int y) {
    uint8_t* const row = canvas.pixels + y * canvas.stride;
    ForUncovered(scene, 0, canvas.width, y,
                 [&](int left, int right) { std::memset(row + left * 4, 0, static_cast<size_t>(right - left) * 4); });
}

void PaintBand(const Scene& scene, const Canvas& canvas, int top, int bottom) {
    Scratch scratch;
    for (int y = top; y < bottom; ++y) ClearUncovered(scene, canvas, y);
    const std::span<const Layer> layers(scene);
    for (size_t i = 0; i < layers.size(); ++i)
        PaintLayer(layers[i], layers.subspan(i + 1), canvas, top, bottom, scratch);
}
