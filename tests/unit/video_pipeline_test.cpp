// The element graph for each kind of camera, built with stand-ins for the board's own elements.
#include "gstreamer/video_pipeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "gstreamer/bus_messages.h"
#include "settings/device_settings.h"
#include "settings/process_flags.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// A stand-in is an element of GStreamer's own with the missing properties added, each kept as the text that it was set
// to.
struct StandIn {
    const char* name;
    const char* base;
    std::vector<const char*> properties;
};
static const StandIn kStandIns[] = {
    {"v4l2src", "fakesrc", {"device"}},
    {"imxv4l2src", "videotestsrc", {"device", "frame-plus"}},
    {"vpudec", "jpegdec", {"frame-plus", "frame-drop"}},
    {"imxcompositor_g2d", "compositor", {"back-enable"}},
    {"imxv4l2sink", "fakesink", {"force-aspect-ratio"}},
};

static void SetText(GObject* object, guint, const GValue* value, GParamSpec* spec) {
    g_object_set_data_full(object, spec->name, g_value_dup_string(value), g_free);
}
static void GetText(GObject* object, guint, GValue* value, GParamSpec* spec) {
    g_value_set_string(value, static_cast<const char*>(g_object_get_data(object, spec->name)));
}

static void InitStandIn(gpointer klass, gpointer data) {
    auto* objectClass = G_OBJECT_CLASS(klass);
    objectClass->set_property = SetText;
    objectClass->get_property = GetText;
    auto* elementClass = GST_ELEMENT_CLASS(klass);
    if (g_str_equal(static_cast<const StandIn*>(data)->name, "vpudec")) {
        static GstStaticPadTemplate sink =
            GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("image/jpeg; video/x-h264"));
        gst_element_class_add_static_pad_template(elementClass, &sink);
    }
    guint id = 1;
    for (const char* property : static_cast<const StandIn*>(data)->properties)
        g_object_class_install_property(objectClass, id++,
                                        g_param_spec_string(property, nullptr, nullptr, nullptr, G_PARAM_READWRITE));
}

static void RegisterStandIns() {
    for (const StandIn& standIn : kStandIns) {
        GstElement* sample = gst_element_factory_make(standIn.base, nullptr);
        ASSERT_TRUE(sample) << standIn.base;
        GTypeQuery query;
        g_type_query(G_OBJECT_TYPE(sample), &query);
        const GTypeInfo info = {.class_size = guint16(query.class_size),
                                .base_init = nullptr,
                                .base_finalize = nullptr,
                                .class_init = InitStandIn,
                                .class_finalize = nullptr,
                                .class_data = &standIn,
                                .instance_size = guint16(query.instance_size),
                                .n_preallocs = 0,
                                .instance_init = nullptr,
                                .value_table = nullptr};
        const std::string typeName = std::string("StandIn_") + standIn.name;
        const GType type = g_type_register_static(query.type, typeName.c_str(), &info, GTypeFlags(0));
        ASSERT_TRUE(gst_element_register(nullptr, standIn.name, GST_RANK_NONE, type));
        gst_object_unref(sample);
    }
}

class VideoPipelineTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        gst_init(nullptr, nullptr);
        RegisterStandIns();
    }
    void SetUp() override {
        std::memset(static_cast<void*>(CameraInputs), 0, sizeof CameraInputs);
        Settings.EnJpegParse = 0;
        HdmiInput.InputValid = 0;
    }

    static void Plug(int index, const char* card, uint32_t fourcc, uint32_t fps) {
        CameraInput& camera = CameraInputs[index];
        camera.present = 1;
        std::strncpy(camera.card, card, sizeof camera.card - 1);
        std::snprintf(camera.devicePath, sizeof camera.devicePath, "/dev/video%d", index + 4);
        camera.selected.width = 1280;
        camera.selected.height = 720;
        camera.selected.fps = fps;
        camera.selected.fourcc = fourcc;
    }

    // Builds, and returns what was logged.
    std::string Build(bool started) {
        testing::internal::CaptureStdout();
        pipeline = {};
        BuildVideoPipeline(pipeline, started);
        return testing::internal::GetCapturedStdout();
    }
    std::string Destroy() {
        testing::internal::CaptureStdout();
        DestroyVideoPipeline(pipeline);
        return testing::internal::GetCapturedStdout();
    }

    // Names of the elements from one on downstream, up to and with the compositor's pad.
    static std::string Path(GstElement* element) {
        std::string path = GST_ELEMENT_NAME(element);
        while (GstPad* pad = gst_element_get_static_pad(element, "src")) {
            GstPad* peer = gst_pad_get_peer(pad);
            gst_object_unref(pad);
            if (!peer) break;
            element = GST_PAD_PARENT(peer);
            path += std::string(" ") + GST_ELEMENT_NAME(element);
            const bool atMix = g_str_equal(GST_ELEMENT_NAME(element), "mix");
            if (atMix) path += std::string(".") + GST_PAD_NAME(peer);
            gst_object_unref(peer);
            if (atMix) break;
        }
        return path;
    }
    static std::string Factory(GstElement* element) {
        return gst_plugin_feature_get_name(GST_PLUGIN_FEATURE(gst_element_get_factory(element)));
    }
    static std::string Property(GstElement* element, const char* name) {
        GValue value = G_VALUE_INIT;
        g_object_get_property(G_OBJECT(element), name, &value);
        gchar* text = G_VALUE_HOLDS_STRING(&value) ? g_value_dup_string(&value) : gst_value_serialize(&value);
        const std::string result = text ? text : "";
        g_free(text);
        g_value_unset(&value);
        return result;
    }

    VideoPipeline pipeline = {};
};

TEST_F(VideoPipelineTest, NothingAttachedGivesThreeTestPatternsOnThreePads) {
    EXPECT_EQ(Build(false),
              "Activating test pattern as input 1.\nActivating test pattern as input 2.\nActivating test pattern as "
              "input 3.\n");
    for (GstElement* source : {pipeline.src1, pipeline.src2, pipeline.src3}) EXPECT_EQ(Factory(source), "videotestsrc");
    EXPECT_EQ(Path(pipeline.src1), "src1 capsfilter1 mix.sink_0");
    EXPECT_EQ(Path(pipeline.src2), "src2 capsfilter2 mix.sink_1");
    EXPECT_EQ(Path(pipeline.src3), "src3 capsfilter3 videocrop mix.sink_2");
    EXPECT_EQ(Path(pipeline.mix), "mix valve video_sink");
    EXPECT_THAT(Property(pipeline.capsfilter1, "caps"), AllOf(HasSubstr("160"), HasSubstr("120")));
    for (GstPad* pad : pipeline.pads) EXPECT_TRUE(pad && gst_pad_is_linked(pad));
    EXPECT_EQ(GST_STATE(pipeline.pipeline), GST_STATE_NULL);
    EXPECT_TRUE(pipeline.hdmiIsTestPattern);
    Destroy();
}

TEST_F(VideoPipelineTest, EveryElementCarriesTheNameThatLogsAndToolsKnow) {
    Build(false);
    for (const char* name : {"src1", "src2", "src3", "capsfilter1", "pipeline.capsfilterMultifilesrc1", "capsfilter2",
                             "pipeline.capsfilterMultifilesrc2", "capsfilter3", "videocrop", "parse1", "parse2",
                             "decode1", "decode2", "queue1", "queue2", "mix", "overlay_sink", "video_sink", "valve"}) {
        GstElement* element = gst_bin_get_by_name(GST_BIN(pipeline.pipeline), name);
        EXPECT_TRUE(element) << name;
        gst_clear_object(&element);
    }
    Destroy();
}

TEST_F(VideoPipelineTest, EachFormatTakesItsBranch) {
    Plug(0, "AVer CAM520 Pro2", kMjpg, 30);
    Plug(1, "Plain Camera", kYuyv, 30);
    std::string log = Build(true);
    EXPECT_THAT(log, HasSubstr("Found AVer CAM520 Pro2 as /dev/video4, format at 1280x720 30Hz\n"));
    EXPECT_THAT(log, HasSubstr("USB1 will use JPEGPARSE!\nEnabling JPEGPARSE on USB1.\n"));
    EXPECT_THAT(log, Not(HasSubstr("Cannot link")));
    EXPECT_EQ(Path(pipeline.src1), "src1 capsfilter1 parse1 decode1 queue1 mix.sink_0");
    EXPECT_EQ(Path(pipeline.src2), "src2 capsfilter2 mix.sink_1");
    EXPECT_EQ(Factory(pipeline.decode1), "vpudec");
    EXPECT_EQ(Property(pipeline.src1, "device"), "/dev/video4");
    Destroy();

    SetUp();
    Plug(0, "Plain Camera", kMjpg, 30);
    Plug(1, "Logitech C310", kMjpg, 10);
    log = Build(true);
    EXPECT_THAT(log, HasSubstr("USB1 frame rate does not match, enable JPEGPARSE.\nEnabling JPEGPARSE on USB1.\n"));
    EXPECT_THAT(log, Not(HasSubstr("USB2")));
    EXPECT_EQ(Path(pipeline.src1), "src1 capsfilter1 parse1 decode1 queue1 mix.sink_0");
    EXPECT_EQ(Path(pipeline.src2), "src2 capsfilter2 decode2 queue2 mix.sink_1");
    EXPECT_EQ(Factory(pipeline.decode1), "vpudec");
    EXPECT_EQ(Factory(pipeline.decode2), "jpegdec");
    Destroy();
}

TEST_F(VideoPipelineTest, AStreamThatTheParserRefusesIsDecodedWithoutIt) {
    Plug(0, "AVer CAM520 Pro2", kH264, 30);
    EXPECT_THAT(Build(true), HasSubstr("Enabling JPEGPARSE on USB1.\nCannot link capsfilter1 to parse1.\n"));
    EXPECT_EQ(Path(pipeline.src1), "src1 capsfilter1 decode1 queue1 mix.sink_0");
    Destroy();
}

TEST_F(VideoPipelineTest, SettingsAndModelsShapeTheElements) {
    Plug(1, "Brio 305", kMjpg, 30);
    Settings.EnJpegParse = 1;
    const std::string log = Build(true);
    EXPECT_THAT(log, HasSubstr("Enabling video pipeline timestamping override\n"));
    EXPECT_THAT(log, HasSubstr("Enabling JPEGPARSE on USB2.\n"));
    EXPECT_EQ(Property(pipeline.mix, "latency"), "500000000");
    EXPECT_EQ(Property(pipeline.src2, "do-timestamp"), "true");
    EXPECT_EQ(Property(pipeline.queue2, "max-size-buffers"), "3");
    EXPECT_EQ(Property(pipeline.queue2, "leaky"), "downstream");
    EXPECT_EQ(Property(pipeline.decode2, "frame-plus"), "3");
    EXPECT_EQ(Property(pipeline.overlay_sink, "sync"), "false") << "also once the measuring sink holds it";
    EXPECT_EQ(Property(pipeline.overlay_sink, "force-aspect-ratio"), "true");
    Destroy();
}

TEST_F(VideoPipelineTest, PlaysAndCanBeCroppedToAnotherHdmiFormat) {
    HdmiInput.InputValid = 1;
    HdmiInput.Interlaced = 0;
    HdmiInput.Width = 1280;
    HdmiInput.Height = 720;
    EXPECT_THAT(Build(true), HasSubstr("Found CSI input as "));
    EXPECT_FALSE(pipeline.hdmiIsTestPattern);
    guint frames = 0;
    for (int i = 0; i < 500 && frames < 10; ++i) {
        g_usleep(10'000);
        g_object_get(pipeline.video_sink, "frames-rendered", &frames, nullptr);
    }
    EXPECT_GE(frames, 10u);

    HdmiInput.Width = 1920;
    HdmiInput.Height = 540;
    HdmiInput.Interlaced = 1;
    CropHdmiInput(pipeline, ChooseHdmiCapture(HdmiInput));
    EXPECT_THAT(Property(pipeline.capsfilter3, "caps"), AllOf(HasSubstr("1920"), HasSubstr("1080"), HasSubstr("YUY2")));
    EXPECT_EQ(Property(pipeline.videocrop, "bottom"), "540");
    HdmiInput.Interlaced = 0;

    EXPECT_EQ(Destroy(),
              "Before destroying video pipeline.\nVideo pipeline GST_STATE_PAUSED success.\n"
              "Video pipeline GST_STATE_READY success.\nVideo pipeline GST_STATE_NULL success.\n"
              "Video pipeline destroyed.\n");
}

static size_t CountEntries(const char* directory) {
    return size_t(std::distance(std::filesystem::directory_iterator(directory), {}));
}

TEST_F(VideoPipelineTest, ManyLivesLeaveNothingBehind) {
    for (int life = 0; life < 5; ++life) Build(life % 2), Destroy();
    const size_t descriptors = CountEntries("/proc/self/fd");
    const size_t threads = CountEntries("/proc/self/task");
    for (int life = 0; life < 20; ++life) {
        Build(life % 2);
        gpointer watched = pipeline.pipeline;
        g_object_add_weak_pointer(G_OBJECT(pipeline.pipeline), &watched);
        Destroy();
        // A helper thread of GStreamer may hold its reference for a moment longer.
        for (int i = 0; i < 200 && g_atomic_pointer_get(&watched); ++i) g_usleep(10'000);
        EXPECT_EQ(g_atomic_pointer_get(&watched), nullptr) << "somebody still holds the pipeline";
    }
    g_usleep(300'000);  // the cancelled polls end by themselves
    EXPECT_LE(CountEntries("/proc/self/fd"), descriptors);
    EXPECT_LE(CountEntries("/proc/self/task"), threads + 2) << "GLib keeps a few idle threads";
}

TEST_F(VideoPipelineTest, AMissingElementEndsTheProcessWithItsName) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto buildWithout = [](const char* name) {
        GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), name);
        gst_registry_remove_feature(gst_registry_get(), feature);
        VideoPipeline broken = {};
        BuildVideoPipeline(broken, false);
    };
    EXPECT_DEATH(buildWithout("imxcompositor_g2d"), "gstreamer:.*ManageDynamicGStreamer: .*pipeline\\.mix");
    EXPECT_DEATH(buildWithout("vpudec"), "gstreamer:.*instanciateJpegDecoder: .*elem");
}

class BusMessageTest : public testing::Test {
protected:
    void SetUp() override {
        gst_init(nullptr, nullptr);
        AudioRestart = 0;
        PipelineRestart = 0;
        AudioBug = 0;
        CameraInputs[0].present = 0;
        CameraInputs[1].present = 0;
        HdmiInput.InputValid = 0;
    }
    static std::string Handle(GstMessage* (*make)(GstObject*, GError*, const gchar*), int code) {
        GError* error = g_error_new(GST_RESOURCE_ERROR, code, "out of order");
        GstMessage* message = make(nullptr, error, nullptr);
        testing::internal::CaptureStdout();
        EXPECT_TRUE(HandleBusMessage(nullptr, message));
        gst_message_unref(message);
        g_error_free(error);
        return testing::internal::GetCapturedStdout();
    }
};

TEST_F(BusMessageTest, AnErrorRebuildsTheVideoOnlyWhereThereIsOne) {
    EXPECT_EQ(Handle(gst_message_new_error, 1), "Got error message\n***** Error: out of order\n***** Code: 1\n");
    EXPECT_EQ(AudioRestart, 2);
    EXPECT_EQ(PipelineRestart, 0);
    CameraInputs[1].present = 1;
    Handle(gst_message_new_error, 1);
    EXPECT_EQ(PipelineRestart, 1);
}

TEST_F(BusMessageTest, OtherCodesConcernTheAudioOrNobody) {
    EXPECT_THAT(Handle(gst_message_new_error, 9), HasSubstr("***** Code: 9\n"));
    EXPECT_EQ(AudioRestart, 0);
    EXPECT_THAT(Handle(gst_message_new_error, 4), HasSubstr("error err->code == 4\n"));
    EXPECT_EQ(AudioRestart, 2);
    EXPECT_THAT(Handle(gst_message_new_warning, 3),
                HasSubstr("***** Warning: out of order\n***** Code: 3\nwarning err->code == 3\n"));
    EXPECT_EQ(AudioRestart, 1);
    EXPECT_EQ(AudioBug, 0);
    EXPECT_THAT(Handle(gst_message_new_warning, 2), HasSubstr("***** Audio bug, need to restart pipeline\n"));
    EXPECT_EQ(AudioBug, 1);
    EXPECT_EQ(PipelineRestart, 0);
}
