// I2C accesses that are not acknowledged: each single one of the start-up, and any one of a running board.
#include <array>
#include <map>

#include "campaign.h"
#include "picture_probe.h"

struct Site {
    std::string address;
    unsigned access;  // the first is 1
};

struct Accesses {
    std::vector<Site> sites;
    std::map<std::string, unsigned> byAddress;
};

// Every access that a start-up made, by the trace. What it repeats without end is told three times, which will do.
static const Accesses& OfStartUp(const Bench& bench) {
    static const Accesses accesses = [&bench] {
        Accesses found;
        for (const Json& entry : TraceLines(bench.board, "i2c"))
            found.sites.push_back({entry["address"], ++found.byAddress[entry["address"]]});
        return found;
    }();
    return accesses;
}

static void Refuse(Bench& bench, const Site& site) {
    Do(bench, {"fault", "i2c", site.address, "nak", std::to_string(site.access)});
}

// One site after the other, from any on, so that many slices meet them all.
static std::string RefuseAtStart(Bench& bench) {
    const std::vector<Site>& sites = OfStartUp(bench).sites;
    static size_t next = Below(bench, sites.size());
    const Site& site = sites[next % sites.size()];
    next += 389;  // a prime: neighbours are much alike, and all are met in the end
    Refuse(bench, site);
    Do(bench, {"power-cycle"});
    ++bench.lives;
    Expect(bench, ShowsFull(bench.board, '1', 30), "a picture from a start without one access");
    Do(bench, {"fault", "i2c", site.address, "off"});
    return "I2C access refused at start: " + site.address + ", access " + std::to_string(site.access) + " of " +
           std::to_string(sites.size()) + " sites";
}

// What makes the daemon speak to its chips.
static void Stir(Bench& bench) {
    static constexpr const char* kSources[] = {"1280x720p60", "1920x1080p30", "1920x1080i60", "off"};
    static constexpr const char* kKeys[] = {"1", "2", "5", "swap"};
    static constexpr const char* kLines[] = {"<I2CTEST>\n", "<TOPTEST>\n", "<S2>\n", "<SW>\n"};
    switch (Below(bench, 3)) {
        case 0:
            Do(bench, {"hdmi-in", "0", Any(bench, kSources)});
            break;
        case 1:
            Ctl(bench.board, {"key", Any(bench, kKeys)});  // refused reports may be missed
            break;
        default:
            Type(bench.board, Any(bench, kLines));
            break;
    }
}

static std::string RefuseRunning(Bench& bench) {
    const auto& [address, count] =
        *std::next(OfStartUp(bench).byAddress.begin(), long(Below(bench, OfStartUp(bench).byAddress.size())));
    const Site site{address, 1 + unsigned(Below(bench, 40))};
    Refuse(bench, site);
    for (unsigned left = 1 + unsigned(Below(bench, 3)); left > 0; --left) {
        Stir(bench);
        PauseUpTo(bench, 0.6);
    }
    Do(bench, {"fault", "i2c", site.address, "off"});
    Do(bench, {"hdmi-in", "0", "1920x1080p30"});
    Type(bench.board, "<SHW>\n<SS1>\n<S1>\n");
    return "I2C access refused in use: " + site.address + ", access " + std::to_string(site.access);
}

static std::string Step(Bench& bench) {
    OfStartUp(bench);  // before anything else happens
    return Below(bench, 4) == 0 ? RefuseAtStart(bench) : RefuseRunning(bench);
}

const Family I2c{.name = "i2c",
                 .steps = {3, 150, 10'000},
                 .options = {"--camera1", "fullhd-mjpeg", "--hdmi-in", "1920x1080p30"},
                 .step = Step};
