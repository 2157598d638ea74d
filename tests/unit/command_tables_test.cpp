#include "commands/command_tables.h"

#include <gtest/gtest.h>
#include <regex.h>

#include <cctype>
#include <string>

#include "commands/report_view.h"

static std::string Word(const CommandEntry& row) {
    std::string word;
    for (char c : std::string(row.pattern))
        if (isalnum(c) != 0) word += c;
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
    const char* name;
    std::span<const CommandEntry> table;
    char open, separator, close;
};
static const TableCase kTables[] = {{"serial", SerialCommandTable, '<', ' ', '>'},
                                    {"network", NetworkCommandTable, '$', '_', '$'}};

static std::string Example(const TableCase& table, const CommandEntry& row) {
    std::string text = table.open + Word(row);
    for (int i = 0; i < row.argumentCount; ++i) text += table.separator + std::string("1");
    return text + table.close;
}

// A word that is part of another (KEY and SKEY, S1 and SS1, RST and RSTR) must not run it.
TEST(CommandTables, EveryCommandRunsItsOwnRowOnly) {
    for (const TableCase& table : kTables) {
        for (const CommandEntry& row : table.table) {
            const std::string text = Example(table, row);
            std::string matched;
            for (const CommandEntry& other : table.table)
                if (Matches(other.pattern, text)) matched += other.pattern;
            EXPECT_EQ(matched, row.pattern) << table.name << " " << text;
        }
    }
}

TEST(CommandTables, CommandsNeedTheirDelimitersAndArguments) {
    for (const TableCase& table : kTables) {
        for (const CommandEntry& row : table.table) {
            const std::string text = Example(table, row);
            const bool bareStart = Word(row) == "GETLOG";  // browsers have its address without the first delimiter
            EXPECT_EQ(Matches(row.pattern, text.substr(1)), bareStart) << text;
            EXPECT_FALSE(Matches(row.pattern, text.substr(0, text.size() - 1))) << text;
            const std::string bare = table.open + Word(row) + table.close;
            EXPECT_EQ(Matches(row.pattern, bare), row.argumentCount == 0) << bare;
            EXPECT_TRUE(row.handler != nullptr || (row.kind != kAction && row.value1 != kNoValue)) << "nothing to do";
        }
    }
}

// What both tables know, they select alike and take the same number of arguments for.
TEST(CommandTables, NetworkSpeaksTheSerialVocabulary) {
    for (const CommandEntry& network : NetworkCommandTable) {
        const CommandEntry* serial = nullptr;
        for (const CommandEntry& row : SerialCommandTable)
            if (Word(row) == Word(network)) serial = &row;
        if (serial == nullptr) continue;
        EXPECT_EQ(network.kind, serial->kind) << network.pattern;
        EXPECT_EQ(network.value1, serial->value1) << network.pattern;
        EXPECT_EQ(network.handler == nullptr, serial->handler == nullptr) << network.pattern;
        EXPECT_TRUE(network.handler != nullptr || network.value2 == serial->value2) << network.pattern;
        EXPECT_EQ(network.argumentCount, serial->argumentCount) << network.pattern;
    }
}

TEST(ViewName, IsTheWordThatSelectsWhatIsShown) {
    const auto name = [](const ShownView& shown) {
        const std::string serial = ViewName(SerialCommandTable, shown);
        EXPECT_EQ(ViewName(NetworkCommandTable, shown), serial);
        return serial;
    };
    EXPECT_EQ(name({.deviceId = 0, .view = 0, .swap = 0, .input = 3}), "S1");
    EXPECT_EQ(name({.deviceId = 0, .view = 2, .swap = 1, .input = 1}), "SS2");
    EXPECT_EQ(name({.deviceId = 0, .view = 7, .swap = 0, .input = 1}), "PPBR1");
    EXPECT_EQ(name({.deviceId = 0, .view = 21, .swap = 0, .input = 1}), "TB1");
    EXPECT_EQ(name({.deviceId = 0, .view = 0, .swap = 1, .input = 1}), "") << "S1 has no swapped form";
    EXPECT_EQ(name({.deviceId = 2, .view = 0, .swap = 0, .input = 4}), "IN4");
    EXPECT_EQ(name({.deviceId = 2, .view = 0, .swap = 0, .input = 0}), "");
}
