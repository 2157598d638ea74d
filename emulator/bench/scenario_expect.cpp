#include "bench/scenario_expect.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>

using Words = std::vector<std::string>;

static constexpr double kRunningSeconds = 2;   // without a new frame, a picture runs no more: a busy machine is slow
static constexpr double kStandingSeconds = 1;  // without a new frame, a picture stands

static std::string UsageOf(const ExpectationKind& kind) { return "usage: expect [no] " + std::string(kind.usage); }

static std::optional<double> Number(std::string_view text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::optional<double> ParseSeconds(std::string_view text) {
    return text.find_first_not_of("0123456789.") == text.npos ? Number(text) : std::nullopt;
}

// Pictures

// Numbers divided by single letters, as in 960x540+0+270; false for anything else.
static bool ParseNumbers(std::string_view text, std::string_view dividers, std::array<unsigned, 4>& numbers) {
    const char *at = text.data(), *const end = at + text.size();
    for (size_t i = 0; i <= dividers.size(); ++i) {
        const auto [next, error] = std::from_chars(at, end, numbers[i]);
        if (error != std::errc() || numbers[i] > 10'000) return false;
        at = next;
        if (i < dividers.size() && (at == end || *at++ != dividers[i])) return false;
    }
    return at == end;
}

static bool ParseWindow(std::string_view text, Shown& shown) {
    std::array<unsigned, 4> numbers{};
    if (!ParseNumbers(text, "x++", numbers)) return false;
    const auto [width, height, left, top] = numbers;
    shown = {shown.source, left, top, left + width, top + height};
    return width > 0 && height > 0;
}

// fills, or at WINDOW; then perhaps running or standing
static std::string ParsePlace(Expectation& expectation) {
    const Words& words = expectation.words;
    std::string usage = UsageOf(*expectation.kind);
    size_t at = 2;
    if (words[1] == "at" && (words.size() < 3 || !ParseWindow(words[at++], *expectation.shown)))
        return "a window reads like 960x540+0+270: width, height, left, top";
    if (words[1] != "at" && words[1] != "fills") return usage;
    const bool standing = at < words.size() && words[at] == "standing";
    const bool running = at < words.size() && words[at] == "running";
    if (at + (standing || running ? 1 : 0) != words.size()) return usage;
    if (running && expectation.none) return "`no` and `running` do not go together: say that it is standing, or gone";
    expectation.motion = standing           ? Expectation::kStanding
                         : expectation.none ? Expectation::kAny
                                            : Expectation::kRunning;
    return "";
}

static std::string ParsePicture(Expectation& expectation) {
    const Words& words = expectation.words;
    std::array<unsigned, 4> size{};
    if (words.size() == 1 && words[0] == "black") return "";
    if (words.size() == 2 && words[0] == "size")
        return ParseNumbers(words[1], "x", size) ? "" : "a size reads like 1920x1080";
    const bool source = !words.empty() && words[0].size() == 1 && words[0][0] >= '1' && words[0][0] <= '4';
    if (!source) return UsageOf(*expectation.kind);
    expectation.shown = Shown{.source = words[0][0], .left = 0, .top = 0, .right = 0, .bottom = 0};
    return words.size() == 1 ? "" : ParsePlace(expectation);
}

static bool IsBlack(const Picture& picture) {
    constexpr size_t kStep = 7;
    constexpr uint8_t kBrightest = 24;
    for (size_t y = kStep; y < picture.height; y += kStep)
        for (size_t x = kStep; x < picture.width; x += kStep)
            if (*std::max_element(picture.At(x, y), picture.At(x, y) + 3) > kBrightest) return false;
    return true;
}

static const char* TellMotion(const Expectation& expectation, const Look& look, Motion& motion,
                              const std::optional<PictureMark>& mark) {
    const bool same = motion.mark && mark && motion.mark->milliseconds == mark->milliseconds;
    if (!same) motion = {.mark = mark, .since = look.seconds, .moved = motion.mark.has_value()};
    const double still = look.seconds - motion.since;
    const bool running = motion.moved && still < kRunningSeconds, standing = still >= kStandingSeconds;
    if (expectation.motion == Expectation::kRunning && !running) return "It is there, and does not run.\n";
    if (expectation.motion == Expectation::kStanding && !standing) return "It is there, and runs.\n";
    return nullptr;
}

static Finding JudgeWindow(const Expectation& expectation, const Look& look, Motion& motion) {
    const Picture& picture = *look.picture;
    Shown shown = *expectation.shown;
    if (shown.right == 0) {
        shown.right = unsigned(picture.width);
        shown.bottom = unsigned(picture.height);
    }
    if (!Shows(picture, shown)) return motion = {}, Finding{false, Map(picture)};
    const auto mark = MarkIn(picture, {shown.left, shown.top, shown.right - shown.left, shown.bottom - shown.top});
    const char* wrong = TellMotion(expectation, look, motion, mark);
    return {!wrong, (wrong ? wrong : "") + Map(picture)};
}

static Finding JudgePicture(const Expectation& expectation, const Look& look, Motion& motion) {
    if (!look.picture) return {false, "The display has not shown a frame yet.\n"};
    const Picture& picture = *look.picture;
    const Words& words = expectation.words;
    const std::string map = Map(picture);
    if (words[0] == "black") return {IsBlack(picture), map};
    if (words[0] == "size")
        return {words[1] == std::to_string(picture.width) + "x" + std::to_string(picture.height), map};
    if (words.size() == 1) return {map.find(words[0], map.find('\n')) != map.npos, map};
    return JudgeWindow(expectation, look, motion);
}

// Texts

static std::string ParseText(Expectation& expectation) {
    const bool empty = expectation.words.empty() || expectation.words[0].empty();
    return empty ? UsageOf(*expectation.kind) : "";
}

static std::string_view NewestLines(std::string_view text, size_t count) {
    size_t from = text.size();
    for (size_t line = 0; line < count && from > 0; ++line) from = from < 2 ? 0 : text.rfind('\n', from - 2) + 1;
    return text.substr(from);
}

// At the start of a word: who expects ACK is not answered by NACK.
static size_t FindWords(std::string_view text, std::string_view wanted) {
    const auto inWord = [](char letter) { return isalnum(static_cast<unsigned char>(letter)) != 0; };
    for (size_t at = 0; (at = text.find(wanted, at)) != text.npos; ++at)
        if (at == 0 || !inWord(wanted[0]) || !inWord(text[at - 1])) return at;
    return text.npos;
}

static Finding JudgeText(const Expectation& expectation, const Look& look, Motion&) {
    constexpr size_t kToldLines = 40;
    std::string wanted;
    for (const std::string& word : expectation.words) wanted += (wanted.empty() ? "" : " ") + word;
    const size_t at = FindWords(look.text, wanted);
    if (at == look.text.npos)
        return {false, look.text.empty() ? "Nothing was written.\n" : std::string(NewestLines(look.text, kToldLines))};
    const size_t line = at == 0 ? 0 : look.text.rfind('\n', at - 1) + 1;
    return {true, std::string(look.text.substr(line, look.text.find('\n', at) - line)) + "\n"};
}

std::string_view Appended(std::string_view before, std::string_view now) {
    if (now.starts_with(before)) return now.substr(before.size());
    constexpr size_t kAnchor = 256;  // of the beginning of `now`, wherever it stands in `before`
    for (size_t lost = 0; (lost = before.find(now.substr(0, kAnchor), lost)) != before.npos; ++lost)
        if (now.starts_with(before.substr(lost))) return now.substr(before.size() - lost);
    return now;
}

// Values in a verb's answer

static std::string ParseValue(Expectation& expectation) {
    const bool camera = expectation.kind->verb == "camera";
    return expectation.words.size() == (camera ? 3 : 2) ? "" : UsageOf(*expectation.kind);
}

// The value at "daemon.state" or "hdmi-in.0"; null where there is none.
static Json ValueAt(const Json& answer, std::string_view path) {
    const Json* value = &answer;
    while (!path.empty()) {
        const size_t end = std::min(path.find('.'), path.size());
        const std::string name(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
        const auto index = ParseSeconds(name);
        if (value->is_array() && index && *index < double(value->size()))
            value = &(*value)[size_t(*index)];
        else if (value->is_object() && value->contains(name))
            value = &(*value)[name];
        else
            return nullptr;
    }
    return *value;
}

// 5..10, 5.., ..10: from and to, both included
static bool IsInRange(double number, std::string_view range) {
    const size_t dots = range.find("..");
    if (dots == range.npos) return Number(range) == number;
    const auto least = Number(range.substr(0, dots)), most = Number(range.substr(dots + 2));
    return (dots == 0 || (least && number >= *least)) && (dots + 2 == range.size() || (most && number <= *most));
}

static Finding JudgeValue(const Expectation& expectation, const Look& look, Motion&) {
    const std::string& path = expectation.words[expectation.words.size() - 2];
    const std::string& wanted = expectation.words.back();
    const Json value = ValueAt(look.answer, path);
    const std::string seen = value.is_string() ? value.get<std::string>() : value.dump();
    const bool holds = value.is_number() ? IsInRange(value.get<double>(), wanted) : seen == wanted;
    return {holds, path + " is " + seen + "\n"};
}

// The daemon

static std::string ParseDaemon(Expectation& expectation) {
    const Words& words = expectation.words;
    const bool good = words.size() == 1 && (words[0] == "running" || words[0] == "ended");
    return good ? "" : UsageOf(*expectation.kind);
}

// A board that is switched off answers nothing, and nothing runs on it.
static Finding JudgeDaemon(const Expectation& expectation, const Look& look, Motion&) {
    const bool running = ValueAt(look.answer, "daemon.state") == "running";
    return {running == (expectation.words[0] == "running"), running ? "It is running.\n" : "It is not running.\n"};
}

// Kinds

static constexpr std::array kKinds{
    ExpectationKind{.word = "picture",
                    .usage = "picture black | size WxH | SOURCE [fills | at WxH+LEFT+TOP [running|standing]]",
                    .at = LookAt::kPicture,
                    .parse = ParsePicture,
                    .judge = JudgePicture},
    ExpectationKind{.word = "log", .usage = "log TEXT", .at = LookAt::kJournal, .parse = ParseText, .judge = JudgeText},
    ExpectationKind{
        .word = "console", .usage = "console TEXT", .at = LookAt::kConsole, .parse = ParseText, .judge = JudgeText},
    ExpectationKind{.word = "daemon",
                    .usage = "daemon running|ended",
                    .at = LookAt::kVerb,
                    .parse = ParseDaemon,
                    .judge = JudgeDaemon,
                    .verb = "status"},
    ExpectationKind{.word = "status",
                    .usage = "status PATH VALUE",
                    .at = LookAt::kVerb,
                    .parse = ParseValue,
                    .judge = JudgeValue,
                    .verb = "status"},
    ExpectationKind{.word = "audio",
                    .usage = "audio PATH VALUE",
                    .at = LookAt::kVerb,
                    .parse = ParseValue,
                    .judge = JudgeValue,
                    .verb = "audio"},
    ExpectationKind{.word = "leds",
                    .usage = "leds PATH VALUE",
                    .at = LookAt::kVerb,
                    .parse = ParseValue,
                    .judge = JudgeValue,
                    .verb = "leds"},
    ExpectationKind{.word = "settings",
                    .usage = "settings PATH VALUE",
                    .at = LookAt::kVerb,
                    .parse = ParseValue,
                    .judge = JudgeValue,
                    .verb = "settings"},
    ExpectationKind{.word = "camera",
                    .usage = "camera N PATH VALUE",
                    .at = LookAt::kVerb,
                    .parse = ParseValue,
                    .judge = JudgeValue,
                    .verb = "camera"},
};

static std::string KindList() {
    std::string list;
    for (const ExpectationKind& kind : kKinds) list += (list.empty() ? "" : ", ") + std::string(kind.word);
    return list;
}

// `within SECONDS` and `for SECONDS` at the end, in either order.
static std::string TakeDurations(Words& words, Expectation& expectation) {
    while (words.size() >= 2) {
        const std::string& word = words[words.size() - 2];
        if (word != "within" && word != "for") break;
        const auto seconds = ParseSeconds(words.back());
        if (!seconds) return "\"" + words.back() + "\" is no number of seconds";
        (word == "within" ? expectation.within : expectation.lasting) = *seconds;
        words.resize(words.size() - 2);
    }
    return "";
}

std::string ParseExpectation(Words words, Expectation& expectation) {
    expectation.none = !words.empty() && words[0] == "no";
    if (expectation.none) {
        expectation.within = 0;
        words.erase(words.begin());
    }
    const auto kind =
        std::ranges::find(kKinds, words.empty() ? "" : std::string_view(words[0]), &ExpectationKind::word);
    if (kind == kKinds.end()) return "what is expected is one of: " + KindList();
    expectation.kind = &*kind;
    words.erase(words.begin());
    if (std::string wrong = TakeDurations(words, expectation); !wrong.empty()) return wrong;
    expectation.words = std::move(words);
    return kind->parse(expectation);
}

Finding Judge(const Expectation& expectation, const Look& look, Motion& motion) {
    if (!look.trouble.empty() && expectation.kind->judge != JudgeDaemon) return {false, look.trouble + "\n"};
    Finding finding = expectation.kind->judge(expectation, look, motion);
    if (expectation.none) finding.holds = !finding.holds;
    return finding;
}

Words AskedVerb(const Expectation& expectation) {
    const ExpectationKind& kind = *expectation.kind;
    Words verb;
    if (kind.verb.empty()) return verb;
    verb.emplace_back(kind.verb);
    if (expectation.words.size() > 2) verb.insert(verb.end(), expectation.words.begin(), expectation.words.end() - 2);
    return verb;
}
