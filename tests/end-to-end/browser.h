// A real browser: a script of tests/browser/ that does what a line says and answers with a line of JSON.
#pragma once

#include <string>

#include "board_run.h"

struct Browser {  // ends with its owner
    int process = -1;
    int line = -1;  // both ways
    explicit Browser(const std::string& script);
    Browser(const Browser&) = delete;
    Browser& operator=(const Browser&) = delete;
    ~Browser();
};

// Never fails a test itself: the answer then has an "error".
Json Ask(const Browser& browser, const std::string& request);
