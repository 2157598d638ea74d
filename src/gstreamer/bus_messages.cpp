#include "gstreamer/bus_messages.h"

#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "board/hdmi_receiver.h"
#include "core/log.h"
#include "core/shell.h"
#include "settings/process_flags.h"
#include "video/video_devices.h"

// Codes of the messages we react to. They are GStreamer's resource codes; a stream error's "failed" has the same
// number.
enum MessageCode { kFailed = 1, kAudioFault = 2, kBusy = 4, kBufferPool = 13 };

static constexpr int kMarkersThatEnd = 5;    // more failures than this in one boot: only a fresh process helps
static constexpr int kMarkersThatTire = 10;  // a fresh process did not help either: stop counting

int getNumFilesVideoPoolBufferFailure() {
    const ToolAnswer answer = ReadFirstLine("find /run/ -name \"video-pool-buffer-*.log\" | wc -l",
                                            "getNumFilesVideoPoolBufferFailure: pclose failed");
    return std::atoi(answer.text.c_str());
}

void RemoveVideoPoolLogs() { RunShell("rm /run/*.log &>/dev/null"); }

// Two failures within one second share a file.
static void WriteVideoPoolLog() {
    LogInfo("Video pool buffer issue, generating log file.\n");
    const auto now = static_cast<unsigned long long>(std::time(nullptr));
    RunShell("echo %llu > /run/video-pool-buffer-%llu.log", now, now);
}

static void CountBufferPoolFailure() {
    if (getNumFilesVideoPoolBufferFailure() <= kMarkersThatTire) {
        WriteVideoPoolLog();
        if (getNumFilesVideoPoolBufferFailure() > kMarkersThatEnd) {
            LogInfo("Video pool buffer logs > 5, exiting application...\n");
            _exit(0);  // the other threads are running: no destructor may run beneath them
        }
    }
    VideoPoolIssue = 1;
}

static void HandleError(int code) {
    switch (code) {
        case kFailed:
            AudioRestart = 2;
            if (CameraInputs[0].present || CameraInputs[1].present || HdmiInput.InputValid) PipelineRestart = 1;
            break;
        case kBufferPool:
            PipelineRestart = 1;
            AudioRestart = 1;
            LogInfo("error err->code == 13\n");
            CountBufferPoolFailure();
            break;
        case kBusy:
            LogInfo("error err->code == 4\n");
            AudioRestart = 2;
            break;
        default:
            break;
    }
}

static void HandleWarning(int code) {
    switch (code) {
        case kAudioFault:
            LogInfo("***** Audio bug, need to restart pipeline\n");
            AudioBug = 1;
            break;
        case kBusy:
            AudioRestart = 2;
            LogInfo("warning err->code == 4\n");
            break;
        default:
            AudioRestart = 1;
            LogInfo("warning err->code == %d\n", code);
            break;
    }
}

gboolean HandleBusMessage(GstBus*, GstMessage* message, gpointer) {
    LogInfo("Got %s message\n", GST_MESSAGE_TYPE_NAME(message));
    const bool isError = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
    if (!isError && GST_MESSAGE_TYPE(message) != GST_MESSAGE_WARNING) return TRUE;

    GError* error = nullptr;
    if (isError)
        gst_message_parse_error(message, &error, nullptr);
    else
        gst_message_parse_warning(message, &error, nullptr);
    LogInfo("***** %s: %s\n", isError ? "Error" : "Warning", error->message);
    LogInfo("***** Code: %d\n", error->code);
    (isError ? HandleError : HandleWarning)(error->code);
    g_error_free(error);
    return TRUE;
}

void DrainMainContext() {
    for (int i = 0; i < 1000 && g_main_context_pending(nullptr); ++i) {
        g_main_context_iteration(nullptr, FALSE);
        usleep(1'000);
    }
}
