// Messages as programs send them to the journal's socket.
#include "system/journal.h"

#include <gtest/gtest.h>

TEST(JournalDatagrams, AreParsedWholeOrDropped) {
    const std::string binary =
        std::string("PRIORITY=3\nMESSAGE\n\x0b\0\0\0\0\0\0\0", 27) + "two\nlines\n\n\nCODE_LINE=7\n";
    const auto entry = ParseJournalDatagram(binary);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->priority, '3');
    EXPECT_EQ(entry->message, "two\nlines");

    const auto plain = ParseJournalDatagram("MESSAGE=a=b\nPRIORITY=99\n");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->message, "a=b");
    EXPECT_EQ(plain->priority, '6');
    EXPECT_FALSE(ParseJournalDatagram("PRIORITY=3\n"));
    EXPECT_FALSE(ParseJournalDatagram(std::string("MESSAGE\n\xff\xff\xff\xff\xff\xff\xff\xff", 16) + "x\n"));
    for (size_t size = 12; size < 38; ++size)
        EXPECT_FALSE(ParseJournalDatagram(std::string_view(binary).substr(0, size)));
}
