// A real browser: tests/browser/person.mjs does what a line says and answers with a line of JSON.
#pragma once

#include <string>

#include "board_run.h"

struct Browser {  // ends with its owner
    int process = -1;
    int line = -1;  // both ways
    Browser();
    Browser(const Browser&) = delete;
    Browser& operator=(const Browser&) = delete;
    ~Browser();
};

// What the last of the lines was answered. Throws what the first that could not be done says.
Json Do(const Browser& browser, const std::vector<std::string>& lines);
