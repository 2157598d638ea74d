// The element graph for each kind of camera, built with stand-ins for the board's own elements.
#include "gstreamer/video_pipeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "gstreamer/bus_messages.h"
#include "settings/device_settings.h"
#include "settings/process_flags.h"

using testing::AllOf;
using testing::HasSubstr;

// A stand-in is an element of GStreamer's own that takes the missing properties, whatever they are set to.
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

static void InitStandIn(gpointer klass, gpointer data) {
    const auto& standIn = *static_cast<const StandIn*>(data);
    auto* objectClass = G_OBJECT_CLASS(klass);
    objectClass->set_property = [](GObject*, guint, const GValue*, GParamSpec*) {};
    if (g_str_equal(standIn.name, "vpudec")) {
        static GstStaticPadTemplate sink =
            GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("image/jpeg; video/x-h264"));
        gst_element_class_add_static_pad_template(GST_ELEMENT_CLASS(klass), &sink);
    }
    guint id = 1;
    for (const char* property : standIn.properties)
        g_object_class_install_property(objectClass, id++,
                                        g_param_spec_string(property, nullptr, nullptr, nullptr, G_PARAM_WRITABLE));
}

static void RegisterStandIns() {
    for (const StandIn& standIn : kStandIns) {
        GstElement* sample = gst_element_factory_make(standIn.base, nullptr);
        ASSERT_TRUE(sample) << standIn.base;
        GTypeQuery query;
        g_type_query(G_OBJECT_TYPE(sample), &query);
        GTypeInfo info = {};
        info.class_size = guint16(query.class_size);
        info.class_init = InitStandIn;
        info.class_data = &standIn;
        info.instance_size = guint16(query.instance_size);
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

    static void Plug(int index, const char* card, uint32_t fourcc, uint32_t fps = 30) {
        CameraInput& camera = CameraInputs[index];
        camera.present = 1;
        std::strncpy(camera.card, card, sizeof camera.card - 1);
        std::snprintf(camera.devicePath, sizeof camera.devicePath, "/dev/video%d", index + 4);
        camera.selected.width = 1280;
        camera.selected.height = 720;
        camera.selected.fps = fps;
        camera.selected.fourcc = fourcc;
    }

    // Both return what was logged.
    std::string Build() {
        testing::internal::CaptureStdout();
        pipeline = {};
        BuildVideoPipeline(pipeline, true);
        return testing::internal::GetCapturedStdout();
    }
    std::string Destroy() {
        testing::internal::CaptureStdout();
        DestroyVideoPipeline(pipeline);
        return testing::internal::GetCapturedStdout();
    }

    // Names of the elements from one on downstream, up to and with the compositor's pad.
    std::string Path(GstElement* element) const {
        std::string path = GST_ELEMENT_NAME(element);
        while (GstPad* pad = gst_element_get_static_pad(element, "src")) {
            GstPad* peer = gst_pad_get_peer(pad);
            gst_object_unref(pad);
            if (!peer) break;
            element = GST_PAD_PARENT(peer);
            const bool atMix = element == pipeline.mix;
            path += std::string(" ") + GST_ELEMENT_NAME(element);
            if (atMix) path += std::string(".") + GST_PAD_NAME(peer);
            gst_object_unref(peer);
            if (atMix) break;
        }
        return path;
    }
    static std::string Property(GstElement* element, const char* name) {
        GValue value = G_VALUE_INIT;
        g_object_get_property(G_OBJECT(element), name, &value);
        gchar* text = gst_value_serialize(&value);
        const std::string result = text ? text : "";
        g_free(text);
        g_value_unset(&value);
        return result;
    }

    VideoPipeline pipeline = {};
};

TEST_F(VideoPipelineTest, EachFormatTakesItsBranch) {
    struct Case {
        const char* card1;
        uint32_t fourcc1;
        const char* card2;
        uint32_t fourcc2, fps2;
        const char *told, *path1, *path2;
    };
    static constexpr const char* kListed = "AVer CAM520 Pro2";
    static constexpr const char* kParsed = "src1 capsfilter1 parse1 decode1 queue1 mix.sink_0";
    static constexpr const char* kUnparsed = "src1 capsfilter1 decode1 queue1 mix.sink_0";
    static constexpr const char* kUncompressed = "src2 capsfilter2 mix.sink_1";
    static constexpr Case kCases[] = {
        {kListed, kMjpg, "Plain Camera", kYuyv, 30, "USB1 will use JPEGPARSE!\nEnabling JPEGPARSE on USB1.\n", kParsed,
         kUncompressed},
        {"Plain Camera", kMjpg, "Logitech C310", kMjpg, 10,
         "Use JPEGDEC for camera 2.\nUSB1 frame rate does not match, enable JPEGPARSE.\nEnabling JPEGPARSE on USB1.\n",
         kParsed, "src2 capsfilter2 decode2 queue2 mix.sink_1"},
        // A stream that the parser refuses is decoded without it.
        {kListed, kH264, "Plain Camera", kYuyv, 30, "Enabling JPEGPARSE on USB1.\nCannot link capsfilter1 to parse1.\n",
         kUnparsed, kUncompressed},
    };
    for (const Case& row : kCases) {
        SetUp();
        Plug(0, row.card1, row.fourcc1, 30);
        Plug(1, row.card2, row.fourcc2, row.fps2);
        EXPECT_THAT(Build(), HasSubstr(row.told + std::string("Playing video pipeline...\n")));
        EXPECT_EQ(Path(pipeline.src1), row.path1);
        EXPECT_EQ(Path(pipeline.src2), row.path2);
        Destroy();
    }
}

TEST_F(VideoPipelineTest, SettingsAndModelsShapeTheElements) {
    Plug(1, "Brio 305", kMjpg);
    Settings.EnJpegParse = 1;
    HdmiInput.InputValid = 1;
    HdmiInput.Interlaced = 0;
    HdmiInput.Width = 1280;
    HdmiInput.Height = 720;
    EXPECT_THAT(Build(), AllOf(HasSubstr("Enabling video pipeline timestamping override\n"),
                               HasSubstr("Found Brio 305 as /dev/video5, format at 1280x720 30Hz\n"),
                               HasSubstr("Found CSI input as "), HasSubstr("Enabling JPEGPARSE on USB2.\n")));
    EXPECT_EQ(Property(pipeline.mix, "latency"), "500000000");
    EXPECT_EQ(Property(pipeline.src2, "do-timestamp"), "true");
    EXPECT_EQ(Property(pipeline.overlay_sink, "sync"), "false") << "also once the measuring sink holds it";
    EXPECT_FALSE(pipeline.hdmiIsTestPattern);

    CropHdmiInput(pipeline, {.width = 1920, .height = 1080, .cropBottom = 540});
    EXPECT_THAT(Property(pipeline.capsfilter3, "caps"), AllOf(HasSubstr("1920"), HasSubstr("1080"), HasSubstr("YUY2")));
    EXPECT_EQ(Property(pipeline.videocrop, "bottom"), "540");
    EXPECT_EQ(Destroy(),
              "Before destroying video pipeline.\nVideo pipeline GST_STATE_PAUSED success.\n"
              "Video pipeline GST_STATE_READY success.\nVideo pipeline GST_STATE_NULL success.\n"
              "Video pipeline destroyed.\n");
}

TEST_F(VideoPipelineTest, AMissingElementEndsTheProcessWithItsName) {
    // Unless chosen otherwise: where the processor is emulated, a program cannot start itself anew.
    if (!getenv("GTEST_DEATH_TEST_STYLE")) GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto buildWithout = [](const char* name) {
        GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), name);
        gst_registry_remove_feature(gst_registry_get(), feature);
        VideoPipeline broken = {};
        BuildVideoPipeline(broken, false);
    };
    EXPECT_DEATH(buildWithout("imxcompositor_g2d"), "gstreamer:.*ManageDynamicGStreamer: .*pipeline\\.mix");
    EXPECT_DEATH(buildWithout("vpudec"), "gstreamer:.*instanciateJpegDecoder: .*elem");
}

// A pipeline that did not get off the ground passes PAUSED on its way to NULL.
TEST_F(VideoPipelineTest, SourceThatStandsStillIsNotStartedToBeStopped) {
    for (const GstState state : {GST_STATE_NULL, GST_STATE_READY}) {
        Plug(0, "HD Webcam", kMjpg);
        Build();
        gst_element_set_state(pipeline.pipeline, state);
        static bool started;
        started = false;
        const auto watch = [](GstBus*, GstMessage* message, gpointer source) {
            GstState now = GST_STATE_NULL;
            if (GST_MESSAGE_SRC(message) == source && GST_MESSAGE_TYPE(message) == GST_MESSAGE_STATE_CHANGED)
                gst_message_parse_state_changed(message, nullptr, &now, nullptr);
            started = started || now == GST_STATE_PAUSED;
            return GST_BUS_PASS;
        };
        gst_bus_set_sync_handler(pipeline.bus, watch, pipeline.src1, nullptr);
        EXPECT_THAT(Destroy(), HasSubstr("Video pipeline destroyed.\n"));
        EXPECT_FALSE(started) << gst_element_state_get_name(state);
    }
}

// An error rebuilds the video where there is one; other codes concern the audio, or nobody.
TEST(BusMessages, EachCodeHasItsConsequence) {
    struct Case {
        GstMessage* (*make)(GstObject*, GError*, const gchar*);
        int code;
        uint8_t cameraPresent;
        const char* told;
        int audioRestart, pipelineRestart, audioBug;
    };
    static constexpr auto kError = gst_message_new_error, kWarning = gst_message_new_warning;
    static constexpr Case kCases[] = {
        {kError, 1, 0, "Got error message\n***** Error: out of order\n***** Code: 1\n", 2, 0, 0},
        {kError, 1, 1, "***** Code: 1\n", 2, 1, 0},
        {kError, 9, 1, "***** Code: 9\n", 0, 0, 0},
        {kError, 4, 1, "error err->code == 4\n", 2, 0, 0},
        {kWarning, 3, 1, "***** Warning: out of order\n***** Code: 3\nwarning err->code == 3\n", 1, 0, 0},
        {kWarning, 2, 1, "***** Audio bug, need to restart pipeline\n", 0, 0, 1},
    };
    gst_init(nullptr, nullptr);
    HdmiInput.InputValid = 0;
    CameraInputs[0].present = 0;
    for (const Case& row : kCases) {
        for (auto* flag : {&AudioRestart, &PipelineRestart, &AudioBug}) *flag = 0;
        CameraInputs[1].present = row.cameraPresent;
        GError* error = g_error_new(GST_RESOURCE_ERROR, row.code, "out of order");
        GstMessage* message = row.make(nullptr, error, nullptr);
        testing::internal::CaptureStdout();
        HandleBusMessage(nullptr, message);
        EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr(row.told));
        EXPECT_EQ(AudioRestart, row.audioRestart) << row.told;
        EXPECT_EQ(PipelineRestart, row.pipelineRestart) << row.told;
        EXPECT_EQ(AudioBug, row.audioBug) << row.told;
        gst_message_unref(message);
        g_error_free(error);
    }
    AudioBug = 0;
    CameraInputs[1].present = 0;
}
