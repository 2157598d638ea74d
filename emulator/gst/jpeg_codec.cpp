#include <turbojpeg.h>

#include <array>
#include <utility>

#include "gst/codec.h"

namespace {

struct Jpeg {
    tjhandle decoder;
    std::span<const uint8_t> fed, current;  // not yet looked at; the picture to write
    uint32_t number;
};

struct Sampling {
    int jpeg;
    GstVideoFormat format;
};

// Planes as the file has them: colour is converted and doubled where the picture is shown.
constexpr Sampling kSamplings[] = {{TJSAMP_420, GST_VIDEO_FORMAT_I420},
                                   {TJSAMP_422, GST_VIDEO_FORMAT_Y42B},
                                   {TJSAMP_444, GST_VIDEO_FORMAT_Y444},
                                   {TJSAMP_411, GST_VIDEO_FORMAT_Y41B},
                                   {TJSAMP_GRAY, GST_VIDEO_FORMAT_GRAY8}};

constexpr GstVideoColorimetry kJpegColours = {GST_VIDEO_COLOR_RANGE_0_255, GST_VIDEO_COLOR_MATRIX_BT601,
                                              GST_VIDEO_TRANSFER_UNKNOWN, GST_VIDEO_COLOR_PRIMARIES_UNKNOWN};

}  // namespace

static void* Open() {
    tjhandle decoder = tjInitDecompress();
    return decoder ? new Jpeg{decoder, {}, {}, 0} : nullptr;
}

static void Close(void* state) {
    Jpeg* const jpeg = static_cast<Jpeg*>(state);
    tjDestroy(jpeg->decoder);
    delete jpeg;
}

static void Feed(void* state, std::span<const uint8_t> coded, uint32_t number) {
    Jpeg& jpeg = *static_cast<Jpeg*>(state);
    jpeg.fed = coded;
    jpeg.number = number;
}

static GstVideoFormat FormatOf(int sampling) {
    for (const Sampling& row : kSamplings)
        if (row.jpeg == sampling) return row.format;
    return GST_VIDEO_FORMAT_UNKNOWN;
}

static bool Next(void* state, DecodedShape& shape) {
    Jpeg& jpeg = *static_cast<Jpeg*>(state);
    jpeg.current = std::exchange(jpeg.fed, {});
    if (jpeg.current.empty()) return false;
    int sampling, colours;
    if (tjDecompressHeader3(jpeg.decoder, jpeg.current.data(), jpeg.current.size(), &shape.width, &shape.height,
                            &sampling, &colours) != 0)
        return false;
    shape.format = FormatOf(sampling);
    if (shape.format == GST_VIDEO_FORMAT_UNKNOWN || (colours != TJCS_YCbCr && colours != TJCS_GRAY)) return false;
    shape.colorimetry = kJpegColours;
    shape.number = jpeg.number;
    return true;
}

// The library also counts what it could only guess (a frame cut short) as failed.
static bool Write(void* state, GstVideoFrame& frame) {
    Jpeg& jpeg = *static_cast<Jpeg*>(state);
    std::array<unsigned char*, 3> planes{};
    std::array<int, 3> strides{};
    for (guint i = 0; i < GST_VIDEO_FRAME_N_COMPONENTS(&frame); ++i) {
        planes[i] = static_cast<unsigned char*>(GST_VIDEO_FRAME_COMP_DATA(&frame, i));
        strides[i] = GST_VIDEO_FRAME_COMP_STRIDE(&frame, i);
    }
    return tjDecompressToYUVPlanes(jpeg.decoder, jpeg.current.data(), jpeg.current.size(), planes.data(),
                                   GST_VIDEO_FRAME_WIDTH(&frame), strides.data(), GST_VIDEO_FRAME_HEIGHT(&frame),
                                   0) == 0;
}

const Codec kJpegCodec = {
    .mediaType = "image/jpeg", .delay = 0, .open = Open, .close = Close, .feed = Feed, .next = Next, .write = Write};
