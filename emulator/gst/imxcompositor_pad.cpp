#include "gst/imxcompositor_pad.h"

#include <algorithm>

// Time stamps further than this from the present come from another time base (a source started anew alone, one that
// counts from its own start, or one that read the clock before the pipeline had its base time) and are moved to now.
static constexpr GstClockTimeDiff kStrangeTime = 2 * GST_SECOND;
static constexpr GstClockTime kUsualDuration = GST_SECOND / 30;

G_DEFINE_FINAL_TYPE(TesselCompositorPad, tessel_compositor_pad, GST_TYPE_VIDEO_AGGREGATOR_PAD)
// --- the pads' properties ---

enum PadProperty { kXpos = 1, kYpos, kWidth, kHeight, kAlpha, kRotate, kKeepRatio };

static void SetPadProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    Placement& wanted = TESSEL_COMPOSITOR_PAD(object)->wanted;
    GST_OBJECT_LOCK(object);
    switch (id) {
        case kXpos:
            wanted.x = g_value_get_int(value);
            break;
        case kYpos:
            wanted.y = g_value_get_int(value);
            break;
        case kWidth:
            wanted.width = g_value_get_int(value);
            break;
        case kHeight:
            wanted.height = g_value_get_int(value);
            break;
        case kAlpha:
            wanted.alpha = g_value_get_double(value);
            break;
        case kRotate:
            wanted.turn = g_value_get_enum(value);
            break;
        case kKeepRatio:
            wanted.keepRatio = g_value_get_boolean(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
    GST_OBJECT_UNLOCK(object);
}

static void GetPadProperty(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    GST_OBJECT_LOCK(object);
    const Placement wanted = TESSEL_COMPOSITOR_PAD(object)->wanted;
    GST_OBJECT_UNLOCK(object);
    switch (id) {
        case kXpos:
            g_value_set_int(value, wanted.x);
            break;
        case kYpos:
            g_value_set_int(value, wanted.y);
            break;
        case kWidth:
            g_value_set_int(value, wanted.width);
            break;
        case kHeight:
            g_value_set_int(value, wanted.height);
            break;
        case kAlpha:
            g_value_set_double(value, wanted.alpha);
            break;
        case kRotate:
            g_value_set_enum(value, wanted.turn);
            break;
        case kKeepRatio:
            g_value_set_boolean(value, wanted.keepRatio);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

// Comes once after all properties of one g_object_set() call, or of all calls until notification is thawed: no frame
// sees half of them.
static void TakeOverPlacement(GObject* object, guint count, GParamSpec** specs) {
    TesselCompositorPad* const pad = TESSEL_COMPOSITOR_PAD(object);
    GST_OBJECT_LOCK(object);
    pad->placement = pad->wanted;
    GST_OBJECT_UNLOCK(object);
    G_OBJECT_CLASS(tessel_compositor_pad_parent_class)->dispatch_properties_changed(object, count, specs);
}

static GType RotateType() {
    static const GEnumValue kValues[] = {{static_cast<int>(Turn::kNone), "No rotation", "none"},
                                         {static_cast<int>(Turn::kQuarter), "90 degrees clockwise", "rotate-90"},
                                         {static_cast<int>(Turn::kHalf), "180 degrees", "rotate-180"},
                                         {static_cast<int>(Turn::kThreeQuarters), "270 degrees", "rotate-270"},
                                         {static_cast<int>(Turn::kMirror), "Horizontal flip", "horizontal-flip"},
                                         {static_cast<int>(Turn::kFlip), "Vertical flip", "vertical-flip"},
                                         {0, nullptr, nullptr}};
    static const GType type = g_enum_register_static("TesselCompositorRotate", kValues);
    return type;
}

// --- time ---

static GstClockTime RunningTime(GstPad* pad, GstClockTime time) {
    GstEvent* const event = gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0);
    if (!event) return time;
    const GstSegment* segment;
    gst_event_parse_segment(event, &segment);
    const GstClockTime running = gst_segment_to_running_time(segment, GST_FORMAT_TIME, std::max(time, segment->start));
    gst_event_unref(event);
    return GST_CLOCK_TIME_IS_VALID(running) ? running : time;
}

// The clock of a pipeline without a live source says nothing about how far it has come.
static GstClockTime Present(GstAggregator* aggregator, bool live) {
    return live ? gst_element_get_current_running_time(GST_ELEMENT(aggregator))
                : gst_aggregator_simple_get_next_time(aggregator);
}

// The picture of an input is always its newest one: whatever its clock says, its frames belong to the present.
static GstPadProbeReturn MoveToPresent(GstPad* gstPad, GstPadProbeInfo* info, gpointer) {
    GstObject* const parent = gst_pad_get_parent(gstPad);
    if (!parent) return GST_PAD_PROBE_OK;
    TesselCompositorPad* const pad = TESSEL_COMPOSITOR_PAD(gstPad);
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    const GstClockTime latency = gst_aggregator_get_latency(GST_AGGREGATOR(parent));
    TESSEL_COMPOSITOR(parent)->latency = latency;
    const bool live = GST_CLOCK_TIME_IS_VALID(latency);
    const GstClockTime now = Present(GST_AGGREGATOR(parent), live);
    const bool stamped = GST_BUFFER_PTS_IS_VALID(buffer);
    gst_object_unref(parent);

    const GstClockTime own = stamped ? GST_BUFFER_PTS(buffer) : pad->next;
    const GstClockTime running = RunningTime(gstPad, own);
    const GstClockTimeDiff ahead = GST_CLOCK_DIFF(now, running) + pad->shift;
    // Without a live source the display waits for frames of its own time: one from the past would stop it.
    const bool strange = ahead > kStrangeTime || ahead < (live ? -kStrangeTime : 0);
    if (GST_CLOCK_TIME_IS_VALID(now) && strange) pad->shift -= ahead;
    const GstClockTime duration = GST_BUFFER_DURATION_IS_VALID(buffer) ? GST_BUFFER_DURATION(buffer) : kUsualDuration;
    pad->next = own + duration;
    pad->due = running + static_cast<GstClockTime>(pad->shift) + duration;
    if (!live && stamped && pad->shift == 0) return GST_PAD_PROBE_OK;
    buffer = gst_buffer_make_writable(buffer);
    GST_BUFFER_PTS(buffer) =
        static_cast<GstClockTime>(std::max<GstClockTimeDiff>(static_cast<GstClockTimeDiff>(own) + pad->shift, 0));
    // A moment, for the base class: else it would take a late frame for a later one's time too, and stay a frame
    // behind.
    GST_BUFFER_DURATION(buffer) = live ? 1 : duration;
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    return GST_PAD_PROBE_OK;
}

// A decoder that is told how late the display is would drop frames by a clock that is not theirs; on a busy PC all of
// them, for good.
static GstPadProbeReturn KeepLatenessFromSources(GstPad*, GstPadProbeInfo* info, gpointer) {
    return GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_QOS ? GST_PAD_PROBE_DROP : GST_PAD_PROBE_OK;
}

// --- the pad ---

Placement PlacementOf(TesselCompositorPad* pad) {
    GST_OBJECT_LOCK(pad);
    const Placement placement = pad->placement;
    GST_OBJECT_UNLOCK(pad);
    return placement;
}

bool IsSettledAt(TesselCompositorPad* pad, const Placement& placement) {
    GST_OBJECT_LOCK(pad);
    const bool settled = pad->wanted == placement;
    GST_OBJECT_UNLOCK(pad);
    return settled;
}

static void tessel_compositor_pad_init(TesselCompositorPad* pad) {
    pad->wanted = pad->placement = pad->shown = {};
    pad->due = GST_CLOCK_TIME_NONE;
    gst_pad_add_probe(GST_PAD(pad), GST_PAD_PROBE_TYPE_BUFFER, MoveToPresent, nullptr, nullptr);
    gst_pad_add_probe(GST_PAD(pad), GST_PAD_PROBE_TYPE_EVENT_UPSTREAM, KeepLatenessFromSources, nullptr, nullptr);
}

static void tessel_compositor_pad_class_init(TesselCompositorPadClass* type) {
    GObjectClass* const object = G_OBJECT_CLASS(type);
    object->set_property = SetPadProperty;
    object->get_property = GetPadProperty;
    object->dispatch_properties_changed = TakeOverPlacement;
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_CONTROLLABLE);
    const auto install = [&](guint id, GParamSpec* spec) { g_object_class_install_property(object, id, spec); };
    install(kXpos, g_param_spec_int("xpos", "X position", "Left edge of the window", -32768, 32767, 0, flags));
    install(kYpos, g_param_spec_int("ypos", "Y position", "Top edge of the window", -32768, 32767, 0, flags));
    install(kWidth, g_param_spec_int("width", "Width", "Of the window, 0: as the source", 0, 65535, 0, flags));
    install(kHeight, g_param_spec_int("height", "Height", "Of the window, 0: as the source", 0, 65535, 0, flags));
    install(kAlpha, g_param_spec_double("alpha", "Alpha", "Opacity, 0: hidden", 0, 1, 1, flags));
    install(kRotate, g_param_spec_enum("rotate", "Rotate", "Turn or flip of the source", RotateType(), 0, flags));
    install(kKeepRatio,
            g_param_spec_boolean("keep-ratio", "Keep ratio", "Fit the source into the window", FALSE, flags));
}
