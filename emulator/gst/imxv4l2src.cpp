#include "gst/imxv4l2src.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "gst/capture_queue.h"

GST_DEBUG_CATEGORY_STATIC(captureSourceDebug);
#define GST_CAT_DEFAULT captureSourceDebug

static GstStaticPadTemplate kSourceTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("video/x-raw, format = { YUY2, UYVY, YVYU, NV12, I420, Y42B, GRAY8, BGRx }, width = [ 1, 4096 ], "
                    "height = [ 1, 4096 ], framerate = [ 0/1, 2147483647/1 ]"));

static constexpr unsigned kUsualBuffers = 5;  // in the device, the one being composed and those queued in between
static constexpr unsigned kBufferLimit = 32;

struct _TesselCaptureSource {
    GstPushSrc parent;
    gchar* device;                         // both properties under the object lock
    gint framePlus;                        // buffers beyond the usual
    std::shared_ptr<CaptureQueue>* queue;  // open from start to stop
    FrameFormat format;
    GstPoll* poll;
    GstPollFD pollDescriptor;
};

G_DEFINE_FINAL_TYPE(TesselCaptureSource, tessel_capture_source, GST_TYPE_PUSH_SRC)

// --- the device's life ---

static gboolean Start(GstBaseSrc* base) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(base);
    GST_OBJECT_LOCK(source);
    gchar* const path = g_strdup(source->device);
    GST_OBJECT_UNLOCK(source);
    auto queue = std::make_shared<CaptureQueue>();
    const int error = OpenCapture(*queue, path ? path : "");
    if (error)
        GST_ELEMENT_ERROR(source, RESOURCE, OPEN_READ, ("Cannot open video device \"%s\".", path),
                          ("%s", g_strerror(-error)));
    else
        source->queue = new std::shared_ptr<CaptureQueue>(std::move(queue));
    g_free(path);
    return error == 0;
}

static void Unwatch(TesselCaptureSource* source) {
    if (source->pollDescriptor.fd >= 0) gst_poll_remove_fd(source->poll, &source->pollDescriptor);
    gst_poll_fd_init(&source->pollDescriptor);
}

static gboolean Stop(GstBaseSrc* base) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(base);
    Unwatch(source);
    if (source->queue) EndCapture(**source->queue);
    delete std::exchange(source->queue, nullptr);
    return TRUE;
}

static gboolean Unlock(GstBaseSrc* base) {
    gst_poll_set_flushing(TESSEL_CAPTURE_SOURCE(base)->poll, TRUE);
    return TRUE;
}

static gboolean UnlockStop(GstBaseSrc* base) {
    gst_poll_set_flushing(TESSEL_CAPTURE_SOURCE(base)->poll, FALSE);
    return TRUE;
}

// --- negotiation ---

static GstCaps* GetCaps(GstBaseSrc* base, GstCaps* filter) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(base);
    GstCaps* caps =
        source->queue ? CaptureCaps(**source->queue, false) : gst_pad_get_pad_template_caps(GST_BASE_SRC_PAD(base));
    if (filter) {
        GstCaps* const both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(caps);
        caps = both;
    }
    return caps;
}

// Where downstream leaves a choice, the device stays as it is.
static GstCaps* Fixate(GstBaseSrc* base, GstCaps* caps) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(base);
    int width = 1920, height = 1080, numerator = 60, denominator = 1;
    GstCaps* const present = source->queue ? CaptureCaps(**source->queue, true) : gst_caps_new_empty();
    if (!gst_caps_is_empty(present)) {
        const GstStructure* const now = gst_caps_get_structure(present, 0);
        gst_structure_get_int(now, "width", &width);
        gst_structure_get_int(now, "height", &height);
        gst_structure_get_fraction(now, "framerate", &numerator, &denominator);
    }
    gst_caps_unref(present);
    caps = gst_caps_truncate(gst_caps_make_writable(caps));
    GstStructure* const structure = gst_caps_get_structure(caps, 0);
    gst_structure_fixate_field_nearest_int(structure, "width", width);
    gst_structure_fixate_field_nearest_int(structure, "height", height);
    gst_structure_fixate_field_nearest_fraction(structure, "framerate", numerator, denominator);
    return GST_BASE_SRC_CLASS(tessel_capture_source_parent_class)->fixate(base, caps);
}

// A change of format needs an idle device, which is one that was just opened.
static int Reopen(TesselCaptureSource* source) {
    Stop(GST_BASE_SRC(source));
    return Start(GST_BASE_SRC(source)) ? 0 : -ENODEV;
}

static gboolean SetCaps(GstBaseSrc* base, GstCaps* caps) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(base);
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps)) return FALSE;
    const bool streams = (*source->queue)->streaming;
    if (streams && gst_video_info_is_equal(&info, &source->format.info)) return TRUE;
    if (streams && Reopen(source) != 0) return FALSE;
    source->format = {.info = info, .bytes = 0, .stride = 0};
    GST_OBJECT_LOCK(source);
    const unsigned count = std::min(kUsualBuffers + static_cast<unsigned>(source->framePlus), kBufferLimit);
    GST_OBJECT_UNLOCK(source);
    if (const int error = StartCapture(**source->queue, source->format, count)) {
        GST_ELEMENT_ERROR(source, RESOURCE, SETTINGS, ("The video device does not capture in this format."),
                          ("%s", g_strerror(-error)));
        return FALSE;
    }
    source->pollDescriptor.fd = (*source->queue)->descriptor;
    gst_poll_add_fd(source->poll, &source->pollDescriptor);
    gst_poll_fd_ctl_read(source->poll, &source->pollDescriptor, TRUE);
    return TRUE;
}

// --- frames ---

static GstFlowReturn Lost(TesselCaptureSource* source, int error) {
    GST_ELEMENT_ERROR(source, RESOURCE, READ, ("Could not read from resource."), ("%s", g_strerror(error)));
    return GST_FLOW_ERROR;
}

// Waits for a frame, however long none comes. Unlock() ends the wait.
static GstFlowReturn WaitForFrame(TesselCaptureSource* source) {
    while (gst_poll_wait(source->poll, GST_CLOCK_TIME_NONE) < 0) {
        if (errno == EBUSY) return GST_FLOW_FLUSHING;
        if (errno != EINTR && errno != EAGAIN) return Lost(source, errno);
    }
    const bool gone = gst_poll_fd_has_error(source->poll, &source->pollDescriptor) ||
                      gst_poll_fd_has_closed(source->poll, &source->pollDescriptor);
    return gone ? Lost(source, ENODEV) : GST_FLOW_OK;
}

// From CLOCK_MONOTONIC to the pipeline's time. With "do-timestamp" the base class stamps what comes without.
static void Stamp(TesselCaptureSource* source, GstBuffer* frame) {
    GstBaseSrc* const base = GST_BASE_SRC(source);
    const GstClockTime captured = GST_BUFFER_PTS(frame), now = gst_util_get_timestamp();
    const GstClockTime running = gst_element_get_current_running_time(GST_ELEMENT(source));
    const GstVideoInfo& info = source->format.info;
    if (info.fps_n > 0) GST_BUFFER_DURATION(frame) = gst_util_uint64_scale_int(GST_SECOND, info.fps_d, info.fps_n);
    const GstClockTime age = now > captured ? now - captured : 0;
    if (gst_base_src_get_do_timestamp(base) || !GST_CLOCK_TIME_IS_VALID(running))
        GST_BUFFER_PTS(frame) = GST_CLOCK_TIME_NONE;
    else
        GST_BUFFER_PTS(frame) = running > age ? running - age : 0;
}

static GstFlowReturn Create(GstPushSrc* push, GstBuffer** frame) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(push);
    int error;
    do {
        const GstFlowReturn flow = WaitForFrame(source);
        if (flow != GST_FLOW_OK) return flow;
        error = TakeFrame(*source->queue, source->format, *frame);
    } while (error == -EAGAIN);
    if (error) return Lost(source, -error);
    Stamp(source, *frame);
    return GST_FLOW_OK;
}

// The device takes a frame's time. It is no limit to what others need: frames that nobody takes in time are lost
// anyway.
static gboolean AnswerQuery(GstBaseSrc* base, GstQuery* query) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(base);
    if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY)
        return GST_BASE_SRC_CLASS(tessel_capture_source_parent_class)->query(base, query);
    const GstVideoInfo& info = source->format.info;
    if (info.fps_n == 0) return FALSE;
    const GstClockTime frame = gst_util_uint64_scale_int(GST_SECOND, info.fps_d, info.fps_n);
    gst_query_set_latency(query, TRUE, frame, GST_CLOCK_TIME_NONE);
    return TRUE;
}

// --- the element ---

enum Property { kDevice = 1, kFramePlus };

static void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(object);
    GST_OBJECT_LOCK(source);
    switch (id) {
        case kDevice:
            g_free(source->device);
            source->device = g_value_dup_string(value);
            break;
        case kFramePlus:
            source->framePlus = g_value_get_int(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(source);
}

static void GetProperty(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(object);
    GST_OBJECT_LOCK(source);
    switch (id) {
        case kDevice:
            g_value_set_string(value, source->device);
            break;
        case kFramePlus:
            g_value_set_int(value, source->framePlus);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(source);
}

static void Finalize(GObject* object) {
    TesselCaptureSource* const source = TESSEL_CAPTURE_SOURCE(object);
    gst_poll_free(source->poll);
    g_free(source->device);
    G_OBJECT_CLASS(tessel_capture_source_parent_class)->finalize(object);
}

static void tessel_capture_source_init(TesselCaptureSource* source) {
    source->device = g_strdup("/dev/video0");
    source->poll = gst_poll_new(TRUE);
    gst_poll_fd_init(&source->pollDescriptor);
    gst_base_src_set_live(GST_BASE_SRC(source), TRUE);
    gst_base_src_set_format(GST_BASE_SRC(source), GST_FORMAT_TIME);
}

static void tessel_capture_source_class_init(TesselCaptureSourceClass* type) {
    GST_DEBUG_CATEGORY_INIT(captureSourceDebug, "imxv4l2src", 0, "HDMI input of the emulated board");
    GObjectClass* const object = G_OBJECT_CLASS(type);
    object->set_property = SetProperty;
    object->get_property = GetProperty;
    object->finalize = Finalize;
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
    g_object_class_install_property(object, kDevice,
                                    g_param_spec_string("device", "Device", "Capture device", "/dev/video0", flags));
    g_object_class_install_property(
        object, kFramePlus, g_param_spec_int("frame-plus", "Frame plus", "Additional device buffers", 0, 16, 0, flags));

    GstElementClass* const element = GST_ELEMENT_CLASS(type);
    gst_element_class_add_static_pad_template(element, &kSourceTemplate);
    gst_element_class_set_static_metadata(element, "Board video source", "Source/Video",
                                          "HDMI input of the emulated board", "Tesselvisor");
    GstBaseSrcClass* const base = GST_BASE_SRC_CLASS(type);
    base->start = Start;
    base->stop = Stop;
    base->unlock = Unlock;
    base->unlock_stop = UnlockStop;
    base->get_caps = GetCaps;
    base->fixate = Fixate;
    base->set_caps = SetCaps;
    base->query = AnswerQuery;
    GST_PUSH_SRC_CLASS(type)->create = Create;
}
