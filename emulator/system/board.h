// The emulated appliance as a whole: what it was built with, where its files are, and power.
//
// A board has two folders. The persistent one (--board DIR) is its flash: home/root, etc, and the control socket. The
// volatile one, on tmpfs, is what a power cycle clears: dev, sys, run, tmp and the display memory. Inside the sandbox
// they appear as /home/root, /etc, /dev, /sys, /run, /tmp, and the emulator's own files as /opt/board (see sandbox.h).
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

struct BoardOptions {
    std::string daemon;            // path of the program on the host
    std::filesystem::path folder;  // persistent files
    bool temporary = false;        // the folder was made for this run and goes with it
    int deviceId = -1;             // -1: leave Tesselvisor.conf as it is (absent on a fresh board)
    bool oldKernel = false;        // `uname -a` of a 2017 kernel
    bool topBoard = false;
    std::string camera1, camera2;          // profile names, empty: nothing plugged
    std::string hdmiIn;                    // "1920x1080p60", empty: nothing plugged
    std::string monitor = "1080p60";       // EDID name or "none"
    std::string panel = "keypad";          // "keypad", "expander" or "none"
    int httpPort = 0, telnetPort = 0;      // of the host's loopback; 0: any free one
    int pagePort = 0;                      // of the host's loopback; 0: no page, or kAutoPagePort
    bool restart = true;                   // false: the emulator ends with the daemon's exit status
    std::vector<std::string> arguments;    // for the daemon
    std::vector<std::string> environment;  // NAME=VALUE, for the daemon besides the board's own
};

extern BoardOptions Board;
extern std::filesystem::path Volatile;  // host path of the volatile folder

// Host path of a file that the board sees at this absolute path (under /home/root, /etc, /dev, /sys, /run or /tmp).
std::filesystem::path HostPath(const std::string& boardPath);

// Writes a plain file of the board (a sysfs attribute, a marker) whole, so that a reader sees the old or the new text.
void WriteBoardFile(const std::string& boardPath, const std::string& text);

// Power. A reset happens after the event in hand: it kills everything on the board, clears what is volatile and boots
// again.
void ResetBoard(const std::string& why);

// For the emulator's own course: makes the folders (false, with the reason on standard error, when another emulator has
// the board or a folder cannot be made); switches on and boots, again after each reset; switches off and cleans up.
bool OpenBoard();
bool PowerOnBoard();
void CloseBoard();
int64_t PowerOnTime();  // microseconds, as NowMicroseconds()
