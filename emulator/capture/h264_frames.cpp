#include "capture/h264_frames.h"

#include <algorithm>
// x264.h wants <cstdint> before it.
#include <x264.h>

struct H264Encoder {
    x264_t* x264 = nullptr;
    Planes422 planes{};
    std::vector<uint8_t> y, cb, cr;
    int64_t frames = 0;
};

void CloseH264::operator()(H264Encoder* encoder) const {
    if (encoder->x264 != nullptr) x264_encoder_close(encoder->x264);
    delete encoder;
}

static void DrawStill(H264Encoder& encoder, PictureSource source, size_t width, size_t height) {
    encoder.y.resize(width * height);
    encoder.cb.resize(width / 2 * height);
    encoder.cr.resize(width / 2 * height);
    encoder.planes = {.y = encoder.y,
                      .cb = encoder.cb,
                      .cr = encoder.cr,
                      .width = width,
                      .height = height,
                      .lumaRow = width,
                      .chromaRow = width / 2};
    DrawPicture(source, encoder.planes);
}

std::unique_ptr<H264Encoder, CloseH264> OpenH264(PictureSource source, size_t width, size_t height, unsigned rate) {
    if (width < 16 || height < 16 || width > 4096 || height > 4096 || width % 2 != 0 || height % 2 != 0) return nullptr;
    x264_param_t parameters;
    if (x264_param_default_preset(&parameters, "ultrafast", "zerolatency") != 0) return nullptr;
    parameters.i_log_level = X264_LOG_NONE;
    parameters.i_csp = X264_CSP_I420;
    parameters.i_width = static_cast<int>(width);
    parameters.i_height = static_cast<int>(height);
    parameters.i_fps_num = std::max(rate, 1u);
    parameters.i_fps_den = 1;
    parameters.i_keyint_max = static_cast<int>(std::clamp(rate, 1u, 240u));
    parameters.i_threads = 1;
    parameters.b_repeat_headers = 1;
    parameters.b_annexb = 1;
    if (x264_param_apply_profile(&parameters, "baseline") != 0) return nullptr;
    std::unique_ptr<H264Encoder, CloseH264> encoder(new H264Encoder);
    encoder->x264 = x264_encoder_open(&parameters);
    if (encoder->x264 == nullptr) return nullptr;
    DrawStill(*encoder, source, width, height);
    return encoder;
}

std::vector<uint8_t> EncodeH264(H264Encoder& encoder, const PictureMark& mark) {
    DrawMark(mark, encoder.planes);
    x264_picture_t picture, encoded;
    x264_picture_init(&picture);
    picture.i_pts = encoder.frames++;
    // 4:2:0 takes every second line of our chroma: twice the row.
    const int lumaRow = static_cast<int>(encoder.planes.lumaRow),
              chromaRow = static_cast<int>(encoder.planes.chromaRow);
    picture.img = {.i_csp = X264_CSP_I420,
                   .i_plane = 3,
                   .i_stride = {lumaRow, 2 * chromaRow, 2 * chromaRow},
                   .plane = {encoder.y.data(), encoder.cb.data(), encoder.cr.data()}};
    x264_nal_t* units = nullptr;
    int count = 0;
    const int size = x264_encoder_encode(encoder.x264, &units, &count, &picture, &encoded);
    if (size <= 0) return {};
    return {units[0].p_payload, units[0].p_payload + size};
}
