// A device's ioctls as a table: the request and the function that gets the caller's record and leaves the answer in it.
// For drivers whose requests do not tell truly in which direction their record goes: it always goes in, and comes back
// unless the call failed.
#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>

#include "kernel/supervisor.h"

template <typename Call>
struct IoctlRow {
    uint32_t request;
    size_t size;  // of the record; 0: the argument is none or a plain number
    int (*run)(const Call& call, void* record);
};

inline constexpr size_t kRecordLimit = 2048;

template <auto Handler>
struct IoctlHandler;
template <typename Call, typename Record, int (*Handler)(const Call&, Record&)>
struct IoctlHandler<Handler> {
    static constexpr IoctlRow<Call> RowFor(unsigned long request) {
        static_assert(sizeof(Record) <= kRecordLimit);
        return {.request = static_cast<uint32_t>(request),
                .size = sizeof(Record),
                .run = [](const Call& call, void* to) { return Handler(call, *static_cast<Record*>(to)); }};
    }
};
template <typename Call, int (*Handler)(const Call&)>
struct IoctlHandler<Handler> {
    static constexpr IoctlRow<Call> RowFor(unsigned long request) {
        return {.request = static_cast<uint32_t>(request), .size = 0, .run = [](const Call& call, void*) {
                    return Handler(call);
                }};
    }
};

template <auto Handler>
constexpr auto Row(unsigned long request) {
    return IoctlHandler<Handler>::RowFor(request);
}

// A `Call` names what it is about and has the IoctlCall as its member `ioctl`.
template <typename Call, size_t N>
int AnswerIoctl(const std::array<IoctlRow<Call>, N>& rows, const Call& call) {
    const IoctlCall& ioctl = call.ioctl;
    const auto row = std::ranges::find(rows, ioctl.request, &IoctlRow<Call>::request);
    if (row == rows.end()) return -ENOTTY;
    alignas(std::max_align_t) std::array<uint8_t, kRecordLimit> record{};
    if (row->size > 0 && !ioctl.memory.Read(ioctl.argument, record.data(), row->size)) return -EFAULT;
    const int result = row->run(call, record.data());
    if (result < 0 || row->size == 0) return result;
    return ioctl.memory.Write(ioctl.argument, record.data(), row->size) ? result : -EFAULT;
}
