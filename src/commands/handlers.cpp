#include "commands/handlers.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "camera/presets.h"
#include "camera/ptz.h"
#include "commands/command_tables.h"
#include "commands/reply_channel.h"
#include "commands/serial_port.h"
#include "core/health.h"
#include "core/log.h"
#include "core/shell.h"
#include "net/http_server.h"
#include "net/network_config.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"
#include "settings/process_flags.h"
#include "settings/selection.h"
#include "video/hdmi_output.h"
#include "video/video_devices.h"

static constexpr const char* kAck = "ACK\r\n";
static constexpr int32_t kOutputIndexLimit = 6;

static uint8_t LowByte(int32_t value) { return static_cast<uint8_t>(value); }

static int StoreByte(SharedByte& field, int32_t value) {
    field = LowByte(value);
    return 0;
}

// ---- Layout and source ----

int CycleCorner(const int32_t*) {
    CyclePictureInPicture(Settings);
    return 0;
}

int SwapCommand(const int32_t*) {
    SwapSources(Settings);
    return 0;
}

int ShowHdmiAbove(const int32_t*) { return StoreByte(Settings.SwHdmi, 1); }

int ShowUsbAbove(const int32_t*) { return StoreByte(Settings.SwHdmi, 0); }

int PressInputKey(const int32_t* arguments) {
    const int32_t key = arguments[0];
    if (key >= 1 && key <= 4) Settings.Input = LowByte(key);
    if (key == 5) ToggleBlack(Settings);
    return 0;
}

static void PressLayoutKey(int32_t key) {
    switch (key) {
        case 1:
            return SelectView(Settings, kViewS1);
        case 2:
            return SelectView(Settings, kViewS2);
        case 3:
            return CyclePictureInPicture(Settings);
        case 4:
            return SelectView(Settings, kViewSS);
        case 5:
            return SelectView(Settings, kViewBS);
        case 6:
            return ToggleSwap(Settings);
        default:
            return;
    }
}

int PressFrontKey(const int32_t* arguments) {
    if (DeviceId != 0) return PressInputKey(arguments);
    PressLayoutKey(arguments[0]);
    return 0;
}

int ShowBlack(const int32_t*) { return StoreByte(Settings.Black, 1); }

int ShowPicture(const int32_t*) { return StoreByte(Settings.Black, 0); }

int BlankOutput(const int32_t* arguments) { return SetBlank(LowByte(arguments[0])); }

int InvertInput(const int32_t* arguments) {
    SharedByte* const inversions[] = {&Settings.Inv1, &Settings.Inv2, &Settings.Inv3, &Settings.Inv4};
    const int32_t input = arguments[0];
    if (input >= 1 && input <= 4) *inversions[input - 1] = LowByte(arguments[1]);
    return SaveSettings(Settings);
}

static int NoteUsbStream(uint8_t state, const char* message) {
    if (Settings.UsbStream == state) return 0;
    Settings.UsbStream = state;
    PrintOut("%s", message);
    return 0;
}

int NoteUsbStreaming(const int32_t*) { return NoteUsbStream(255, "Received USBSTREAM\n"); }

int NoteUsbIdle(const int32_t*) { return NoteUsbStream(0, "Received USBNSTREAM\n"); }

// ---- Audio ----

static int StoreAndPrint(SharedByte& field, const char* name, const int32_t* arguments) {
    field = LowByte(arguments[0]);
    PrintOut("%s => %d\n", name, field.Load());
    return 0;
}

int StoreHdmiAudioLocal(const int32_t* arguments) { return StoreAndPrint(Settings.AoutHdmi, "AOUTHDMI", arguments); }

int StoreAnalogAudioLocal(const int32_t* arguments) {
    return StoreAndPrint(Settings.AoutAnalog, "AOUTANALOG", arguments);
}

int StoreUsb1AudioLocal(const int32_t* arguments) { return StoreAndPrint(Settings.AoutUsb1, "AOUTUSB1", arguments); }

int StoreUsb2AudioLocal(const int32_t* arguments) { return StoreAndPrint(Settings.AoutUsb2, "AOUTUSB2", arguments); }

int StoreMuteButtonMode(const int32_t* arguments) { return StoreAndPrint(Settings.Sbtn, "SBTN", arguments); }

static int SwitchAudioTest(uint8_t on) {
    AudioTest = on;
    AudioRestart = 1;
    return 0;
}

int StartAudioTest(const int32_t*) { return SwitchAudioTest(1); }

int StopAudioTest(const int32_t*) { return SwitchAudioTest(0); }

// ---- Video and output ----

int SetJpegParse(const int32_t* arguments) {
    StoreByte(Settings.EnJpegParse, arguments[0]);
    PipelineRestart = 1;
    return 0;
}

static bool IsOutputIndex(int32_t index) { return index >= 0 && index <= kOutputIndexLimit; }

int SetOutputLocal(const int32_t* arguments) {
    const int32_t index = arguments[0];
    if (!IsOutputIndex(index)) {
        SendReply("Bad timing index.\n");
        return 1;
    }
    if (index == Settings.OutputTiming) {
        SendReply("Current timing index.\n");
        return 0;
    }
    PipelineRestart = 1;
    sleep(1);
    return LowByte(SetHdmiOutput(LowByte(index), 1));
}

int SetOutputNetwork(const int32_t* arguments) {
    const int32_t index = arguments[0];
    PipelineRestart = 1;
    if (!IsOutputIndex(index)) {
        WriteToClient("Bad timing index.\r");
        return 1;
    }
    while (PipelineRestart != 0) usleep(1'000);  // the mode must not change under a running pipeline
    const int result = SetHdmiOutput(LowByte(index), 1);
    SaveSettings(Settings);
    return result;
}

int ResetUsbInputsCommand(const int32_t*) { return ResetUsbInputs(); }

// ---- Cameras ----

// The numbers that were given, in their order.
static int MoveBy(PtzAxis axis, const int32_t* arguments) {
    std::array<int32_t, kArguments> given;
    const auto isGiven = [](int32_t number) { return number != kMissingArgument; };
    const auto end = std::copy_if(arguments, arguments + kArguments, given.begin(), isGiven);
    return MoveCamera(axis, {given.begin(), end});
}

int Pan(const int32_t* arguments) { return MoveBy(kPan, arguments); }

int Tilt(const int32_t* arguments) { return MoveBy(kTilt, arguments); }

int Zoom(const int32_t* arguments) { return MoveBy(kZoom, arguments); }

int RecallCameraPreset(const int32_t* arguments) { return RecallPreset(arguments[0], arguments[1]); }

int StoreCameraPreset(const int32_t* arguments) { return StorePreset(arguments[0], arguments[1]); }

// ---- Settings and identity ----

int Save(const int32_t*) { return SaveSettings(Settings); }

int RestoreDefaults(const int32_t*) {
    CopySettings(Settings, DefaultSettings);
    ApplyNetworkMode(Settings.Dhcp);
    return SaveSettings(Settings);
}

int SetDeviceId(const int32_t* arguments) {
    const int32_t id = arguments[0];
    if (id == DeviceId) return 0;
    RunShell("echo DEVICEID=%d > %s", id, kIdentityPath);
    DeviceId = LowByte(id);
    PipelineRestart = 1;
    return 0;
}

int SetStatusBroadcast(const int32_t* arguments) { return StoreByte(StatusBroadcast, arguments[0]); }

int SetNetworkLogCommand(const int32_t* arguments) { return SetNetworkLog(arguments[0]); }

int KeepFirmware(const int32_t*) { return 0; }

// ---- Network ----

template <size_t count>
static std::array<uint8_t, count> LowBytes(const int32_t* arguments) {
    std::array<uint8_t, count> bytes;
    std::transform(arguments, arguments + count, bytes.begin(), LowByte);
    return bytes;
}

static void AnswerBeforeTheChange() {
    WriteToClient(kAck);
    FinishHttpConnection();
}

int SetIpAddressLocal(const int32_t* arguments) { return ApplyIpAddress(LowBytes<4>(arguments)); }

int SetIpAddressNetwork(const int32_t* arguments) {
    AnswerBeforeTheChange();
    ApplyIpAddress(LowBytes<4>(arguments));
    return 0;
}

int SetNetmaskLocal(const int32_t* arguments) {
    const Octets netmask = LowBytes<4>(arguments);
    std::copy(netmask.begin(), netmask.end(), Settings.Netmask.begin());
    return ApplyNetmask(netmask);
}

int SetNetmaskNetwork(const int32_t* arguments) {
    AnswerBeforeTheChange();
    ApplyNetmask(LowBytes<4>(arguments));
    return 0;
}

int SetDhcpLocal(const int32_t* arguments) { return ApplyNetworkMode(SharedByte{LowByte(arguments[0])}); }

int SetDhcpNetwork(const int32_t* arguments) {
    AnswerBeforeTheChange();
    StoreByte(Settings.Dhcp, arguments[0]);
    ApplyNetworkMode(Settings.Dhcp);
    return 0;
}

int SetGateway(const int32_t* arguments) { return ApplyGateway(LowBytes<4>(arguments)); }

int SetMacAddress(const int32_t* arguments) { return StoreMacAddress(LowBytes<6>(arguments)); }

// ---- Process control ----

// The answer goes out before the process, or the board, is gone.
static void AnswerLocal() { PrintOut("%s", kAck); }

static void AnswerNetwork() { WriteToClient(kAck); }

int QuitLocal(const int32_t*) {
    AnswerLocal();
    Terminate();
}

int QuitNetwork(const int32_t*) {
    AnswerNetwork();
    Terminate();
}

int RestartLocal(const int32_t*) {
    AnswerLocal();
    _exit(0);
}

int RestartNetwork(const int32_t*) {
    AnswerNetwork();
    _exit(0);
}

static int ResetBoard() {
    RunShell("echo \"<RST>\" > /dev/ttymxc0");
    return Reboot();
}

int ResetLocal(const int32_t*) {
    AnswerLocal();
    return ResetBoard();
}

int ResetNetwork(const int32_t*) {
    AnswerNetwork();
    return ResetBoard();
}

int RebootCommand(const int32_t*) { return Reboot(); }
