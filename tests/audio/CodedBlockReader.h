// CodedBlockReader.h - reads coded sound blocks back, by its own reading of the format.
#pragma once

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace testaudio {

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
    const int exponent = int(field & 31);
    const double size = std::ldexp(double(field >> 5 & 0x7fffff), exponent - 23);
    return field >> 28 ? -size : size;
}

inline void ReadGroups(BitReader* in, uint32_t n, CodedTransform* out) {
    const uint32_t runs[16] = {2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 32, 64};
    out->coefficients.assign(n, 0);
    for (uint32_t p = 2; p < n;) {
        Heading heading = {-1, 0, 8};
        if (in->Get(1)) {
            heading.code = int(in->Get(4));
            heading.count = 8 * runs[heading.code];
        }
        heading.width = in->Get(4);
        if (heading.count > n - p) heading.count = n - p;
        for (uint32_t i = 0; i < heading.count && heading.width; i++) {
            const int size = int(in->Get(heading.width));
            out->coefficients[p + i] = size && in->Get(1) ? -size : size;
        }
        out->headings.push_back(heading);
        p += heading.count;
    }
}

inline CodedTransform ReadTransform(BitReader* in, uint32_t n, uint32_t bands) {
    CodedTransform out;
    for (double& value : out.value) value = UnpackFloat(in->Get(29));
    for (uint32_t band = 0; band < bands; band++) out.steps.push_back(in->Get(8));
    ReadGroups(in, n, &out);
    return out;
}

} // namespace testaudio
