#include "gstreamer/video_pipeline.h"

#include <malloc.h>

#include <array>
#include <initializer_list>

#include "core/log.h"
#include "core/shell.h"
#include "gstreamer/bus_messages.h"
#include "gstreamer/capture_pools.h"
#include "gstreamer/elements.h"
#include "settings/device_settings.h"
#include "video/camera_quirks.h"

using V = VideoPipeline;
using Element = GstElement* V::*;

// Every element of the pipeline, in the order in which they are made and added. Where the factory is empty, it depends
// on what is attached, and the element is made before the others.
// clang-format off
static constexpr ElementRow<V> kElements[] = {
    {&V::src1,                     nullptr,             "src1"},
    {&V::src2,                     nullptr,             "src2"},
    {&V::src3,                     nullptr,             "src3"},
    {&V::capsfilter1,              "capsfilter",        "capsfilter1"},
    {&V::capsfilterMultifilesrc1, "capsfilter", "pipeline.capsfilterMultifilesrc1", "pipeline.capsfilterMultifilesrc1"},
    {&V::capsfilter2,              "capsfilter",        "capsfilter2"},
    {&V::capsfilterMultifilesrc2, "capsfilter", "pipeline.capsfilterMultifilesrc2", "pipeline.capsfilterMultifilesrc2"},
    {&V::capsfilter3,              "capsfilter",        "capsfilter3"},
    {&V::videocrop,                "videocrop",         "videocrop"},
    {&V::parse1,                   "jpegparse",         "parse1"},
    {&V::parse2,                   "jpegparse",         "parse2"},
    {&V::decode1,                  nullptr,             "decode1"},
    {&V::decode2,                  nullptr,             "decode2"},
    {&V::queue1,                   "queue",             "queue1"},
    {&V::queue2,                   "queue",             "queue2"},
    {&V::mix,                      "imxcompositor_g2d", "mix"},
    {&V::overlay_sink,             "imxv4l2sink",       "overlay_sink"},
    {&V::video_sink,               "fpsdisplaysink",    "video_sink"},
    {&V::valve,                    "identity",          "valve"},
    {&V::multifilesrc1,            "multifilesrc",      "multifilesrc1", "multifilesrc1"},
    {&V::multifilesrc2,            "multifilesrc",      "multifilesrc2", "multifilesrc2"},
    {&V::multifilesink1,           "multifilesink",     "multifilesink1", "multifilesink1"},
    {&V::multifilesink2,           "multifilesink",     "multifilesink2", "multifilesink2"},
};
// clang-format on

// Properties that are the same in every pipeline.
//
// The measuring sink imposes its own "sync" on the sink inside it, so both carry the same value.
static constexpr PropertyRow<V> kProperties[] = {
    {&V::capsfilter3, "caps-change-mode", "1"},
    {&V::queue1, "max-size-buffers", "3"},
    {&V::queue2, "max-size-buffers", "3"},
    {&V::mix, "back-enable", "false"},
    {&V::overlay_sink, "force-aspect-ratio", "true"},
    {&V::overlay_sink, "sync", "false"},
    {&V::video_sink, "sync", "false"},
    {&V::video_sink, "text-overlay", "false"},
    {&V::multifilesrc1, "location", "/run/cameraimg1.jpg"},
    {&V::multifilesrc2, "location", "/run/cameraimg2.jpg"},
    {&V::multifilesink1, "location", "/run/cameraimg1.jpg"},
    {&V::multifilesink2, "location", "/run/cameraimg2.jpg"},
};

// The elements of one USB input.
struct UsbBranch {
    Element src, capsfilter, parse, decode, queue, capsfilterMultifilesrc, multifilesrc, multifilesink;
    const char* stillImage;
};
static constexpr std::array<UsbBranch, 2> kUsbBranches = {{
    {.src = &V::src1,
     .capsfilter = &V::capsfilter1,
     .parse = &V::parse1,
     .decode = &V::decode1,
     .queue = &V::queue1,
     .capsfilterMultifilesrc = &V::capsfilterMultifilesrc1,
     .multifilesrc = &V::multifilesrc1,
     .multifilesink = &V::multifilesink1,
     .stillImage = "/run/cameraimg1.jpg"},
    {.src = &V::src2,
     .capsfilter = &V::capsfilter2,
     .parse = &V::parse2,
     .decode = &V::decode2,
     .queue = &V::queue2,
     .capsfilterMultifilesrc = &V::capsfilterMultifilesrc2,
     .multifilesrc = &V::multifilesrc2,
     .multifilesink = &V::multifilesink2,
     .stillImage = "/run/cameraimg2.jpg"},
}};

// What one build works with: the facts are read once, so that all elements are made of the same ones.
struct Build {
    VideoPipeline& elements;
    PipelineTraits traits;
    std::array<bool, 2> cameraLive;  // present, and there is something to start
    bool hdmiLive;
    std::array<std::string, 2> cameraCaps;
};

static GstElement* Make(const char* factory, const char* name, const char* assertion = nullptr) {
    return MakeElement(factory, name, "ManageDynamicGStreamer", assertion);
}

static bool LinkPads(GstElement* from, GstElement* to, const char* pad) {
    if (gst_element_link_pads(from, "src", to, pad)) return true;
    LogInfo("Cannot link %s to %s.\n", GST_ELEMENT_NAME(from), GST_ELEMENT_NAME(to));
    return false;
}

static bool Link(std::initializer_list<GstElement*> chain) {
    for (auto to = chain.begin() + 1; to != chain.end(); ++to)
        if (!LinkPads(to[-1], to[0], "sink")) return false;
    return true;
}

// By name: an input that could not be linked must not pass its place to the next one.
static constexpr const char* kPadNames[] = {"sink_0", "sink_1", "sink_2"};

static void LinkToMix(const VideoPipeline& p, GstElement* from, size_t input) {
    LinkPads(from, p.mix, kPadNames[input]);
}

static PipelineTraits FindTraits() {
    const PipelineTraits traits = ChooseTraits(CameraInputs[0].card, CameraInputs[1].card);
    if (traits.lowFrameRate) LogInfo("Detected a camera with lower framerate than expected\n");
    if (traits.timestampOverride) LogInfo("Enabling video pipeline timestamping override\n");
    return traits;
}

static GstElement* MakeCameraSource(const Build& build, size_t index, const char* name) {
    const CameraInput& camera = CameraInputs[index];
    if (!build.cameraLive[index]) {
        LogInfo("Activating test pattern as input %d.\n", int(index) + 1);
        GstElement* source = Make("videotestsrc", name);
        SetProperty(source, "pattern", "2");
        return source;
    }
    LogInfo("Found %s as %s, format at %dx%d %dHz\n", camera.card, camera.devicePath, int(camera.selected.width),
            int(camera.selected.height), int(camera.selected.fps));
    GstElement* source = Make("v4l2src", name);
    SetProperty(source, "device", camera.devicePath);
    if (build.traits.timestampOverride) SetProperty(source, "do-timestamp", "true");
    return source;
}

static GstElement* MakeHdmiSource(const Build& build) {
    if (!build.hdmiLive) {
        LogInfo("Activating test pattern as input 3.\n");
        GstElement* source = Make("videotestsrc", "src3");
        SetProperty(source, "pattern", "2");
        return source;
    }
    LogInfo("Found %s as %s\n", "CSI input", CsiDevicePath);
    GstElement* source = Make("imxv4l2src", "src3");
    SetProperty(source, "device", CsiDevicePath);
    if (build.traits.timestampOverride) {
        SetProperty(source, "do-timestamp", "true");
        SetProperty(source, "frame-plus", "16");
    }
    return source;
}

GstElement* instanciateJpegDecoder(bool started, const CameraInput& camera, const char* name, int number) {
    const bool inSoftware = started && OnCameraList(camera.card, NoFullHdMjpegCameras);
    GstElement* decoder = MakeElement(inSoftware ? "jpegdec" : "vpudec", name, "instanciateJpegDecoder", "elem");
    SetProperty(decoder, "qos", "false");
    if (inSoftware) {
        LogInfo("Use JPEGDEC for camera %i.\n", number);
    } else {
        SetProperty(decoder, "frame-plus", "3");
        SetProperty(decoder, "frame-drop", "true");
    }
    return decoder;
}

static void MakeElements(Build& build, bool started) {
    VideoPipeline& p = build.elements;
    p.src1 = MakeCameraSource(build, 0, "src1");
    p.src2 = MakeCameraSource(build, 1, "src2");
    StartHdmiSyncPoll(p.hdmiPoll);
    p.src3 = MakeHdmiSource(build);
    for (size_t i = 0; i < kUsbBranches.size(); ++i)
        if (build.cameraLive[i]) build.cameraCaps[i] = CameraCaps(CameraInputs[i].selected);
    p.decode1 = instanciateJpegDecoder(started, CameraInputs[0], "decode1", 1);
    p.decode2 = instanciateJpegDecoder(started, CameraInputs[1], "decode2", 2);
    for (const ElementRow<V>& row : kElements)
        if (row.factory) p.*row.field = Make(row.factory, row.name, row.assertion);
}

void CropHdmiInput(VideoPipeline& p, const HdmiCapture& capture) {
    SetProperty(p.capsfilter3, "caps", HdmiCaps(capture).c_str());
    SetProperty(p.videocrop, "bottom", std::to_string(capture.cropBottom).c_str());
    p.hdmiCapture = capture;
}

static void SetUpElements(Build& build) {
    VideoPipeline& p = build.elements;
    g_object_set(p.video_sink, "video-sink", p.overlay_sink, nullptr);
    SetProperties(p, kProperties);

    SetProperty(p.mix, "latency", CompositorLatency(build.traits));
    for (size_t i = 0; i < kUsbBranches.size(); ++i) {
        const UsbBranch& branch = kUsbBranches[i];
        SetProperty(p.*branch.capsfilter, "caps", build.cameraCaps[i].c_str());
        SetProperty(p.*branch.queue, "leaky", build.traits.stillImage[i] ? "0" : "2");
        if (build.traits.timestampOverride) SetProperty(p.*branch.multifilesrc, "do-timestamp", "true");
    }
    CropHdmiInput(p, build.hdmiLive ? ChooseHdmiCapture(HdmiInput) : kIdleHdmiCapture);
}

// The measuring sink already holds the display sink.
static void AddElements(VideoPipeline& p) {
    for (const ElementRow<V>& row : kElements)
        if (!GST_OBJECT_PARENT(p.*row.field)) gst_bin_add(GST_BIN(p.pipeline), p.*row.field);
}

static bool DecideParser(size_t index) {
    const int number = int(index) + 1;
    const CameraInput& camera = CameraInputs[index];
    const CameraInput& other = CameraInputs[1 - index];
    const bool listed = OnCameraList(camera.card, JpegParseCameras);
    const ParserChoice choice = ChooseParser({.listed = listed,
                                              .enabled = Settings.EnJpegParse == 1,
                                              .otherPresent = other.present != 0,
                                              .fps = camera.selected.fps,
                                              .otherFps = other.selected.fps});
    if (listed) LogInfo("USB%d will use JPEGPARSE!\n", number);
    if (choice.rateMismatch) LogInfo("USB%d frame rate does not match, enable JPEGPARSE.\n", number);
    return choice.useParse;
}

// The camera writes pictures to a file as it makes them, and the pipeline reads the file at its own pace. Returns the
// element that delivers them.
static GstElement* DetourThroughFile(Build& build, size_t index) {
    VideoPipeline& p = build.elements;
    const UsbBranch& branch = kUsbBranches[index];
    LogInfo("Low FPS camera detected on USB%d.\n", int(index) + 1);
    if (build.hdmiLive) {
        SetProperty(p.overlay_sink, "sync", "true");
        SetProperty(p.video_sink, "sync", "true");
    }
    SetProperty(p.*branch.capsfilterMultifilesrc, "caps", build.cameraCaps[index].c_str());
    Link({p.*branch.capsfilter, p.*branch.multifilesink});
    Link({p.*branch.multifilesrc, p.*branch.capsfilterMultifilesrc});
    return p.*branch.capsfilterMultifilesrc;
}

// A first picture for the file, so that reading it does not fail before the camera has delivered one.
static void SeedStillImage(size_t index) {
    const SelectedFormat& format = CameraInputs[index].selected;
    RunShell(
        "gst-launch-1.0 videotestsrc pattern=white num-buffers=1 ! video/x-raw,width=%d,height=%d ! jpegenc ! "
        "multifilesink location=%s",
        int(format.width), int(format.height), kUsbBranches[index].stillImage);
}

// Unlinked, the file elements would fail the pipeline.
static void RemoveFileElements(VideoPipeline& p, const UsbBranch& branch) {
    for (Element field : {branch.multifilesrc, branch.multifilesink}) {
        gst_bin_remove(GST_BIN(p.pipeline), p.*field);
        p.*field = nullptr;
    }
}

// The parser takes JPEG only; a camera that sends H264 although it is to be parsed goes without.
static void LinkDecoder(Build& build, size_t index, GstElement* stream, bool useParse) {
    VideoPipeline& p = build.elements;
    const UsbBranch& branch = kUsbBranches[index];
    if (useParse) LogInfo("Enabling JPEGPARSE on USB%d.\n", int(index) + 1);
    if (useParse && Link({stream, p.*branch.parse, p.*branch.decode})) return;
    Link({stream, p.*branch.decode});
}

static void LinkCamera(Build& build, size_t index) {
    VideoPipeline& p = build.elements;
    const UsbBranch& branch = kUsbBranches[index];
    Link({p.*branch.src, p.*branch.capsfilter});
    if (!build.cameraLive[index] || CameraInputs[index].selected.fourcc == kYuyv) {
        LinkToMix(p, p.*branch.capsfilter, index);
        RemoveFileElements(p, branch);
        return;
    }
    const bool useParse = DecideParser(index);
    const bool throughFile = build.traits.stillImage[index];
    GstElement* stream = throughFile ? DetourThroughFile(build, index) : p.*branch.capsfilter;
    LinkDecoder(build, index, stream, useParse);
    Link({p.*branch.decode, p.*branch.queue});
    LinkToMix(p, p.*branch.queue, index);
    if (throughFile)
        SeedStillImage(index);
    else
        RemoveFileElements(p, branch);
}

// Errors are popped by the video thread; whoever iterates the main context may get one first through the signal.
static void MakePipeline(VideoPipeline& p) {
    p.pipeline = gst_pipeline_new("pipeline");
    if (!p.pipeline)
        g_assertion_message_expr(nullptr, "gstreamer", __LINE__, "ManageDynamicGStreamer", "pipeline.pipeline");
    gst_pipeline_set_auto_flush_bus(GST_PIPELINE(p.pipeline), TRUE);
    p.bus = gst_element_get_bus(p.pipeline);
    gst_bus_add_signal_watch(p.bus);
    g_signal_connect(p.bus, "message::error", G_CALLBACK(HandleBusMessage), nullptr);
}

void BuildVideoPipeline(VideoPipeline& p, bool started) {
    Build build = {.elements = p,
                   .traits = FindTraits(),
                   .cameraLive = {started && CameraInputs[0].present, started && CameraInputs[1].present},
                   .hdmiLive = started && HdmiInput.InputValid,
                   .cameraCaps = {kIdleCaps, kIdleCaps}};
    p.hdmiIsTestPattern = !build.hdmiLive;

    MakePipeline(p);
    MakeElements(build, started);
    SetUpElements(build);
    AddElements(p);
    LinkCamera(build, 0);
    LinkCamera(build, 1);
    Link({p.src3, p.capsfilter3, p.videocrop});
    LinkToMix(p, p.videocrop, 2);
    Link({p.mix, p.valve, p.video_sink});
    for (size_t i = 0; i < std::size(kPadNames); ++i) p.pads[i] = gst_element_get_static_pad(p.mix, kPadNames[i]);
    if (started) {
        LogInfo("Playing video pipeline...\n");
        gst_element_set_state(p.pipeline, GST_STATE_PLAYING);
    }
    if (!HdmiInput.InputValid) Settings.SwHdmi = 0;
}

// When a source could not start, the whole pipeline stands still, and PAUSED would start it now: the path of a device may
// lead to another camera by this time, and the pool of that stream would come too late to be held.
static void KeepIdleSourcesIdle(const VideoPipeline& p) {
    for (GstElement* source : {p.src1, p.src2, p.src3}) {
        if (!source || GST_STATE(source) >= GST_STATE_PAUSED) continue;
        gst_element_set_state(source, GST_STATE_NULL);
        gst_element_set_locked_state(source, TRUE);
    }
}

static void StopPipeline(GstElement* pipeline) {
    struct Step {
        GstState state;
        const char* message;
    };
    static constexpr Step kSteps[] = {
        {GST_STATE_PAUSED, "Video pipeline GST_STATE_PAUSED success.\n"},
        {GST_STATE_READY, "Video pipeline GST_STATE_READY success.\n"},
        {GST_STATE_NULL, "Video pipeline GST_STATE_NULL success.\n"},
    };
    for (const Step& step : kSteps) {
        gst_element_set_state(pipeline, step.state);
        LogInfo("%s", step.message);
    }
    if (gst_element_get_state(pipeline, nullptr, nullptr, 5 * GST_SECOND) == GST_STATE_CHANGE_FAILURE)
        LogInfo("Warning: Video pipeline state change to NULL failed\n");
}

void DestroyVideoPipeline(VideoPipeline& p) {
    LogInfo("Before destroying video pipeline.\n");
    gst_bus_remove_signal_watch(p.bus);
    KeepIdleSourcesIdle(p);
    CapturePools pools = HoldCapturePools(p);
    StopPipeline(p.pipeline);
    g_signal_handlers_disconnect_by_func(p.bus, reinterpret_cast<gpointer>(HandleBusMessage), nullptr);
    DrainMainContext();
    for (GstPad*& pad : p.pads) g_clear_object(&pad);
    g_clear_object(&p.bus);
    g_clear_object(&p.pipeline);
    ReleaseCapturePools(pools);
    malloc_trim(0);  // frames of the next life may have other sizes: what they leave unused would stay with us
    LogInfo("Video pipeline destroyed.\n");
    StopHdmiSyncPoll(p.hdmiPoll);
}
