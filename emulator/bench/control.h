// The board's control socket and its verbs, as `tessel-emulator ctl` sends them. A verb is a row: its word, its usage
// and the function that carries it out. Supervisor's thread only; a verb must not block.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

using VerbWords = std::vector<std::string>;  // the words after the verb

// What a client can follow: what comes is passed on to it until it leaves.
enum class Feed { kNone, kTrace, kJournal, kConsole };

struct VerbAnswer {
    bool good = true;
    std::string text = {};  // result, or what is wrong; no final newline needed
    uint64_t later = 0;     // of LaterAnswer(): the answer follows, see below
    Feed follow = Feed::kNone;
};

inline constexpr size_t kActs = 0, kOnlyLooks = SIZE_MAX;

struct Verb {
    std::string_view word;
    std::string_view usage;  // "camera N plug PROFILE | unplug | stall | resume | garbage ..."
    VerbAnswer (*run)(const VerbWords& words);
    size_t actsWith = kOnlyLooks;  // from so many words on it does something to the board, and is recorded
};

// A verb that must wait (for a line's answer, for a second to pass) returns `{.later = id}` of a fresh LaterAnswer()
// and gives the answer from a timer or a watched descriptor. The client may have gone by then: nothing happens.
uint64_t LaterAnswer();
void AnswerLater(uint64_t id, const VerbAnswer& answer);

void PassToFollowers(Feed feed, std::string_view text);  // lines with their newline

std::span<const Verb> Verbs();  // the table, verbs.cpp

// The words [--last N] [--follow] [--clear] of a verb that prints what was recorded; nothing when there are others.
struct Listing {
    size_t newest = SIZE_MAX;  // lines
    bool follow = false, clear = false;
};
std::optional<Listing> ParseListing(const VerbWords& words);

VerbAnswer Bad(std::string text);         // {false, text}
VerbAnswer Usage(std::string_view word);  // {false, "usage: ..."} of that verb

// The socket, DIR/control. A client sends the words, each ended by a zero, and shuts its side; the answer is '0' (good)
// or '1', then the text, until the end of the stream.
bool OpenControl(const std::string& folder);  // false, with the reason on standard error
void CloseControl();
