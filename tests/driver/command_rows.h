// What every command does, seen from outside: its answer, the fields of the settings record that change, the shell
// lines that run, whether the settings file is written. Written by hand, a second time; never taken from the daemon.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "board_run.h"

enum Channels : uint8_t { kSerial = 1, kConsole = 2, kTelnet = 4, kHttp = 8, kLocal = 3, kNetwork = 12, kAll = 15 };
enum Variants : uint8_t { kLayouts = 1, kInputs = 2, kBoth = 3 };  // variant 0, variants 1..3

struct Change {
    const char* field;  // as the verb `settings` names it
    Json value;         // afterwards
};

enum class Ends : uint8_t { kNothing, kProcess, kBoard };

struct CommandRow {
    std::string word;
    std::string arguments = {};  // separated by a space
    Channels channels = kAll;
    Variants sentOn = kBoth;
    Variants actsOn = kBoth;           // elsewhere nothing changes, and the console refuses it
    std::string before = {};           // words without arguments that are sent first, so that there is a change to see
    std::vector<Change> changes = {};  // every other field keeps its value
    bool clears = false;               // or is 0
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
