// PlaneEncoder.h - one plane of a frame, its blocks decided, becomes a plane stream and the plane that a decoder shows.
// Two phases: the collect phase rebuilds the blocks and fills nine bundles and four lists of bit strings; the write phase
// sends the code tables and then, row by row, the chunks that are due and the strings of the row's blocks.
#pragma once

#include <cstdint>

#include "bitstream/Arena.h"
#include "blocks/BlockRecord.h"
#include "public/vornmake.h"

namespace vorn {

// Widest padded plane: wider ones could put more elements in a chunk than its 15-bit count holds.
constexpr uint32_t MAX_PADDED_WIDTH = 4032;

struct PlaneJob {
    uint8_t* reconstruction;      // width * height samples, all written
    uint8_t* output;              // where the stream goes
    uint32_t outputBytes;         // room there
    uint8_t* arenaRoom;           // working memory of this plane
    uint64_t arenaBytes;
    BlockRecord* records;         // 8x8 records in raster order; upgradeBits of run blocks is overwritten
    const uint8_t* sourcePlane;
    const uint8_t* referencePlane;
    uint32_t width;               // samples, multiples of 8
    uint32_t height;
    CostModel* costModel;         // receives what the bundles took
};

// Bytes of the stream, a multiple of 4; 0 if the output or the arena was too small (a stream is never empty).
uint32_t EncodePlane(const PlaneJob& job);

// Room that any plane of this size fits in, whatever its blocks are: for the stream, and for the arena.
uint64_t PlaneStreamBound(uint32_t width, uint32_t height);
uint64_t PlaneArenaBound(uint32_t width, uint32_t height);

} // namespace vorn
