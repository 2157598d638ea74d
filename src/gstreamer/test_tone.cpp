#include "gstreamer/test_tone.h"

#include <cmath>

#include "audio/sound_cards.h"
#include "core/log.h"
#include "gstreamer/elements.h"
#include "settings/device_identity.h"
#include "settings/process_flags.h"

struct TestTone {  // all elements belong to the pipeline
    GstElement *audiotestsrc, *audioCapsFilter1, *audioOutputSink;
    GstElement *analogAudioInput, *audioCapsFilter2, *audioInputSink;
    GstElement *audioCapsFilter3, *level, *analogAudioOutput, *fakesink;
};

// clang-format off
static constexpr ElementRow<TestTone> kElements[] = {
    {&TestTone::audiotestsrc,      "audiotestsrc", "audiotestsrc"},
    {&TestTone::audioCapsFilter1,  "capsfilter",   "audioCapsFilter1"},
    {&TestTone::audioOutputSink,   "alsasink",     "audioOutputSink"},
    {&TestTone::analogAudioInput,  "alsasrc",      "analogAudioInput"},
    {&TestTone::audioCapsFilter2,  "capsfilter",   "audioCapsFilter2"},
    {&TestTone::audioInputSink,    "alsasink",     "audioInputSink"},
    {&TestTone::audioCapsFilter3,  "capsfilter",   "audioCapsFilter3"},
    {&TestTone::level,             "level",        "level"},
    {&TestTone::analogAudioOutput, "alsasrc",      "analogAudioOutput"},
    {&TestTone::fakesink,          "fakesink",     "fakesink"},
};

static constexpr const char* kRate = "audio/x-raw, rate=(int)48000";
static constexpr PropertyRow<TestTone> kProperties[] = {
    {&TestTone::audiotestsrc,      "freq",     "1000.0"},
    {&TestTone::audioCapsFilter1,  "caps",     kRate},
    {&TestTone::audioCapsFilter2,  "caps",     kRate},
    {&TestTone::audioCapsFilter3,  "caps",     kRate},
    {&TestTone::audioOutputSink,   "device",   OnboardAudioCards.AnalogCodecDevice},
    {&TestTone::audioOutputSink,   "sync",     "false"},
    {&TestTone::analogAudioInput,  "device",   OnboardAudioCards.AnalogCodecDevice},
    {&TestTone::audioInputSink,    "device",   OnboardAudioCards.FpgaAudioDevice},
    {&TestTone::audioInputSink,    "sync",     "false"},
    {&TestTone::analogAudioOutput, "device",   OnboardAudioCards.FpgaAudioDevice},
    {&TestTone::level,             "message",  "true"},
    {&TestTone::level,             "interval", "500000000"},
};
// clang-format on

static TestTone MakeElements(GstElement* pipeline) {
    TestTone tone = {};
    for (const ElementRow<TestTone>& row : kElements) {
        tone.*row.field = MakeElement(row.factory, row.name, "ManageAudioGStreamer");
        gst_bin_add(GST_BIN(pipeline), tone.*row.field);
    }
    SetProperties(tone, kProperties);
    return tone;
}

// The compositor's tone goes to its analog output; an input switcher has that output fed by the FPGA, so its tone goes
// there.
static void LinkElements(const TestTone& tone) {
    GstElement* const toneSink = DeviceId == 0 ? tone.audioOutputSink : tone.audioInputSink;
    GstElement* const lineSink = DeviceId == 0 ? tone.audioInputSink : tone.audioOutputSink;
    gst_element_link_many(tone.audiotestsrc, tone.audioCapsFilter1, toneSink, nullptr);
    gst_element_link_many(tone.analogAudioInput, tone.audioCapsFilter2, lineSink, nullptr);
    gst_element_link_many(tone.analogAudioOutput, tone.audioCapsFilter3, tone.level, tone.fakesink, nullptr);
}

static const GValueArray* Values(const GstStructure* structure, const char* name) {
    const GValue* value = gst_structure_get_value(structure, name);
    return value ? static_cast<const GValueArray*>(g_value_get_boxed(value)) : nullptr;
}

gboolean PrintAudioLevels(GstBus*, GstMessage* message, gpointer) {
    if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_ELEMENT) return TRUE;
    const GstStructure* structure = gst_message_get_structure(message);
    if (!gst_structure_has_name(structure, "level")) return TRUE;
    GstClockTime endtime = 0;
    if (!gst_structure_get_clock_time(structure, "endtime", &endtime)) g_warning("Could not parse endtime");
    const GValueArray* rms = Values(structure, "rms");
    if (!rms) return TRUE;
    g_print("AudioLevels: ");
    for (guint i = 0; i < rms->n_values; ++i) g_print("%f ", std::pow(10, g_value_get_double(&rms->values[i]) / 20));
    g_print("\r\n");
    return TRUE;
}

static void IterateFor(guint milliseconds) {
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_timeout_add(
        milliseconds,
        [](gpointer running) -> gboolean {
            g_main_loop_quit(static_cast<GMainLoop*>(running));
            return G_SOURCE_REMOVE;
        },
        loop);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
}

void RunTestTone(GstElement* pipeline, GstBus* bus) {
    LinkElements(MakeElements(pipeline));
    gst_bus_add_watch(bus, PrintAudioLevels, nullptr);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    LogInfo("Playing test pattern pipeline...\n");
    while (AudioRestart == 0) IterateFor(500);
    AudioTest = 0;
    gst_bus_remove_watch(bus);
}
