// Every message goes to two places: as text to standard output, where the console or a network client reads it, and as
// a record to the systemd journal. Callable from any thread; lines may interleave, but each is written whole. Logging
// never fails for its caller: a closed client or an absent journal loses the line.
#pragma once

// Takes the console descriptors and the buffering that the functions below rely on. First thing in main.
void InitLog();

// printf conventions; the text carries its own line end. Journal priority 6.
void LogInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));

// "TEXT: <text of errno>\n", journal priority 3. Call it right behind the failed call.
void LogError(const char* text);

// Text for standard output only (answers, progress lines): no journal record.
void PrintOut(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Sends the process's standard output and standard error to a descriptor (a network client), or back to the console of
// process start. A descriptor that is not open leaves everything as it was.
void RedirectLog(int descriptor);
void RestoreLog();
