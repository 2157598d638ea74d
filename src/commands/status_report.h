// The status report: one line an item, everything that a controller may want to know about the device. The local form
// answers GET on the serial port; framed and with a CRC-32 it is GET's answer on the console and the broadcast that the
// USB bridge reads; the network form, with "\r\n" line ends, answers GET on telnet and HTTP. POLL is the short answer.
//
// Runs on the thread of the channel that asked and blocks while the address and mode tools answer (some 50 ms). It
// never fails: what cannot be read is reported so, or left out.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "settings/device_settings.h"
#include "video/hdmi_output.h"

// 0 in every case. While somebody reads the log over telnet, only every 13th local report is made: the log carries the
// broadcasts too.
int BuildStatusReport(const int32_t* = nullptr);  // GET (serial, console) and the broadcast
int SendNetworkStatus(const int32_t* = nullptr);  // GET (telnet, HTTP, diagnostic log)
int SendSerialPoll(const int32_t*);               // POLL
int SendNetworkPoll(const int32_t*);
int LanTest(const int32_t*);  // LANTEST: 0 when the link is up and the address can be read, else 1

int ReadTemperature();  // degrees Celsius, 0 when it cannot be read

// ---- Facts in, text out; pure ----

struct ReceivedVideo {
    bool locked;
    uint32_t width, height;
};

struct ReceivedCamera {
    ReceivedVideo video;
    const char* format;
    uint32_t rate;  // frames a second
};

struct StatusFacts {
    uint8_t deviceId;
    const char* osVersion;
    uint8_t edidVersion, keypadVersion;
    std::array<ReceivedCamera, 2> cameras;  // inputs 1 and 2
    std::array<ReceivedVideo, 2> hdmi;      // inputs 3 and 4
    bool addressFound, macFound;            // what `settings` says of them is up to date
    DeviceSettings settings;
    uint8_t muteIn;
    OutputMode output;  // 0x0: it could not be read
    int temperature;
    uint32_t frameCount;
};

enum ReportForm : uint8_t { kReportPlain = 1, kReportFramed = 2, kReportNetwork = 4 };

std::string ReportText(const StatusFacts& facts, ReportForm form);
