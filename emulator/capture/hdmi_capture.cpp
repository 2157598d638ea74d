#include "capture/hdmi_capture.h"

#include "capture/v4l2_capture.h"
#include "devices/hdmi_receiver.h"

static constexpr uint32_t kWidestFrame = 4096, kHighestFrame = 2160;

static std::shared_ptr<CaptureDevice> Device;

static std::optional<FrameOrder> FilmSignal(int, const v4l2_pix_format& format, const v4l2_fract&) {
    const HdmiSignal signal = LockedHdmiSignal();
    if (!signal.present || signal.rate == 0) return std::nullopt;
    return FrameOrder{.source = SelectedHdmiPort() == 0 ? PictureSource::kHdmi0 : PictureSource::kHdmi1,
                      .fourcc = format.pixelformat,
                      .width = format.width,
                      .height = format.height,
                      .pictureWidth = signal.width,
                      .pictureHeight = signal.interlaced ? signal.height / 2 : signal.height,
                      .interval = {.numerator = 1, .denominator = signal.rate},
                      .recording = {}};
}

static void SignalChanged() {
    if (Device) RestartCapture(*Device);
}

static CaptureTraits CameraInterface() {
    const CaptureSize anySize = {.type = V4L2_FRMSIZE_TYPE_STEPWISE,
                                 .range = {.min_width = 16,
                                           .max_width = kWidestFrame,
                                           .step_width = 2,
                                           .min_height = 16,
                                           .max_height = kHighestFrame,
                                           .step_height = 1},
                                 .intervals = {{1, 60}, {1, 50}, {1, 30}, {1, 25}, {1, 24}}};
    return {.driver = "mxc_v4l2",
            .card = "i.MX camera interface",
            .busInfo = "platform:21b8000.csi",
            .inputName = "HDMI receiver",
            .colorspace = V4L2_COLORSPACE_SMPTE170M,
            .formats = {{.fourcc = V4L2_PIX_FMT_YUYV, .description = "YUYV 4:2:2", .sizes = {anySize}}},
            .controls = {},
            .extensionControls = {},
            .sysfsFolder = "/devices/soc0/soc/2100000.aips-bus/21b8000.csi"};
}

void PowerOnHdmiCapture() {
    ForgetCaptureDevices();
    Device = AddCaptureDevice(CameraInterface(), FilmSignal, 0);
    OnHdmiSignalChange(SignalChanged);
}
