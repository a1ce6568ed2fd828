// BlockData.h - first-in first-out lists of bit strings, one string a block, each with its exact length in bits.
#pragma once

#include <cstdint>

#include "bitstream/Arena.h"
#include "bitstream/BitWriter.h"

namespace vorn {

struct BitString {
    uint32_t bits;
    BitString* next;
    // The bits follow, padded to whole 32-bit words.
};

struct BlockDataList {
    BitString* first; // next to be copied out
    BitString* last;
    Arena* arena;
};

void StartBlockDataList(BlockDataList* list, Arena* arena);
// Copies `bits` bits of `words` (whole 32-bit words) in at the back. Dropped, and the arena says so, if there is no room.
void AppendBitString(BlockDataList* list, const uint8_t* words, uint32_t bits);
// Moves the first string to the stream; nothing if there is none left.
void CopyNextBitString(BitWriter* writer, BlockDataList* list);

} // namespace vorn
