// The decisions of the video thread: what makes it lay out, switch, rebuild.
#include <gtest/gtest.h>

#include <cstring>

#include "gstreamer/pipeline_choices.h"
#include "gstreamer/supervision_rules.h"

static SelectedFormat Format(uint32_t fourcc, uint32_t width, uint32_t height, uint32_t fps) {
    SelectedFormat format = {};
    format.fourcc = fourcc;
    format.width = width;
    format.height = height;
    format.fps = fps;
    return format;
}

TEST(CameraCaps, NameFormatSizeAndRate) {
    SelectedFormat mjpg = Format(kMjpg, 1920, 1080, 30);
    EXPECT_EQ(CameraCaps(mjpg), "image/jpeg, width=(int)1920, height=(int)1080, framerate=(fraction)30/1");
    SelectedFormat h264 = Format(kH264, 1280, 720, 25);
    EXPECT_EQ(CameraCaps(h264), "video/x-h264, width=(int)1280, height=(int)720, framerate=(fraction)25/1");
    SelectedFormat yuyv = Format(kYuyv, 640, 360, 30);
    EXPECT_EQ(CameraCaps(yuyv), "video/x-raw, width=(int)640, height=(int)360, framerate=(fraction)30/1");
    SelectedFormat absent = Format(0, 640, 360, 30);
    EXPECT_EQ(CameraCaps(absent), kIdleCaps);
    SelectedFormat broken = Format(kMjpg, 0, 0, 30);
    EXPECT_EQ(CameraCaps(broken), kIdleCaps);
}

TEST(CameraCaps, AnImplausibleRateIsScaledWhereItIsStoredAndNotNamed) {
    SelectedFormat format = Format(kMjpg, 1280, 720, 1000000);
    EXPECT_EQ(CameraCaps(format), "image/jpeg, width=(int)1280, height=(int)720");
    EXPECT_EQ(format.fps, 10000u);

    SelectedFormat border = Format(kMjpg, 1280, 720, 1999);
    EXPECT_EQ(CameraCaps(border), "image/jpeg, width=(int)1280, height=(int)720, framerate=(fraction)1999/1");
    EXPECT_EQ(border.fps, 1999u);

    SelectedFormat yuyv = Format(kYuyv, 640, 360, 2000);
    CameraCaps(yuyv);
    EXPECT_EQ(yuyv.fps, 2000u);
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
    const HdmiCapture alternate = ChooseAlternateCapture(status);
    EXPECT_EQ(HdmiCaps(alternate), "video/x-raw, width=(int)720, height=(int)576, format=(string)YUY2");
    EXPECT_EQ(alternate.cropBottom, 288);

    status.Interlaced = 0;
    EXPECT_EQ(ChooseHdmiCapture(status).height, 540);
    EXPECT_EQ(ChooseHdmiCapture(status).cropBottom, 0);
}

TEST(PipelineTraits, OneCameraSetsThePaceOfAllButStillImagesAreItsOwn) {
    EXPECT_STREQ(CompositorLatency(ChooseTraits("Some Camera", "")), "0");
    EXPECT_STREQ(CompositorLatency(ChooseTraits("", "HD Pro Webcam C920")), "50000000");
    EXPECT_STREQ(CompositorLatency(ChooseTraits("HD Pro Webcam C920", "Brio 305")), "500000000");
    const PipelineTraits canvas = ChooseTraits("", "Huddly Canvas: Video");
    EXPECT_TRUE(canvas.timestampOverride);
    EXPECT_FALSE(canvas.stillImage[0]);
    EXPECT_TRUE(canvas.stillImage[1]);
}

TEST(Parser, IsUsedByListBySettingAndWhereTheOtherCameraIsMuchSlower) {
    const ParserFacts plain = {.listed = false, .enabled = false, .otherPresent = true, .fps = 30, .otherFps = 30};
    const auto with = [&](auto change) {
        ParserFacts facts = plain;
        change(facts);
        return ChooseParser(facts);
    };
    EXPECT_FALSE(ChooseParser(plain).useParse);
    EXPECT_TRUE(with([](ParserFacts& f) { f.listed = true; }).useParse);
    EXPECT_TRUE(with([](ParserFacts& f) { f.enabled = true; }).useParse);
    EXPECT_TRUE(with([](ParserFacts& f) { f.otherFps = 10; }).rateMismatch);
    EXPECT_TRUE(with([](ParserFacts& f) { f.otherFps = 14; }).useParse);
    EXPECT_FALSE(with([](ParserFacts& f) { f.otherFps = 15; }).useParse) << "half is not below half";
    EXPECT_TRUE(with([](ParserFacts& f) { f.fps = 31, f.otherFps = 15; }).useParse)
        << "half of an odd rate is a real number";
    EXPECT_FALSE(with([](ParserFacts& f) { f.fps = 10; }).useParse) << "the slower one needs none";
    EXPECT_FALSE(with([](ParserFacts& f) { f.otherFps = 10, f.otherPresent = false; }).useParse);
}

static constexpr HdmiSnapshot kNone = {.signalDetect = 0, .inputValid = 0, .altValid = 0, .width = 0, .height = 0};
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
    EXPECT_TRUE(HdmiChangesLayout(kFullHd, kNone));
    EXPECT_FALSE(HdmiChangesLayout(kNone, kFullHd));
    HdmiSnapshot both = kFullHd;
    both.altValid = 1;
    EXPECT_TRUE(HdmiChangesLayout(kFullHd, both));
    EXPECT_FALSE(HdmiChangesLayout(both, kFullHd));
}

TEST(ShownSettings, EveryFieldThatShapesThePictureCounts) {
    DeviceSettings record;
    std::memset(static_cast<void*>(&record), 0, sizeof record);
    const ShownSettings before = NoteSettings(record);
    for (SharedByte* field : {&record.View, &record.Swap, &record.SwHdmi, &record.Input, &record.Black, &record.Inv1,
                              &record.Inv2, &record.Inv3, &record.Inv4}) {
        *field = 1;
        EXPECT_NE(NoteSettings(record), before);
        *field = 0;
    }
    record.AoutHdmi = 1;
    record.Pad0Rect.right = 1920;
    EXPECT_EQ(NoteSettings(record), before);
}

static constexpr SecondPlaceFacts kS2Again = {.deviceId = 0,
                                              .view = kViewS2,
                                              .s2Count = 1,
                                              .swHdmi = 0,
                                              .shownView = kViewS2,
                                              .shownSwHdmi = 0,
                                              .hdmiActive = true,
                                              .camera2Present = true};

TEST(SecondPlace, ChoosingS2AgainSwapsItsTwoSources) {
    SecondPlaceFacts facts = kS2Again;
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 1);
    EXPECT_EQ(ChooseSecondPlace(facts).s2Count, 0);
    facts.swHdmi = 1;
    facts.shownSwHdmi = 1;
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 0);
    EXPECT_FALSE(ChooseSecondPlace(facts).applyFirst);

    facts.shownSwHdmi = 0;
    EXPECT_TRUE(ChooseSecondPlace(facts).applyFirst);

    facts = kS2Again;
    facts.shownView = kViewSS;
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 0) << "the first choice only shows it";
    EXPECT_EQ(ChooseSecondPlace(facts).s2Count, 0);

    facts.view = kViewSS;
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 0);
    EXPECT_EQ(ChooseSecondPlace(facts).s2Count, 0);

    facts = kS2Again;
    facts.deviceId = 1;
    facts.hdmiActive = false;
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 0);
    EXPECT_EQ(ChooseSecondPlace(facts).s2Count, 1);
}

TEST(SecondPlace, FollowsTheOnlySourceThereIsOnVariant0) {
    SecondPlaceFacts facts = kS2Again;
    facts.view = kViewSS;
    facts.camera2Present = false;
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 1);
    facts.hdmiActive = false;
    facts.swHdmi = 1;
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 0);
    facts.camera2Present = true;
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 0);
    facts.hdmiActive = true;
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 1) << "with both there the operator's choice stays";

    facts = {.deviceId = 3,
             .view = kViewS1,
             .s2Count = 0,
             .swHdmi = 1,
             .shownView = kViewS1,
             .shownSwHdmi = 1,
             .hdmiActive = false,
             .camera2Present = false};
    EXPECT_EQ(ChooseSecondPlace(facts).swHdmi, 1);
}

TEST(InputStep, SwitchesPortsOnceAndThenShows) {
    HdmiInputStatus hdmi = {};
    hdmi.Port = 0;
    hdmi.Width = 1920;
    hdmi.AltWidth = 1920;
    hdmi.Height = 1080;
    hdmi.AltHeight = 1080;
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
