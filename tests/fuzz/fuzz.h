// What the fuzz targets share. A target is one source file with LLVMFuzzerTestOneInput: it feeds the daemon with bytes
// from outside and ends the process when a property does not hold. libFuzzer drives it (scripts/fuzz); the default
// build replays the files of its corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

inline void Require(bool holds, const char* property) {
    if (holds) return;
    fprintf(stderr, "Does not hold: %s\n", property);
    abort();
}

// Values off the input, zeros behind its end.
struct Input {
    const uint8_t* data;
    size_t left;

    uint8_t Byte() { return left == 0 ? uint8_t{0} : (--left, *data++); }
    uint32_t Word() {
        uint32_t word = 0;
        for (int i = 0; i < 4; ++i) word = word << 8 | Byte();
        return word;
    }
};
