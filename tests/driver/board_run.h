// Drives one emulated board as its user would: starts `tessel-emulator run`, types on its console, asks
// `tessel-emulator ctl`, looks at the picture. Each test owns its board; boards share nothing, so tests run side by
// side.
//
// Waiting functions are given the time that the daemon should need and poll until it has passed and some more: tests
// judge what happens, benchmarks how fast. They return false (or nothing) then and never fail a test themselves. To see
// that something does not happen, Pause and look.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/display_picture.h"

using Json = nlohmann::ordered_json;
using Words = std::vector<std::string>;
using Seconds = std::chrono::duration<double>;

// Sanitizers slow everything but the clocks; deadlines of things that compute are stretched by this factor.
double Patience();

// What a machine that is busy with other boards may add to any wait.
inline constexpr double kBusyMachineSeconds = 20;

void Pause(double seconds);

// Stops the emulator and removes the board's folder when the last owner lets go; ends the process (SIGABRT) when a
// sanitizer has spoken on the board.
struct BoardRun;
using Board = std::shared_ptr<BoardRun>;

// A fresh folder for a board; files can be put into it before the start (see BoardFile).
Board MakeBoard();
std::string BoardFile(const Board& board, const std::string& path);  // host path of a persistent file, folders made

// Starts the emulator on the board with these words behind `run`; returns when its verbs can be used (or it has ended).
// Console output is collected from here on.
void StartBoard(const Board& board, const Words& words);
Board StartNewBoard(const Words& words);

// The same until this is said, or a picture is on display; both throw what the console says instead.
Board StartUntil(std::string_view text, const Words& words);
Board StartShowing(const Words& words);

// A board that runs this shell script in the daemon's place, prints "script ended", and then waits to be asked.
Board RunScript(const std::string& script, Words options = {});

// The same with a picture on display, or nothing within the deadline.
bool WaitForPicture(const Board& board, double seconds = 30);

// Until the daemon is at rest with sound and its threads: figures of its process can be taken from here on.
bool WaitForSound(const Board& board);

// Ends the emulator. Its exit status, or 128 + signal. WaitForEnd waits for it to end by itself (-1: it did not).
int StopBoard(const Board& board);
int WaitForEnd(const Board& board, double seconds);

// Console.
void Type(const Board& board, const std::string& text);  // as it stands: add the "\n"
std::string Output(const Board& board);                  // everything so far, both streams
size_t OutputSize(const Board& board);
bool WaitForOutput(const Board& board, std::string_view text, double seconds, size_t from = 0);
void CloseConsole(const Board& board);  // end of input
bool TypeAndWait(const Board& board, const std::string& text, std::string_view until, double seconds = 15);
std::string TypeAndRead(const Board& board, const std::string& line,
                        double seconds = 0.5);                        // what came behind the line
std::string Command(const Board& board, const std::string& command);  // what the console shows up to its answer

// The serial line: what it received since the trace was cleared.
std::string SerialText(const Board& board);

// Control verbs.
struct CtlAnswer {
    int status;
    std::string out, err;
};
CtlAnswer Ctl(const Board& board, const Words& words);
CtlAnswer Play(const Board& board, const std::string& scenario);               // a file, on this board
CtlAnswer Play(const std::string& scenario);                                   // on a board of its own
std::vector<Json> TraceLines(const Board& board, std::string_view what = {});  // all kinds, or one
std::vector<std::string> ShellLines(const Board& board);                       // what was run through `sh -c`, in order
Json AskJson(const Board& board, const Words& words);
Json Status(const Board& board);

// The displayed picture.
std::optional<Picture> TakePicture(const Board& board);
std::optional<Picture> SavePicture(const Board& board);  // the same through `ctl picture` and its PNG

// Until the predicate holds for a picture taken now.
bool WaitUntilPicture(const Board& board, double seconds, const std::function<bool(const Picture&)>& holds);
bool WaitUntil(double seconds, const std::function<bool()>& holds);

std::string FileText(const std::string& path);

// Settings record: bytes of the saved file (empty when there is none).
std::vector<uint8_t> SavedSettings(const Board& board);
