#include "camera_profiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

// The camera lists and size preferences that the fixed profiles are made to meet.
struct CardOf {
    const char* profile;
    const char* fragment;
};
static constexpr CardOf kCards[] = {{"no-fullhd", "C270"},     {"low-rate", "HD Pro Webcam C920"},
                                    {"timestamp", "Brio 305"}, {"still-image", "Huddly Canvas"},
                                    {"jpegparse", "UVC84"},    {"ptz-speed", "CAM520"},
                                    {"ptz-absolute", "Logi"}};

static CameraProfileResult FromFile(const std::filesystem::path& file) {
    std::ifstream stream(file);
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    return ParseCameraProfile(text, file);
}

TEST(CameraProfiles, ThoseOfTheFolderAreGood) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(CameraProfileFolder())) {
        if (entry.path().extension() != ".json") continue;
        const CameraProfileResult result = FromFile(entry.path());
        EXPECT_EQ(result.error, "");
        EXPECT_EQ(result.profile.name, entry.path().stem());
        EXPECT_FALSE(result.profile.description.empty()) << entry.path();
        EXPECT_FALSE(result.profile.formats.empty()) << entry.path();
        ++count;
    }
    EXPECT_GE(count, 15u);
}

TEST(CameraProfiles, CardsMeetTheCameraLists) {
    for (const auto& [profile, fragment] : kCards)
        EXPECT_NE(FromFile(CameraProfileFolder() / (std::string(profile) + ".json")).profile.card.find(fragment),
                  std::string::npos)
            << profile;
    const auto many = FromFile(CameraProfileFolder() / "many-sizes.json").profile;
    EXPECT_GT(many.formats.at(0).sizes.size(), 50u);
    EXPECT_GT(many.formats.at(0).sizes.at(0).intervals.size(), 11u);
}

TEST(CameraProfiles, SizesAndRates) {
    const auto discrete = ParseCaptureSize("1280x720"), continuous = ParseCaptureSize("160x120..1920x1080"),
               stepped = ParseCaptureSize("160x120..640x480 step 16x8");
    ASSERT_TRUE(discrete && continuous && stepped);
    EXPECT_EQ(discrete->type, V4L2_FRMSIZE_TYPE_DISCRETE);
    EXPECT_EQ(discrete->range.min_width, discrete->range.max_width);
    EXPECT_EQ(continuous->type, V4L2_FRMSIZE_TYPE_CONTINUOUS);
    EXPECT_EQ(continuous->range.max_height, 1080u);
    EXPECT_EQ(stepped->type, V4L2_FRMSIZE_TYPE_STEPWISE);
    EXPECT_EQ(stepped->range.step_width, 16u);
    for (const char* wrong :
         {"", "1280", "1280x", "x720", "1280x720x", "-1x2", "1x2 step 3x4", "1x2..3", "99999999999x1"})
        EXPECT_FALSE(ParseCaptureSize(wrong)) << wrong;

    const auto film = ParseRate("30000/1001");
    ASSERT_TRUE(film);
    EXPECT_EQ(film->numerator, 1001u);
    EXPECT_EQ(film->denominator, 30000u);
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

struct Wrong {
    const char* json;
    const char* says;
};

TEST(CameraProfiles, BadOnesAreRefusedWithTheReason) {
    static constexpr Wrong kWrong[] = {
        {"{", "parse error"},
        {R"({"formats": {}})", "card"},
        {R"({"card": "c"})", "formats"},
        {R"({"card": 7, "formats": {}})", "string"},
        {R"({"card": "c", "formats": {"JPEGS": {}}})", "JPEGS"},
        {R"({"card": "c", "formats": {"MJPG": {"big": [30]}}})", "big"},
        {R"({"card": "c", "formats": {"MJPG": {"1x1": ["fast"]}}})", "fast"},
        {R"({"card": "c", "formats": {"MJPG": {"1x1": 30}}})", "30"},
        {R"({"card": "c", "formats": {}, "repeats": 5000})", "repeats"},
        {R"({"card": "c", "formats": {}, "controls": [{"name": "Zoom", "id": "zoom"}]})", "zoom"},
        {R"({"card": "c", "formats": {}, "controls": [{"name": "Pan", "id": "0x009a0920", "moves": {"from": 9, "to": 1}}]})",
         "moves"},
        {R"({"card": "c", "formats": {}, "controls": [{"name": "Zoom", "id": "0x009a090d", "minimum": 9, "maximum": 1}]})",
         "Zoom"},
        {R"({"card": "c", "formats": {}, "extensionUnits": [{"unit": 1, "selector": 1, "data": []}]})", "1024"},
    };
    for (const auto& [json, says] : kWrong) {
        const std::string error = ParseCameraProfile(json, "cameras/wrong.json").error;
        EXPECT_TRUE(error.starts_with("cameras/wrong.json: ")) << json;
        EXPECT_NE(error.find(says), std::string::npos) << json << " answers " << error;
    }
}
