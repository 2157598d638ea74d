// The campaign's results. A slice is a line of JSON in OUT/results.jsonl, which grows from run to run:
// {"run": ..., "form": "short", "family": "cameras", "seed": 7, "seconds": 61.2,
//  "kinds": {"stalled": {"tried": 9, "lost": 0}, ...}, "worst": {"answer": 0.05, ...}}
#pragma once

#include <string>

#include "campaign.h"

void Append(const std::string& out, const Json& slice);  // any process at any time: one write

// The run as Markdown: "family | fault | tried | survived | lost", then the worst figures. How many were lost.
unsigned PrintTable(const std::string& out, const std::string& run);
