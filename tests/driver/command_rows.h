// What every command does, seen from outside: its answer, the fields of the settings record that change, the shell
// lines that run, whether the settings file is written. Written by hand, a second time; never taken from the daemon.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "board_run.h"

// Offsets in the settings file.
enum Field : uint8_t {
    View = 6,
    Swap = 7,
    SwHdmi = 8,
    Reserved9 = 9,
    Input = 10,
    IpAddress = 36,
    Dhcp = 40,
    OutputHz = 44,
    Black = 50,
    S2Count = 52,
    AudioJack = 53,
    MonitorVendor = 62,
    PtzCamera = 72,
    PanCamera1 = 76,
    TiltCamera1 = 80,
    ZoomCamera1 = 84,
    PanCamera2 = 88,
    TiltCamera2 = 92,
    ZoomCamera2 = 96,
    Inv1 = 100,
    Ain1 = 102,
    Ain2 = 103,
    Ain3 = 104,
    Ain4 = 105,
    Aout1 = 106,
    Acfg = 107,
    Sbtn = 114,
    Aout2 = 115,
    Aout3 = 116,
    Aout4 = 117,
    Inv3 = 118,
    AoutHdmi = 120,
    AoutAnalog = 121,
    AoutUsb1 = 122,
    AoutUsb2 = 123,
    UsbStream = 124,
    Netmask = 125,
    Blank = 129,
    Gateway = 130,
    EnLog = 134,
    EnJpegParse = 135,
};

// The settings file of a board that has not started yet; what is not named is 0. Not for fields 36 to 45.
using SettingsBytes = std::map<Field, uint8_t>;
void StoreSettings(const Board& board, const SettingsBytes& bytes);

enum Channels : uint8_t { kSerial = 1, kConsole = 2, kTelnet = 4, kHttp = 8, kLocal = 3, kNetwork = 12, kAll = 15 };
enum Variants : uint8_t { kLayouts = 1, kInputs = 2, kBoth = 3 };  // variant 0, variants 1..3

struct Change {
    Field field;
    std::vector<uint8_t> bytes;  // afterwards
};

enum class Ends : uint8_t { kNothing, kProcess, kBoard };

struct CommandRow {
    std::string word;
    std::string arguments = {};  // separated by a space
    Channels channels = kAll;
    Variants sentOn = kBoth;
    Variants actsOn = kBoth;           // elsewhere nothing changes, and the console refuses it
    std::string before = {};           // words without arguments that are sent first, so that there is a change to see
    std::vector<Change> changes = {};  // every other byte keeps its value
    uint8_t s2Counts = 0;              // added to S2Count
    bool saves = false;                // the settings file is written
    bool maySave = false;              // it is written if sound plays already
    std::vector<std::string> runs = {};  // shell lines, in order
    std::string prints = {};             // on standard output (local channels)
    std::string sends = {};              // to whoever asked, in front of the answer; '*' stands for any text
    bool refused = false;                // NACK
    bool answersFirst = false;           // the network's answer leaves before the work; telnet gets a second one
    bool leaseFollows = false;           // a report that follows may replace the address by the lease
    Ends ends = Ends::kNothing;
};

// In the order in which a board can run them one after the other: a row may rely on what the rows above it left.
extern const std::vector<CommandRow> CommandRows;
