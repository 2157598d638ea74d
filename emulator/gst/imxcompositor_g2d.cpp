#include "gst/imxcompositor_g2d.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "gst/compose_parallel.h"
#include "gst/imxcompositor_pad.h"

// Alpha formats are left out: the display has none, and inputs are opaque but for their pad's "alpha".
static GstStaticPadTemplate kSinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink_%u", GST_PAD_SINK, GST_PAD_REQUEST,
    GST_STATIC_CAPS("video/x-raw, format = { I420, YV12, Y42B, Y444, Y41B, NV12, NV21, NV16, YUY2, UYVY, YVYU, GRAY8, "
                    "BGRx, RGBx, xRGB, xBGR, BGR, RGB }, width = [ 1, 4096 ], height = [ 1, 4096 ], "
                    "framerate = [ 0/1, 2147483647/1 ]"));
static GstStaticPadTemplate kSourceTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS(
        "video/x-raw, format = BGRx, width = [ 1, 3840 ], height = [ 1, 2160 ], framerate = [ 1/1, 60/1 ]"));

// How long after its time a frame may take to arrive: transport and decoding.
static constexpr GstClockTime kTransportTime = 25 * GST_MSECOND;

static void InitChildProxy(gpointer interface, gpointer);

G_DEFINE_FINAL_TYPE_WITH_CODE(TesselCompositor, tessel_compositor, GST_TYPE_VIDEO_AGGREGATOR,
                              G_IMPLEMENT_INTERFACE(GST_TYPE_CHILD_PROXY, InitChildProxy))

// --- time ---

// Running time up to which this pad's next frame is worth waiting for, for a display frame that ends at `end`.
static GstClockTime WaitFor(TesselCompositorPad* pad, GstClockTime end, GstClockTime patience) {
    const GstClockTime due = pad->due;
    const bool expected = GST_CLOCK_TIME_IS_VALID(due) && due < end;
    return expected && !gst_aggregator_pad_has_buffer(GST_AGGREGATOR_PAD(pad)) ? due + patience : 0;
}

// The base class waits for every input until the slowest one would have come, so that a still camera would hold up all
// others. Here a display frame waits for those inputs only that are about to bring one. The result is what the base
// class adds its latency to.
static GstClockTime NextTime(GstAggregator* aggregator) {
    const GstClockTime start = gst_aggregator_simple_get_next_time(aggregator);
    const GstClockTime latency = TESSEL_COMPOSITOR(aggregator)->latency;
    const GstVideoInfo& info = GST_VIDEO_AGGREGATOR(aggregator)->info;
    if (!GST_CLOCK_TIME_IS_VALID(start) || !GST_CLOCK_TIME_IS_VALID(latency) || info.fps_n == 0) return start;
    const GstClockTime end = start + gst_util_uint64_scale_int(GST_SECOND, info.fps_d, info.fps_n);
    guint64 extra;
    g_object_get(aggregator, "latency", &extra, nullptr);
    GstClockTime until = start;
    GST_OBJECT_LOCK(aggregator);
    for (GList* item = GST_ELEMENT(aggregator)->sinkpads; item; item = item->next)
        until = std::max(until, WaitFor(static_cast<TesselCompositorPad*>(item->data), end, kTransportTime + extra));
    GST_OBJECT_UNLOCK(aggregator);
    return until > latency ? until - latency : 0;
}

// --- frames ---

static Colours ColoursOf(const GstVideoInfo& info) {
    if (GST_VIDEO_INFO_IS_RGB(&info)) return Colours::kRgb;
    const bool full = info.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255;
    switch (info.colorimetry.matrix) {
        case GST_VIDEO_COLOR_MATRIX_BT709:
            return full ? Colours::kBt709Full : Colours::kBt709;
        case GST_VIDEO_COLOR_MATRIX_BT2020:
            return full ? Colours::kBt2020Full : Colours::kBt2020;
        default:
            return full ? Colours::kBt601Full : Colours::kBt601;
    }
}

static VideoPicture PictureOf(const GstVideoFrame& frame) {
    VideoPicture picture{.planes = {}, .colours = ColoursOf(frame.info)};
    for (guint i = 0; i < GST_VIDEO_FRAME_N_COMPONENTS(&frame); ++i)
        picture.planes[i] = {.samples = static_cast<const uint8_t*>(GST_VIDEO_FRAME_COMP_DATA(&frame, i)),
                             .stride = GST_VIDEO_FRAME_COMP_STRIDE(&frame, i),
                             .step = GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, i),
                             .width = GST_VIDEO_FRAME_COMP_WIDTH(&frame, i),
                             .height = GST_VIDEO_FRAME_COMP_HEIGHT(&frame, i)};
    return picture;
}

static Rectangle AreaOf(const Placement& placement, const GstVideoInfo& info) {
    const auto turn = static_cast<Turn>(placement.turn);
    const bool sideways = turn == Turn::kQuarter || turn == Turn::kThreeQuarters;
    const int sourceWidth = sideways ? info.height : info.width, sourceHeight = sideways ? info.width : info.height;
    const Rectangle area{placement.x, placement.y, placement.width ? placement.width : sourceWidth,
                         placement.height ? placement.height : sourceHeight};
    if (!placement.keepRatio) return area;
    const int64_t shapeWidth = int64_t{info.width} * info.par_n, shapeHeight = int64_t{info.height} * info.par_d;
    return sideways ? FitRatio(shapeHeight, shapeWidth, area) : FitRatio(shapeWidth, shapeHeight, area);
}

using Pads = std::vector<TesselCompositorPad*>;

// A layout moves several windows, and is taken over when all have been notified: as long as one is being set, all stay
// where they are. Placements are read before it is asked whether they are settled, so that nobody comes in between.
static void TakeOverLayout(const Pads& pads) {
    std::vector<Placement> placements;
    for (TesselCompositorPad* const pad : pads) placements.push_back(PlacementOf(pad));
    for (size_t i = 0; i < pads.size(); ++i)
        if (!IsSettledAt(pads[i], placements[i])) return;
    for (size_t i = 0; i < pads.size(); ++i) {
        pads[i]->shown = placements[i];
        pads[i]->level = i;
    }
}

// From the bottom to the top of what is shown. Under the compositor's object lock.
static Pads ShownPads(GstVideoAggregator* aggregator) {
    Pads pads;
    for (GList* item = GST_ELEMENT(aggregator)->sinkpads; item; item = item->next)
        pads.push_back(static_cast<TesselCompositorPad*>(item->data));
    TakeOverLayout(pads);
    std::ranges::stable_sort(pads, {}, [](const TesselCompositorPad* pad) { return pad->level; });
    return pads;
}

// Input frames stay mapped from PrepareFrame to CleanFrame, which the base class calls around this.
static GstFlowReturn AggregateFrames(GstVideoAggregator* aggregator, GstBuffer* output) {
    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &aggregator->info, output, GST_MAP_WRITE)) return GST_FLOW_ERROR;
    std::vector<VideoWindow> windows;
    GST_OBJECT_LOCK(aggregator);
    for (TesselCompositorPad* const pad : ShownPads(aggregator)) {
        const GstVideoFrame* const input = gst_video_aggregator_pad_get_prepared_frame(&pad->parent);
        if (!input) continue;
        windows.push_back({.picture = PictureOf(*input),
                           .area = AreaOf(pad->shown, input->info),
                           .turn = static_cast<Turn>(pad->shown.turn),
                           .alpha = static_cast<int>(std::lround(pad->shown.alpha * kOpaque))});
    }
    GST_OBJECT_UNLOCK(aggregator);
    const Canvas canvas{static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)),
                        GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0), aggregator->info.width, aggregator->info.height};
    PaintScene(*TESSEL_COMPOSITOR(aggregator)->painters, ArrangeScene(windows, canvas.width, canvas.height), canvas);
    gst_video_frame_unmap(&frame);
    return GST_FLOW_OK;
}

// --- negotiation ---

// Any input is scaled and converted, so what an input may be does not depend on the display.
static gboolean AnswerSinkQuery(GstAggregator* aggregator, GstAggregatorPad* pad, GstQuery* query) {
    const auto type = GST_QUERY_TYPE(query);
    if (type != GST_QUERY_CAPS && type != GST_QUERY_ACCEPT_CAPS)
        return GST_AGGREGATOR_CLASS(tessel_compositor_parent_class)->sink_query(aggregator, pad, query);
    GstCaps* const all = gst_static_pad_template_get_caps(&kSinkTemplate);
    GstCaps* asked;
    if (type == GST_QUERY_ACCEPT_CAPS) {
        gst_query_parse_accept_caps(query, &asked);
        gst_query_set_accept_caps_result(query, gst_caps_is_subset(asked, all));
    } else {
        gst_query_parse_caps(query, &asked);
        GstCaps* const result =
            asked ? gst_caps_intersect_full(asked, all, GST_CAPS_INTERSECT_FIRST) : gst_caps_ref(all);
        gst_query_set_caps_result(query, result);
        gst_caps_unref(result);
    }
    gst_caps_unref(all);
    return TRUE;
}

static GstCaps* KeepCaps(GstVideoAggregator*, GstCaps* caps) { return gst_caps_ref(caps); }

// What the inputs ask of the display: room for all windows, and the highest frame rate.
static void Wishes(GstElement* element, int& width, int& height, int& numerator, int& denominator) {
    GST_OBJECT_LOCK(element);
    for (GList* item = element->sinkpads; item; item = item->next) {
        auto* const pad = static_cast<TesselCompositorPad*>(item->data);
        const GstVideoInfo& info = pad->parent.info;
        if (!info.finfo || info.width == 0) continue;
        const Rectangle area = AreaOf(PlacementOf(pad), info);
        width = std::max(width, area.left + area.width);
        height = std::max(height, area.top + area.height);
        if (info.fps_n == 0) continue;
        if (gst_util_fraction_compare(info.fps_n, info.fps_d, numerator, denominator) > 0) {
            numerator = info.fps_n;
            denominator = info.fps_d;
        }
    }
    GST_OBJECT_UNLOCK(element);
}

static GstCaps* FixateSourceCaps(GstAggregator* aggregator, GstCaps* caps) {
    int width = 1, height = 1, numerator = 0, denominator = 1;
    Wishes(GST_ELEMENT(aggregator), width, height, numerator, denominator);
    if (numerator == 0) numerator = 30;
    caps = gst_caps_truncate(gst_caps_make_writable(caps));
    GstStructure* const structure = gst_caps_get_structure(caps, 0);
    gst_structure_fixate_field_nearest_int(structure, "width", width);
    gst_structure_fixate_field_nearest_int(structure, "height", height);
    gst_structure_fixate_field_nearest_fraction(structure, "framerate", numerator, denominator);
    return gst_caps_fixate(caps);
}

// --- the element ---

static gboolean Start(GstAggregator* aggregator) {
    TESSEL_COMPOSITOR(aggregator)->latency = GST_CLOCK_TIME_NONE;
    TESSEL_COMPOSITOR(aggregator)->painters = StartPainters();
    return GST_AGGREGATOR_CLASS(tessel_compositor_parent_class)->start(aggregator);
}

static gboolean Stop(GstAggregator* aggregator) {
    const gboolean good = GST_AGGREGATOR_CLASS(tessel_compositor_parent_class)->stop(aggregator);
    StopPainters(std::exchange(TESSEL_COMPOSITOR(aggregator)->painters, nullptr));
    return good;
}

static GstPad* RequestNewPad(GstElement* element, GstPadTemplate* padTemplate, const gchar* name, const GstCaps* caps) {
    GstPad* const pad =
        GST_ELEMENT_CLASS(tessel_compositor_parent_class)->request_new_pad(element, padTemplate, name, caps);
    if (pad) gst_child_proxy_child_added(GST_CHILD_PROXY(element), G_OBJECT(pad), GST_OBJECT_NAME(pad));
    return pad;
}

static void ReleasePad(GstElement* element, GstPad* pad) {
    gst_child_proxy_child_removed(GST_CHILD_PROXY(element), G_OBJECT(pad), GST_OBJECT_NAME(pad));
    GST_ELEMENT_CLASS(tessel_compositor_parent_class)->release_pad(element, pad);
}

// Command lines reach the pads' properties as "sink_0::xpos".
static GObject* ChildByIndex(GstChildProxy* proxy, guint index) {
    GST_OBJECT_LOCK(proxy);
    auto* const pad = static_cast<GObject*>(g_list_nth_data(GST_ELEMENT(proxy)->sinkpads, index));
    if (pad) gst_object_ref(pad);
    GST_OBJECT_UNLOCK(proxy);
    return pad;
}

static guint ChildrenCount(GstChildProxy* proxy) {
    GST_OBJECT_LOCK(proxy);
    const guint count = GST_ELEMENT(proxy)->numsinkpads;
    GST_OBJECT_UNLOCK(proxy);
    return count;
}

static void InitChildProxy(gpointer interface, gpointer) {
    auto* const proxy = static_cast<GstChildProxyInterface*>(interface);
    proxy->get_child_by_index = ChildByIndex;
    proxy->get_children_count = ChildrenCount;
}

static constexpr guint kBackEnable = 1;

static void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    if (id == kBackEnable)
        g_atomic_int_set(&TESSEL_COMPOSITOR(object)->backEnable, g_value_get_boolean(value));
    else
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
}

static void GetProperty(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    if (id == kBackEnable)
        g_value_set_boolean(value, g_atomic_int_get(&TESSEL_COMPOSITOR(object)->backEnable));
    else
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
}

static void tessel_compositor_init(TesselCompositor*) {}

static void tessel_compositor_class_init(TesselCompositorClass* type) {
    GObjectClass* const object = G_OBJECT_CLASS(type);
    object->set_property = SetProperty;
    object->get_property = GetProperty;
    // Nothing to switch here: clearing what no window covers costs next to nothing, so the background is always clean.
    g_object_class_install_property(
        object, kBackEnable,
        g_param_spec_boolean("back-enable", "Back enable", "Clear the background (here it is clean in both cases)",
                             FALSE, static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));

    GstElementClass* const element = GST_ELEMENT_CLASS(type);
    gst_element_class_add_static_pad_template_with_gtype(element, &kSinkTemplate, tessel_compositor_pad_get_type());
    gst_element_class_add_static_pad_template_with_gtype(element, &kSourceTemplate, GST_TYPE_AGGREGATOR_PAD);
    gst_element_class_set_static_metadata(element, "Board video compositor", "Filter/Editor/Video/Compositor",
                                          "Composes the display picture on the emulated board", "Tesselvisor");
    element->request_new_pad = RequestNewPad;
    element->release_pad = ReleasePad;

    GstAggregatorClass* const aggregator = GST_AGGREGATOR_CLASS(type);
    aggregator->sink_query = AnswerSinkQuery;
    aggregator->fixate_src_caps = FixateSourceCaps;
    aggregator->get_next_time = NextTime;
    aggregator->start = Start;
    aggregator->stop = Stop;
    GST_VIDEO_AGGREGATOR_CLASS(type)->update_caps = KeepCaps;
    GST_VIDEO_AGGREGATOR_CLASS(type)->aggregate_frames = AggregateFrames;
}
