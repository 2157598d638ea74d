// What an operator's commands and keys do to the layout in a settings record. Pure on the record; the video thread
// shows the change within one pass.
#pragma once

#include <cstdint>

#include "settings/device_settings.h"

inline constexpr uint8_t kKeepSwap = 255;

// Chooses a layout, Swap 0, 1 or kKeepSwap. Choosing S2 is counted, also when it is shown already: the second time asks
// for the other source of its place.
void SelectView(DeviceSettings& record, uint8_t view, uint8_t swap = kKeepSwap);

void CyclePictureInPicture(DeviceSettings& record);  // top left, top right, bottom left, bottom right

// Exchanges the two sources. The single-source layouts have no second place: S1 and S2 exchange instead, Swap stays 0.
void SwapSources(DeviceSettings& record);

void ToggleSwap(DeviceSettings& record);
void ToggleBlack(DeviceSettings& record);
