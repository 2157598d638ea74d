// The system journal: takes the native protocol at /run/systemd/journal/socket (sd_journal_send and its relatives),
// keeps the newest entries for the `journal` verb, and writes them as text to state/journal.txt, which the board's
// journalctl prints. Supervisor's thread only; nothing blocks. Malformed datagrams are dropped.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "bench/control.h"

inline constexpr size_t kJournalEntries = 20'000;

struct JournalEntry {
    char priority = '6';     // '0' emergency .. '7' debug
    std::string message;     // without the final newline
    std::string identifier;  // the program, as it names itself
};

// The fields of one datagram: lines KEY=VALUE, or for values with newlines KEY, then a 64-bit little-endian length,
// then that many bytes; each ended by a newline. Nothing when the text is malformed or carries no message.
std::optional<JournalEntry> ParseJournalDatagram(std::string_view datagram);

void PowerOnJournal();

VerbAnswer JournalVerb(const VerbWords& words);
