#include "bench/scenario.h"

#include <algorithm>
#include <cmath>

#include "bench/control.h"
#include "text.h"

static constexpr std::string_view kBlanks = " \t\r";
static const std::vector<std::string> kClock{"clock"};

// Words

// The quoted word behind its opening quote; `rest` is what follows the closing one.
static bool TakeQuoted(std::string_view& rest, std::string& word) {
    for (size_t at = 0; at < rest.size(); ++at) {
        if (rest[at] == '"') return rest.remove_prefix(at + 1), true;
        const char next = rest[at] == '\\' && at + 1 < rest.size() ? rest[at + 1] : '\0';
        const bool escape = next == '"' || next == '\\' || next == 'n';
        word += !escape ? rest[at] : next == 'n' ? '\n' : next;
        at += escape ? 1 : 0;
    }
    return false;
}

bool SplitWords(std::string_view line, std::vector<std::string>& words) {
    while (true) {
        line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
        if (line.empty() || line[0] == '#') return true;
        std::string& word = words.emplace_back();
        while (!line.empty() && kBlanks.find(line[0]) == kBlanks.npos) {
            const char letter = line[0];
            line.remove_prefix(1);
            if (letter != '"')
                word += letter;
            else if (!TakeQuoted(line, word))
                return false;
        }
    }
}

static std::string Quoted(const std::string& word) {
    const bool plain = !word.empty() && word[0] != '#' && word.find_first_of(" \t\r\n\"") == word.npos;
    if (plain) return word;
    std::string quoted = "\"";
    for (const char letter : word) {
        if (letter == '"' || letter == '\\') quoted += '\\';
        quoted += letter == '\n' ? std::string("\\n") : std::string(1, letter);
    }
    return quoted + '"';
}

std::string QuotedWords(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + Quoted(word);
    return text;
}

std::string ScenarioText(double seconds, const std::vector<std::string>& words) {
    const long milliseconds = std::lround(seconds * 1000);
    return Text("%ld:%02ld.%03ld  ", milliseconds / 60'000, milliseconds / 1000 % 60, milliseconds % 1000) +
           QuotedWords(words);
}

// Times

// m:ss or m:ss.fraction
static std::optional<double> ClockTime(std::string_view word) {
    const size_t colon = word.find(':');
    const auto minutes = ParseNumber(word.substr(0, colon), 100'000);
    if (colon == word.npos || word.size() < colon + 3 || !minutes) return std::nullopt;
    const std::string_view rest = word.substr(colon + 1);
    const auto seconds = ParseSeconds(rest);
    if (!seconds || *seconds >= 60 || std::min(rest.find('.'), rest.size()) != 2) return std::nullopt;
    return *minutes * 60.0 + *seconds;
}

static bool IsTime(std::string_view word) {
    const bool clock = word.find(':') != word.npos && word.find_first_not_of("0123456789:.") == word.npos;
    return clock || word.starts_with('+');
}

// What is wrong with the time; empty: it is in the line.
static std::string TakeTime(const std::string& word, ScenarioLine& line) {
    line.behind = word.starts_with('+');
    const auto seconds = line.behind ? ParseSeconds(std::string_view(word).substr(1)) : ClockTime(word);
    line.seconds = seconds.value_or(0);
    return seconds ? "" : "\"" + word + "\" is no time: m:ss, or +seconds";
}

// Lines

static std::string CheckVerb(const std::vector<std::string>& words) {
    const auto known = [&](const Verb& verb) { return verb.word == words[0]; };
    if (words[0] == "board") return "the board stands once, without a time, above everything else";
    if (words[0] == "clock") return words.size() == 1 ? "" : "the clock stands alone";
    if (words[0] != "picture" && std::ranges::none_of(Verbs(), known))
        return "there is no verb \"" + words[0] + "\" (tessel-emulator ctl lists them)";
    return words.back() == "--follow" ? "what follows the board has no end" : "";
}

static std::string ParseLine(std::string_view text, Scenario& scenario, ScenarioLine line) {
    std::vector<std::string> words;
    if (!SplitWords(text, words)) return "a quote is not closed";
    if (words.empty()) return "";
    if (words[0] == "board" && scenario.boardLine == 0 && scenario.lines.empty()) {
        scenario.boardLine = line.number;
        scenario.board.assign(words.begin() + 1, words.end());
        return "";
    }
    if (IsTime(words[0])) {
        if (std::string wrong = TakeTime(words[0], line); !wrong.empty()) return wrong;
        words.erase(words.begin());
        if (words.empty()) return "a time, and nothing to do then";
    }
    line.text = QuotedWords(words);
    std::string wrong;
    if (words[0] == "expect")
        wrong = ParseExpectation({words.begin() + 1, words.end()}, line.expectation.emplace());
    else
        wrong = CheckVerb(words);
    if (!line.expectation) line.verb = std::move(words);
    scenario.lines.push_back(std::move(line));
    return wrong;
}

Scenario ParseScenario(std::string_view text) {
    Scenario scenario;
    double latest = 0;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = std::min(text.find('\n'), text.size());
        const size_t before = scenario.lines.size();
        std::string wrong = ParseLine(text.substr(0, end), scenario, {.number = number, .expectation = {}});
        text.remove_prefix(std::min(end + 1, text.size()));
        if (wrong.empty() && scenario.lines.size() > before && !scenario.lines.back().behind) {
            if (scenario.lines.back().seconds < latest) wrong = "this is earlier than a line above";
            latest = scenario.lines.back().seconds;
        }
        if (wrong.empty() && scenario.lines.size() > before && scenario.lines.back().verb == kClock) latest = 0;
        if (!wrong.empty()) scenario.errors.push_back({number, wrong});
    }
    return scenario;
}
