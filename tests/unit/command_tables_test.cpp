#include "commands/command_tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <regex>
#include <string>

static std::string Word(const CommandEntry& row) {
    std::string word = row.pattern;
    std::erase_if(word, [](char c) { return isalnum(c) == 0; });
    return word;
}

static bool Matches(const char* pattern, const std::string& text) {
    regex_t compiled;
    EXPECT_EQ(regcomp(&compiled, pattern, REG_EXTENDED), 0) << pattern;
    const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return found;
}

struct TableCase {
    std::span<const CommandEntry> table;
    char open, separator, close;
};

// A word that is part of another (KEY and SKEY, S1 and SS1, RST and RSTR) must not run it.
TEST(CommandTables, EveryCommandRunsItsOwnRowOnlyAndOnlyWhenItIsWhole) {
    for (const TableCase& table : {TableCase{SerialCommandTable, '<', ' ', '>'}, {NetworkCommandTable, '$', '_', '$'}})
        for (const CommandEntry& row : table.table) {
            const std::string start = table.open + Word(row);
            std::string text = start, matched;
            for (int i = 0; i < row.argumentCount; ++i) text += table.separator + std::string("1");
            text += table.close;
            for (const CommandEntry& other : table.table)
                if (Matches(other.pattern, text)) matched += other.pattern;
            EXPECT_EQ(matched, row.pattern) << text;

            const bool bareStart = Word(row) == "GETLOG";  // browsers have its address without the first delimiter
            EXPECT_EQ(Matches(row.pattern, text.substr(1)), bareStart) << text;
            EXPECT_FALSE(Matches(row.pattern, text.substr(0, text.size() - 1))) << text;
            EXPECT_EQ(Matches(row.pattern, start + table.close), row.argumentCount == 0) << text;
            EXPECT_TRUE(row.handler != nullptr || (row.kind != kAction && row.value1 != kNoValue)) << "nothing to do";
        }
}

// ---- docs/commands.md: every word's count of numbers, channels and variants

using Vocabulary = std::map<std::string, std::string>;

static std::string Entry(auto numbers, const std::string& channels, const std::string& variants) {
    return std::to_string(numbers) + " numbers, channels " + channels + ", variants " + variants;
}

static Vocabulary InTables() {
    Vocabulary words;
    const auto entry = [](const CommandEntry& row, const char* channels) {
        return Entry(row.argumentCount, channels, row.handler ? "all" : row.kind == kLayout ? "0" : "1..3");
    };
    for (const CommandEntry& row : SerialCommandTable) words[Word(row)] = entry(row, "local");
    for (const CommandEntry& row : NetworkCommandTable)
        words[Word(row)] = entry(row, words.contains(Word(row)) ? "all" : "network");
    return words;
}

// A command's row: | `WORD` | `number` `number` | channels | variants | effect |
static Vocabulary InReference() {
    static const std::regex kRow(R"(\| `([A-Z0-9]+)` \|([^|]*)\| (all|local|network) \| ([^ |]+) \| [^ |][^|]* \|)");
    std::ifstream file(COMMAND_REFERENCE_PATH);
    Vocabulary words;
    std::smatch cells;
    for (std::string line; std::getline(file, line);) {
        if (!std::regex_match(line, cells, kRow)) continue;
        const auto numbers = std::count(cells[2].first, cells[2].second, '`') / 2;
        EXPECT_TRUE(words.try_emplace(cells[1].str(), Entry(numbers, cells[3], cells[4])).second) << "again: " << line;
    }
    return words;
}

TEST(CommandReference, SaysWhatTheTablesSay) { EXPECT_THAT(InReference(), testing::ContainerEq(InTables())); }
