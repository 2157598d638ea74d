// The decisions of the video thread: what makes it lay out, switch, rebuild.
#include <gtest/gtest.h>

#include "gstreamer/pipeline_choices.h"
#include "gstreamer/supervision_rules.h"

TEST(CameraCaps, NameFormatSizeAndRate) {
    struct Case {
        uint32_t fourcc, width, height, fps;
        const char* caps;
        uint32_t fpsAfter;
    };
    static constexpr Case kCases[] = {
        {kMjpg, 1920, 1080, 30, "image/jpeg, width=(int)1920, height=(int)1080, framerate=(fraction)30/1", 30},
        {kYuyv, 640, 360, 2000, "video/x-raw, width=(int)640, height=(int)360, framerate=(fraction)2000/1", 2000},
        // An implausible rate is scaled where it is stored and not named.
        {kMjpg, 1280, 720, 1999, "image/jpeg, width=(int)1280, height=(int)720, framerate=(fraction)1999/1", 1999},
        {kMjpg, 1280, 720, 1000000, "image/jpeg, width=(int)1280, height=(int)720", 10000},
        {0, 640, 360, 30, kIdleCaps, 30},
        {kMjpg, 0, 0, 30, kIdleCaps, 30},
    };
    for (const Case& row : kCases) {
        SelectedFormat format = {};
        format.fourcc = row.fourcc;
        format.width = row.width;
        format.height = row.height;
        format.fps = row.fps;
        EXPECT_EQ(CameraCaps(format), row.caps);
        EXPECT_EQ(format.fps, row.fpsAfter) << row.caps;
    }
}

TEST(HdmiCapture, AnInterlacedInputIsCapturedTwiceAsHighAndCroppedToOneField) {
    HdmiInputStatus status = {};
    status.Width = 1920;
    status.Height = 540;
    status.Interlaced = 1;
    const HdmiCapture capture = ChooseHdmiCapture(status);
    EXPECT_EQ(HdmiCaps(capture), "video/x-raw, width=(int)1920, height=(int)1080, format=(string)YUY2");
    EXPECT_EQ(capture.cropBottom, 540);

    status.AltWidth = 720;
    status.AltHeight = 288;
    status.AltFlag = 1;
    status.Interlaced = 0;
    const HdmiCapture alternate = ChooseAlternateCapture(status);
    EXPECT_EQ(HdmiCaps(alternate), "video/x-raw, width=(int)720, height=(int)576, format=(string)YUY2");
    EXPECT_EQ(alternate.cropBottom, 288);
}

TEST(PipelineTraits, OneCameraSetsThePaceOfAllButStillImagesAreItsOwn) {
    EXPECT_STREQ(CompositorLatency(ChooseTraits("Some Camera", "")), "0");
    EXPECT_STREQ(CompositorLatency(ChooseTraits("", "HD Pro Webcam C920")), "50000000");
    EXPECT_STREQ(CompositorLatency(ChooseTraits("HD Pro Webcam C920", "Brio 305")), "500000000");
    EXPECT_EQ(ChooseTraits("", "Huddly Canvas: Video").stillImage, (std::array{false, true}));
}

TEST(Parser, IsUsedByListBySettingAndWhereTheOtherCameraIsMuchSlower) {
    struct Case {
        ParserFacts facts;  // listed, enabled, otherPresent, fps, otherFps
        bool useParse, rateMismatch;
    };
    static constexpr Case kCases[] = {
        {{false, false, true, 30, 30}, false, false},  {{true, false, true, 30, 30}, true, false},
        {{false, true, true, 30, 30}, true, false},    {{false, false, true, 30, 14}, true, true},
        {{false, false, true, 30, 15}, false, false},  // half is not below half
        {{false, false, true, 31, 15}, true, true},    // half of an odd rate is a real number
        {{false, false, true, 10, 30}, false, false},  // the slower one needs none
        {{false, false, false, 30, 10}, false, false},
    };
    for (const Case& row : kCases) {
        const ParserChoice choice = ChooseParser(row.facts);
        EXPECT_EQ(choice.useParse, row.useParse) << row.facts.fps << " beside " << row.facts.otherFps;
        EXPECT_EQ(choice.rateMismatch, row.rateMismatch) << row.facts.fps << " beside " << row.facts.otherFps;
    }
}

static constexpr HdmiSnapshot kNone = {};
static constexpr HdmiSnapshot kFullHd = {
    .signalDetect = 1, .inputValid = 1, .altValid = 0, .width = 1920, .height = 1080};
static constexpr HdmiSnapshot kHd = {.signalDetect = 1, .inputValid = 1, .altValid = 0, .width = 1280, .height = 720};

TEST(HdmiInput, ReconfiguresWhenASourceComesReturnsOrMeetsATestPattern) {
    EXPECT_TRUE(HdmiInputChanged(kNone, kFullHd, false, false));
    EXPECT_FALSE(HdmiInputChanged(kFullHd, kFullHd, false, false));
    EXPECT_TRUE(HdmiInputChanged(kFullHd, kFullHd, true, false));
    EXPECT_TRUE(HdmiInputChanged(kFullHd, kFullHd, false, true));

    HdmiSnapshot lost = kFullHd;
    lost.inputValid = 0;
    EXPECT_FALSE(HdmiInputChanged(lost, kFullHd, false, false)) << "it kept its signal and its size";
    EXPECT_TRUE(HdmiInputChanged(lost, kHd, false, false));
    lost.signalDetect = 0;
    EXPECT_TRUE(HdmiInputChanged(lost, kFullHd, false, false));
    EXPECT_FALSE(HdmiInputChanged(kFullHd, lost, true, true)) << "without a picture there is nothing to capture";
}

TEST(HdmiInput, IsRebuiltOnlyWhenNoSideOfThePictureFits) {
    const HdmiCapture fullHd = {1920, 1080, 0};
    EXPECT_FALSE(HdmiNeedsNewPipeline(kFullHd, fullHd, false, 0));
    EXPECT_TRUE(HdmiNeedsNewPipeline(kHd, fullHd, false, 0));
    HdmiSnapshot wide = kFullHd;
    wide.width = 1440;
    EXPECT_FALSE(HdmiNeedsNewPipeline(wide, fullHd, false, 0));
    EXPECT_TRUE(HdmiNeedsNewPipeline(kFullHd, fullHd, false, 2));
    EXPECT_TRUE(HdmiNeedsNewPipeline(kFullHd, fullHd, true, 0)) << "a test pattern never becomes the input";
    EXPECT_FALSE(HdmiNeedsNewPipeline(kNone, kIdleHdmiCapture, true, 0)) << "gone again meanwhile";
}

TEST(HdmiInput, LosingItOrASignalOnTheOtherPortChangesTheLayout) {
    HdmiSnapshot both = kFullHd;
    both.altValid = 1;
    EXPECT_TRUE(HdmiChangesLayout(kFullHd, kNone));
    EXPECT_FALSE(HdmiChangesLayout(kNone, kFullHd));
    EXPECT_TRUE(HdmiChangesLayout(kFullHd, both));
    EXPECT_FALSE(HdmiChangesLayout(both, kFullHd));
}

// Choosing S2 again swaps its two sources; on variant 0 the second place follows the only source there is.
TEST(SecondPlace, HoldsWhatWasChosenOrIsThere) {
    struct Case {
        const char* what;
        SecondPlaceFacts facts;  // variant, view, s2Count, swHdmi, shown view and swHdmi, HDMI active, camera 2 present
        SecondPlaceChoice choice;  // applyFirst, swHdmi, s2Count
    };
    static constexpr Case kCases[] = {
        {"S2 again", {0, kViewS2, 1, 0, kViewS2, 0, true, true}, {false, 1, 0}},
        {"and once more", {0, kViewS2, 1, 1, kViewS2, 1, true, true}, {false, 0, 0}},
        {"a choice that is not shown yet", {0, kViewS2, 1, 1, kViewS2, 0, true, true}, {true, 0, 0}},
        {"the first choice only shows it", {0, kViewS2, 1, 0, kViewSS, 0, true, true}, {false, 0, 0}},
        {"another view", {0, kViewSS, 1, 0, kViewSS, 0, true, true}, {false, 0, 0}},
        {"nothing to swap with", {1, kViewS2, 1, 0, kViewS2, 0, false, true}, {false, 0, 1}},
        {"HDMI alone", {0, kViewSS, 1, 0, kViewS2, 0, true, false}, {false, 1, 0}},
        {"neither", {0, kViewSS, 1, 1, kViewS2, 0, false, false}, {false, 0, 0}},
        {"camera 2 alone", {0, kViewSS, 1, 1, kViewS2, 0, false, true}, {false, 0, 0}},
        {"with both there the operator's choice stays", {0, kViewSS, 1, 1, kViewS2, 0, true, true}, {false, 1, 0}},
        {"on other variants it stays", {3, kViewS1, 0, 1, kViewS1, 1, false, false}, {false, 1, 0}},
    };
    for (const Case& row : kCases) {
        const SecondPlaceChoice choice = ChooseSecondPlace(row.facts);
        EXPECT_EQ(choice.applyFirst, row.choice.applyFirst) << row.what;
        EXPECT_EQ(choice.swHdmi, row.choice.swHdmi) << row.what;
        EXPECT_EQ(choice.s2Count, row.choice.s2Count) << row.what;
    }
}

TEST(InputStep, SwitchesPortsOnceAndThenShows) {
    HdmiInputStatus hdmi = {};
    for (auto* width : {&hdmi.Width, &hdmi.AltWidth}) *width = 1920;
    for (auto* height : {&hdmi.Height, &hdmi.AltHeight}) *height = 1080;
    hdmi.AltValid = 1;
    for (int input : {1, 2}) EXPECT_EQ(ChooseInputStep(1, uint8_t(input), hdmi, false, false), InputStep::kShow);
    EXPECT_EQ(ChooseInputStep(0, 4, hdmi, false, false), InputStep::kShow) << "variant 0 has no inputs to select";
    EXPECT_EQ(ChooseInputStep(1, 3, hdmi, false, false), InputStep::kShowHdmi);
    EXPECT_EQ(ChooseInputStep(1, 4, hdmi, false, false), InputStep::kSwitchPort);
    EXPECT_EQ(ChooseInputStep(1, 4, hdmi, true, false), InputStep::kShowHdmi);
    EXPECT_EQ(ChooseInputStep(1, 4, hdmi, true, true), InputStep::kSwitchPort) << "a refresh switches again";

    hdmi.AltHeight = 720;
    EXPECT_EQ(ChooseInputStep(1, 4, hdmi, false, false), InputStep::kSwitchFormat);
    hdmi.AltValid = 0;
    EXPECT_EQ(ChooseInputStep(1, 4, hdmi, false, false), InputStep::kShow) << "nothing there to switch to";
    hdmi.Port = 1;
    EXPECT_EQ(ChooseInputStep(2, 4, hdmi, false, false), InputStep::kShowHdmi);
}
