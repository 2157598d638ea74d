// The fault campaign: faults tried by the hundred on emulated boards, and behind each one the proof that it was
// survived. All that is random comes out of a seed, so that a run can be done again.
//
// A family of faults is a file of its own with one row, named below and in the table of campaign.cpp. Its step does one
// fault, or a burst of them, and leaves the board as it found it: everything plugged, no fault left, layout S1. It
// returns "KIND: what it did"; the kind is a row of the report. What must hold behind every step is looked at by the
// frame (CheckBench); what must hold in the middle of one, the step says with Expect. A fault that the daemon answers
// with its own end is no loss: the step adds the lives that are due.
//
// A family runs in slices, each a process with one board and with a seed of its own. Functions block; none ends the
// process.
#pragma once

#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "board_run.h"

inline constexpr double kPictureWithin = 4 + 3;  // s: quiet of the plugs, pause, scan, first second of a life; and 3
inline constexpr double kLifeWithin = 1 + 5 + kPictureWithin;  // s: pause before a start, start

inline constexpr const char* kCamerasAtRest[] = {"speakerphone", "hd-mjpeg"};  // of ports 1 and 2, where they are

enum Form : unsigned { kSmoke, kShort, kLong };

// How a board is at rest, and the worst that was seen.
struct Figures {
    long threads = 0, descriptors = 0, processes = 0, kilobytes = 0;
    double answer = 0, picture = 0, patGap = 0;  // s
};

// What a life of the daemon holds at rest with sound.
struct Memory {
    unsigned life = 1, since = 0;  // its number, and the step behind which it was begun
    std::vector<long> looks = {};  // kB
};

struct Bench {
    Board board;          // null for a family that needs none
    std::mt19937 random;  // Below and its kin draw from here, and nothing else may
    unsigned seed = 0;    // of the slice; those of its neighbours are one more and one less
    unsigned lives = 1;   // of the daemon, up to now
    unsigned tries = 1;   // faults in this step; the frame sets it to 1
    char shows = '1';     // the source that fills the display at rest; 0: that family has no picture to judge
    double pictureWithin = kPictureWithin;
    unsigned step = 0;           // since the board was started
    std::string complaint = {};  // the first of this step; empty: survived
    Figures rest = {}, worst = {};
    Memory memory = {};
};

struct Family {
    std::string_view name;                  // as --family takes it
    std::array<unsigned, kLong + 1> steps;  // of smoke, short and long
    Words options = {};                     // of `tessel-emulator run`
    bool onBoard = true;
    std::string (*step)(Bench& bench);
    unsigned stepsPerBoard = 100;  // then a fresh one takes over
};

extern const Family Cameras, Signals, Clients, Sound, I2c, SettingsFiles, SettingsBoards, Calls, Tools, Elements,
    Events, WallClock, Weaknesses, Mix;

// ---- Drawing from the seed ----

size_t Below(Bench& bench, size_t limit);
void PauseUpTo(Bench& bench, double seconds);
template <typename Range>
auto& Any(Bench& bench, Range& of) {
    return of[Below(bench, std::size(of))];
}

// ---- For steps ----

bool Expect(Bench& bench, bool holds, const std::string& what);  // `what` should have been; the first complaint counts
std::string Do(Bench& bench, const Words& verb);                 // a verb of the board that has to succeed: its result
double Stretched(double seconds);                                // a limit, times TESSEL_PATIENCE of the environment

// The daemon ends, as it should, and is started again within that time.
void ExpectNextLife(Bench& bench, double seconds, const char* why);

// The source fills the display with a running picture in time; bench.worst remembers how late the latest was.
bool ShowsInTime(Bench& bench, char source, double seconds = kPictureWithin);

// Each channel named ("console serial telnet http") answers a poll in time.
bool Answer(Bench& bench, std::string_view channels);

// ---- The frame ----

// A board at rest with its figures, or a complaint.
void StartBench(Bench& bench, const Words& options);
// Behind a step: the daemon lives as often as it should, every channel answers, the picture is there, the settings file
// is whole, nothing is left behind, the watchdog was patted in time.
void CheckBench(Bench& bench);
