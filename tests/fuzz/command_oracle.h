// The dispatcher between stand-ins: the handlers, the log and the channels' ends write down what they were told, in
// order, and touch nothing. The oracle says what should stand there.
#pragma once

#include <string>
#include <string_view>

extern std::string Record;

enum class Channel { kSerial, kConsole, kNetwork };

// Appends to the record what a text should do, and does it to the settings. True when a row matched. Works on the
// patterns' letters, without regular expressions and without cutting the text.
bool PlayOracle(Channel channel, std::string_view text);
