// Fuzz.h - what the fuzz targets share. A target takes any bytes, puts the code under test to work with them, and aborts
// when a promise is broken. With libFuzzer the bytes are invented; without it RunCorpus.cpp hands in the files of corpus/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace vorn {

// Stops with a sentence unless `holds`.
inline void Require(bool holds, const std::string& text) {
    if (holds) return;
    std::fprintf(stderr, "broken promise: %s\n", text.c_str());
    std::abort();
}

// Takes choices off the front of the data; when it is used up all are 0.
struct Choices {
    const uint8_t* next;
    size_t left;

    uint32_t Byte() {
        if (left == 0) return 0;
        left--;
        return *next++;
    }
    uint32_t Word() {
        uint32_t word = 0;
        for (uint32_t i = 0; i < 4; i++) word |= Byte() << 8 * i;
        return word;
    }
    template <size_t count> uint32_t Of(const uint32_t (&values)[count]) { return values[Byte() % count]; }
};

} // namespace vorn
