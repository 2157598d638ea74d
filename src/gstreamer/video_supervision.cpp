#include "gstreamer/video_supervision.h"

#include <chrono>
#include <thread>

#include "commands/report_view.h"
#include "core/health.h"
#include "core/log.h"
#include "gstreamer/autosave.h"
#include "gstreamer/bus_messages.h"
#include "gstreamer/hdmi_input_switch.h"
#include "gstreamer/supervision_rules.h"
#include "gstreamer/video_pipeline.h"
#include "settings/device_identity.h"
#include "settings/process_flags.h"
#include "video/hdmi_output.h"
#include "video/layout.h"

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::this_thread::sleep_for;

static constexpr uint32_t kFramesOfFlow = 10;  // frames that prove that a change has reached the display

// What one life remembers from pass to pass.
struct VideoLife {
    const VideoDeviceMonitor& monitor;
    DeviceSettings& savedSettings;  // as last saved; layout fields as of the last pass
    SteadyTime lastAutosaveCheck;
    VideoPipeline pipeline = {};
    FrameSize frame = {};        // output frame
    bool started = false;        // there is something to show, and something to show it on
    uint8_t monitorPlugged = 0;  // HDMI output status
    HdmiSnapshot hdmi = {};      // HDMI input at the end of the last pass
    uint8_t selectedInput = 0;   // Input whose receiver port was selected for this life
    FrameSize adapted = {};      // HDMI input size that the receiver's output mode was last checked against
    ShownSettings shown = {};    // lastView, lastSwap, lastInput and what else the picture is made from
    bool switchPending = false;  // an HDMI port change waits to be shown
};

enum class Outcome { kGoOn, kDone, kFailed };

// ---- What surrounds the pipeline

static bool ReadOutput(VideoLife& life) {
    OutputMode mode = {};
    if (GetHDMIOutput(mode) != 0) LogInfo("Can't get HDMI output timing.\n");
    unsigned width = 0, height = 0;
    if (ReadFramebufferInfo(width, height) != 0) return false;
    life.frame = {static_cast<uint16_t>(width), static_cast<uint16_t>(height)};
    return true;
}

enum class MonitorChange { kNone, kConnected, kDisconnected, kUnreadable };

static MonitorChange CheckMonitor(VideoLife& life) {
    uint8_t plugged = 0;
    if (ReadHdmiCableState(plugged) != 0) {
        LogInfo("Can't get HDMI output status.\n");
        return MonitorChange::kUnreadable;
    }
    const uint8_t before = life.monitorPlugged;
    life.monitorPlugged = plugged;
    if (plugged == before) return MonitorChange::kNone;
    return plugged ? MonitorChange::kConnected : MonitorChange::kDisconnected;
}

static bool SetOutputForNewMonitor() {
    LogInfo("HDMI output status change. Reconfiguring video pipeline.\n");
    return SetHdmiOutput(Settings.OutputTiming, 0) == 0;
}

static bool SomebodyWatches(const VideoLife& life) { return Settings.UsbStream != 0 || life.monitorPlugged; }

static bool AnythingToShow() { return CameraInputs[0].present || CameraInputs[1].present || HdmiInput.InputValid; }

// A device that is plugged reports several times, and one that starts up may come and go: only quiet counts.
static bool FollowDevices(const VideoLife& life) {
    if (PollVideoDeviceMonitor(life.monitor) != 0) return false;
    do sleep_for(1s);
    while (PollVideoDeviceMonitor(life.monitor) == 0);
    LogInfo("Detected video device change, will restart video and audio pipelines...\n");
    AudioRestart = 1;
    PipelineRestart = 1;
    return true;
}

static void PopBus(const VideoPipeline& pipeline, milliseconds timeout) {
    const GstClockTime limit = static_cast<GstClockTime>(timeout.count()) * GST_MSECOND;
    const auto types = static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS);
    GstMessage* message = gst_bus_timed_pop_filtered(pipeline.bus, limit, types);
    if (!message) return;
    HandleBusMessage(pipeline.bus, message);
    gst_message_unref(message);
}

static uint32_t ReadFrameCount(const VideoPipeline& pipeline) {
    guint frames = 0;
    g_object_get(pipeline.video_sink, "frames-rendered", &frames, nullptr);
    FrameCount = frames;
    return frames;
}

static void ExpectFrames(VideoPipeline& pipeline) {
    pipeline.framesAtCheck = ReadFrameCount(pipeline);
    pipeline.checkFrames = 1;
}

// ---- Layout

// The windows are a consequence of the layout: the shadow follows, so that a layout never looks like an unsaved change.
static void Apply(VideoLife& life, DeviceSettings& record) {
    const auto& pads = life.pipeline.pads;
    ApplyLayout(record, life.frame, pads[0], pads[1], pads[2]);
    CarryWindows(life.savedSettings, Settings);
}

// S1 and S2 know no swap: applying them clears it in the record, which is no change to follow.
static void ShowSettings(VideoLife& life, DeviceSettings& record) {
    life.shown = NoteSettings(record);
    Apply(life, record);
    if (life.shown.view <= kViewS2 && record.Swap == 0) life.shown.swap = 0;
}

// A life begins with S1, whatever the stored layout; the running passes then see that the live layout is another one.
static void ShowFirstLayout(VideoLife& life) {
    CarryUncompared(life.savedSettings, Settings);
    life.savedSettings.View = kViewS1;
    ShowSettings(life, life.savedSettings);
    life.shown.input = life.selectedInput;  // a command may have chosen another one meanwhile
    PopBus(life.pipeline, 1s);
    SetValve(life.pipeline, true);
}

// ---- HDMI input

// The receiver has a mode of its own for large pictures; it need only be looked at when the size has changed.
static int ReadHdmiInput(VideoLife& life) {
    const int failed = ReadHdmiInputFormat(HdmiInput);
    const FrameSize size = {HdmiInput.Width, HdmiInput.Height};
    if (size != life.adapted) HdmiRxAdaptOutput();
    life.adapted = size;
    return failed;
}

// ---- Waiting

// A new mode decides the size of the frame and the rates that are asked of the cameras.
static Outcome FollowMonitorWhileWaiting(VideoLife& life) {
    if (CheckMonitor(life) != MonitorChange::kConnected) return Outcome::kGoOn;
    life.started = true;
    AudioRestart = 1;
    const bool ready = SetOutputForNewMonitor() && ReadOutput(life) && ScanVideoDevices() == 0;
    return ready ? Outcome::kGoOn : Outcome::kFailed;
}

// kGoOn: build. A restart that is requested here finds nothing to restart, and is over.
static Outcome WaitForSomethingToShow(VideoLife& life) {
    for (;; sleep_for(1s)) {
        if (ScanVideoDevices() != 0) return Outcome::kFailed;
        life.selectedInput = Settings.Input;
        if (DeviceId != 0) SelectPortOfInput(life.selectedInput);
        if (ReadHdmiInput(life) != 0) LogInfo("Error reading input format.\n");
        if (!SomebodyWatches(life)) {
            if (FollowDevices(life)) return Outcome::kGoOn;
        } else if (AnythingToShow()) {
            life.started = true;
            AudioRestart = 1;
        }
        if (AudioTest) life.started = true;
        if (FollowMonitorWhileWaiting(life) == Outcome::kFailed) return Outcome::kFailed;
        if (life.started) return Outcome::kGoOn;
        if (PipelineRestart) return Outcome::kDone;
    }
}

// ---- One pass: is the pipeline still the right one?

static Outcome FollowMonitor(VideoLife& life) {
    switch (CheckMonitor(life)) {
        case MonitorChange::kNone:
            break;
        case MonitorChange::kConnected:
            PipelineRestart = 1;
            if (!SetOutputForNewMonitor()) return Outcome::kFailed;
            break;
        case MonitorChange::kDisconnected:
            PipelineRestart = 1;
            LogInfo("FIXME: Need to reboot the application to solve audio issue.\n");
            Terminate();
        case MonitorChange::kUnreadable:
            PipelineRestart = 1;
            break;
    }
    return Outcome::kGoOn;
}

static void CheckPipelineState(const VideoLife& life) {
    if (!SomebodyWatches(life)) {
        LogInfo("Pausing video pipeline since we received STOP event...\n");
        PipelineRestart = 1;
        return;
    }
    GstState state = GST_STATE_NULL;
    gst_element_get_state(life.pipeline.pipeline, &state, nullptr, 0);
    if (life.started && (state == GST_STATE_PAUSED || state == GST_STATE_PLAYING)) return;
    PipelineRestart = 1;
    LogInfo("Restarting video pipeline caused by bad state.\n");
}

static void CheckFrameFlow(VideoLife& life) {
    const uint32_t frames = ReadFrameCount(life.pipeline);
    if (frames < kFramesOfFlow) {
        life.pipeline.framesAtCheck = frames;
        life.pipeline.checkFrames = 1;
    } else if (frames > kFramesOfFlow) {
        if (VideoPoolIssue) RemoveVideoPoolLogs();
        VideoPoolIssue = 0;
    }
}

// Fields are stored only where the choice differs from what it was made of: a command may store its own meanwhile.
static void FollowSecondPlace(VideoLife& life) {
    const SecondPlaceFacts facts = {.deviceId = DeviceId,
                                    .view = Settings.View,
                                    .s2Count = Settings.S2Count,
                                    .swHdmi = Settings.SwHdmi,
                                    .shownView = life.shown.view,
                                    .shownSwHdmi = life.shown.swHdmi,
                                    .hdmiActive = HdmiInput.InputValid != 0,
                                    .camera2Present = CameraInputs[1].present != 0};
    const SecondPlaceChoice choice = ChooseSecondPlace(facts);
    if (choice.applyFirst) {
        Apply(life, Settings);
        life.shown.swHdmi = facts.swHdmi;
    }
    if (choice.swHdmi != facts.swHdmi) Settings.SwHdmi = choice.swHdmi;
    if (choice.s2Count != facts.s2Count) Settings.S2Count = choice.s2Count;
}

// The first pass looks before the pipeline has had the time to get into a state worth judging.
static Outcome WatchSurroundings(VideoLife& life, bool firstPass) {
    if (FollowMonitor(life) == Outcome::kFailed) return Outcome::kFailed;
    ReadHdmiInput(life);
    if (!firstPass) CheckPipelineState(life);
    FollowDevices(life);
    if (PipelineRestart) return Outcome::kDone;
    CheckFrameFlow(life);
    FollowSecondPlace(life);
    return Outcome::kGoOn;
}

// ---- One pass: does the picture show what is wanted?

static bool PictureIsOutdated(const VideoLife& life) {
    return NoteSettings(Settings) != life.shown || HdmiChangesLayout(life.hdmi, TakeHdmiSnapshot(HdmiInput)) ||
           Settings.VideoRefresh || life.switchPending || life.pipeline.checkFrames;
}

static void EndSwitch(VideoLife& life) {
    SetValve(life.pipeline, true);
    life.switchPending = false;
}

static void ShowHdmiInput(VideoLife& life) {
    ShowSettings(life, Settings);
    if (!HdmiInput.InputValid) ExpectFrames(life.pipeline);
    ReadHdmiInputFormat(HdmiInput);
    const bool otherFormat = HdmiInput.Height != HdmiInput.AltHeight || HdmiInput.Width != HdmiInput.AltWidth;
    if (otherFormat && life.switchPending) sleep_for(800ms);
    EndSwitch(life);
}

static void ShowSelectedInput(VideoLife& life, bool refresh) {
    const uint8_t input = Settings.Input;
    switch (ChooseInputStep(DeviceId, input, HdmiInput, life.switchPending, refresh)) {
        case InputStep::kShow:
            ShowSettings(life, Settings);
            ExpectFrames(life.pipeline);
            EndSwitch(life);
            break;
        case InputStep::kSwitchPort:
            life.shown = NoteSettings(Settings);
            SetValve(life.pipeline, false);
            HdmiRxSelectPort(HdmiPortOf(input), HdmiInput);
            life.pipeline.checkFrames = 0;
            life.switchPending = true;
            break;
        case InputStep::kSwitchFormat:
            life.shown = NoteSettings(Settings);
            SetValve(life.pipeline, false);
            ExpectFrames(life.pipeline);
            SwitchHdmiFormat(life.pipeline, input);
            life.switchPending = true;
            break;
        case InputStep::kShowHdmi:
            ShowHdmiInput(life);
            break;
    }
}

// A pipeline that is to be rebuilt anyway is not waited for.
static void WaitForFrames(VideoPipeline& pipeline) {
    for (int pops = 0; pipeline.checkFrames && pops < 30 && !PipelineRestart; ++pops) {
        if (ReadFrameCount(pipeline) >= pipeline.framesAtCheck + kFramesOfFlow)
            pipeline.checkFrames = 0;
        else
            PopBus(pipeline, 100ms);
    }
}

// Variant 2 holds a black picture for a moment instead of waiting for frames that nobody sees.
static void LetPictureSettle(VideoLife& life) {
    if (DeviceId == 2 && Settings.Black) {
        Apply(life, Settings);
        life.pipeline.checkFrames = 0;
        PopBus(life.pipeline, 600ms);
    } else {
        WaitForFrames(life.pipeline);
    }
}

static bool FollowSettings(VideoLife& life) {
    if (!PictureIsOutdated(life)) return false;
    g_object_set(life.pipeline.mix, "back-enable", TRUE, nullptr);
    if (ReportView() != 0) LogInfo("Error when reporting input change.\n");
    const bool refresh = Settings.VideoRefresh != 0;
    Settings.VideoRefresh = 0;
    ShowSelectedInput(life, refresh);
    LetPictureSettle(life);
    return true;
}

// kDone: the changed input needs another pipeline.
static Outcome FollowHdmiInput(VideoLife& life) {
    VideoPipeline& pipeline = life.pipeline;
    const bool testPatternRuns = pipeline.hdmiIsTestPattern && life.started;
    if (!HdmiInputChanged(life.hdmi, TakeHdmiSnapshot(HdmiInput), HdmiSyncLost, testPatternRuns)) return Outcome::kGoOn;
    if (pipeline.hdmiIsTestPattern) LogInfo("Test pattern generated and HDMI input detected! Reconfigure!\n");
    if (!ClockCanBeCaptured(HdmiInput.TmdsMhz, NewKernel)) return Outcome::kGoOn;

    Apply(life, Settings);
    if (HdmiSyncLost) {
        LogInfo("Restarting HDMI input plugin.\n");
        RestartHdmiSource(pipeline);
        if (DeviceId != 2) sleep_for(2s);
    }
    HdmiSyncLost = 0;
    ReadHdmiInput(life);  // the sync may have been lost for another size, which nothing else would tell
    Apply(life, Settings);
    if (!HdmiNeedsNewPipeline(TakeHdmiSnapshot(HdmiInput), pipeline.hdmiCapture, testPatternRuns, DeviceId))
        return Outcome::kGoOn;
    LogInfo("Changes occured on HDMI input. Reconfiguring input...\n");
    AudioRestart = 2;
    return Outcome::kDone;
}

static Outcome FollowPicture(VideoLife& life) {
    if (FollowSettings(life)) g_object_set(life.pipeline.mix, "back-enable", FALSE, nullptr);
    if (FollowHdmiInput(life) == Outcome::kDone) return Outcome::kDone;
    CarryLayout(life.savedSettings, Settings);
    life.hdmi = TakeHdmiSnapshot(HdmiInput);
    AutosaveWhenDue(life.savedSettings, Settings, steady_clock::now(), life.lastAutosaveCheck);
    return Outcome::kGoOn;
}

// ---- The life

static Outcome Supervise(VideoLife& life) {
    Outcome outcome = WatchSurroundings(life, true);
    if (outcome != Outcome::kGoOn) return outcome;
    life.hdmi = TakeHdmiSnapshot(HdmiInput);
    PopBus(life.pipeline, 10ms);
    while (outcome == Outcome::kGoOn) {
        PopBus(life.pipeline, 100ms);
        outcome = WatchSurroundings(life, false);
        if (outcome == Outcome::kGoOn) outcome = FollowPicture(life);
    }
    return outcome;
}

static Outcome Live(VideoLife& life) {
    LogInfo("Manage dynamic pipeline\n");
    if (CheckMonitor(life) == MonitorChange::kUnreadable || !ReadOutput(life)) return Outcome::kFailed;
    const Outcome wait = WaitForSomethingToShow(life);
    if (wait != Outcome::kGoOn) return wait;

    BuildVideoPipeline(life.pipeline, life.started);
    ShowFirstLayout(life);
    const Outcome outcome = Supervise(life);
    DestroyVideoPipeline(life.pipeline);
    AudioRestart = 1;
    return outcome;
}

static DeviceSettings Copy(const DeviceSettings& record) {
    DeviceSettings copy;
    CopySettings(copy, record);
    return copy;
}

// The shadow of the settings outlives the pipeline: what was changed just before a rebuild is still to be saved after
// it.
int ManageDynamicGStreamer(const VideoDeviceMonitor& monitor) {
    static DeviceSettings savedSettings = Copy(Settings);
    VideoLife life = {.monitor = monitor, .savedSettings = savedSettings, .lastAutosaveCheck = steady_clock::now()};
    const Outcome outcome = Live(life);
    PipelineRestart = 0;
    return outcome == Outcome::kFailed ? 1 : 0;
}

void VideoThreadMain() {
    PluginBlacklistCheck();
    const VideoDeviceMonitor monitor = InitVideoDeviceMonitor();
    if (!monitor.context) {
        LogInfo("Error while initing video device monitoring\n");
        return;
    }
    for (;; sleep_for(1s)) ManageDynamicGStreamer(monitor);
}
