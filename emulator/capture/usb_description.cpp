#include "capture/usb_description.h"

#include <algorithm>

#include "text.h"

static constexpr const char* kDevice =
    R"(Device Descriptor:
  bLength                18
  bDescriptorType         1
  bcdUSB               2.00
  bDeviceClass          239 Miscellaneous Device
  bDeviceSubClass         2 
  bDeviceProtocol         1 Interface Association
  bMaxPacketSize0        64
  idVendor           0x%s 
  idProduct          0x%s 
  bcdDevice            1.00
  iManufacturer           0 
  iProduct                2 %s
  iSerial                 0 
  bNumConfigurations      1
  Configuration Descriptor:
    bLength                 9
    bDescriptorType         2
    bNumInterfaces          %d
    bConfigurationValue     1
    iConfiguration          0 
    bmAttributes         0x80
      (Bus Powered)
    MaxPower              500mA
)";

static constexpr const char* kAssociation =
    R"(    Interface Association:
      bLength                 8
      bDescriptorType        11
      bFirstInterface         %d
      bInterfaceCount         2
      bFunctionClass      %6d %s
      bFunctionSubClass   %6d %s
      bFunctionProtocol       0 
      iFunction               0 
)";

static constexpr const char* kInterface =
    R"(    Interface Descriptor:
      bLength                 9
      bDescriptorType         4
      bInterfaceNumber        %d
      bAlternateSetting       0
      bNumEndpoints           %d
      bInterfaceClass     %6d %s
      bInterfaceSubClass  %6d %s
      bInterfaceProtocol      0 
      iInterface              0 
)";

static constexpr const char* kVideoControl =
    R"(      VideoControl Interface Descriptor:
        bLength                13
        bDescriptorType        36
        bDescriptorSubtype      1 (HEADER)
        bcdUVC               1.00
        dwClockFrequency       48.000000MHz
        bInCollection           1
        baInterfaceNr( 0)       1
      VideoControl Interface Descriptor:
        bLength                18
        bDescriptorType        36
        bDescriptorSubtype      2 (INPUT_TERMINAL)
        bTerminalID             1
        wTerminalType      0x0201 Camera Sensor
        bAssocTerminal          0
        iTerminal               0 
      VideoControl Interface Descriptor:
        bLength                11
        bDescriptorType        36
        bDescriptorSubtype      5 (PROCESSING_UNIT)
        bUnitID                 2
        bSourceID               1
        wMaxMultiplier          0
        bControlSize            2
)";

static constexpr const char* kExtensionUnit =
    R"(      VideoControl Interface Descriptor:
        bLength                26
        bDescriptorType        36
        bDescriptorSubtype      6 (EXTENSION_UNIT)
        bUnitID             %5d
        bNumControls            %d
        bNrInPins               1
        baSourceID( 0)          2
)";

static constexpr const char* kFormat =
    R"(      VideoStreaming Interface Descriptor:
        bDescriptorType                    36
        bDescriptorSubtype              %5d (FORMAT_%s)
        bFormatIndex                    %5zu
        bNumFrameDescriptors            %5zu
        bDefaultFrameIndex                  1
)";

static constexpr const char* kFrame =
    R"(      VideoStreaming Interface Descriptor:
        bDescriptorType                    36
        bDescriptorSubtype              %5d (FRAME_%s)
        bFrameIndex                     %5zu
        wWidth                          %5u
        wHeight                         %5u
        dwDefaultFrameInterval      %9.0f
        bFrameIntervalType              %5zu
)";

struct StreamKind {
    uint32_t fourcc;
    const char* name;
    int formatSubtype, frameSubtype;
};
static constexpr StreamKind kStreamKinds[] = {
    {.fourcc = V4L2_PIX_FMT_YUYV, .name = "UNCOMPRESSED", .formatSubtype = 4, .frameSubtype = 5},
    {.fourcc = V4L2_PIX_FMT_MJPEG, .name = "MJPEG", .formatSubtype = 6, .frameSubtype = 7},
    {.fourcc = 0, .name = "FRAME_BASED", .formatSubtype = 16, .frameSubtype = 17},  // any other
};

static const StreamKind& KindOf(uint32_t fourcc) {
    return *std::ranges::find_if(kStreamKinds,
                                 [=](const StreamKind& kind) { return kind.fourcc == fourcc || kind.fourcc == 0; });
}

// Of a stepwise or continuous list the ends stand for the rest.
static std::string DescribeFrame(const StreamKind& kind, size_t index, const CaptureSize& size) {
    constexpr double kUnit = 1e7;  // intervals count 100 ns
    const auto interval = [](const v4l2_fract& time) {
        return kUnit * time.numerator / std::max(time.denominator, 1U);
    };
    const size_t count = size.intervals.size();
    const double first = count > 0 ? interval(size.intervals.front()) : 0;
    std::string text =
        Text(kFrame, kind.frameSubtype, kind.name, index, size.range.max_width, size.range.max_height, first, count);
    for (size_t i = 0; i < count; ++i)
        text += Text("        dwFrameInterval(%2zu)         %9.0f\n", i, interval(size.intervals[i]));
    return text;
}

static std::string DescribeFormat(const CaptureFormat& format, size_t index) {
    const StreamKind& kind = KindOf(format.fourcc);
    std::string text = Text(kFormat, kind.formatSubtype, kind.name, index, format.sizes.size());
    for (size_t i = 0; i < format.sizes.size(); ++i) text += DescribeFrame(kind, i + 1, format.sizes[i]);
    return text;
}

static std::string DescribeExtensionUnits(const std::vector<ExtensionControl>& controls) {
    std::string text;
    for (size_t i = 0; i < controls.size(); ++i) {
        const auto sameUnit = [&](const ExtensionControl& other) { return other.unit == controls[i].unit; };
        const auto here = controls.begin() + static_cast<ptrdiff_t>(i);
        if (std::any_of(controls.begin(), here, sameUnit)) continue;  // told with the first of its controls
        text += Text(kExtensionUnit, controls[i].unit, static_cast<int>(std::ranges::count_if(controls, sameUnit)));
    }
    return text;
}

static std::string DescribeMicrophone() {
    return Text(kAssociation, 2, 1, "Audio", 2, "Streaming") + Text(kInterface, 2, 0, 1, "Audio", 1, "Control Device") +
           Text(kInterface, 3, 0, 1, "Audio", 2, "Streaming");
}

std::string DescribeUsbCamera(const CameraProfile& profile) {
    const size_t colon = profile.usbId.find(':');
    const bool sound = profile.microphone.present;
    std::string text = Text(kDevice, profile.usbId.substr(0, colon).c_str(), profile.usbId.substr(colon + 1).c_str(),
                            profile.card.c_str(), sound ? 4 : 2);
    text += Text(kAssociation, 0, 14, "Video", 3, "Video Interface Collection");
    text += Text(kInterface, 0, 1, 14, "Video", 1, "Video Control") + kVideoControl;
    text += DescribeExtensionUnits(profile.extensionControls);
    text += Text(kInterface, 1, 0, 14, "Video", 2, "Video Streaming");
    for (size_t i = 0; i < profile.formats.size(); ++i) text += DescribeFormat(profile.formats[i], i + 1);
    return sound ? text + DescribeMicrophone() : text;
}
