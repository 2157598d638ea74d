// The writing side of the display memory (display.h): who may draw into which slot, and what is on the display.
//
// A slot is claimed for as long as somebody may draw into it. The slot on the display is never given out, not even to
// the next pipeline, so that a reader always finds a whole frame. The memory stays mapped for the life of the process:
// frames may outlive the element that showed them. Any thread; nothing blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

// Maps the display memory: 0 or an errno value.
int OpenDisplay();

// A free slot, or none: then its caller draws elsewhere and copies.
std::optional<uint32_t> ClaimSlot();
void ReleaseSlot(uint32_t slot);

uint8_t* SlotPixels(uint32_t slot);
std::optional<uint32_t> SlotOf(const void* pixels);

// Tells readers that the slot's frame is no longer whole. Before the first byte is drawn.
void BeginSlot(uint32_t slot);

// The frame in the slot is complete and goes on the display at that time (CLOCK_MONOTONIC microseconds).
void PublishSlot(uint32_t slot, uint32_t width, uint32_t height, int64_t shownAt);
