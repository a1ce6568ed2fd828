// RunPatternBlocks.h - run and pattern blocks as bundle elements and bits, 8x8 and half-scale blocks alike.
#pragma once

#include <cstdint>

#include "bitstream/BlockData.h"
#include "bitstream/Bundle.h"

namespace vorn {

// Codes a packed block as runs; `payload` holds the scan order in bits 8 to 11, the threshold in bits 0 to 7.
// The result goes to `destination`, rows `pitch` bytes apart. Returns segments * 256 + colours stored.
uint32_t WriteRunBlock(uint8_t* destination, int pitch, Bundle* colours, Bundle* runs, BlockDataList* runData,
                       const uint8_t* block, uint32_t payload);

// Codes a block as two colours; `payload` holds the low colour in bits 0 to 7, the high one above. `source` has the pitch
// of `destination`.
void WritePatternBlock(uint8_t* destination, int pitch, Bundle* colours, Bundle* patterns, const uint8_t* source,
                       uint32_t payload);

} // namespace vorn
