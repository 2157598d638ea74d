#include "commands/command_tables.h"

#include <string_view>

#include "commands/handlers.h"
#include "commands/serial_port.h"
#include "commands/status_report.h"
#include "net/control_pages.h"
#include "net/log_download.h"
#include "settings/device_settings.h"

// clang-format off
static constexpr CommandEntry kSerialRows[] = {
    {.pattern = "<S1>", .kind = kLayout, .value1 = kViewS1, .value2 = 0},
    {.pattern = "<S2>", .kind = kLayout, .value1 = kViewS2, .value2 = 0},
    {.pattern = "<SS>", .kind = kLayout, .value1 = kViewSS, .value2 = kNoValue},
    {.pattern = "<TB>", .kind = kLayout, .value1 = kViewTB, .value2 = kNoValue},
    {.pattern = "<BS>", .kind = kLayout, .value1 = kViewBS, .value2 = kNoValue},
    {.pattern = "<PPTR>", .kind = kLayout, .value1 = kViewPPTR, .value2 = kNoValue},
    {.pattern = "<PPTL>", .kind = kLayout, .value1 = kViewPPTL, .value2 = kNoValue},
    {.pattern = "<PPBR>", .kind = kLayout, .value1 = kViewPPBR, .value2 = kNoValue},
    {.pattern = "<PPBL>", .kind = kLayout, .value1 = kViewPPBL, .value2 = kNoValue},
    {.pattern = "<PP>", .kind = kLayout, .value1 = kViewPP, .value2 = kNoValue, .handler = CycleCorner},
    {.pattern = "<SW>", .kind = kLayout, .handler = SwapCommand},
    {.pattern = "<SWHDMI>", .kind = kLayout, .handler = ShowHdmiAbove},
    {.pattern = "<SWUSB>", .kind = kLayout, .handler = ShowUsbAbove},
    {.pattern = "<SS1>", .kind = kLayout, .value1 = kViewSS, .value2 = 0},
    {.pattern = "<SS2>", .kind = kLayout, .value1 = kViewSS, .value2 = 1},
    {.pattern = "<TB1>", .kind = kLayout, .value1 = kViewTB, .value2 = 0},
    {.pattern = "<TB2>", .kind = kLayout, .value1 = kViewTB, .value2 = 1},
    {.pattern = "<BS1>", .kind = kLayout, .value1 = kViewBS, .value2 = 0},
    {.pattern = "<BS2>", .kind = kLayout, .value1 = kViewBS, .value2 = 1},
    {.pattern = "<PPTR1>", .kind = kLayout, .value1 = kViewPPTR, .value2 = 0},
    {.pattern = "<PPTR2>", .kind = kLayout, .value1 = kViewPPTR, .value2 = 1},
    {.pattern = "<PPTL1>", .kind = kLayout, .value1 = kViewPPTL, .value2 = 0},
    {.pattern = "<PPTL2>", .kind = kLayout, .value1 = kViewPPTL, .value2 = 1},
    {.pattern = "<PPBR1>", .kind = kLayout, .value1 = kViewPPBR, .value2 = 0},
    {.pattern = "<PPBR2>", .kind = kLayout, .value1 = kViewPPBR, .value2 = 1},
    {.pattern = "<PPBL1>", .kind = kLayout, .value1 = kViewPPBL, .value2 = 0},
    {.pattern = "<PPBL2>", .kind = kLayout, .value1 = kViewPPBL, .value2 = 1},
    {.pattern = "<AOUTHDMI.+>", .value2 = kNoValue, .handler = StoreHdmiAudioLocal, .argumentCount = 1, .numberBase = 0},
    {.pattern = "<AOUTANALOG.+>", .value2 = kNoValue, .handler = StoreAnalogAudioLocal, .argumentCount = 1, .numberBase = 0},
    {.pattern = "<AOUTUSB1.+>", .value2 = kNoValue, .handler = StoreUsb1AudioLocal, .argumentCount = 1, .numberBase = 0},
    {.pattern = "<AOUTUSB2.+>", .value2 = kNoValue, .handler = StoreUsb2AudioLocal, .argumentCount = 1, .numberBase = 0},
    {.pattern = "<IN1>", .kind = kInput, .value1 = 1},
    {.pattern = "<IN2>", .kind = kInput, .value1 = 2},
    {.pattern = "<IN3>", .kind = kInput, .value1 = 3},
    {.pattern = "<IN4>", .kind = kInput, .value1 = 4},
    {.pattern = "<BLK>", .handler = ShowBlack},
    {.pattern = "<SHW>", .handler = ShowPicture},
    {.pattern = "<RST>", .handler = ResetLocal},
    {.pattern = "<RSTUSB>", .handler = ResetUsbInputsCommand},
    {.pattern = "<RBT>", .handler = RebootCommand},
    {.pattern = "<SAVE>", .handler = Save},
    {.pattern = "<RSTR>", .handler = RestoreDefaults},
    {.pattern = "<GET>", .handler = BuildStatusReport},
    {.pattern = "<POLL>", .handler = SendSerialPoll},
    {.pattern = "<OUTPUT.+>", .handler = SetOutputLocal, .argumentCount = 1},
    {.pattern = "<IP.+>", .handler = SetIpAddressLocal, .argumentCount = 4},
    {.pattern = "<NETMASK.+>", .handler = SetNetmaskLocal, .argumentCount = 4},
    {.pattern = "<MACADDR.+>", .handler = SetMacAddress, .argumentCount = 6, .numberBase = 16},
    {.pattern = "<GATEWAY.+>", .handler = SetGateway, .argumentCount = 4},
    {.pattern = "<AIN1.+>", .handler = Store<&DeviceSettings::Ain1>, .argumentCount = 1},
    {.pattern = "<AIN2.+>", .handler = Store<&DeviceSettings::Ain2>, .argumentCount = 1},
    {.pattern = "<AIN3.+>", .handler = Store<&DeviceSettings::Ain3>, .argumentCount = 1},
    {.pattern = "<AIN4.+>", .handler = Store<&DeviceSettings::Ain4>, .argumentCount = 1},
    {.pattern = "<AOUT1.+>", .handler = Store<&DeviceSettings::Aout1>, .argumentCount = 1},
    {.pattern = "<AOUT2.+>", .handler = Store<&DeviceSettings::Aout2>, .argumentCount = 1},
    {.pattern = "<AOUT3.+>", .handler = Store<&DeviceSettings::Aout3>, .argumentCount = 1},
    {.pattern = "<AOUT4.+>", .handler = Store<&DeviceSettings::Aout4>, .argumentCount = 1},
    {.pattern = "<ACFG.+>", .handler = Store<&DeviceSettings::Acfg>, .argumentCount = 1},
    {.pattern = "<INV.+>", .handler = InvertInput, .argumentCount = 2},
    {.pattern = "<SBTN.+>", .handler = StoreMuteButtonMode, .argumentCount = 1},
    {.pattern = "<BLANK.+>", .handler = BlankOutput, .argumentCount = 1},
    {.pattern = "<ENLOG.+>", .handler = SetNetworkLogCommand, .argumentCount = 1},
    {.pattern = "<ENJPEGPARSE.+>", .handler = SetJpegParse, .argumentCount = 1},
    {.pattern = "<SKEY.+>", .handler = PressInputKey, .argumentCount = 1},
    {.pattern = "<KEY.+>", .handler = PressFrontKey, .argumentCount = 1},
    {.pattern = "<QUIT>", .handler = QuitLocal},
    {.pattern = "<RESTART>", .handler = RestartLocal},
    {.pattern = "<FIRMWARE>", .handler = KeepFirmware},
    {.pattern = "<SERIALTEST>", .handler = SerialLoopTest},
    {.pattern = "<STARTAUDIOTEST>", .handler = StartAudioTest},
    {.pattern = "<STOPAUDIOTEST>", .handler = StopAudioTest},
    {.pattern = "<TOPTEST>", .handler = TopTest},
    {.pattern = "<I2CTEST>", .handler = I2cTest},
    {.pattern = "<LANTEST>", .handler = LanTest},
    {.pattern = "<DEVICEID.+>", .handler = SetDeviceId, .argumentCount = 1},
    {.pattern = "<USBSTREAM>", .value2 = kNoValue, .handler = NoteUsbStreaming},
    {.pattern = "<USBNSTREAM>", .value2 = kNoValue, .handler = NoteUsbIdle},
    {.pattern = "<DHCP.+>", .handler = SetDhcpLocal, .argumentCount = 1},
    {.pattern = "<ENBCAST.+>", .handler = SetStatusBroadcast, .argumentCount = 1},
};

static constexpr CommandEntry kNetworkRows[] = {
    {.pattern = "\\$S1\\$", .kind = kLayout, .value1 = kViewS1, .value2 = 0},
    {.pattern = "\\$S2\\$", .kind = kLayout, .value1 = kViewS2, .value2 = 0},
    {.pattern = "\\$SS\\$", .kind = kLayout, .value1 = kViewSS, .value2 = kNoValue},
    {.pattern = "\\$TB\\$", .kind = kLayout, .value1 = kViewTB, .value2 = kNoValue},
    {.pattern = "\\$BS\\$", .kind = kLayout, .value1 = kViewBS, .value2 = kNoValue},
    {.pattern = "\\$PPTR\\$", .kind = kLayout, .value1 = kViewPPTR, .value2 = kNoValue},
    {.pattern = "\\$PPTL\\$", .kind = kLayout, .value1 = kViewPPTL, .value2 = kNoValue},
    {.pattern = "\\$PPBR\\$", .kind = kLayout, .value1 = kViewPPBR, .value2 = kNoValue},
    {.pattern = "\\$PPBL\\$", .kind = kLayout, .value1 = kViewPPBL, .value2 = kNoValue},
    {.pattern = "\\$PP\\$", .kind = kLayout, .value1 = kViewPP, .handler = CycleCorner},
    {.pattern = "\\$SW\\$", .kind = kLayout, .handler = SwapCommand},
    {.pattern = "\\$SWHDMI\\$", .kind = kLayout, .handler = ShowHdmiAbove},
    {.pattern = "\\$SWUSB\\$", .kind = kLayout, .handler = ShowUsbAbove},
    {.pattern = "\\$SS1\\$", .kind = kLayout, .value1 = kViewSS, .value2 = 0},
    {.pattern = "\\$SS2\\$", .kind = kLayout, .value1 = kViewSS, .value2 = 1},
    {.pattern = "\\$TB1\\$", .kind = kLayout, .value1 = kViewTB, .value2 = 0},
    {.pattern = "\\$TB2\\$", .kind = kLayout, .value1 = kViewTB, .value2 = 1},
    {.pattern = "\\$BS1\\$", .kind = kLayout, .value1 = kViewBS, .value2 = 0},
    {.pattern = "\\$BS2\\$", .kind = kLayout, .value1 = kViewBS, .value2 = 1},
    {.pattern = "\\$PPTR1\\$", .kind = kLayout, .value1 = kViewPPTR, .value2 = 0},
    {.pattern = "\\$PPTR2\\$", .kind = kLayout, .value1 = kViewPPTR, .value2 = 1},
    {.pattern = "\\$PPTL1\\$", .kind = kLayout, .value1 = kViewPPTL, .value2 = 0},
    {.pattern = "\\$PPTL2\\$", .kind = kLayout, .value1 = kViewPPTL, .value2 = 1},
    {.pattern = "\\$PPBR1\\$", .kind = kLayout, .value1 = kViewPPBR, .value2 = 0},
    {.pattern = "\\$PPBR2\\$", .kind = kLayout, .value1 = kViewPPBR, .value2 = 1},
    {.pattern = "\\$PPBL1\\$", .kind = kLayout, .value1 = kViewPPBL, .value2 = 0},
    {.pattern = "\\$PPBL2\\$", .kind = kLayout, .value1 = kViewPPBL, .value2 = 1},
    {.pattern = "\\$AOUTHDMI.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::AoutHdmi>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AOUTANALOG.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::AoutAnalog>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AOUTUSB1.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::AoutUsb1>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AOUTUSB2.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::AoutUsb2>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AIN1.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::Ain1>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AIN2.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::Ain2>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AIN3.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::Ain3>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AIN4.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::Ain4>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AOUT1.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::Aout1>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AOUT2.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::Aout2>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AOUT3.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::Aout3>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$AOUT4.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::Aout4>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$ACFG.+\\$", .value2 = kNoValue, .handler = Store<&DeviceSettings::Acfg>, .argumentCount = 1, .numberBase = 0},
    {.pattern = "\\$IN1\\$", .kind = kInput, .value1 = 1},
    {.pattern = "\\$IN2\\$", .kind = kInput, .value1 = 2},
    {.pattern = "\\$IN3\\$", .kind = kInput, .value1 = 3},
    {.pattern = "\\$IN4\\$", .kind = kInput, .value1 = 4},
    {.pattern = "\\$BLK\\$", .handler = ShowBlack},
    {.pattern = "\\$SHW\\$", .handler = ShowPicture},
    {.pattern = "\\$RST\\$", .handler = ResetNetwork},
    {.pattern = "\\$SAVE\\$", .handler = Save},
    {.pattern = "\\$RSTR\\$", .handler = RestoreDefaults},
    {.pattern = "\\$GET\\$", .handler = SendNetworkStatus},
    {.pattern = "\\$POLL\\$", .handler = SendNetworkPoll},
    {.pattern = "\\$WEB\\$", .handler = SendControlPage},
    {.pattern = "\\GETLOG\\$", .handler = SendDiagnosticLog},  // also without its first delimiter
    {.pattern = "\\$OUTPUT.+\\$", .handler = SetOutputNetwork, .argumentCount = 1},
    {.pattern = "\\$DHCP.+\\$", .handler = SetDhcpNetwork, .argumentCount = 1},
    {.pattern = "\\$IP.+\\$", .handler = SetIpAddressNetwork, .argumentCount = 4},
    {.pattern = "\\$MAC.+\\$", .handler = SetMacAddress, .argumentCount = 6, .numberBase = 16},
    {.pattern = "\\$NETMASK.+\\$", .handler = SetNetmaskNetwork, .argumentCount = 4},
    {.pattern = "\\$GATEWAY.+\\$", .handler = SetGateway, .argumentCount = 4},
    {.pattern = "\\$INV.+\\$", .handler = InvertInput, .argumentCount = 2},
    {.pattern = "\\$BLANK.+\\$", .handler = BlankOutput, .argumentCount = 1},
    {.pattern = "\\$ENLOG.+\\$", .handler = SetNetworkLogCommand, .argumentCount = 1},
    {.pattern = "\\$ENJPEGPARSE.+\\$", .handler = SetJpegParse, .argumentCount = 1},
    {.pattern = "\\$QUIT\\$", .handler = QuitNetwork},
    {.pattern = "\\$RESTART\\$", .handler = RestartNetwork},
};
// clang-format on

// A row takes arguments exactly when its pattern leaves room for them.
static constexpr bool IsSound(const CommandEntry& row) {
    const bool hasRoom = std::string_view(row.pattern).find(".+") != std::string_view::npos;
    const bool knownBase = row.numberBase == 0 || row.numberBase == 10 || row.numberBase == 16;
    return hasRoom == (row.argumentCount > 0) && row.argumentCount <= kArguments && knownBase;
}

static constexpr bool AreSound(std::span<const CommandEntry> rows) {
    for (const CommandEntry& row : rows)
        if (!IsSound(row)) return false;
    return true;
}
static_assert(AreSound(kSerialRows) && AreSound(kNetworkRows));

constinit const std::span<const CommandEntry> SerialCommandTable = kSerialRows;
constinit const std::span<const CommandEntry> NetworkCommandTable = kNetworkRows;
