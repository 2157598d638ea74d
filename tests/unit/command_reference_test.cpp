// docs/commands.md and the two command tables say the same, row by row.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "commands/command_tables.h"

struct Entry {
    int arguments;
    std::string channels, variants;
    bool operator==(const Entry&) const = default;
};
static std::ostream& operator<<(std::ostream& out, const Entry& entry) {
    return out << entry.arguments << " numbers, " << entry.channels << ", variants " << entry.variants;
}
using Vocabulary = std::map<std::string, Entry>;

// ---- What the tables say

static std::string Word(const CommandEntry& row) {
    std::string word;
    for (const char c : std::string_view(row.pattern))
        if (isalnum(c) != 0) word += c;
    return word;
}

static std::string Variants(const CommandEntry& row) {
    if (row.handler != nullptr) return "all";
    return row.kind == kLayout ? "0" : "1..3";
}

static Vocabulary InTables() {
    Vocabulary words;
    for (const CommandEntry& row : SerialCommandTable) words[Word(row)] = {row.argumentCount, "local", Variants(row)};
    for (const CommandEntry& row : NetworkCommandTable) {
        const char* channels = words.contains(Word(row)) ? "all" : "network";
        words[Word(row)] = {row.argumentCount, channels, Variants(row)};
    }
    return words;
}

// ---- What the reference says

static std::vector<std::string> Cells(const std::string& line) {
    std::vector<std::string> cells;
    std::istringstream text(line.substr(1));
    for (std::string cell; std::getline(text, cell, '|');) {
        const size_t begin = cell.find_first_not_of(' '), end = cell.find_last_not_of(' ');
        cells.push_back(begin == std::string::npos ? "" : cell.substr(begin, end - begin + 1));
    }
    return cells;
}

// A command's row: | `WORD` | `number` `number` | channels | variants | effect |
static Vocabulary InReference() {
    static const std::string kHeading = "| command | numbers | channels | variants | effect |";
    std::ifstream file(COMMAND_REFERENCE_PATH);
    Vocabulary words;
    bool inTable = false;
    for (std::string line; std::getline(file, line);) {
        inTable = line == kHeading || (inTable && line.starts_with("|"));
        if (!inTable || !line.starts_with("| `")) continue;
        const auto cells = Cells(line);
        if (cells.size() != 5 || cells[0].size() < 3 || cells[4].empty()) {
            ADD_FAILURE() << "five cells: " << line;
            continue;
        }
        const std::string word = cells[0].substr(1, cells[0].size() - 2);
        const auto ticks = static_cast<int>(std::ranges::count(cells[1], '`'));
        EXPECT_TRUE(words.try_emplace(word, Entry{ticks / 2, cells[2], cells[3]}).second) << word << " stands twice";
    }
    return words;
}

TEST(CommandReference, SaysWhatTheTablesSay) {
    const Vocabulary tables = InTables(), reference = InReference();
    ASSERT_FALSE(reference.empty()) << COMMAND_REFERENCE_PATH;
    for (const auto& [word, entry] : tables) {
        const auto found = reference.find(word);
        if (found == reference.end())
            ADD_FAILURE() << word << " is missing";
        else
            EXPECT_EQ(found->second, entry) << word;
    }
    for (const auto& [word, entry] : reference) EXPECT_TRUE(tables.contains(word)) << word << " is no command";
}
