#include "gst/vpudec.h"

#include <utility>

#include "gst/codec.h"

static GstStaticPadTemplate kSinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                            GST_STATIC_CAPS("image/jpeg; video/x-h264, stream-format = byte-stream, alignment = au"));
static GstStaticPadTemplate kSourceTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE("{ I420, Y42B, Y444, Y41B, GRAY8 }")));

static constexpr const Codec* kCodecs[] = {&kJpegCodec, &kH264Codec};

struct _TesselDecoder {
    GstVideoDecoder parent;
    gint framePlus;  // both properties: atomic
    gboolean frameDrop;
    const Codec* codec;  // from set_format to stop; what follows: streaming thread
    void* state;
    GstVideoCodecState* input;
};

G_DEFINE_FINAL_TYPE(TesselDecoder, tessel_decoder, GST_TYPE_VIDEO_DECODER)

static void CloseCodec(TesselDecoder* decoder) {
    if (decoder->state) decoder->codec->close(decoder->state);
    decoder->state = nullptr;
    decoder->codec = nullptr;
    if (decoder->input) gst_video_codec_state_unref(std::exchange(decoder->input, nullptr));
}

static gboolean Stop(GstVideoDecoder* base) {
    CloseCodec(TESSEL_DECODER(base));
    return TRUE;
}

static gboolean SetFormat(GstVideoDecoder* base, GstVideoCodecState* input) {
    TesselDecoder* const decoder = TESSEL_DECODER(base);
    CloseCodec(decoder);
    for (const Codec* codec : kCodecs)
        if (gst_structure_has_name(gst_caps_get_structure(input->caps, 0), codec->mediaType)) decoder->codec = codec;
    decoder->state = decoder->codec ? decoder->codec->open() : nullptr;
    decoder->input = gst_video_codec_state_ref(input);
    return decoder->state != nullptr;
}

// --- pictures ---

static bool HasShape(const GstVideoInfo& info, const DecodedShape& shape) {
    return GST_VIDEO_INFO_FORMAT(&info) == shape.format && info.width == shape.width && info.height == shape.height;
}

// The stream itself says what it holds; caps are only believed for what it does not say.
static bool PrepareOutput(TesselDecoder* decoder, const DecodedShape& shape) {
    GstVideoDecoder* const base = GST_VIDEO_DECODER(decoder);
    if (GstVideoCodecState* const now = gst_video_decoder_get_output_state(base)) {
        const bool same = HasShape(now->info, shape);
        gst_video_codec_state_unref(now);
        if (same) return true;
    }
    GstVideoCodecState* const output = gst_video_decoder_set_output_state(
        base, shape.format, static_cast<guint>(shape.width), static_cast<guint>(shape.height), decoder->input);
    if (!output) return false;
    if (shape.colorimetry.range != GST_VIDEO_COLOR_RANGE_UNKNOWN) output->info.colorimetry = shape.colorimetry;
    gst_video_codec_state_unref(output);
    return gst_video_decoder_negotiate(base);
}

static bool WritePicture(TesselDecoder* decoder, GstVideoCodecFrame* frame) {
    GstVideoCodecState* const output = gst_video_decoder_get_output_state(GST_VIDEO_DECODER(decoder));
    GstVideoFrame picture;
    bool good = gst_video_frame_map(&picture, &output->info, frame->output_buffer, GST_MAP_WRITE);
    if (good) {
        good = decoder->codec->write(decoder->state, picture);
        gst_video_frame_unmap(&picture);
    }
    gst_video_codec_state_unref(output);
    return good;
}

// Takes the frame over.
static GstFlowReturn Emit(TesselDecoder* decoder, GstVideoCodecFrame* frame, const DecodedShape& shape) {
    GstVideoDecoder* const base = GST_VIDEO_DECODER(decoder);
    if (!PrepareOutput(decoder, shape)) {
        gst_video_decoder_drop_frame(base, frame);
        return GST_PAD_IS_FLUSHING(GST_VIDEO_DECODER_SRC_PAD(base)) ? GST_FLOW_FLUSHING : GST_FLOW_NOT_NEGOTIATED;
    }
    const GstFlowReturn flow = gst_video_decoder_allocate_output_frame(base, frame);
    if (flow != GST_FLOW_OK) {
        gst_video_decoder_drop_frame(base, frame);
        return flow;
    }
    return WritePicture(decoder, frame) ? gst_video_decoder_finish_frame(base, frame)
                                        : gst_video_decoder_drop_frame(base, frame);
}

static GstFlowReturn EmitAll(TesselDecoder* decoder) {
    DecodedShape shape;
    GstFlowReturn flow = GST_FLOW_OK;
    while (flow == GST_FLOW_OK && decoder->codec->next(decoder->state, shape)) {
        GstVideoCodecFrame* const frame =
            gst_video_decoder_get_frame(GST_VIDEO_DECODER(decoder), static_cast<int>(shape.number));
        if (frame) flow = Emit(decoder, frame, shape);
    }
    return flow;
}

// Frames that gave no picture, once none can come any more.
static void DropBarren(TesselDecoder* decoder) {
    GstVideoDecoder* const base = GST_VIDEO_DECODER(decoder);
    GList* const pending = gst_video_decoder_get_frames(base);
    const guint count = g_list_length(pending);
    GList* item = pending;
    for (guint i = 0; i + decoder->codec->delay < count; ++i, item = item->next)
        gst_video_decoder_drop_frame(base, gst_video_codec_frame_ref(static_cast<GstVideoCodecFrame*>(item->data)));
    g_list_free_full(pending, reinterpret_cast<GDestroyNotify>(gst_video_codec_frame_unref));
}

static GstFlowReturn HandleFrame(GstVideoDecoder* base, GstVideoCodecFrame* frame) {
    TesselDecoder* const decoder = TESSEL_DECODER(base);
    const bool late = gst_video_decoder_get_max_decode_time(base, frame) < 0;
    const bool skip = late && g_atomic_int_get(&decoder->frameDrop) && decoder->codec->delay == 0;
    GstMapInfo coded;
    GstFlowReturn flow = GST_FLOW_OK;
    if (!skip && gst_buffer_map(frame->input_buffer, &coded, GST_MAP_READ)) {
        decoder->codec->feed(decoder->state, {coded.data, coded.size}, frame->system_frame_number);
        flow = EmitAll(decoder);
        gst_buffer_unmap(frame->input_buffer, &coded);
    }
    gst_video_codec_frame_unref(frame);
    DropBarren(decoder);
    return flow;
}

// A restart or a jump: what the codec holds belongs to frames that the base class has let go.
static gboolean Flush(GstVideoDecoder* base) {
    TesselDecoder* const decoder = TESSEL_DECODER(base);
    if (!decoder->state || decoder->codec->delay == 0) return TRUE;
    decoder->codec->close(decoder->state);
    decoder->state = decoder->codec->open();
    return decoder->state != nullptr;
}

static gboolean DecideAllocation(GstVideoDecoder* base, GstQuery* query) {
    if (!GST_VIDEO_DECODER_CLASS(tessel_decoder_parent_class)->decide_allocation(base, query)) return FALSE;
    GstBufferPool* pool = nullptr;
    guint size, minimum, maximum;
    gst_query_parse_nth_allocation_pool(query, 0, &pool, &size, &minimum, &maximum);
    if (!pool) return TRUE;
    minimum += static_cast<guint>(g_atomic_int_get(&TESSEL_DECODER(base)->framePlus));
    if (maximum != 0 && minimum > maximum) minimum = maximum;
    GstStructure* const config = gst_buffer_pool_get_config(pool);
    GstCaps* caps;
    gst_buffer_pool_config_get_params(config, &caps, nullptr, nullptr, nullptr);
    gst_buffer_pool_config_set_params(config, caps, size, minimum, maximum);
    if (gst_buffer_pool_set_config(pool, config))
        gst_query_set_nth_allocation_pool(query, 0, pool, size, minimum, maximum);
    gst_object_unref(pool);
    return TRUE;
}

// --- the element ---

enum Property { kFramePlus = 1, kFrameDrop };

static void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    TesselDecoder* const decoder = TESSEL_DECODER(object);
    switch (id) {
        case kFramePlus:
            g_atomic_int_set(&decoder->framePlus, g_value_get_int(value));
            break;
        case kFrameDrop:
            g_atomic_int_set(&decoder->frameDrop, g_value_get_boolean(value));
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

static void GetProperty(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    TesselDecoder* const decoder = TESSEL_DECODER(object);
    switch (id) {
        case kFramePlus:
            g_value_set_int(value, g_atomic_int_get(&decoder->framePlus));
            break;
        case kFrameDrop:
            g_value_set_boolean(value, g_atomic_int_get(&decoder->frameDrop));
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

static void tessel_decoder_init(TesselDecoder* decoder) {
    decoder->framePlus = 3;
    decoder->frameDrop = TRUE;
    gst_video_decoder_set_packetized(GST_VIDEO_DECODER(decoder), TRUE);
    gst_video_decoder_set_use_default_pad_acceptcaps(GST_VIDEO_DECODER(decoder), TRUE);
    GST_PAD_SET_ACCEPT_TEMPLATE(GST_VIDEO_DECODER_SINK_PAD(decoder));
}

static void tessel_decoder_class_init(TesselDecoderClass* type) {
    GObjectClass* const object = G_OBJECT_CLASS(type);
    object->set_property = SetProperty;
    object->get_property = GetProperty;
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
    g_object_class_install_property(
        object, kFramePlus, g_param_spec_int("frame-plus", "Frame plus", "Additional output frames", 0, 16, 3, flags));
    g_object_class_install_property(
        object, kFrameDrop, g_param_spec_boolean("frame-drop", "Frame drop", "Skip frames that are late", TRUE, flags));

    GstElementClass* const element = GST_ELEMENT_CLASS(type);
    gst_element_class_add_static_pad_template(element, &kSinkTemplate);
    gst_element_class_add_static_pad_template(element, &kSourceTemplate);
    gst_element_class_set_static_metadata(element, "Board video decoder", "Codec/Decoder/Video",
                                          "JPEG and H.264 on the emulated board", "Tesselvisor");
    GstVideoDecoderClass* const base = GST_VIDEO_DECODER_CLASS(type);
    base->set_format = SetFormat;
    base->stop = Stop;
    base->flush = Flush;
    base->handle_frame = HandleFrame;
    base->decide_allocation = DecideAllocation;
}
