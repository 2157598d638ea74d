#include "gst/imxv4l2sink.h"

#include <fcntl.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "devices/display.h"
#include "gst/display_pool.h"
#include "gst/display_slots.h"

static GstStaticPadTemplate kSinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS,
    GST_STATIC_CAPS(
        "video/x-raw, format = BGRx, width = [ 1, 3840 ], height = [ 1, 2160 ], framerate = [ 0/1, 60/1 ]"));

struct DisplayMode {
    uint32_t width, height;
    int64_t period;  // nanoseconds from refresh to refresh
};

struct _TesselDisplaySink {
    GstVideoSink parent;
    gchar* device;
    gboolean forceAspectRatio;
    DisplayMode mode;     // width 0: not known. Under the object lock.
    GstBuffer* shown;     // the slot on the display stays its buffer's until the next one is
    int64_t nextRefresh;  // when `shown` got there, nanoseconds of CLOCK_MONOTONIC
    GMutex lock;          // over what follows
    GCond wake;
    gboolean unlocked;
};

G_DEFINE_FINAL_TYPE(TesselDisplaySink, tessel_display_sink, GST_TYPE_VIDEO_SINK)

// --- the mode ---

static int64_t Period(const fb_var_screeninfo& timing) {
    const uint64_t line = uint64_t{timing.xres} + timing.left_margin + timing.right_margin + timing.hsync_len;
    const uint64_t lines = uint64_t{timing.yres} + timing.upper_margin + timing.lower_margin + timing.vsync_len;
    const uint64_t period = timing.pixclock * line * lines / 1000;  // the pixel clock is in picoseconds
    constexpr uint64_t kShortest = GST_SECOND / 60, kLongest = GST_SECOND / 10;
    return static_cast<int64_t>(period == 0 ? kShortest : std::clamp(period, kShortest, kLongest));
}

static int ReadMode(const char* device, DisplayMode& mode) {
    const int descriptor = open(device, O_RDWR | O_CLOEXEC);
    if (descriptor < 0) return errno;
    fb_var_screeninfo timing{};
    const int error = ioctl(descriptor, FBIOGET_VSCREENINFO, &timing) == 0 ? 0 : errno;
    close(descriptor);
    if (error) return error;
    if (timing.xres == 0 || timing.yres == 0 || timing.xres > kDisplayWidthLimit || timing.yres > kDisplayHeightLimit)
        return ERANGE;
    mode = {.width = timing.xres, .height = timing.yres, .period = Period(timing)};
    return 0;
}

static gboolean OpenOutput(TesselDisplaySink* sink) {
    GST_OBJECT_LOCK(sink);
    gchar* const device = g_strdup(sink->device);
    GST_OBJECT_UNLOCK(sink);
    DisplayMode mode{};
    const int modeError = ReadMode(device, mode), memoryError = modeError ? 0 : OpenDisplay();
    if (modeError)
        GST_ELEMENT_ERROR(sink, RESOURCE, OPEN_READ_WRITE, ("Cannot read the display mode of \"%s\".", device),
                          ("%s", g_strerror(modeError)));
    else if (memoryError)
        GST_ELEMENT_ERROR(sink, RESOURCE, OPEN_READ_WRITE, ("Cannot map the display memory \"%s\".", kDisplayPath),
                          ("%s", g_strerror(memoryError)));
    g_free(device);
    GST_OBJECT_LOCK(sink);
    sink->mode = mode;
    GST_OBJECT_UNLOCK(sink);
    return !modeError && !memoryError;
}

static DisplayMode ModeOf(TesselDisplaySink* sink) {
    GST_OBJECT_LOCK(sink);
    const DisplayMode mode = sink->mode;
    GST_OBJECT_UNLOCK(sink);
    return mode;
}

static GstStateChangeReturn ChangeState(GstElement* element, GstStateChange change) {
    TesselDisplaySink* const sink = TESSEL_DISPLAY_SINK(element);
    if (change == GST_STATE_CHANGE_NULL_TO_READY && !OpenOutput(sink)) return GST_STATE_CHANGE_FAILURE;
    const auto result = GST_ELEMENT_CLASS(tessel_display_sink_parent_class)->change_state(element, change);
    if (change == GST_STATE_CHANGE_READY_TO_NULL) {
        GST_OBJECT_LOCK(sink);
        sink->mode = {};
        GST_OBJECT_UNLOCK(sink);
    }
    return result;
}

static GstCaps* GetCaps(GstBaseSink* base, GstCaps* filter) {
    const DisplayMode mode = ModeOf(TESSEL_DISPLAY_SINK(base));
    GstCaps* caps = gst_caps_make_writable(gst_pad_get_pad_template_caps(GST_BASE_SINK_PAD(base)));
    if (mode.width != 0) {
        const int refresh = static_cast<int>((GST_SECOND + static_cast<GstClockTime>(mode.period) / 2) /
                                             static_cast<GstClockTime>(mode.period));
        gst_caps_set_simple(caps, "width", G_TYPE_INT, static_cast<int>(mode.width), "height", G_TYPE_INT,
                            static_cast<int>(mode.height), "framerate", GST_TYPE_FRACTION_RANGE, 0, 1, refresh, 1,
                            nullptr);
    }
    if (!filter) return caps;
    GstCaps* const both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(caps);
    return both;
}

static gboolean ProposeAllocation(GstBaseSink*, GstQuery* query) {
    GstCaps* caps;
    gboolean needsPool;
    GstVideoInfo info;
    gst_query_parse_allocation(query, &caps, &needsPool);
    if (!caps || !gst_video_info_from_caps(&info, caps)) return FALSE;
    if (!needsPool) return TRUE;
    GstBufferPool* const pool = NewDisplayPool(caps, static_cast<guint>(info.size));
    gst_query_add_allocation_pool(query, pool, static_cast<guint>(info.size), 2, 0);
    gst_object_unref(pool);
    return TRUE;
}

// --- showing ---

static int64_t Now() { return g_get_monotonic_time() * 1000; }

// Until the frame before is on the display. FALSE: interrupted.
static bool WaitForRefresh(TesselDisplaySink* sink) {
    const int64_t until = sink->nextRefresh / 1000;
    g_mutex_lock(&sink->lock);
    while (!sink->unlocked && g_cond_wait_until(&sink->wake, &sink->lock, until)) {
    }
    const bool undisturbed = !sink->unlocked;
    g_mutex_unlock(&sink->lock);
    return undisturbed;
}

static gboolean SetUnlocked(GstBaseSink* base, gboolean unlocked) {
    TesselDisplaySink* const sink = TESSEL_DISPLAY_SINK(base);
    g_mutex_lock(&sink->lock);
    sink->unlocked = unlocked;
    g_cond_signal(&sink->wake);
    g_mutex_unlock(&sink->lock);
    return TRUE;
}

static gboolean Unlock(GstBaseSink* base) { return SetUnlocked(base, TRUE); }

static gboolean UnlockStop(GstBaseSink* base) { return SetUnlocked(base, FALSE); }

// A frame that was not drawn in place is copied to a slot first. When somebody holds all slots, it is left out.
static std::optional<uint32_t> PlaceFrame(const uint8_t* pixels, size_t bytes) {
    const std::optional<uint32_t> slot = ClaimSlot();
    if (!slot) return slot;
    BeginSlot(*slot);
    std::memcpy(SlotPixels(*slot), pixels, bytes);
    return slot;
}

static void Publish(TesselDisplaySink* sink, GstBuffer* frame, const uint8_t* pixels, const DisplayMode& mode) {
    const int64_t shownAt = sink->nextRefresh / 1000;
    if (const std::optional<uint32_t> own = SlotOf(pixels)) {
        PublishSlot(*own, mode.width, mode.height, shownAt);
        gst_buffer_replace(&sink->shown, frame);
    } else if (const std::optional<uint32_t> slot = PlaceFrame(pixels, size_t{mode.width} * mode.height * 4)) {
        PublishSlot(*slot, mode.width, mode.height, shownAt);
        ReleaseSlot(*slot);  // as the newest one it is not given out
        gst_buffer_replace(&sink->shown, nullptr);
    }
}

// Nothing else makes up for lost time where frames are shown as they come: a pipeline that runs at the display's pace
// and fell behind once would stay behind. A late frame takes the place of the one that waits for its refresh.
static bool IsLate(TesselDisplaySink* sink, GstBuffer* frame, const DisplayMode& mode) {
    GstBaseSink* const base = GST_BASE_SINK(sink);
    if (gst_base_sink_get_sync(base) || !GST_BUFFER_PTS_IS_VALID(frame)) return false;
    const GstClockTime due = gst_segment_to_running_time(&base->segment, GST_FORMAT_TIME, GST_BUFFER_PTS(frame));
    const GstClockTime now = gst_element_get_current_running_time(GST_ELEMENT(sink));
    if (!GST_CLOCK_TIME_IS_VALID(due) || !GST_CLOCK_TIME_IS_VALID(now)) return false;
    return now > due + static_cast<GstClockTime>(mode.period) * 3 / 2;
}

static GstFlowReturn ShowFrame(GstVideoSink* base, GstBuffer* frame) {
    TesselDisplaySink* const sink = TESSEL_DISPLAY_SINK(base);
    const DisplayMode mode = ModeOf(sink);
    if (frame == sink->shown) return GST_FLOW_OK;  // the preroll frame once more
    if (!IsLate(sink, frame, mode) && !WaitForRefresh(sink)) return GST_FLOW_FLUSHING;
    GstMapInfo map;
    if (!gst_buffer_map(frame, &map, GST_MAP_READ)) return GST_FLOW_ERROR;
    sink->nextRefresh = (Now() / mode.period + 1) * mode.period;
    if (map.size >= size_t{mode.width} * mode.height * 4) Publish(sink, frame, map.data, mode);
    gst_buffer_unmap(frame, &map);
    return GST_FLOW_OK;
}

// The display keeps the last picture.
static gboolean Stop(GstBaseSink* base) {
    TesselDisplaySink* const sink = TESSEL_DISPLAY_SINK(base);
    gst_buffer_replace(&sink->shown, nullptr);
    sink->nextRefresh = 0;
    return TRUE;
}

// --- the element ---

enum Property { kDevice = 1, kForceAspectRatio };

static void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    TesselDisplaySink* const sink = TESSEL_DISPLAY_SINK(object);
    GST_OBJECT_LOCK(sink);
    switch (id) {
        case kDevice:
            g_free(sink->device);
            sink->device = g_value_dup_string(value);
            break;
        case kForceAspectRatio:
            sink->forceAspectRatio = g_value_get_boolean(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(sink);
}

static void GetProperty(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    TesselDisplaySink* const sink = TESSEL_DISPLAY_SINK(object);
    GST_OBJECT_LOCK(sink);
    switch (id) {
        case kDevice:
            g_value_set_string(value, sink->device);
            break;
        case kForceAspectRatio:
            g_value_set_boolean(value, sink->forceAspectRatio);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(sink);
}

static void Finalize(GObject* object) {
    TesselDisplaySink* const sink = TESSEL_DISPLAY_SINK(object);
    g_free(sink->device);
    g_mutex_clear(&sink->lock);
    g_cond_clear(&sink->wake);
    G_OBJECT_CLASS(tessel_display_sink_parent_class)->finalize(object);
}

static void tessel_display_sink_init(TesselDisplaySink* sink) {
    sink->device = g_strdup("/dev/fb0");
    sink->forceAspectRatio = TRUE;
    g_mutex_init(&sink->lock);
    g_cond_init(&sink->wake);
}

static void tessel_display_sink_class_init(TesselDisplaySinkClass* type) {
    GObjectClass* const object = G_OBJECT_CLASS(type);
    object->set_property = SetProperty;
    object->get_property = GetProperty;
    object->finalize = Finalize;
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
    g_object_class_install_property(
        object, kDevice, g_param_spec_string("device", "Device", "Framebuffer of the output", "/dev/fb0", flags));
    g_object_class_install_property(
        object, kForceAspectRatio,
        g_param_spec_boolean("force-aspect-ratio", "Force aspect ratio",
                             "Keep the shape of frames (always so: they have the size of the display)", TRUE, flags));

    GstElementClass* const element = GST_ELEMENT_CLASS(type);
    element->change_state = ChangeState;
    gst_element_class_add_static_pad_template(element, &kSinkTemplate);
    gst_element_class_set_static_metadata(element, "Board video sink", "Sink/Video",
                                          "HDMI output of the emulated board", "Tesselvisor");
    GstBaseSinkClass* const base = GST_BASE_SINK_CLASS(type);
    base->get_caps = GetCaps;
    base->propose_allocation = ProposeAllocation;
    base->unlock = Unlock;
    base->unlock_stop = UnlockStop;
    base->stop = Stop;
    GST_VIDEO_SINK_CLASS(type)->show_frame = ShowFrame;
}
