// CodedBlockReader.h - reads coded sound blocks back, by its own reading of the format, and owns their encoder.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include "audio/AudioInternal.h"
#include "public/vornmake.h"

namespace testaudio {

struct FreeBlock {
    void operator()(void* block) const { mokfree(block); }
};
using OwnedEncoder = std::unique_ptr<vorn::AudioEncoder, FreeBlock>;

struct BitReader {
    const uint8_t* data;
    size_t bits;
    size_t at = 0;
    uint32_t Get(uint32_t count) {
        uint32_t value = 0;
        for (uint32_t i = 0; i < count; i++, at++) {
            if (at >= bits) throw std::runtime_error("coded block ends early");
            value |= uint32_t(data[at / 8] >> (at % 8) & 1) << i;
        }
        return value;
    }
};

struct Heading {
    int code; // -1 without a run code
    uint32_t width;
    uint32_t count; // coefficients
    bool operator==(const Heading&) const = default;
};

struct CodedTransform {
    double value[2];
    std::vector<uint32_t> steps;
    std::vector<Heading> headings;
    std::vector<int> coefficients; // N entries, the first two 0
};

inline double UnpackFloat(uint32_t field) {
    const double size = std::ldexp(double(field >> 5 & 0x7fffff), int(field & 31) - 23);
    return field >> 28 ? -size : size;
}

inline void ReadGroups(BitReader* in, uint32_t n, CodedTransform* out) {
    const uint32_t runs[16] = {2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 32, 64};
    out->coefficients.assign(2, 0);
    while (out->coefficients.size() < n) {
        Heading heading = {in->Get(1) ? int(in->Get(4)) : -1, in->Get(4), 8};
        if (heading.code >= 0) heading.count *= runs[heading.code];
        heading.count = std::min(heading.count, n - uint32_t(out->coefficients.size()));
        for (uint32_t i = 0; i < heading.count; i++) {
            const int size = int(in->Get(heading.width));
            out->coefficients.push_back(size && in->Get(1) ? -size : size);
        }
        out->headings.push_back(heading);
    }
}

} // namespace testaudio
