// CRC-32 as zlib and IEEE 802.3 compute it: reflected polynomial 0xEDB88320, initial value and final complement all
// ones. Pure.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

inline constexpr auto kCrc32Table = []() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t rest = byte;
        for (int bit = 0; bit < 8; ++bit) rest = (rest >> 1) ^ ((rest & 1) != 0 ? 0xEDB88320U : 0U);
        table[byte] = rest;
    }
    return table;
}();

constexpr uint32_t Crc32(std::string_view bytes) {
    uint32_t crc = ~0U;
    for (char byte : bytes) crc = (crc >> 8) ^ kCrc32Table[(crc ^ static_cast<uint8_t>(byte)) & 0xFFU];
    return ~crc;
}
static_assert(Crc32("123456789") == 0xCBF43926);
