#include "report.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>

static std::string ResultsPath(const std::string& out) { return out + "/results.jsonl"; }

void Append(const std::string& out, const Json& slice) {
    std::ofstream(ResultsPath(out), std::ios::app) << slice.dump() + "\n" << std::flush;
}

struct Tally {
    unsigned tried = 0, lost = 0;
};

struct Results {
    std::map<std::string, Tally> kinds;  // "cameras | stalled"
    std::map<std::string, Json> worst;   // by family; only of those that had a board
};

static Results ResultsOf(const std::string& out, const std::string& run) {
    Results results;
    std::ifstream file(ResultsPath(out));
    for (std::string text; std::getline(file, text);) {
        const Json slice = Json::parse(text);
        if (slice["run"] != run) continue;
        const std::string family = slice["family"];
        for (const auto& [kind, counts] : slice["kinds"].items()) {
            Tally& tally = results.kinds[family + " | " + kind];
            tally.tried += counts["tried"].get<unsigned>();
            tally.lost += counts["lost"].get<unsigned>();
        }
        for (const auto& [what, figure] : slice["worst"].items()) {
            Json& worst = results.worst[family][what];
            worst = std::max(worst.is_null() ? 0 : worst.get<double>(), figure.get<double>());
        }
    }
    return results;
}

unsigned PrintTable(const std::string& out, const std::string& run) {
    const Results results = ResultsOf(out, run);
    unsigned lost = 0;
    puts("| family | fault | tried | survived | lost |\n|---|---|--:|--:|--:|");
    for (const auto& [kind, tally] : results.kinds) {
        printf("| %s | %u | %u | %u |\n", kind.c_str(), tally.tried, tally.tried - tally.lost, tally.lost);
        lost += tally.lost;
    }
    puts(
        "\n| family | slowest answer | latest picture | longest without a pat | memory gained "
        "|\n|---|--:|--:|--:|--:|");
    for (const auto& [family, worst] : results.worst)
        printf("| %s | %.0f ms | %.1f s | %.1f s | %.0f kB |\n", family.c_str(), worst["answer"].get<double>() * 1000,
               worst["picture"].get<double>(), worst["patGap"].get<double>(), worst["kilobytes"].get<double>());
    return lost;
}
