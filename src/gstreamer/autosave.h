// The periodic save of the settings: a shadow of the record as last saved, and what counts as a difference to it.
//
// Layout, swap, source and black change all day and never cause a save by themselves; neither do the windows that
// follow from them. Their new values reach the file with the next save that something else causes. Video thread only,
// except that the live record changes under it.
#pragma once

#include <chrono>

#include "settings/device_settings.h"

using SteadyTime = std::chrono::steady_clock::time_point;

inline constexpr std::chrono::seconds kAutosavePeriod{30};

// Takes over from the live record what never causes a save: View, Swap, SwHdmi, Input, Black.
void CarryLayout(DeviceSettings& shadow, const DeviceSettings& live);
// The same for the windows: to be called whenever a layout was applied.
void CarryWindows(DeviceSettings& shadow, const DeviceSettings& live);
// The same for all bytes that are not compared, for a new pipeline life with an old shadow.
void CarryUncompared(DeviceSettings& shadow, const DeviceSettings& live);

bool DiffersFromShadow(const DeviceSettings& shadow, const DeviceSettings& live);

// Once the period is over: saves the live record when it differs, and begins the next period. Blocks on the disk when
// it saves.
void AutosaveWhenDue(DeviceSettings& shadow, DeviceSettings& live, SteadyTime now, SteadyTime& lastCheck);
