#include "capture/camera.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "kernel/udev_events.h"
#include "system/board.h"

// Cable and camera outlive a reset of the board: what is plugged stays plugged.
struct CameraPort {
    const char* busInfo;      // as the driver reports it
    const char* sysfsFolder;  // of the camera's USB device
    const char* interface;
    PictureSource source;
    unsigned bus;
    bool initialised = false;
    bool hostBound = true;
    ControlFault controlFault = ControlFault::kNone;
    std::optional<CameraProfile> plugged;
    std::string pluggedAs = {};             // the name that was asked for
    std::shared_ptr<CaptureDevice> device;  // null: nothing plugged, or its host controller is unbound
};

static std::array Ports = {
    CameraPort{.busInfo = "usb-ci_hdrc.0-1",
               .sysfsFolder = "/devices/platform/ci_hdrc.0/usb1/1-1",
               .interface = "1-1:1.0",
               .source = PictureSource::kCamera1,
               .bus = 1,
               .plugged = {},
               .device = {}},
    CameraPort{.busInfo = "usb-ci_hdrc.1-1",
               .sysfsFolder = "/devices/platform/ci_hdrc.1/usb2/2-1",
               .interface = "2-1:1.0",
               .source = PictureSource::kCamera2,
               .bus = 2,
               .plugged = {},
               .device = {}},
};

static std::vector<void (*)(int camera, const CameraProfile* profile)> Followers;

static CameraPort& PortOf(int camera) { return Ports.at(static_cast<size_t>(camera - 1)); }

// ---- What the board sees

static std::string BusNumber(unsigned bus) { return "00" + std::to_string(bus); }

static void WriteUsbList() {
    std::string list;
    for (const CameraPort& port : Ports) {
        if (!port.hostBound) continue;
        list += "Bus " + BusNumber(port.bus) + " Device 001: ID 1d6b:0002 Linux Foundation 2.0 root hub\n";
        if (port.device)
            list += "Bus " + BusNumber(port.bus) + " Device 002: ID " + port.plugged->usbId + " " + port.plugged->card +
                    "\n";
    }
    WriteBoardFile("/opt/board/state/lsusb.txt", list);
}

static std::optional<FrameOrder> FilmCamera(int camera, const v4l2_pix_format& format, const v4l2_fract& interval) {
    const CameraPort& port = PortOf(camera);
    const bool wrong = port.device && DeliveryOf(*port.device) == Delivery::kWrongSize;
    const uint32_t width = wrong ? format.width / 4 * 2 : format.width;
    const uint32_t height = wrong ? format.height / 4 * 2 : format.height;
    return FrameOrder{.source = port.source,
                      .fourcc = format.pixelformat,
                      .width = width,
                      .height = height,
                      .pictureWidth = width,
                      .pictureHeight = height,
                      .interval = interval,
                      .recording = port.plugged->recording};
}

static CaptureTraits TraitsOf(const CameraPort& port, const CameraProfile& profile) {
    return {.driver = profile.driver,
            .card = profile.card,
            .busInfo = port.busInfo,
            .inputName = "Camera 1",
            .formats = profile.formats,
            .controls = profile.controls,
            .extensionControls = profile.extensionControls,
            .sysfsFolder = std::string(port.sysfsFolder) + "/" + port.interface};
}

static void DescribeUsbDevice(const CameraPort& port, const CameraProfile& profile) {
    const std::string folder = std::string("/sys") + port.sysfsFolder;
    std::error_code error;
    std::filesystem::create_directories(HostPath(folder), error);
    const size_t colon = profile.usbId.find(':');
    WriteBoardFile(folder + "/idVendor", profile.usbId.substr(0, colon) + "\n");
    WriteBoardFile(folder + "/idProduct", profile.usbId.substr(colon + 1) + "\n");
    WriteBoardFile(folder + "/product", profile.card + "\n");
    WriteBoardFile(folder + "/busnum", std::to_string(port.bus) + "\n");
    WriteBoardFile(folder + "/devnum", "2\n");
}

// ---- Plugging

static void Tell(int camera, const CameraProfile* profile) {
    for (const auto follower : Followers) follower(camera, profile);
}

static std::string Connect(int camera) {
    CameraPort& port = PortOf(camera);
    if (!port.plugged || !port.hostBound || port.device) return {};
    DescribeUsbDevice(port, *port.plugged);
    port.device = AddCaptureDevice(TraitsOf(port, *port.plugged), FilmCamera, camera);
    if (!port.device) return "no video node is free";
    SetControlFault(*port.device, port.controlFault);
    WriteUsbList();
    Tell(camera, &*port.plugged);
    return {};
}

static void Disconnect(int camera) {
    CameraPort& port = PortOf(camera);
    if (!port.device) return;
    RemoveCaptureDevice(*port.device);
    port.device.reset();
    std::error_code error;
    std::filesystem::remove_all(HostPath(std::string("/sys") + port.sysfsFolder), error);
    WriteUsbList();
    Tell(camera, nullptr);
}

std::string PlugCamera(int camera, const std::string& profile) {
    CameraPort& port = PortOf(camera);
    if (port.plugged) return "camera " + std::to_string(camera) + " is plugged already: " + port.plugged->name;
    CameraProfileResult result = LoadCameraProfile(profile);
    if (!result.error.empty()) return result.error;
    port.plugged = std::move(result.profile);
    port.pluggedAs = profile;
    std::string error = Connect(camera);
    if (!error.empty()) port.plugged.reset();
    return error;
}

std::string UnplugCamera(int camera) {
    CameraPort& port = PortOf(camera);
    if (!port.plugged) return "camera " + std::to_string(camera) + " is not plugged";
    Disconnect(camera);
    port.plugged.reset();
    return {};
}

void UsbHostBound(int host, bool bound) {
    const int camera = host + 1;
    CameraPort& port = PortOf(camera);
    if (port.hostBound == bound) return;
    if (!bound) Disconnect(camera);
    port.hostBound = bound;
    WriteUsbList();
    if (bound) Connect(camera);
}

void OnCameraPlug(void (*changed)(int camera, const CameraProfile* profile)) {
    if (std::ranges::find(Followers, changed) == Followers.end()) Followers.push_back(changed);
}

const CameraProfile* ConnectedCamera(int camera) {
    const CameraPort& port = PortOf(camera);
    return port.device ? &*port.plugged : nullptr;
}

std::string PluggedCamera(int camera) {
    const CameraPort& port = PortOf(camera);
    return port.plugged ? port.pluggedAs : "";
}

// ---- Power

static void PowerOnPort(int camera, const std::string& initialProfile) {
    CameraPort& port = PortOf(camera);
    port.device.reset();
    port.hostBound = true;
    std::string error;
    if (!std::exchange(port.initialised, true) && !initialProfile.empty()) {
        error = PlugCamera(camera, initialProfile);
    } else {
        error = Connect(camera);
    }
    if (!error.empty()) fprintf(stderr, "camera %d: %s\n", camera, error.c_str());
}

void PowerOnCameras() {
    PowerOnPort(1, Board.camera1);
    PowerOnPort(2, Board.camera2);
    WriteUsbList();
}

// ---- The verb

struct DeliveryWord {
    std::string_view word;
    Delivery delivery;
};
static constexpr std::array kDeliveries = {
    DeliveryWord{"stall", Delivery::kStalled}, DeliveryWord{"resume", Delivery::kNormal},
    DeliveryWord{"garbage", Delivery::kGarbage}, DeliveryWord{"wrong-size", Delivery::kWrongSize}};

static VerbAnswer Deliver(int camera, const DeliveryWord& row) {
    const CameraPort& port = PortOf(camera);
    if (!port.device) return Bad("camera " + std::to_string(camera) + " is not plugged");
    SetDelivery(*port.device, row.delivery);
    return {};
}

// The camera that a verb's first word names; 0: none.
static int NamedCamera(const VerbWords& words) {
    if (words.empty() || (words[0] != "1" && words[0] != "2")) return 0;
    return words[0] == "1" ? 1 : 2;
}

static VerbAnswer DescribeCamera(int camera) {
    const CameraPort& port = PortOf(camera);
    if (!port.device) return {.text = "null"};
    Json text = {{"profile", port.plugged->name}, {"card", port.plugged->card}};
    text.update(DescribeCapture(*port.device));
    return {.text = text.dump(4)};
}

VerbAnswer CameraVerb(const VerbWords& words) {
    const int camera = NamedCamera(words);
    if (camera == 0) return Usage("camera");
    if (words.size() == 1) return DescribeCamera(camera);
    const bool plug = words[1] == "plug" && words.size() == 3;
    if (plug || (words[1] == "unplug" && words.size() == 2)) {
        const std::string error = plug ? PlugCamera(camera, words[2]) : UnplugCamera(camera);
        if (!error.empty()) return Bad(error);
        const auto& device = PortOf(camera).device;
        return {.good = true, .text = device ? CapturePath(*device) : ""};
    }
    for (const DeliveryWord& row : kDeliveries) {
        if (words.size() == 2 && row.word == words[1]) return Deliver(camera, row);
    }
    return Usage("camera");
}

struct ControlFaultWord {
    std::string_view word;
    ControlFault fault;
};
static constexpr std::array kControlFaults = {
    ControlFaultWord{"query", ControlFault::kQuery}, ControlFaultWord{"read", ControlFault::kRead},
    ControlFaultWord{"write", ControlFault::kWrite}, ControlFaultWord{"stuck", ControlFault::kStuck},
    ControlFaultWord{"off", ControlFault::kNone}};

VerbAnswer CameraFaultVerb(const VerbWords& words) {
    const int camera = NamedCamera(words);
    const auto row =
        words.size() == 2 ? std::ranges::find(kControlFaults, words[1], &ControlFaultWord::word) : kControlFaults.end();
    if (camera == 0 || row == kControlFaults.end()) return Bad("usage: fault camera N query|read|write|stuck|off");
    CameraPort& port = PortOf(camera);
    port.controlFault = row->fault;
    if (port.device) SetControlFault(*port.device, row->fault);
    Trace("fault", {{"camera", camera}, {"fault", words[1]}});
    return {};
}

// ---- What a page shows

Json CameraSummary(int camera) {
    const CameraPort& port = PortOf(camera);
    if (!port.plugged) return nullptr;
    Json summary{{"profile", port.plugged->name}, {"card", port.plugged->card}, {"connected", port.device != nullptr}};
    summary["controls"] = std::ranges::find(kControlFaults, port.controlFault, &ControlFaultWord::fault)->word;
    if (!port.device) return summary;
    summary["delivery"] = std::ranges::find(kDeliveries, DeliveryOf(*port.device), &DeliveryWord::delivery)->word;
    summary["streaming"] = IsStreaming(*port.device);
    return summary;
}
