#include "settings/selection.h"

void SelectView(DeviceSettings& record, uint8_t view, uint8_t swap) {
    if (swap == kKeepSwap)
        record.View = view;
    else
        StoreViewAndSwap(record, view, swap);
    if (view == kViewS2) record.S2Count = static_cast<uint8_t>(record.S2Count + 1);
}

void CyclePictureInPicture(DeviceSettings& record) {
    const uint8_t view = record.View;
    const bool hasNext = view >= kViewPPTL && view < kViewPPBR;
    record.View = hasNext ? static_cast<uint8_t>(view + 1) : static_cast<uint8_t>(kViewPPTL);
}

void SwapSources(DeviceSettings& record) {
    const uint8_t view = record.View;
    if (record.Swap == 0 && (view == kViewS1 || view == kViewS2))
        StoreViewAndSwap(record, view == kViewS1 ? kViewS2 : kViewS1, 0);
    else
        ToggleSwap(record);
}

void ToggleSwap(DeviceSettings& record) { record.Swap = record.Swap == 0 ? 1 : 0; }

void ToggleBlack(DeviceSettings& record) { record.Black = record.Black == 0 ? 1 : 0; }
