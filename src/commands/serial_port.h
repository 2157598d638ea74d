// The RS-232 control port /dev/ttymxc2, 9600 8N1. The UART thread owns it and keeps the watchdog fed from the same
// loop, so that a hung command channel resets the board.
#pragma once

#include <cstddef>
#include <cstdint>

void UartThreadMain();  // never returns

int OpenSerialPort();                             // 0; a port that cannot be opened is logged and stays silent
int ReadSerial(char* buffer, size_t& count);      // at most 100 bytes, never blocks; 0 when bytes arrived, else 1
int WriteSerial(const char* text, size_t count);  // 0, or 1 after "write() failed!" on standard error

// To the serial port while a serial command runs, otherwise to standard output. 0, or 1 when the port refused it.
int SendReply(const char* text);

void SerialPoll();  // one pass

int SerialLoopTest(const int32_t*);  // SERIALTEST
int TopTest(const int32_t*);         // TOPTEST
int I2cTest(const int32_t*);         // I2CTEST
