#include <libyuv/planar_functions.h>

#include <algorithm>
#include <vector>

#include "gst/codec.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {

struct H264 {
    AVCodecContext* decoder;
    AVPacket* packet;
    AVFrame* picture;
    std::vector<uint8_t> padded;  // the library reads a little beyond the end
};

struct PixelFormat {
    int ffmpeg;
    GstVideoFormat format;
};

constexpr PixelFormat kFormats[] = {
    {AV_PIX_FMT_YUV420P, GST_VIDEO_FORMAT_I420}, {AV_PIX_FMT_YUVJ420P, GST_VIDEO_FORMAT_I420},
    {AV_PIX_FMT_YUV422P, GST_VIDEO_FORMAT_Y42B}, {AV_PIX_FMT_YUVJ422P, GST_VIDEO_FORMAT_Y42B},
    {AV_PIX_FMT_YUV444P, GST_VIDEO_FORMAT_Y444}, {AV_PIX_FMT_YUVJ444P, GST_VIDEO_FORMAT_Y444},
    {AV_PIX_FMT_GRAY8, GST_VIDEO_FORMAT_GRAY8},
};

}  // namespace

static void Close(void* state) {
    H264* const h264 = static_cast<H264*>(state);
    avcodec_free_context(&h264->decoder);
    av_packet_free(&h264->packet);
    av_frame_free(&h264->picture);
    delete h264;
}

// One picture out for each frame in, without waiting for later ones.
static void* Open() {
    const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    if (!codec) return nullptr;
    av_log_set_level(AV_LOG_QUIET);  // broken frames are expected
    H264* const h264 = new H264{avcodec_alloc_context3(codec), av_packet_alloc(), av_frame_alloc(), {}};
    h264->decoder->flags |= AV_CODEC_FLAG_LOW_DELAY;
    h264->decoder->thread_type = FF_THREAD_SLICE;
    if (avcodec_open2(h264->decoder, codec, nullptr) == 0) return h264;
    Close(h264);
    return nullptr;
}

static void Feed(void* state, std::span<const uint8_t> coded, uint32_t number) {
    H264& h264 = *static_cast<H264*>(state);
    h264.padded.assign(coded.size() + AV_INPUT_BUFFER_PADDING_SIZE, 0);
    std::ranges::copy(coded, h264.padded.begin());
    h264.packet->data = h264.padded.data();
    h264.packet->size = static_cast<int>(coded.size());
    h264.packet->pts = number;
    avcodec_send_packet(h264.decoder, h264.packet);
}

static GstVideoColorimetry ColoursOf(const AVFrame& picture) {
    const bool full = picture.color_range == AVCOL_RANGE_JPEG;
    const bool named = picture.colorspace != AVCOL_SPC_UNSPECIFIED;
    if (!full && !named) return {};
    const GstVideoColorMatrix named709 =
        picture.colorspace == AVCOL_SPC_BT709 ? GST_VIDEO_COLOR_MATRIX_BT709 : GST_VIDEO_COLOR_MATRIX_BT601;
    return {full ? GST_VIDEO_COLOR_RANGE_0_255 : GST_VIDEO_COLOR_RANGE_16_235, named709, GST_VIDEO_TRANSFER_UNKNOWN,
            GST_VIDEO_COLOR_PRIMARIES_UNKNOWN};
}

static bool Next(void* state, DecodedShape& shape) {
    H264& h264 = *static_cast<H264*>(state);
    const AVFrame& picture = *h264.picture;
    while (avcodec_receive_frame(h264.decoder, h264.picture) == 0) {
        const auto row = std::ranges::find(kFormats, picture.format, &PixelFormat::ffmpeg);
        if (row == std::end(kFormats) || picture.decode_error_flags != 0) continue;
        shape = {.format = row->format,
                 .width = picture.width,
                 .height = picture.height,
                 .colorimetry = ColoursOf(picture),
                 .number = static_cast<uint32_t>(picture.pts)};
        return true;
    }
    return false;
}

static bool Write(void* state, GstVideoFrame& frame) {
    const AVFrame& picture = *static_cast<H264*>(state)->picture;
    for (guint i = 0; i < GST_VIDEO_FRAME_N_COMPONENTS(&frame); ++i)
        libyuv::CopyPlane(picture.data[i], picture.linesize[i],
                          static_cast<uint8_t*>(GST_VIDEO_FRAME_COMP_DATA(&frame, i)),
                          GST_VIDEO_FRAME_COMP_STRIDE(&frame, i), GST_VIDEO_FRAME_COMP_WIDTH(&frame, i),
                          GST_VIDEO_FRAME_COMP_HEIGHT(&frame, i));
    return true;
}

const Codec kH264Codec = {
    .mediaType = "video/x-h264", .delay = 16, .open = Open, .close = Close, .feed = Feed, .next = Next, .write = Write};
