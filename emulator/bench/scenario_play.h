// Plays a scenario on a board and tells, a line each, what is done and what was seen. Blocks for as long as the
// scenario lasts. What it decides is decided in scenario.h and scenario_expect.h; here is the board.
#pragma once

#include <filesystem>
#include <string>

#include "bench/scenario.h"

struct ScenarioPlay {
    std::string name;             // of the file, for messages
    std::filesystem::path board;  // a running one; empty:
    int (*run)() = nullptr;       // runs one in a child process, until it is ended
    double patience = 1;          // factor of every `within`: a busy machine is slow
};

// The exit status: 0, or 1 after saying on standard error which line failed, what was expected and what was seen.
int PlayScenario(const Scenario& scenario, const ScenarioPlay& play);
