// BlockPayloads.h - blocks that are more than one value: runs, patterns, coefficients, residues. Internal to the reader.
#pragma once

#include "format/BlockFormat.h"
#include "reader/Bundles.h"

namespace vorn::reader {

// All take what they need from bits and bundles and throw StreamFault when it isn't there.

// 64 samples of a run block. Returns the scan order.
uint32_t ReadRunBlock(BitSource& bits, Reporter& report, Bundles* bundles, uint8_t samples[BLOCK_SAMPLES]);
void ReadPatternBlock(Reporter& report, Bundles* bundles, uint8_t samples[BLOCK_SAMPLES]);
// Coefficients 1 to 63 in block order and the quantiser, which is returned. [0] is left as it is.
uint32_t ReadCoefficients(BitSource& bits, Reporter& report, int16_t coefficients[BLOCK_SAMPLES]);
// The residual of a residue block, in block order. Returns the truncation point that heads the string.
uint32_t ReadResidue(BitSource& bits, Reporter& report, int8_t residual[BLOCK_SAMPLES]);

} // namespace vorn::reader
