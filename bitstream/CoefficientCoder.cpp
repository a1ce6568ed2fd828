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

// The number of the coefficient at each block position: WALK_ORDER the other way round.
// clang-format off
constexpr uint8_t NUMBER_AT[BLOCK_SAMPLES] = {
     0,  1,  4,  5,  8,  9, 12, 13,
     2,  3,  6,  7, 10, 11, 14, 15,
    24, 25, 44, 45, 16, 17, 20, 21,
    26, 27, 46, 47, 18, 19, 22, 23,
    28, 29, 32, 33, 48, 49, 52, 53,
    30, 31, 34, 35, 50, 51, 54, 55,
    36, 37, 40, 41, 56, 57, 60, 61,
    38, 39, 42, 43, 58, 59, 62, 63,
};
// clang-format on

// Bit i is set if value i isn't 0.
uint64_t FindValues(const int16_t* values) {
    uint8_t marks[BLOCK_SAMPLES];
    for (int i = 0; i < BLOCK_SAMPLES; i++) marks[i] = values[i] != 0;
    uint64_t found = 0;
    for (int i = 0; i < BLOCK_SAMPLES; i += 8) {
        uint64_t eight = 0;
        for (int k = 7; k >= 0; k--) eight = eight << 8 | marks[i + k];
        found |= (eight * 0x0102040810204080u >> 56) << i; // moves the marks next to each other
    }
    return found;
}

void WalkCoefficients(WalkedBlock* block, const int16_t* coefficients) {
    StartWalk(block);
    for (uint64_t left = FindValues(coefficients) & ~uint64_t{1}; left != 0; left &= left - 1) {
        const int at = __builtin_ctzll(left);
        const int n = NUMBER_AT[at];
        const uint32_t magnitude = Magnitude(coefficients[at]);
        const uint32_t length = BitLength(magnitude);
        const uint32_t top = 1u << (length - 1);
        block->length[n] = static_cast<uint8_t>(length);
        block->sent[n] = static_cast<uint16_t>(magnitude - top + (coefficients[at] < 0 ? top : 0));
        block->groups[n / GROUP_SIZE] |= magnitude;
    }
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
        WriteNodePass(&own, &places, block, plane, plane, [](int) {});
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
