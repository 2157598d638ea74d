// The accesses that each thread of the daemon makes in one pass, the sleep behind them and nothing else: what they take
// is the least that a daemon can take. To be run in the daemon's place on an emulated board; an access that fails is
// told on standard error.
#pragma once

#include <cstdint>
#include <vector>

void OpenBuses();
void ExportLines();
void Put(int bus, uint8_t address, std::vector<uint8_t> bytes);  // the register first
void Get(int bus, uint8_t address, uint8_t reg, uint16_t count);

// Of the thread of LEDs and panel. What follows the indicators depends on the panel's form.
void IndicatorPass(int hdmi0Indicator);
void KeypadPass();
void ExpanderPass();
void PlainPass();
void ButtonsPass();

void SerialPass(int port);  // a port that never waits
void CablePass(int port);  // of the video thread: monitor's cable, bus, receiver, plug events; any descriptor for these
void CardsPass(int port);  // of the audio thread: the list of sound cards, bus
void SyncPass();           // of the poll of the receiver
