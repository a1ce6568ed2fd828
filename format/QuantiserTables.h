// QuantiserTables.h - the four tables of the DCT modes, in block order, quantiser 0 finest. They are made by their rule
// when the library is compiled.
#pragma once

#include <cstdint>

#include "format/BlockFormat.h"

namespace vorn {

// Quantiser q of a family: QUANTISE[q][i] * DEQUANTISE[q][i] is close to 2^35.
struct QuantiserTables {
    uint32_t quantise[QUANTISERS][BLOCK_SAMPLES];
    uint32_t dequantise[QUANTISERS][BLOCK_SAMPLES];
};
extern const QuantiserTables INTRA_QUANTISERS;
extern const QuantiserTables INTER_QUANTISERS;

} // namespace vorn
