// The compositor as an element: what becomes of its properties while frames are composed.
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <array>

namespace {

struct Colours {
    uint32_t left, right;
    bool operator==(const Colours&) const = default;
};

constexpr uint32_t kWhite = 0xffffff, kBlack = 0;
constexpr int kFramesUnderWay = 4;  // composed before their turn

// In the middle of both halves of a frame that was composed after the call.
Colours Shown(GstElement* out) {
    for (int i = 0;; ++i) {
        GstSample* sample = nullptr;
        g_signal_emit_by_name(out, "try-pull-sample", guint64{20 * GST_SECOND}, &sample);
        if (!sample) return {};
        std::array<uint32_t, 64 * 32> pixels{};
        gst_buffer_extract(gst_sample_get_buffer(sample), 0, pixels.data(), sizeof pixels);
        gst_sample_unref(sample);
        if (i == kFramesUnderWay) return {pixels[16 * 64 + 16] & 0xffffff, pixels[16 * 64 + 48] & 0xffffff};
    }
}

}  // namespace

TEST(Compositor, HalfALayoutIsNotShown) {
    gst_init(nullptr, nullptr);
    ASSERT_TRUE(gst_plugin_load_file(TESSEL_PLUGIN_PATH, nullptr));
    GstElement* const pipeline = gst_parse_launch(
        "imxcompositor_g2d name=mix sink_0::width=32 sink_1::width=32 sink_1::xpos=32 ! "
        "video/x-raw,format=BGRx,width=64,height=32 ! appsink name=out max-buffers=1 sync=false "
        "videotestsrc pattern=white ! video/x-raw,width=64,height=32 ! mix.sink_0 "
        "videotestsrc pattern=black ! video/x-raw,width=64,height=32 ! mix.sink_1",
        nullptr);
    ASSERT_TRUE(pipeline);
    GstElement* const mix = gst_bin_get_by_name(GST_BIN(pipeline), "mix");
    GstElement* const out = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    GstPad* const white = gst_element_get_static_pad(mix, "sink_0");
    GstPad* const black = gst_element_get_static_pad(mix, "sink_1");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    EXPECT_EQ(Shown(out), (Colours{kWhite, kBlack}));

    g_object_freeze_notify(G_OBJECT(black));
    g_object_set(black, "xpos", 0, nullptr);
    g_object_set(white, "xpos", 32, nullptr);
    EXPECT_EQ(Shown(out), (Colours{kWhite, kBlack}));  // of both, until both have told
    g_object_thaw_notify(G_OBJECT(black));
    EXPECT_EQ(Shown(out), (Colours{kBlack, kWhite}));

    gst_element_set_state(pipeline, GST_STATE_NULL);
    for (gpointer const object : {gpointer(white), gpointer(black), gpointer(mix), gpointer(out), gpointer(pipeline)})
        gst_object_unref(object);
}
