// Extension units of a UVC camera. Each request is told in the trace, with its data.
#include <linux/usb/video.h>
#include <linux/uvcvideo.h>

#include "capture/v4l2_device.h"

static constexpr uint8_t kSupportsGetAndSet = 3;  // answer to UVC_GET_INFO

// The data of a request, as the caller brought it or as it got it.
struct UnitRequest {
    const CaptureCall& call;
    const uvc_xu_control_query& query;
    std::vector<uint8_t> data = {};
};

static int Answer(UnitRequest& request, const std::vector<uint8_t>& bytes) {
    if (request.query.size != bytes.size()) return -ENOBUFS;
    if (HasFault(request.call, ControlFault::kRead)) return -EIO;
    request.data = bytes;
    const auto address = reinterpret_cast<uint64_t>(request.query.data);
    return request.call.ioctl.memory.Write(address, bytes.data(), bytes.size()) ? 0 : -EFAULT;
}

static int Store(UnitRequest& request, std::vector<uint8_t>& current) {
    if (request.query.size != current.size()) return -ENOBUFS;
    request.data.resize(request.query.size);
    const auto address = reinterpret_cast<uint64_t>(request.query.data);
    if (!request.call.ioctl.memory.Read(address, request.data.data(), request.data.size())) return -EFAULT;
    if (HasFault(request.call, ControlFault::kWrite)) return -EIO;
    if (request.call.device.controlFault != ControlFault::kStuck) current = request.data;
    return 0;
}

static int CarryOut(UnitRequest& request, ExtensionControl& control) {
    const size_t size = control.current.size();
    switch (request.query.query) {
        case UVC_GET_LEN:
            return Answer(request, {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8)});
        case UVC_GET_INFO:
            return Answer(request, {kSupportsGetAndSet});
        case UVC_GET_CUR:
            return Answer(request, control.current);
        case UVC_GET_DEF:
            return Answer(request, control.initial);
        case UVC_GET_MIN:
            return Answer(request, std::vector<uint8_t>(size, 0));
        case UVC_GET_MAX:
            return Answer(request, std::vector<uint8_t>(size, 0xff));
        case UVC_GET_RES:
            return Answer(request, std::vector<uint8_t>(size, 1));
        case UVC_SET_CUR:
            return Store(request, control.current);
        default:
            return -EINVAL;
    }
}

static std::string QueryName(uint8_t query) {
    switch (query) {
        case UVC_SET_CUR:
            return "SET_CUR";
        case UVC_GET_CUR:
            return "GET_CUR";
        case UVC_GET_LEN:
            return "GET_LEN";
        default:
            return std::to_string(query);
    }
}

int QueryExtensionUnit(const CaptureCall& call, uvc_xu_control_query& query) {
    const auto sameControl = [&](const ExtensionControl& control) {
        return control.unit == query.unit && control.selector == query.selector;
    };
    auto& known = call.device.traits.extensionControls;
    const auto control = std::ranges::find_if(known, sameControl);
    UnitRequest request{.call = call, .query = query};
    const int result = control == known.end() ? -ENOENT : CarryOut(request, *control);
    return TellRequest(call, "UVCIOC_CTRL_QUERY",
                       {{"query", QueryName(query.query)},
                        {"unit", query.unit},
                        {"selector", query.selector},
                        {"size", query.size},
                        {"data", request.data}},
                       result);
}

Json DescribeUnits(const CaptureDevice& device) {
    Json units = Json::array();
    for (const ExtensionControl& control : device.traits.extensionControls)
        units.push_back({{"unit", control.unit}, {"selector", control.selector}, {"data", control.current}});
    return units;
}
