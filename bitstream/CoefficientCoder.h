// CoefficientCoder.h - the bit strings of DCT and residue blocks: a tree of nodes over the 64 positions in walk order, sent
// from the highest bit down. A node costs a flag a plane until its largest value first shows, and only then opens.
// Threads: everything is on the stack.
#pragma once

#include <cstdint>

#include "bitstream/BitWriter.h"
#include "bitstream/BlockData.h"
#include "bitstream/NodeList.h"
#include "format/BlockFormat.h"

namespace vorn {

constexpr uint32_t RESIDUE_HEAD_BITS = 7;      // of the truncation point before a residue string
constexpr uint32_t RESIDUE_PLANES_BITS = 3;    // of the number of planes, less one, at the start of a residue string
constexpr uint32_t QUANTISER_BITS = 4;         // of the quantiser index behind a DCT string
// Room that any one string fits in with certainty, DCT (63 values of up to 15 bits) or residue (64 of up to 8).
constexpr uint32_t PAYLOAD_ROOM_BYTES = 512;

// A number modulo 256, from -128 to 127.
constexpr int8_t Wrapped(int value) { return static_cast<int8_t>(static_cast<uint8_t>(value)); }

// Writes the 63 AC values of 64 signed quantised coefficients in block order; coefficient 0 is not read.
void WriteCoefficients(BitWriter* writer, const int16_t* coefficients);
// The bits that WriteCoefficients would write.
uint32_t CountCoefficientBits(const int16_t* coefficients);
// A whole DCT payload: the coefficients, then the quantiser index, appended to `list`.
void WriteDctPayload(BlockDataList* list, int quantiser, const int16_t* coefficients);

// Writes the bit-plane stream of 64 signed residuals in block order. False, and nothing written, if all are 0.
bool WriteResidue(BitWriter* writer, const int8_t* residual);

// A residue stream being read, event by event. An event changes one value: a coefficient turns significant, or a
// refinement bit of 1.
struct ResidueReader {
    BitReader bits;
    int8_t values[BLOCK_SAMPLES]; // block order, as read so far
    int8_t mask;                  // weight of the current plane; -128 in the first plane of eight
    int planesLeft;               // the current one included
    int position;                 // block position of the last event
    int8_t before;                // its value before that event
    // Where the walk stands.
    uint8_t significant[BLOCK_SAMPLES]; // block positions in the order in which they turned significant
    int significantCount;
    int refinementEnd;                  // entries that stood at the start of this plane
    int refinementNext;                 // next entry to refine
    int node;                           // next entry of nodes to look at
    int groupLeft;                      // coefficients left of a group that is being read
    int groupNext;                      // number of the first of them
    NodeList nodes;
};
// `bits` stands at the head of the stream.
void StartResidueReader(ResidueReader* reader, const BitReader& bits);
// Reads up to and including the next event; false when the last plane is through.
bool NextResidueEvent(ResidueReader* reader);

// Reads a stream up to event number limit + 1 or its end. `out`: 64 values in block order. `bits` is left on the next
// unread bit.
void ReadResidue(int8_t* out, BitReader* bits, uint32_t limit);
// A whole residue payload: the truncation point, then the stream cut off behind it, appended to `list`. `shown` receives
// the residual that a decoder will see.
void WriteResiduePayload(BlockDataList* list, const int8_t* residual, uint32_t truncation, int8_t* shown);

} // namespace vorn
