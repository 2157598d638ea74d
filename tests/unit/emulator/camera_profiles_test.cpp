#include "capture/camera_profiles.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

TEST(CameraProfiles, ThoseOfTheFolderAreGood) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(CameraProfileFolder())) {
        if (entry.path().extension() != ".json") continue;
        std::ifstream stream(entry.path());
        const std::string text(std::istreambuf_iterator<char>(stream), {});
        const auto [profile, error] = ParseCameraProfile(text, entry.path());
        EXPECT_EQ(error, "");
        EXPECT_EQ(profile.name, entry.path().stem());
        EXPECT_FALSE(profile.description.empty() || profile.formats.empty()) << entry.path();
        ++count;
    }
    EXPECT_GE(count, 15u);
}

TEST(CameraProfiles, SizesAndRatesAreParsedWholeOrNotAtAll) {
    EXPECT_EQ(ParseCaptureSize("160x120..640x480 step 16x8")->range.step_width, 16u);
    EXPECT_EQ(ParseCaptureSize("160x120..1920x1080")->type, V4L2_FRMSIZE_TYPE_CONTINUOUS);
    for (const char* wrong :
         {"", "1280", "1280x", "x720", "1280x720x", "-1x2", "1x2 step 3x4", "1x2..3", "99999999999x1"})
        EXPECT_FALSE(ParseCaptureSize(wrong)) << wrong;
    for (const char* wrong : {"", "30/", "thirty", "-5", "29.97"}) EXPECT_FALSE(ParseRate(wrong)) << wrong;
}

TEST(CameraProfiles, KeepOrderOfFormatsAndSizes) {
    const auto [profile, error] = ParseCameraProfile(
        R"({"card": "c", "formats": {"YUYV": {"9x9": [1], "1x1": [2, "30000/1001"], "5x5": "5..30"}, "MJPG": {}}})",
        "x/order.json");
    ASSERT_EQ(error, "");
    ASSERT_EQ(profile.formats.size(), 2u);
    EXPECT_EQ(profile.formats[0].fourcc, V4L2_PIX_FMT_YUYV);
    ASSERT_EQ(profile.formats[0].sizes.size(), 3u);
    EXPECT_EQ(profile.formats[0].sizes[0].range.max_width, 9u);
    EXPECT_EQ(profile.formats[0].sizes[1].intervals[1].numerator, 1001u);
    EXPECT_EQ(profile.formats[0].sizes[2].intervalType, V4L2_FRMIVAL_TYPE_CONTINUOUS);
    EXPECT_EQ(profile.formats[0].sizes[2].intervals[0].denominator, 30u) << "the shortest interval comes first";
}

TEST(CameraProfiles, BadOnesAreRefusedWithTheReason) {
    struct Wrong {
        const char *json, *says;
    };
    static constexpr Wrong kWrong[] = {
        {"{", "parse error"},
        {R"({"formats": {}})", "card"},
        {R"({"card": "c", "formats": {"JPEGS": {}}})", "JPEGS"},
        {R"({"card": "c", "formats": {"MJPG": {"big": [30]}}})", "big"},
        {R"({"card": "c", "formats": {"MJPG": {"1x1": ["fast"]}}})", "fast"},
        {R"({"card": "c", "formats": {}, "repeats": 5000})", "repeats"},
        {R"({"card": "c", "formats": {}, "controls": [{"name": "Zoom", "id": "zoom"}]})", "zoom"},
        {R"({"card": "c", "formats": {}, "controls": [{"name": "Z", "id": "0x9a09", "moves": {"from": 2, "to": 1}}]})",
         "moves"},
        {R"({"card": "c", "formats": {}, "controls": [{"name": "Z", "id": "0x9a090d", "minimum": 9, "maximum": 1}]})",
         "\"Z\""},
        {R"({"card": "c", "formats": {}, "microphone": {"channels": 0, "rates": [48000]}})", "1 to 8 channels"},
        {R"({"card": "c", "formats": {}, "extensionUnits": [{"unit": 1, "selector": 1, "data": []}]})", "1024"},
    };
    for (const auto& [json, says] : kWrong) {
        const std::string error = ParseCameraProfile(json, "cameras/wrong.json").error;
        EXPECT_TRUE(error.starts_with("cameras/wrong.json: ")) << json;
        EXPECT_NE(error.find(says), std::string::npos) << json << " answers " << error;
    }
}
