// Scenario files: what is done to a board and what must then be seen, a line each. docs/scenarios.md explains them to
// those who write them.
//
//     # A presenter's laptop changes its resolution.
//     board --camera1 hd-mjpeg --hdmi-in 1920x1080p30
//     0:05   expect picture 1 fills
//            console <S2>
//     +2     hdmi-in 0 1280x720p60
//            expect picture 3 fills within 6
//
// Pure: text to lines and back. A file is read whole, and every bad line in it is told before anything happens.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/scenario_expect.h"

struct ScenarioLine {
    size_t number = 0;                       // in the file, from 1
    std::string text = {};                   // as it was written, without the time
    double seconds = 0;                      // not before: since the scenario's start, or
    bool behind = true;                      // since the line above was done
    std::vector<std::string> verb = {};      // with its words, or {"clock"}: times count from here; empty:
    std::optional<Expectation> expectation;  // this is one
};

struct ScenarioError {
    size_t line;  // from 1
    std::string reason;
};

struct Scenario {
    size_t boardLine = 0;                 // 0: the scenario is for any board
    std::vector<std::string> board = {};  // options of `run`
    std::vector<ScenarioLine> lines = {};
    std::vector<ScenarioError> errors = {};
};

Scenario ParseScenario(std::string_view text);

// Words are separated by blanks. "Quotes" keep blanks, and in them \" \\ and \n stand for a quote, a backslash and a
// line's end; any other backslash stands for itself. A # at the start of a word begins a comment. False: an open quote.
bool SplitWords(std::string_view line, std::vector<std::string>& words);

// A line that SplitWords reads back as these words, with its time since the start. No newline at its end.
std::string ScenarioText(double seconds, const std::vector<std::string>& words);
std::string QuotedWords(const std::vector<std::string>& words);
