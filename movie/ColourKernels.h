// ColourKernels.h - the conversion of one pair of pixel rows, plain and fast. This file is included by files that are built for
// one instruction set, so it holds no inline function.
#pragma once

#include <stdint.h>

namespace vorn {

// Where one pair of pixel rows goes. In the last row of an odd height both rows are the same, and so are their targets.
struct RowPair {
    const uint8_t* pixels[2]; // bytes B, G, R, A
    uint8_t* y[2];
    uint8_t* alpha[2];
    uint8_t* cr;
    uint8_t* cb;
};

// Each converts columns from the left, a multiple of 16 or 32, and returns how many: the rest of `width` is left to others.
uint32_t ConvertColumnsSse2(const RowPair* rows, uint32_t width);
uint32_t ConvertColumnsAvx2(const RowPair* rows, uint32_t width);

} // namespace vorn
