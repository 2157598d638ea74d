// The campaign's results: a JSON line for each slice in OUT/results.jsonl, which grows from run to run, and the table
// of one run, as Markdown.
#pragma once

#include <map>
#include <string>

#include "campaign.h"

struct Tally {
    unsigned tried = 0, lost = 0;
};

struct SliceResult {
    std::string run, form, family;
    unsigned seed = 0;
    double seconds = 0;
    std::map<std::string, Tally> kinds = {};
    Figures worst = {};
};

void Count(SliceResult& result, const std::string& kind, unsigned tries, bool lost);
void Worst(SliceResult& result, const Figures& worst);

void Append(const std::string& out, const SliceResult& result);  // any process at any time: one write

// "family | fault | tried | survived | lost" and the worst figures; how many were lost.
unsigned PrintTable(const std::string& out, const std::string& run);
