#define GST_USE_UNSTABLE_API  // tracers

#include "gst/element_faults.h"

#include <fcntl.h>
#include <gst/gst.h>
#include <gst/gsttracer.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>
#include <vector>

struct HeldPad {
    GstPad* pad;  // a reference
    gulong probe;
};

static std::mutex pipelinesLock;
static std::list<GWeakRef> pipelines;
static std::vector<HeldPad> held;  // of the thread that takes the faults

// ---- What can be done to an element

static void Post(GstElement* element, int code, const char* name,
                 GstMessage* (*make)(GstObject*, GError*, const gchar*)) {
    GError* error = g_error_new(GST_RESOURCE_ERROR, code, "%s of the test bench", name);
    gst_element_post_message(element, make(GST_OBJECT(element), error, "posted from outside"));
    g_error_free(error);
}

static void PostError(GstElement* element, int code) { Post(element, code, "error", gst_message_new_error); }
static void PostWarning(GstElement* element, int code) { Post(element, code, "warning", gst_message_new_warning); }

// As if it had come from upstream; a source makes it itself.
static void EndStream(GstElement* element, int) { gst_element_send_event(element, gst_event_new_eos()); }

static gboolean HoldPad(GstElement*, GstPad* pad, gpointer) {
    constexpr GstPadProbeCallback kHold = [](GstPad*, GstPadProbeInfo*, gpointer) { return GST_PAD_PROBE_OK; };
    const gulong probe = gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM, kHold, nullptr, nullptr);
    held.push_back({GST_PAD(gst_object_ref(pad)), probe});
    return TRUE;
}

static void Stall(GstElement* element, int) {
    const bool isSink = GST_OBJECT_FLAG_IS_SET(element, GST_ELEMENT_FLAG_SINK);
    (isSink ? gst_element_foreach_sink_pad : gst_element_foreach_src_pad)(element, HoldPad, nullptr);
}

static void LetFlow(GstElement*, int) {
    for (const HeldPad& each : held) {
        gst_pad_remove_probe(each.pad, each.probe);
        gst_object_unref(each.pad);
    }
    held.clear();
}

struct ElementFault {
    const char* word;
    void (*strike)(GstElement* element, int code);
};
static constexpr ElementFault kFaults[] = {
    {"error", PostError}, {"warning", PostWarning}, {"end", EndStream}, {"stall", Stall}, {"off", LetFlow},
};

// ---- Which element

static std::vector<GstElement*> LivePipelines() {  // references
    const std::lock_guard guard(pipelinesLock);
    std::vector<GstElement*> live;
    for (auto each = pipelines.begin(); each != pipelines.end();) {
        if (gpointer pipeline = g_weak_ref_get(&*each)) {
            live.push_back(GST_ELEMENT(pipeline));
            ++each;
        } else {
            g_weak_ref_clear(&*each);
            each = pipelines.erase(each);
        }
    }
    return live;
}

static void Strike(const char* name, const ElementFault& fault, int code) {
    for (GstElement* pipeline : LivePipelines()) {
        if (GstElement* element = gst_bin_get_by_name(GST_BIN(pipeline), name)) {
            fault.strike(element, code);
            gst_object_unref(element);
        }
        gst_object_unref(pipeline);
    }
}

static gpointer TakeFaults(gpointer) {
    mkfifo(kElementFaults, 0600);
    // Open for writing as well: the end of one writer is not the end of all.
    FILE* lines = fdopen(open(kElementFaults, O_RDWR | O_CLOEXEC), "r");
    char line[200], name[100], word[20];
    for (int code = 0; lines && fgets(line, sizeof line, lines);) {
        if (sscanf(line, "%99s %19s %d", name, word, &code) != 3) continue;
        for (const ElementFault& fault : kFaults)
            if (strcmp(fault.word, word) == 0) Strike(name, fault, code);
    }
    return nullptr;
}

// ---- The tracer

static void NoteElement(GObject*, GstClockTime, GstElement* element) {
    if (!GST_IS_PIPELINE(element)) return;
    const std::lock_guard guard(pipelinesLock);
    g_weak_ref_init(&pipelines.emplace_back(), element);
}

struct TesselFaults {
    GstTracer parent;
};
struct TesselFaultsClass {
    GstTracerClass parent;
};
G_DEFINE_TYPE(TesselFaults, tessel_faults, GST_TYPE_TRACER)

static void tessel_faults_class_init(TesselFaultsClass*) {}

static void tessel_faults_init(TesselFaults* self) {
    gst_tracing_register_hook(GST_TRACER(self), "element-new", G_CALLBACK(NoteElement));
    g_thread_unref(g_thread_new("element faults", TakeFaults, nullptr));
}

gboolean RegisterElementFaults(GstPlugin* plugin) {
    return gst_tracer_register(plugin, "tesselfaults", tessel_faults_get_type());
}
