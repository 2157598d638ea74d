#include "report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

static std::string ResultsPath(const std::string& out) { return out + "/results.jsonl"; }

void Count(SliceResult& result, const std::string& kind, unsigned tries, bool lost) {
    Tally& tally = result.kinds[kind];
    tally.tried += tries;
    tally.lost += lost;
}

void Worst(SliceResult& result, const Figures& worst) {
    result.worst.answer = std::max(result.worst.answer, worst.answer);
    result.worst.picture = std::max(result.worst.picture, worst.picture);
    result.worst.patGap = std::max(result.worst.patGap, worst.patGap);
    result.worst.kilobytes = std::max(result.worst.kilobytes, worst.kilobytes);
}

void Append(const std::string& out, const SliceResult& result) {
    Json kinds = Json::object();
    for (const auto& [kind, tally] : result.kinds) kinds[kind] = {{"tried", tally.tried}, {"lost", tally.lost}};
    const Json line = {{"run", result.run},
                       {"form", result.form},
                       {"family", result.family},
                       {"seed", result.seed},
                       {"seconds", result.seconds},
                       {"kinds", kinds},
                       {"answer", result.worst.answer},
                       {"picture", result.worst.picture},
                       {"patGap", result.worst.patGap},
                       {"kilobytes", result.worst.kilobytes}};
    std::ofstream(ResultsPath(out), std::ios::app) << line.dump() + "\n" << std::flush;
}

static SliceResult Parse(const Json& line) {
    SliceResult result{.run = line["run"], .form = line["form"], .family = line["family"]};
    for (const auto& [kind, tally] : line["kinds"].items()) result.kinds[kind] = {tally["tried"], tally["lost"]};
    result.worst.answer = line["answer"];
    result.worst.picture = line["picture"];
    result.worst.patGap = line["patGap"];
    result.worst.kilobytes = line["kilobytes"];
    return result;
}

static std::map<std::string, SliceResult> FamiliesOf(const std::string& out, const std::string& run) {
    std::map<std::string, SliceResult> families;
    std::ifstream file(ResultsPath(out));
    for (std::string text; std::getline(file, text);) {
        const SliceResult slice = Parse(Json::parse(text));
        if (slice.run != run) continue;
        SliceResult& family = families[slice.family];
        Worst(family, slice.worst);
        for (const auto& [kind, tally] : slice.kinds) {
            family.kinds[kind].tried += tally.tried;
            family.kinds[kind].lost += tally.lost;
        }
    }
    return families;
}

unsigned PrintTable(const std::string& out, const std::string& run) {
    const auto families = FamiliesOf(out, run);
    unsigned lost = 0;
    puts("| family | fault | tried | survived | lost |\n|---|---|--:|--:|--:|");
    for (const auto& [name, family] : families)
        for (const auto& [kind, tally] : family.kinds) {
            printf("| %s | %s | %u | %u | %u |\n", name.c_str(), kind.c_str(), tally.tried, tally.tried - tally.lost,
                   tally.lost);
            lost += tally.lost;
        }
    puts(
        "\n| family | slowest answer | latest picture | longest without a pat | memory gained "
        "|\n|---|--:|--:|--:|--:|");
    for (const auto& [name, family] : families)
        if (family.worst.patGap > 0)
            printf("| %s | %.0f ms | %.1f s | %.1f s | %ld kB |\n", name.c_str(), family.worst.answer * 1000,
                   family.worst.picture, family.worst.patGap, family.worst.kilobytes);
    return lost;
}
