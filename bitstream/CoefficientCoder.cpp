// CoefficientCoder.cpp - the strings of DCT blocks: how they are written, and what they would cost.
// Head: the greatest bit length in 4 bits, 0 for none. Then plane by plane the node pass; a coefficient that shows in plane p
// is sent whole: the p - 1 low bits of its magnitude and a sign bit, 1 for negative.
#include "bitstream/CoefficientCoder.h"

#include <cstring>

#include "bitstream/NodeWriter.h"

namespace vorn {

namespace {

constexpr uint32_t DCT_HEAD_BITS = 4;

uint32_t Magnitude(int16_t value) {
    return static_cast<uint32_t>(value < 0 ? -value : value);
}

// Loops without a branch, so that compilers do them for many values at once.
void WalkCoefficients(WalkedBlock* block, const int16_t* coefficients) {
    int16_t values[BLOCK_SAMPLES];                        // walk order
    for (int n = 0; n < BLOCK_SAMPLES; n += GROUP_SIZE) { // a group is a square of the block
        const int16_t* corner = coefficients + WALK_ORDER[n];
        std::memcpy(values + n, corner, 2 * sizeof *corner);
        std::memcpy(values + n + 2, corner + BLOCK_SIDE, 2 * sizeof *corner);
    }
    values[0] = 0; // travels elsewhere
    uint16_t magnitudes[BLOCK_SAMPLES];
    for (int n = 0; n < BLOCK_SAMPLES; n++) {
        const auto magnitude = static_cast<uint16_t>(values[n] < 0 ? -values[n] : values[n]);
        auto below = static_cast<uint16_t>(magnitude >> 1); // all bits below the highest one
        below = static_cast<uint16_t>(below | below >> 1);
        below = static_cast<uint16_t>(below | below >> 2);
        below = static_cast<uint16_t>(below | below >> 4);
        below = static_cast<uint16_t>(below | below >> 8);
        magnitudes[n] = magnitude;
        block->sent[n] = values[n] < 0 ? magnitude : static_cast<uint16_t>(magnitude & below);
    }
    for (int group = 0; group < GROUPS; group++) {
        const uint16_t* m = magnitudes + group * GROUP_SIZE;
        block->groups[group] = static_cast<uint32_t>(m[0] | m[1] | m[2] | m[3]);
    }
    uint16_t lengths[BLOCK_SAMPLES] = {};
    for (uint32_t plane = LongestOf(*block); plane > 0; plane--) {
        const auto least = static_cast<uint16_t>(1u << (plane - 1));
        for (int n = 0; n < BLOCK_SAMPLES; n++)
            lengths[n] = static_cast<uint16_t>(lengths[n] + (magnitudes[n] >= least));
    }
    for (int n = 0; n < BLOCK_SAMPLES; n++) block->length[n] = static_cast<uint8_t>(lengths[n]);
}

// Flags of a node that is first looked at in plane `from`: one a plane until it opens, or down to the last plane.
uint32_t NodeFlags(uint32_t from, uint32_t length) {
    return length == 0 ? from : from - length + 1;
}

// A group opened in plane p takes p bits for each coefficient and one more for each that isn't 0: with b the bit length of a
// value, one flag in the group, p - b flags of its own below (p - 1 for a 0), b - 1 low bits and a sign.
uint32_t GroupBits(uint32_t plane) {
    return GROUP_SIZE * plane;
}

// A NODE_TWENTY and all below it but for the one more bit of values that aren't 0. `groups`: bits that any value of each of
// its five groups has.
uint32_t TreeBits(const uint32_t* groups, uint32_t planes) {
    const uint32_t lower = groups[1] | groups[2] | groups[3] | groups[4];
    const uint32_t twenty = BitLength(groups[0] | lower);
    uint32_t bits = NodeFlags(planes, twenty);
    if (twenty == 0) return bits;
    const uint32_t sixteen = BitLength(lower);
    bits += GroupBits(twenty) + NodeFlags(twenty, sixteen);
    if (sixteen == 0) return bits;
    for (int i = 1; i <= 4; i++) {
        const uint32_t four = BitLength(groups[i]);
        bits += NodeFlags(sixteen, four) + GroupBits(four);
    }
    return bits;
}

} // namespace

void WriteCoefficients(BitWriter* writer, const int16_t* coefficients) {
    WalkedBlock block;
    WalkCoefficients(&block, coefficients);
    const uint32_t planes = LongestOf(block);
    BitWriter own = *writer; // nothing else points to it, so it can stay in registers
    WriteBits(&own, planes, DCT_HEAD_BITS);
    NodePlaces places;
    StartPlaces(&places, block, planes, DCT_NODES);
    for (uint32_t plane = planes; plane > 0; plane--) {
        WriteNodePass(&own, &places, block, plane, plane, [](int, uint32_t, uint32_t) {});
    }
    *writer = own;
}

// The order of the flags doesn't matter for their number, so nothing is walked: each node's flags and each group's bits follow
// from the planes in which it is first looked at and in which it opens.
uint32_t CountCoefficientBits(const int16_t* coefficients) {
    // The four coefficients of a group are a 2x2 square of the block, the groups are numbered along the walk.
    constexpr int SQUARES = BLOCK_SIDE / 2;
    uint32_t squares[SQUARES][SQUARES] = {};
    uint32_t values = 0; // that aren't 0
    for (int i = 1; i < BLOCK_SAMPLES; i++) {
        const uint32_t magnitude = Magnitude(coefficients[i]);
        squares[i / (2 * BLOCK_SIDE)][i % BLOCK_SIDE / 2] |= magnitude;
        values += magnitude != 0;
    }
    if (values == 0) return DCT_HEAD_BITS;
    uint32_t groups[BLOCK_SAMPLES / GROUP_SIZE];
    uint32_t all = 0;
    for (int group = 0; group < BLOCK_SAMPLES / GROUP_SIZE; group++) {
        const int corner = WALK_ORDER[group * GROUP_SIZE];
        groups[group] = squares[corner / (2 * BLOCK_SIDE)][corner % BLOCK_SIDE / 2];
        all |= groups[group];
    }
    const uint32_t planes = BitLength(all);
    // Coefficients 1 to 3 stand alone from the first plane on: as in a group, but for its flag.
    const uint32_t lone = 3 * planes;
    return DCT_HEAD_BITS + values + lone + TreeBits(groups + 1, planes) + TreeBits(groups + 6, planes) +
           TreeBits(groups + 11, planes);
}

void WriteDctPayload(BlockDataList* list, int quantiser, const int16_t* coefficients) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, room, sizeof room);
    WriteCoefficients(&writer, coefficients);
    WriteBits(&writer, static_cast<uint32_t>(quantiser), QUANTISER_BITS);
    const uint32_t bits = BitsWritten(&writer);
    PadToWord(&writer);
    AppendBitString(list, room, bits);
}

} // namespace vorn
