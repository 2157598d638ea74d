// Fields that several threads share without a lock.
//
// A Shared<T> has the size, alignment and bytes of its T, so that a record made of such fields is its own file image.
// Every load and store is a relaxed atomic access of the whole field: a reader sees an old or a new value, never a
// mixture. There is no ordering between fields; whoever needs two fields to change together stores them as one wider
// field.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

template <typename T>
struct Shared {
    static_assert(std::is_trivially_copyable_v<T>);
    static_assert(sizeof(T) <= 4 || (sizeof(T) == 8 && alignof(T) == 8), "one access of the processor");
    static_assert(__atomic_always_lock_free(sizeof(T), nullptr), "no lock of a library behind it, on any processor");
    T raw;

    Shared& operator=(const Shared&) = delete;  // would copy without the atomic store: say other.Load()
    operator T() const { return Load(); }
    Shared& operator=(T value) {
        Store(value);
        return *this;
    }
    T Load() const {
        T value;
        __atomic_load(&raw, &value, __ATOMIC_RELAXED);
        return value;
    }
    void Store(T value) { __atomic_store(&raw, &value, __ATOMIC_RELAXED); }
};

// Copies `size` bytes of a live record byte by byte, so that a snapshot needs no lock. A field of several bytes may be
// caught half-way through its change; nothing that is copied this way depends on two bytes agreeing.
inline void CopySharedBytes(void* to, const void* from, size_t size) {
    auto* target = static_cast<uint8_t*>(to);
    auto* source = static_cast<const uint8_t*>(from);
    for (size_t i = 0; i < size; ++i)
        __atomic_store_n(target + i, __atomic_load_n(source + i, __ATOMIC_RELAXED), __ATOMIC_RELAXED);
}
