// What a scenario expects to see: `expect [no] KIND ... [within SECONDS] [for SECONDS]`, parsed, and judged on what was
// seen in one look at the board. A kind is a row: its word, where to look, how to read its words and how to judge.
//
// Pure; scenario_play looks again and again, as long as `within` and `lasting` say.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/display_picture.h"

using Json = nlohmann::ordered_json;

inline constexpr double kUsualPatience = 5;  // seconds that `expect` waits, unless told; `expect no` does not wait

struct ExpectationKind;

struct Expectation {
    const ExpectationKind* kind = nullptr;
    bool none = false;                    // `no`: the opposite is expected
    double within = kUsualPatience;       // seconds until it must be so
    double lasting = 0;                   // seconds that it must then stay so
    std::vector<std::string> words = {};  // what else the line said
    std::optional<Shown> shown = {};      // of a picture in a window; right 0: the whole display
    enum { kAny, kRunning, kStanding } motion = kAny;
};

// Whether the picture of a source runs is judged from one look to the next.
struct Motion {
    std::optional<PictureMark> mark = {};  // of the newest frame seen
    double since = 0;                      // seconds: it was first seen then
    bool moved = false;                    // it is not the first one
};

// One look at the board, at a time in seconds. Only what the kind looks at is there.
// NOLINTNEXTLINE(bugprone-exception-escape): made by the compiler, which asks the JSON library
struct Look {
    double seconds = 0;
    std::optional<Picture> picture = {};
    std::string_view text = {};  // what was written since the scenario's start, or since the newest verbs
    Json answer = {};            // of the verb
    std::string trouble = {};    // why there is nothing to look at: the board is gone, the verb is refused
};

struct Finding {
    bool holds;
    std::string seen;
};

enum class LookAt { kPicture, kJournal, kConsole, kVerb };

struct ExpectationKind {
    std::string_view word;
    std::string_view usage;  // behind "expect "
    LookAt at;
    std::string (*parse)(Expectation& expectation);  // what is wrong with its words; empty: nothing
    Finding (*judge)(const Expectation& expectation, const Look& look, Motion& motion);
    std::string_view verb = {};  // that is asked, with the words before the last two
};

// The words behind `expect`. Says what is wrong, or nothing.
std::string ParseExpectation(std::vector<std::string> words, Expectation& expectation);

// Whether it is as expected. A board that cannot be looked at is not, whatever is expected but the daemon's end.
Finding Judge(const Expectation& expectation, const Look& look, Motion& motion);

// The verb whose answer is looked at; empty where it is not a verb's.
std::vector<std::string> AskedVerb(const Expectation& expectation);

// Digits, perhaps with a fraction. Nothing for any other text.
std::optional<double> ParseSeconds(std::string_view text);

// What `now` has behind the end of `before`, both being the newest part of one text that grows and loses its beginning.
std::string_view Appended(std::string_view before, std::string_view now);
