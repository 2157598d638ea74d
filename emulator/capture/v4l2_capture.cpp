#include "capture/v4l2_capture.h"

#include <linux/usb/video.h>
#include <linux/uvcvideo.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <utility>

#include "capture/v4l2_device.h"

static constexpr unsigned kVideoMajor = 81;
static constexpr uint32_t kKernelVersion = 4 << 16 | 14 << 8 | 98;
static constexpr uint32_t kCapabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
static constexpr size_t kNodesLimit = 64;
static constexpr size_t kArgumentLimit = 256;  // bytes; the largest of the table is 232

static std::array<std::weak_ptr<CaptureDevice>, kNodesLimit> CaptureNodes;  // a number is taken while its device lives

// ---- Small ioctls

// Texts as long as their field fill it to the end: that is how a careless driver leaves them.
template <size_t N>
static void CopyField(__u8 (&to)[N], const std::string& from) {
    memcpy(to, from.data(), std::min(from.size(), N));
}

static int QueryCapability(const CaptureCall& call, v4l2_capability& capability) {
    capability = {};
    CopyField(capability.driver, call.device.traits.driver);
    CopyField(capability.card, call.device.traits.card);
    CopyField(capability.bus_info, call.device.traits.busInfo);
    capability.version = kKernelVersion;
    capability.capabilities = kCapabilities | V4L2_CAP_DEVICE_CAPS;
    capability.device_caps = kCapabilities;
    return 0;
}

static int EnumInput(const CaptureCall& call, v4l2_input& input) {
    if (input.index != 0) return -EINVAL;
    input = {.index = 0, .type = V4L2_INPUT_TYPE_CAMERA};
    CopyText(input.name, sizeof input.name, call.device.traits.inputName);
    return 0;
}

static int GetInput(const CaptureCall&, int& input) {
    input = 0;
    return 0;
}

static int SetInput(const CaptureCall&, int& input) { return input == 0 ? 0 : -EINVAL; }

static uint32_t HighestPriority(const CaptureDevice& device) {
    for (uint32_t priority = kPriorities - 1; priority > 0; --priority) {
        if (device.filesOfPriority[priority] > 0) return priority;
    }
    return V4L2_PRIORITY_UNSET;
}

static int GetPriority(const CaptureCall& call, uint32_t& priority) {
    priority = HighestPriority(call.device);
    return 0;
}

static int SetPriority(const CaptureCall& call, uint32_t& priority) {
    if (priority == V4L2_PRIORITY_UNSET || priority >= kPriorities) return -EINVAL;
    --call.device.filesOfPriority[call.session.priority];
    ++call.device.filesOfPriority[priority];
    call.session.priority = priority;
    return 0;
}

// ---- The table

struct CaptureIoctl {
    uint32_t request;
    int (*run)(const CaptureCall& call, void* argument);
    bool changes = false;        // refused while a file of higher priority is open
    bool answersErrors = false;  // the record goes back to the caller even with an error
};

template <auto Handler>
struct HandlerOf;
template <typename Argument, int (*Handler)(const CaptureCall&, Argument&)>
struct HandlerOf<Handler> {
    static int Run(const CaptureCall& call, void* argument) { return Handler(call, *static_cast<Argument*>(argument)); }
    static_assert(sizeof(Argument) <= kArgumentLimit);
};

static constexpr std::array kIoctls = {
    CaptureIoctl{.request = VIDIOC_QUERYCAP, .run = HandlerOf<QueryCapability>::Run},
    CaptureIoctl{.request = VIDIOC_ENUMINPUT, .run = HandlerOf<EnumInput>::Run},
    CaptureIoctl{.request = VIDIOC_G_INPUT, .run = HandlerOf<GetInput>::Run},
    CaptureIoctl{.request = VIDIOC_S_INPUT, .run = HandlerOf<SetInput>::Run, .changes = true},
    CaptureIoctl{.request = VIDIOC_G_PRIORITY, .run = HandlerOf<GetPriority>::Run},
    CaptureIoctl{.request = VIDIOC_S_PRIORITY, .run = HandlerOf<SetPriority>::Run, .changes = true},
    CaptureIoctl{.request = VIDIOC_ENUM_FMT, .run = HandlerOf<EnumFormat>::Run},
    CaptureIoctl{.request = VIDIOC_ENUM_FRAMESIZES, .run = HandlerOf<EnumFrameSizes>::Run},
    CaptureIoctl{.request = VIDIOC_ENUM_FRAMEINTERVALS, .run = HandlerOf<EnumFrameIntervals>::Run},
    CaptureIoctl{.request = VIDIOC_G_FMT, .run = HandlerOf<GetFormat>::Run},
    CaptureIoctl{.request = VIDIOC_TRY_FMT, .run = HandlerOf<TryFormat>::Run},
    CaptureIoctl{.request = VIDIOC_S_FMT, .run = HandlerOf<SetFormat>::Run, .changes = true},
    CaptureIoctl{.request = VIDIOC_G_PARM, .run = HandlerOf<GetParameters>::Run},
    CaptureIoctl{.request = VIDIOC_S_PARM, .run = HandlerOf<SetParameters>::Run, .changes = true},
    CaptureIoctl{.request = VIDIOC_QUERYCTRL, .run = HandlerOf<QueryControl>::Run},
    CaptureIoctl{.request = VIDIOC_QUERY_EXT_CTRL, .run = HandlerOf<QueryExtendedControl>::Run},
    CaptureIoctl{.request = VIDIOC_QUERYMENU, .run = HandlerOf<QueryMenu>::Run},
    CaptureIoctl{.request = VIDIOC_G_CTRL, .run = HandlerOf<GetControl>::Run},
    CaptureIoctl{.request = VIDIOC_S_CTRL, .run = HandlerOf<SetControl>::Run, .changes = true},
    CaptureIoctl{.request = VIDIOC_G_EXT_CTRLS, .run = HandlerOf<GetExtendedControls>::Run, .answersErrors = true},
    CaptureIoctl{.request = VIDIOC_TRY_EXT_CTRLS, .run = HandlerOf<TryExtendedControls>::Run, .answersErrors = true},
    CaptureIoctl{.request = VIDIOC_S_EXT_CTRLS,
                 .run = HandlerOf<SetExtendedControls>::Run,
                 .changes = true,
                 .answersErrors = true},
    CaptureIoctl{.request = VIDIOC_REQBUFS, .run = HandlerOf<RequestBuffers>::Run, .changes = true},
    CaptureIoctl{.request = VIDIOC_QUERYBUF, .run = HandlerOf<QueryBuffer>::Run},
    CaptureIoctl{.request = VIDIOC_QBUF, .run = HandlerOf<QueueBuffer>::Run},
    CaptureIoctl{.request = VIDIOC_DQBUF, .run = HandlerOf<DequeueBuffer>::Run},
    CaptureIoctl{.request = VIDIOC_STREAMON, .run = HandlerOf<StreamOn>::Run, .changes = true},
    CaptureIoctl{.request = VIDIOC_STREAMOFF, .run = HandlerOf<StreamOff>::Run, .changes = true},
    CaptureIoctl{.request = UVCIOC_CTRL_QUERY, .run = HandlerOf<QueryExtensionUnit>::Run},
};

static int Answer(const CaptureIoctl& row, const CaptureCall& call) {
    alignas(std::max_align_t) std::array<uint8_t, kArgumentLimit> argument{};
    const IoctlCall& ioctl = call.ioctl;
    const size_t size = _IOC_SIZE(row.request);
    if ((_IOC_DIR(row.request) & _IOC_WRITE) != 0 && !ioctl.memory.Read(ioctl.argument, argument.data(), size))
        return -EFAULT;
    if (row.changes && call.session.priority < HighestPriority(call.device)) return -EBUSY;
    const int result = row.run(call, argument.data());
    const bool answers = (_IOC_DIR(row.request) & _IOC_READ) != 0 && (result >= 0 || row.answersErrors);
    if (answers && !ioctl.memory.Write(ioctl.argument, argument.data(), size)) return -EFAULT;
    return result;
}

// ---- Files

static CaptureSession& SessionOf(const OpenFile& file) { return *static_cast<CaptureSession*>(file.state); }

static int OpenCapture(OpenFile& file) {
    std::shared_ptr<CaptureDevice> device = CaptureNodes[static_cast<size_t>(file.unit)].lock();
    if (!device || device->gone) return -ENODEV;
    ++device->filesOfPriority[V4L2_PRIORITY_DEFAULT];
    file.state = new CaptureSession{.device = std::move(device)};
    return 0;
}

static int IoctlCapture(const IoctlCall& ioctl) {
    CaptureSession& session = SessionOf(ioctl.file);
    if (session.device->gone) return -ENODEV;
    const auto row = std::ranges::find(kIoctls, ioctl.request, &CaptureIoctl::request);
    if (row == kIoctls.end()) return -ENOTTY;
    return Answer(*row, {.device = *session.device, .session = session, .ioctl = ioctl});
}

static unsigned ReadyCapture(const OpenFile& file) { return ReadyEvents(*SessionOf(file).device); }

static void CloseCapture(OpenFile& file) {
    CaptureSession* session = &SessionOf(file);
    if (session->device->owner == &file) FreeBuffers(*session->device);
    --session->device->filesOfPriority[session->priority];
    delete session;
    file.state = nullptr;
}

static constexpr DeviceModel kCaptureModel = {
    .name = "capture", .open = OpenCapture, .ioctl = IoctlCapture, .ready = ReadyCapture, .close = CloseCapture};

// ---- Devices

static UdevDevice UdevOf(const CaptureDevice& device) {
    const std::string name = "video" + std::to_string(device.number);
    return {.sysfsPath = device.traits.sysfsFolder + "/video4linux/" + name,
            .subsystem = "video4linux",
            .deviceName = device.path,
            .majorNumber = kVideoMajor,
            .minorNumber = static_cast<unsigned>(device.number),
            .properties = {{"ID_V4L_VERSION", "2"}, {"ID_V4L_CAPABILITIES", ":capture:"}},
            .attributes = {{"name", device.traits.card}, {"index", "0"}}};
}

std::shared_ptr<CaptureDevice> AddCaptureDevice(CaptureTraits traits, SourceOrder order, int source) {
    const auto place = std::ranges::find_if(CaptureNodes, [](const auto& node) { return node.expired(); });
    if (place == CaptureNodes.end()) return nullptr;
    AddControlClasses(traits);
    auto device = std::make_shared<CaptureDevice>();
    device->traits = std::move(traits);
    device->order = order;
    device->source = source;
    device->number = static_cast<int>(place - CaptureNodes.begin());
    device->path = "/dev/video" + std::to_string(device->number);
    device->udev = UdevOf(*device);
    ChooseDefaultFormat(*device);
    *place = device;
    AddNode(device->path, kCaptureModel, device->number, kVideoMajor, static_cast<unsigned>(device->number));
    AddUdevDevice(device->udev);
    return device;
}

void RemoveCaptureDevice(CaptureDevice& device) {
    if (device.gone) return;
    device.gone = true;
    StopFilm(device);
    RemoveNode(device.path);
    RemoveUdevDevice(device.udev);
    WakeModel(kCaptureModel, device.number);
}

void SetDelivery(CaptureDevice& device, Delivery delivery) {
    const Delivery before = std::exchange(device.delivery, delivery);
    if ((before == Delivery::kWrongSize) != (delivery == Delivery::kWrongSize)) RestartCapture(device);
}

bool IsStreaming(const CaptureDevice& device) { return device.streaming; }

Delivery DeliveryOf(const CaptureDevice& device) { return device.delivery; }

void SetControlFault(CaptureDevice& device, ControlFault fault) { device.controlFault = fault; }

int TellRequest(const CaptureCall& call, const char* request, const Json& fields, int result) {
    Json line = {{"node", call.device.path}, {"request", request}};
    line.update(fields);
    if (result < 0) line["error"] = strerrorname_np(-result);
    Trace("ioctl", line);
    return result;
}

Json DescribeCapture(const CaptureDevice& device) {
    return {{"node", device.path},
            {"streaming", device.streaming},
            {"controls", DescribeControls(device)},
            {"extensionUnits", DescribeUnits(device)}};
}

const std::string& CapturePath(const CaptureDevice& device) { return device.path; }

void ForgetCaptureDevices() { CaptureNodes.fill({}); }
