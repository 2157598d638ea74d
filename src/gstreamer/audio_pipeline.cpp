#include "gstreamer/audio_pipeline.h"

#include <gst/gst.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <span>
#include <string>

#include "audio/audio_levels.h"
#include "audio/sound_cards.h"
#include "board/hdmi_receiver.h"
#include "core/health.h"
#include "core/log.h"
#include "gstreamer/bus_messages.h"
#include "gstreamer/elements.h"
#include "gstreamer/test_tone.h"
#include "settings/device_settings.h"
#include "settings/process_flags.h"
#include "video/video_devices.h"

struct AudioPipeline {  // all elements belong to `pipeline`; the bus is a reference of ours
    GstElement* pipeline;
    GstBus* bus;
    GstElement *usbAudioInput1, *usbAudioInput2, *analogAudioInput, *analogAudioOutput;
    GstElement *audioConvert1, *audioConvert2, *audioConvert4, *audioConvert5;
    GstElement *audioResample1, *audioResample2, *audioResample3, *audioResample4, *audioResample5;
    GstElement *audioCapsFilter1, *audioCapsFilter2, *audioCapsFilter3, *audioCapsFilter4;
    GstElement *volume1, *volume2, *volume3, *volumeAnaOut, *volumeUsb1Out, *volumeUsb2Out, *volumeHdmiOut;
    GstElement *audiomixer, *tee, *queue1, *audioInputSink, *audioOutTee, *analogInTee;
    GstElement *analogInQueue1, *analogInQueue2, *analogInQueue3, *analogInQueue4, *analogInQueue5;
    GstElement *audioOutQueue1, *audioOutQueue2, *audioOutQueue3, *queue2;
    GstElement *usb1OutAudioMixer, *usb2OutAudioMixer, *queueUsb1InMixer, *queueUsb2InMixer;
    GstElement *audioOutputSink, *audioHdmiOutputSink, *usb1AudioOutSink, *usb2AudioOutSink;
};
using A = AudioPipeline;
using Element = GstElement* A::*;

// ---- Elements ----

// The elements that are the same in every life, in the order in which they are made. Each is called as its field is.
// clang-format off
static constexpr ElementRow<A> kElements[] = {
    {&A::analogAudioInput,  "alsasrc",       "analogAudioInput"},
    {&A::audioConvert1,     "audioconvert",  "audioConvert1"},
    {&A::audioConvert2,     "audioconvert",  "audioConvert2"},
    {&A::audioConvert4,     "audioconvert",  "audioConvert4"},
    {&A::audioConvert5,     "audioconvert",  "audioConvert5"},
    {&A::audioResample1,    "audioresample", "audioResample1"},
    {&A::audioResample2,    "audioresample", "audioResample2"},
    {&A::audioResample3,    "audioresample", "audioResample3"},
    {&A::audioResample4,    "audioresample", "audioResample4"},
    {&A::audioResample5,    "audioresample", "audioResample5"},
    {&A::audioCapsFilter1,  "capsfilter",    "audioCapsFilter1"},
    {&A::audioCapsFilter2,  "capsfilter",    "audioCapsFilter2"},
    {&A::audioCapsFilter3,  "capsfilter",    "audioCapsFilter3"},
    {&A::volume1,           "volume",        "volume1"},
    {&A::volume2,           "volume",        "volume2"},
    {&A::volume3,           "volume",        "volume3"},
    {&A::volumeAnaOut,      "volume",        "volumeAnaOut"},
    {&A::volumeUsb1Out,     "volume",        "volumeUsb1Out"},
    {&A::volumeUsb2Out,     "volume",        "volumeUsb2Out"},
    {&A::volumeHdmiOut,     "volume",        "volumeHdmiOut"},
    {&A::audiomixer,        "audiomixer",    "audiomixer"},
    {&A::tee,               "tee",           "tee"},
    {&A::queue1,            "queue",         "queue1"},
    {&A::audioInputSink,    "alsasink",      "audioInputSink"},
    {&A::analogInTee,       "tee",           "analogInTee"},
    {&A::analogInQueue1,    "queue",         "analogInQueue1"},
    {&A::analogInQueue2,    "queue",         "analogInQueue2"},
    {&A::analogInQueue3,    "queue",         "analogInQueue3"},
    {&A::analogInQueue4,    "queue",         "analogInQueue4"},
    {&A::analogInQueue5,    "queue",         "analogInQueue5"},
    {&A::audioOutQueue1,    "queue",         "audioOutQueue1"},
    {&A::audioOutQueue2,    "queue",         "audioOutQueue2"},
    {&A::audioOutQueue3,    "queue",         "audioOutQueue3"},
    {&A::queue2,            "queue",         "queue2"},
    {&A::usb1OutAudioMixer, "audiomixer",    "usb1OutAudioMixer"},
    {&A::usb2OutAudioMixer, "audiomixer",    "usb2OutAudioMixer"},
    {&A::queueUsb1InMixer,  "queue",         "queueUsb1InMixer"},
    {&A::queueUsb2InMixer,  "queue",         "queueUsb2InMixer"},
    {&A::audioOutputSink,   "alsasink",      "audioOutputSink"},
    {&A::audioCapsFilter4,  "capsfilter",    "audioCapsFilter4"},
    {&A::audioOutTee,       "tee",           "audioOutTee"},
};

static constexpr const char* kRate = "audio/x-raw, rate=(int)48000";
static constexpr PropertyRow<A> kProperties[] = {
    {&A::analogAudioInput, "device",        OnboardAudioCards.AnalogCodecDevice},
    {&A::analogAudioInput, "provide-clock", "true"},
    {&A::audioCapsFilter1, "caps",          kRate},
    {&A::audioCapsFilter2, "caps",          kRate},
    {&A::audioCapsFilter3, "caps",          kRate},
    {&A::audioCapsFilter4, "caps",          "audio/x-raw, rate=(int)48000, format=(string)S16LE"},
    {&A::audiomixer,       "latency",       "1000000000"},
    {&A::audioInputSink,   "device",        OnboardAudioCards.FpgaAudioDevice},
    {&A::audioInputSink,   "sync",          "false"},
    {&A::audioOutputSink,  "device",        OnboardAudioCards.AnalogCodecDevice},
    {&A::audioOutputSink,  "sync",          "false"},
};
// clang-format on

static GstElement* Make(const char* factory, const char* name) {
    return MakeElement(factory, name, "ManageAudioGStreamer");
}

static GstElement* Add(const AudioPipeline& p, GstElement* element) {
    gst_bin_add(GST_BIN(p.pipeline), element);
    return element;
}

// A microphone, or silence. A camera that is captured uncompressed needs the whole bus for its picture.
static GstElement* MakeUsbInput(const char* name, const UsbAudioEndpoint& microphone, size_t camera) {
    const bool uncompressed = CameraInputs[camera].selected.fourcc == kYuyv;
    if (uncompressed)
        LogInfo("Audio capture disabled on USB%d since we capture in YUYV!\r\n", static_cast<int>(camera) + 1);
    const bool captured = microphone.present && !uncompressed;
    GstElement* input = Make(captured ? "alsasrc" : "audiotestsrc", name);
    if (captured) {
        SetProperty(input, "device", microphone.device);
        SetProperty(input, "provide-clock", "false");
    } else {
        SetProperty(input, "wave", "4");
    }
    return input;
}

static GstElement* MakeAlsaSink(const char* name, const char* device) {
    GstElement* sink = Make("alsasink", name);
    SetProperty(sink, "device", device);
    SetProperty(sink, "sync", "false");
    return sink;
}

static GstElement* MakeUsbOutput(const char* name, const UsbAudioEndpoint& loudspeaker) {
    if (loudspeaker.present) return MakeAlsaSink(name, loudspeaker.device);
    GstElement* sink = Make("fakesink", name);
    SetProperty(sink, "sync", "false");
    return sink;
}

static GstElement* MakeHdmiOutput(bool monitorPlugged) {
    LogInfo(monitorPlugged ? "HDMI audio detected.\n" : "HDMI audio not detected.\n");
    return monitorPlugged ? MakeAlsaSink("audioHdmiOutputSink", OnboardAudioCards.HdmiOutAudioDevice)
                          : Make("fakesink", "audioHdmiOutputSink");
}

static void MakeElements(AudioPipeline& p, bool monitorPlugged) {
    for (const ElementRow<A>& row : kElements) p.*row.field = Add(p, Make(row.factory, row.name));
    SetProperties(p, kProperties);
    p.audioHdmiOutputSink = Add(p, MakeHdmiOutput(monitorPlugged));
    p.usb1AudioOutSink = Add(p, MakeUsbOutput("usb1AudioOutSink", Usb1AudioOut));
    p.usb2AudioOutSink = Add(p, MakeUsbOutput("usb2AudioOutSink", Usb2AudioOut));
}

// ---- Links ----

static void Link(const AudioPipeline& p, std::initializer_list<Element> chain) {
    for (auto to = chain.begin() + 1; to != chain.end(); ++to) gst_element_link(p.*to[-1], p.*to[0]);
}

static void LinkInputs(const AudioPipeline& p) {
    Link(p, {&A::usbAudioInput1, &A::audioConvert1, &A::audioResample1, &A::audioCapsFilter1, &A::volume1,
             &A::audiomixer});
    Link(p, {&A::usbAudioInput2, &A::audioConvert2, &A::audioResample2, &A::audioCapsFilter2, &A::volume2,
             &A::audiomixer});
    Link(p, {&A::analogAudioInput, &A::audioResample3, &A::audioCapsFilter3, &A::volume3, &A::analogInTee,
             &A::analogInQueue1, &A::audiomixer});
    Link(p, {&A::audiomixer, &A::tee, &A::queue1, &A::audioInputSink});
}

static void LinkOutputs(const AudioPipeline& p) {
    Link(p, {&A::audioOutQueue1, &A::volumeAnaOut, &A::audioOutputSink});
    Link(p, {&A::queue2, &A::volumeHdmiOut, &A::audioHdmiOutputSink});
    Link(p, {&A::audioOutQueue2, &A::audioConvert4, &A::audioResample4, &A::volumeUsb1Out, &A::usb1AudioOutSink});
    Link(p, {&A::audioOutQueue3, &A::audioConvert5, &A::audioResample5, &A::volumeUsb2Out, &A::usb2AudioOutSink});
}

// ---- Routing ----

// What a routing byte says; any other value is the FPGA alone.
enum AudioSource : uint8_t { kLineInput = 127, kLineInputAndFpga = 128, kMainMix = 255 };

struct OutputRoute {
    SharedByte DeviceSettings::*source;
    Element feed;                         // the queue in front of the output
    Element lineQueue;                    // between the line input's tee and the feed
    Element mixer = {}, mixerQueue = {};  // of line input and FPGA; null where these are not mixed
    Element sink;
};
static constexpr std::array<OutputRoute, 4> kRoutes = {{
    {.source = &DeviceSettings::AoutAnalog,
     .feed = &A::audioOutQueue1,
     .lineQueue = &A::analogInQueue2,
     .sink = &A::audioOutputSink},
    {.source = &DeviceSettings::AoutHdmi,
     .feed = &A::queue2,
     .lineQueue = &A::analogInQueue3,
     .sink = &A::audioHdmiOutputSink},
    {.source = &DeviceSettings::AoutUsb1,
     .feed = &A::audioOutQueue2,
     .lineQueue = &A::analogInQueue4,
     .mixer = &A::usb1OutAudioMixer,
     .mixerQueue = &A::queueUsb1InMixer,
     .sink = &A::usb1AudioOutSink},
    {.source = &DeviceSettings::AoutUsb2,
     .feed = &A::audioOutQueue3,
     .lineQueue = &A::analogInQueue5,
     .mixer = &A::usb2OutAudioMixer,
     .mixerQueue = &A::queueUsb2InMixer,
     .sink = &A::usb2AudioOutSink},
}};
using Routing = std::array<uint8_t, kRoutes.size()>;

static Routing RoutingNow() {
    Routing routing;
    for (size_t i = 0; i < routing.size(); ++i) routing[i] = Settings.*kRoutes[i].source;
    return routing;
}

// The FPGA's sound card is captured only when an output plays it as it is: value 0, the factory setting.
static bool CapturesFpga(const Routing& routing) { return std::ranges::find(routing, 0) != routing.end(); }

static void LinkFpgaCapture(AudioPipeline& p, const Routing& routing) {
    p.analogAudioOutput = Make("alsasrc", "analogAudioOutput");
    SetProperty(p.analogAudioOutput, "device", OnboardAudioCards.FpgaAudioDevice);
    SetProperty(p.analogAudioOutput, "provide-clock", "false");
    if (!CapturesFpga(routing)) {
        gst_object_unref(gst_object_ref_sink(p.analogAudioOutput));
        return;
    }
    Add(p, p.analogAudioOutput);
    Link(p, {&A::analogAudioOutput, &A::audioCapsFilter4, &A::audioOutTee});
}

static void RouteOutput(const AudioPipeline& p, const OutputRoute& route, uint8_t source, bool hasFpga) {
    if (source == kMainMix) {
        Link(p, {&A::tee, route.feed});
    } else if (source == kLineInput) {
        Link(p, {&A::analogInTee, route.lineQueue, route.feed});
    } else if (source == kLineInputAndFpga && route.mixer != nullptr) {
        Link(p, {&A::analogInTee, route.lineQueue, route.mixer});
        Link(p, {&A::audioOutTee, route.mixerQueue, route.mixer});
        Link(p, {route.mixer, route.feed});
    } else {
        Link(p, {&A::audioOutTee, route.feed});
        // The pipeline plays when every sink has its first buffer. This one never gets any: the others must not wait.
        if (!hasFpga) SetProperty(p.*route.sink, "async", "false");
    }
}

// ---- One life ----

struct AudioLife {
    AudioPipeline p;
    Routing routing;  // as built
    AudioLevels applied;
    int cards;  // sound cards at the last count
};

static void MakePipeline(AudioPipeline& p) {
    p.pipeline = Make("pipeline", "pipeline");
    gst_pipeline_set_auto_flush_bus(GST_PIPELINE(p.pipeline), TRUE);
    p.bus = gst_element_get_bus(p.pipeline);
    AudioRestart = 0;
    for (const char* signal : {"message::error", "message::warning"})
        g_signal_connect(p.bus, signal, G_CALLBACK(HandleBusMessage), nullptr);
}

static int BuildNormalPipeline(AudioLife& life) {
    AudioPipeline& p = life.p;
    uint8_t monitorPlugged = 0;
    if (ReadHdmiCableState(monitorPlugged) != 0) {
        LogInfo("Can't get HDMI output status.\n");
        return 1;
    }
    p.usbAudioInput1 = Add(p, MakeUsbInput("usbAudioInput1", Usb1AudioIn, 0));
    p.usbAudioInput2 = Add(p, MakeUsbInput("usbAudioInput2", Usb2AudioIn, 1));
    MakeElements(p, monitorPlugged != 0);
    LinkInputs(p);
    LinkFpgaCapture(p, life.routing);
    for (size_t i = 0; i < kRoutes.size(); ++i) RouteOutput(p, kRoutes[i], life.routing[i], CapturesFpga(life.routing));
    LinkOutputs(p);
    LogInfo("Playing audio pipeline...\n");
    gst_element_set_state(p.pipeline, GST_STATE_PLAYING);
    HdmiRxAudioMute(0);
    return CountSoundCards(life.cards);
}

static void NoteCardChange(AudioLife& life) {
    const int before = life.cards;
    CountSoundCards(life.cards);
    if (life.cards == before) return;
    LogInfo("audio change, will restart pipeline...\n");
    AudioRestart = 1;
}

static void FollowSettings(AudioLife& life) {
    const AudioPipeline& p = life.p;
    ApplyAudioSettings({.volume1 = p.volume1,
                        .volume2 = p.volume2,
                        .volume3 = p.volume3,
                        .volumeAnaOut = p.volumeAnaOut,
                        .volumeUsb1Out = p.volumeUsb1Out,
                        .volumeUsb2Out = p.volumeUsb2Out,
                        .volumeHdmiOut = p.volumeHdmiOut},
                       life.applied);
    if (AudioBug != 0) {
        AudioRestart = 1;
        LogInfo("audioWarningOccured\n");
    }
    if (RoutingNow() != life.routing) {
        SaveSettings(Settings);
        AudioRestart = 2;
    }
}

// The wait for an error is also the time in which the main context runs, and with it the bus signals of both pipelines.
static void RunPipeline(AudioLife& life) {
    NoteCardChange(life);
    while (AudioRestart == 0) {
        FollowSettings(life);
        GstMessage* error = gst_bus_poll(life.p.bus, GST_MESSAGE_ERROR, 100 * GST_MSECOND);
        if (error != nullptr) gst_message_unref(error);
        NoteCardChange(life);
    }
}

static void MutePipeline(const AudioPipeline& p) {
    HdmiRxAudioMute(1);
    LogInfo("Before destroying audio pipeline.\n");
    g_signal_handlers_disconnect_by_func(p.bus, reinterpret_cast<gpointer>(HandleBusMessage), nullptr);
}

static void DestroyPipeline(AudioPipeline& p) {
    gst_element_set_state(p.pipeline, GST_STATE_NULL);
    if (gst_element_get_state(p.pipeline, nullptr, nullptr, 5 * GST_SECOND) == GST_STATE_CHANGE_FAILURE)
        LogInfo("Warning: Audio pipeline state change to NULL failed\n");
    DrainMainContext();
    g_clear_object(&p.bus);
    g_clear_object(&p.pipeline);
    malloc_trim(0);
    LogInfo("Audio pipeline destroyed.\n");
}

static int LiveNormal(AudioLife& life) {
    if (BuildNormalPipeline(life) != 0) return 1;
    RunPipeline(life);
    MutePipeline(life.p);
    if (AudioTest != 0) {  // the test must not wait for a microphone that is slow to stop
        gst_element_set_state(life.p.usbAudioInput1, GST_STATE_PAUSED);
        gst_element_set_state(life.p.usbAudioInput2, GST_STATE_READY);
    }
    return 0;
}

static int LiveTest(AudioLife& life) {
    RunTestTone(life.p.pipeline, life.p.bus);
    MutePipeline(life.p);
    return 0;
}

int ManageAudioGStreamer() {
    AudioLife life = {.p = {}, .routing = RoutingNow(), .applied = FreshAudioLevels(Settings.AudioJack), .cards = 0};
    LogInfo("Manage audio dynamic pipeline\n");
    AudioRestart = 0;
    AudioBug = 0;
    int usbCards = 0;
    if (DetectUsbAudio(usbCards) != 0) return 1;
    MakePipeline(life.p);
    const int result = AudioTest != 0 ? LiveTest(life) : LiveNormal(life);
    DestroyPipeline(life.p);
    return result;
}

// ---- The audio thread ----

// Five attempts, a second apart, as long as nothing changes and nothing is there; a plug in the jack is enough to play.
static void WaitForUsbAudio() {
    int count = 0;
    for (int tries = 0; tries <= 4 && count == 0; ++tries) {
        if (DetectUsbAudio(count) != 0) tries = 0;
        if (Settings.AudioJack != 0) return;
        sleep(1);
    }
}

void AudioSupervisionLoop() {
    for (;;) {
        if (AudioBug == 0 && AudioTest == 0 && AudioRestart != 2) {
            WaitForUsbAudio();
            if (AudioTest == 0) sleep(5);
        }
        ManageAudioGStreamer();
    }
}
