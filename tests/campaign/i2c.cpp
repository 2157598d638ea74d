// I2C accesses that are not acknowledged: of a start-up each register, read and written, and any single access; and any
// one of a running board.
#include <array>
#include <map>
#include <set>

#include "campaign.h"
#include "picture_probe.h"

struct Site {
    std::string address;
    unsigned access;  // the first is 1
};

struct Accesses {
    std::vector<Site> sites;
    std::map<std::string, unsigned> byAddress;
    std::set<std::string> names, absent;  // of what answers; of what never does, with or without a fault
};

static bool IsRefused(const Json& entry) { return entry.contains("error"); }

static std::string NameOf(const Json& entry) {
    const std::string direction = IsRefused(entry) ? entry["refused"] : entry.contains("read") ? "read" : "write";
    return entry["address"].get<std::string>() + " " + entry.value("register", "") + " " + direction;
}

// Every access that a start-up made, by the trace. What it repeats without end is told three times, which will do.
static const Accesses& OfStartUp(const Bench& bench) {
    static const Accesses accesses = [&bench] {
        Accesses found;
        for (const Json& entry : TraceLines(bench.board, "i2c")) {
            found.sites.push_back({entry["address"], ++found.byAddress[entry["address"]]});
            (IsRefused(entry) ? found.absent : found.names).insert(NameOf(entry));
        }
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

// What the starts have spoken to, and what of it was refused: address, register and direction.
struct Registers {
    std::set<std::string> spoken, refused;
    bool all = false;  // a start was refused nothing
};

// Start after start refuses the first access to each register that none has refused before: a table that was broken off
// gets further every time.
static std::string RefuseEach(Bench& bench, Registers& registers) {
    const Accesses& accesses = OfStartUp(bench);
    registers.spoken.insert(accesses.names.begin(), accesses.names.end());
    if (bench.step == 2)  // the first of this board
        for (const auto& [address, count] : accesses.byAddress) Do(bench, {"fault", "i2c", address, "nak", "each"});
    Ctl(bench.board, {"trace", "--clear"});
    Do(bench, {"power-cycle"});
    ++bench.lives;
    Expect(bench, ShowsFull(bench.board, '1', 30), "a picture from a start without some accesses");
    std::set<std::string> refused;
    for (const Json& entry : TraceLines(bench.board, "i2c")) {
        if (accesses.absent.contains(NameOf(entry))) continue;
        registers.spoken.insert(NameOf(entry));
        if (IsRefused(entry)) refused.insert(NameOf(entry));
    }
    registers.refused.insert(refused.begin(), refused.end());
    registers.all = refused.empty();
    if (registers.all)
        for (const auto& [address, count] : accesses.byAddress) Do(bench, {"fault", "i2c", address, "off"});
    bench.tries = std::max(1u, unsigned(refused.size()));
    return "I2C register refused at start: " + std::to_string(refused.size()) + ", by now " +
           std::to_string(registers.refused.size()) + " of " + std::to_string(registers.spoken.size());
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
    static Registers registers;
    OfStartUp(bench);  // before anything else happens
    if (!registers.all && bench.step > 1) return RefuseEach(bench, registers);
    return Below(bench, 4) == 0 ? RefuseAtStart(bench) : RefuseRunning(bench);
}

const Family I2c{.name = "i2c",
                 .steps = {3, 240, 10'000},
                 .options = {"--camera1", "fullhd-mjpeg", "--hdmi-in", "1920x1080p30"},
                 .step = Step};
