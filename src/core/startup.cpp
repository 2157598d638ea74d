#include "core/startup.h"

#include <fcntl.h>
#include <gst/gst.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "audio/sound_cards.h"
#include "board/gpio.h"
#include "board/hdmi_receiver.h"
#include "board/i2c.h"
#include "board/led_thread.h"
#include "commands/console.h"
#include "commands/serial_port.h"
#include "core/health.h"
#include "core/log.h"
#include "core/one_shot.h"
#include "core/physical_memory.h"
#include "core/shell.h"
#include "core/watchdog.h"
#include "gstreamer/audio_pipeline.h"
#include "gstreamer/video_supervision.h"
#include "net/http_server.h"
#include "net/network_config.h"
#include "net/telnet_server.h"
#include "settings/device_identity.h"
#include "settings/device_settings.h"
#include "video/hdmi_output.h"

static constexpr const char* kOsVersionPath = "/etc/pixalto-osversion";
static constexpr const char* kUpgradeFolder = "/run/media/sda1/quendalupdate";
static constexpr const char* kUpgradeScript = "/run/media/sda1/quendalupdate/install.sh";

// Rewritten on kernels of the 2017 line, which lose it.
static constexpr uint32_t kSocRegister = 0x02630000, kSocRegisterValue = 0x04008A00;

// ---- Threads ----

struct ThreadStart {
    const char* name;  // at most 15 characters, the kernel's limit
    bool announced;
    void (*body)();
    bool realTime;
};
static constexpr ThreadStart kNetworkThread = {
    .name = "network", .announced = false, .body = NetworkSetupThread, .realTime = true};
static constexpr ThreadStart kServiceThreads[] = {
    {.name = "led", .announced = true, .body = LedThreadMain, .realTime = false},
    {.name = "UART", .announced = true, .body = UartThreadMain, .realTime = false},
    {.name = "console", .announced = true, .body = ConsoleThreadMain, .realTime = false},
    {.name = "LAN", .announced = true, .body = LanThreadMain, .realTime = false},
    {.name = "HTTP", .announced = true, .body = HttpThreadMain, .realTime = false},
};
static constexpr ThreadStart kMediaThreads[] = {
    {.name = "Gstreamer video", .announced = true, .body = VideoThreadMain, .realTime = true},
    {.name = "Gstreamer audio", .announced = true, .body = AudioSupervisionLoop, .realTime = true},
};

static void* RunThread(void* row) {
    const auto& start = *static_cast<const ThreadStart*>(row);
    pthread_setname_np(pthread_self(), start.name);
    start.body();
    return nullptr;
}

static void StartThread(const ThreadStart& start) {
    if (start.announced) LogInfo("In main: creating %s thread\n", start.name);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (start.realTime) {
        // Takes effect only where the system makes explicit scheduling the default; otherwise main's is inherited.
        const sched_param priority = {.sched_priority = 99};
        pthread_attr_setschedpolicy(&attributes, SCHED_FIFO);
        pthread_attr_setschedparam(&attributes, &priority);
    }
    pthread_t thread;
    const int error = pthread_create(&thread, &attributes, RunThread, const_cast<ThreadStart*>(&start));
    if (error != 0) LogInfo("ERROR; return code from pthread_create() is %d\n", error);
    pthread_attr_destroy(&attributes);
}

static void StartThreads(std::span<const ThreadStart> starts) {
    for (const ThreadStart& start : starts) StartThread(start);
}

// ---- Board ----

static void RaiseCpuGovernors() {
    static constexpr const char* kGovernors[] = {"/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor",
                                                 "/sys/devices/system/cpu/cpu1/cpufreq/scaling_governor"};
    static constexpr std::string_view kGovernor = "performance";
    for (const char* path : kGovernors) {
        const int file = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
        if (file < 0) continue;
        if (write(file, kGovernor.data(), kGovernor.size()) < 0) perror(path);
        close(file);
    }
}

static void ParkSpareCores() {
    if (sysconf(_SC_NPROCESSORS_ONLN) <= 2) return;
    RunShell("echo 0 > /sys/devices/system/cpu/cpu2/online");
    RunShell("echo 0 > /sys/devices/system/cpu/cpu3/online");
}

// The codec's own gains stay at their reference; levels are the pipeline's.
static int SetUpAudioChannel() {
    static constexpr const char* kSteps[] = {
        "amixer -D %s set PGA 0 > /dev/null",
        "amixer -D %s sset 'ADC HPF Cut-off' '0.0045xFs' > /dev/null",
        "amixer -D %s sset 'ADC HPF Cut-off' '0.0045xFs' > /dev/null",  // for each of its two channels
        "amixer -D %s set PCM 127 > /dev/null",
    };
    if (FindOnboardAudioCards() != 0) return 1;
    for (const char* step : kSteps) RunShell(step, OnboardAudioCards.AnalogCodecDevice);
    return 0;
}

static int QuietSystemMessages() {
    RunShell("dmesg -n 1");
    RunShell("/etc/init.d/syslog stop > /dev/null");
    return 0;
}

struct PreparationStep {
    int (*run)();
    const char* failure;  // logged; the steps behind it are left out
};
static constexpr PreparationStep kPreparation[] = {
    {.run = I2cOpenBus1, .failure = "I2C1 bus init failed.\n"},
    {.run = I2cOpenBus2, .failure = "I2C2 bus init failed.\n"},
    {.run = SetUpAudioChannel, .failure = "Audio channel setup failed.\n"},
    {.run = QuietSystemMessages, .failure = nullptr},
};

static int SystemPrepare() {
    RaiseCpuGovernors();
    ParkSpareCores();
    for (const PreparationStep& step : kPreparation) {
        if (step.run() == 0) continue;
        LogInfo("%s", step.failure);
        return 1;
    }
    return 0;
}

// Hands the board to the installer on a USB stick, for good: what follows is the installer's decision.
static void CheckUpgrade() {
    if (access(kUpgradeScript, F_OK) != 0) return;
    LogInfo("UPGRADE MODE DETECTED!\n");
    if (chdir(kUpgradeFolder) == 0) RunShell("/bin/sh install.sh");
    for (;;) pause();
}

// ---- Identity ----

static void ReadDeviceId() {
    FILE* file = fopen(kIdentityPath, "re");
    if (file == nullptr) {
        LogInfo("Can't open application config file.\n");
        return;
    }
    std::array<char, 32> line{};
    const char* value = fgets(line.data(), line.size(), file) != nullptr ? strchr(line.data(), '=') : nullptr;
    fclose(file);
    if (value == nullptr)
        fprintf(stderr, "%s: no DEVICEID= on its first line, taken as 0\n", kIdentityPath);
    else
        DeviceId = static_cast<uint8_t>(strtol(value + 1, nullptr, 10));
}

// The kernel is asked before the probes and again behind them; the later answer counts.
static void ProbeHardware() {
    ReadFirstLine("uname -a");
    uint8_t value = 0;
    if (I2cRead(1, 0x53, 0, &value, 1) == 0 && value != 0)
        TopBoard = 1;
    else
        TopBoard = I2cRead(2, 0x21, 0, &value, 1) == 0 ? 1 : 0;

    NewKernel = ReadFirstLine("uname -a").text.find("2017") == std::string::npos ? 1 : 0;
    if (NewKernel == 0) TopBoard = 0;
}

static void ReadOsVersion() {
    FILE* file = fopen(kOsVersionPath, "re");
    if (file == nullptr) {
        strcpy(OsVersion, "unknown");
        return;
    }
    OsVersion[fread(OsVersion, 1, sizeof OsVersion - 1, file)] = '\0';
    fclose(file);
}

// ---- Settings and devices ----

static void ApplyDefaults() {
    CopySettings(Settings, DefaultSettings);
    SaveSettings(Settings);
}

static void PrepareSettings() {
    if (LoadSettings(Settings) != 0) {
        LogInfo("Read configuration failed. Apply default values.\n");
        ApplyDefaults();
    } else if (ComputeChecksum(Settings) != Settings.Checksum) {
        LogInfo("Bad config checksum. Apply default values.\n");
        ApplyDefaults();
    } else {
        LogInfo("Good config checksum.\n");
    }
    Settings.Black = 0;  // never dark after a start
}

static void ReadMacAddressInto(DeviceSettings& record) {
    if (ReadMacAddress(record.MacAddress) != 0) LogInfo("Cannot get MAC address. Check configuration.\n");
}

// Critical messages of these libraries neither print nor abort: supervision has its own eyes on the pipelines.
static void StartGStreamer() {
    static constexpr const char* kDomains[] = {nullptr, "GLib", "GLib-GObject", "GStreamer"};
    gst_init(nullptr, nullptr);
    constexpr auto kLevels = GLogLevelFlags(G_LOG_LEVEL_CRITICAL | G_LOG_FLAG_FATAL | G_LOG_FLAG_RECURSION);
    const GLogFunc discard = [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {};
    for (const char* domain : kDomains) g_log_set_handler(domain, kLevels, discard, nullptr);
}

static void RestartOnKernelIssue() {
    if (KernelIssueCheck() == 0) return;
    LogInfo("Kernel issue! Need to restart...\n");
    sleep(10);
    Reboot();
}

[[noreturn]] static void MainLoop() {
    for (;;) {
        if (NewKernel == 0) PokePhysical(kSocRegister, kSocRegisterValue);
        usleep(100'000);
    }
}

int RunTesselvisor(int argumentCount, char** arguments) {
    if (SystemPrepare() != 0) LogInfo("Initialization failed.\n");
    CheckUpgrade();
    ReadDeviceId();
    ProbeHardware();
    ReadOsVersion();
    if (argumentCount > 1) {
        RunOneShot(argumentCount, arguments);
        return 0;
    }

    LogInfo("Tesselvisor Version %d.%d.%d\n", kVersion[0], kVersion[1], kVersion[2]);
    LogInfo("---------------------------------------------\n");
    if (DeviceId > 3) {
        LogInfo("Hardware not recognized. Exit.\n");
        Terminate();
    }
    LogInfo("Hardware ID: %d\n", DeviceId.Load());

    PrepareSettings();
    if (SetUpBoardGpio() != 0) return 1;
    ReadMacAddressInto(Settings);
    ReadMacAddressInto(DefaultSettings);
    StartThread(kNetworkThread);
    if (HdmiRxInit() == 0) LogInfo("HDMI receiver initialization failed.\n");
    if (SetHdmiOutput(Settings.OutputTiming, 0) != 0) return 1;
    WatchdogSetup();

    StartThreads(kServiceThreads);
    StartGStreamer();
    StartThreads(kMediaThreads);
    RestartOnKernelIssue();
    MainLoop();
}
