// ResidueCoder.cpp - the strings of residue blocks: written once, cut off anywhere.
// Head: the number of planes less one in 3 bits. Each plane of weight w then has one bit, that of weight w, for each value
// that has already shown, in the order in which they did, and after that the node pass; a value that shows sends its sign.
#include "bitstream/CoefficientCoder.h"

#include "bitstream/NodeWriter.h"

namespace vorn {

namespace {

constexpr uint32_t RESIDUE_PLANES_BITS = 3;

int8_t Wrapped(int value) {
    return static_cast<int8_t>(static_cast<uint8_t>(value));
}

void WalkResidual(WalkedBlock* block, const int8_t* residual) {
    StartWalk(block);
    for (int n = 0; n < BLOCK_SAMPLES; n++) {
        const int value = residual[WALK_ORDER[n]];
        const auto magnitude = static_cast<uint32_t>(value < 0 ? -value : value);
        block->length[n] = static_cast<uint8_t>(BitLength(magnitude));
        block->sent[n] = value < 0;
        block->groups[n / GROUP_SIZE] |= magnitude;
    }
}

void ChangeValue(ResidueReader* reader, int position, int value) {
    reader->position = position;
    reader->before = reader->values[position];
    reader->values[position] = Wrapped(value);
}

// The next refinement bit that is 1, if this plane has one left.
bool NextRefinement(ResidueReader* reader) {
    while (reader->refinementNext < reader->refinementEnd) {
        const int position = reader->significant[reader->refinementNext++];
        if (ReadBits(&reader->bits, 1) == 0) continue;
        const int value = reader->values[position];
        ChangeValue(reader, position, value >= 0 ? value + reader->mask : value - reader->mask);
        return true;
    }
    return false;
}

void ShowCoefficient(ResidueReader* reader, int coefficient) {
    const int position = WALK_ORDER[coefficient];
    reader->significant[reader->significantCount++] = static_cast<uint8_t>(position);
    const bool negative = ReadBits(&reader->bits, 1) != 0;
    ChangeValue(reader, position, negative ? -reader->mask : reader->mask);
}

// The next coefficient that shows in the node pass, if this plane has one left.
bool NextShowing(ResidueReader* reader) {
    NodeList* nodes = &reader->nodes;
    for (;;) {
        while (reader->groupLeft > 0) {
            const int coefficient = reader->groupNext++;
            reader->groupLeft--;
            if (ReadBits(&reader->bits, 1) == 0) {
                ShowCoefficient(reader, coefficient);
                return true;
            }
            JoinAtFront(nodes, coefficient);
        }
        if (reader->node == nodes->back) return false;
        const uint8_t node = nodes->entries[reader->node];
        if (node == GONE || ReadBits(&reader->bits, 1) == 0) {
            reader->node++;
            continue;
        }
        const NodeKind kind = OpenNode(nodes, &reader->node);
        if (kind == NODE_ONE) {
            ShowCoefficient(reader, NodeCoefficient(node));
            return true;
        }
        if (kind == NODE_SIXTEEN) continue;
        reader->groupNext = NodeCoefficient(node);
        reader->groupLeft = GROUP_SIZE;
    }
}

void StartNextPlane(ResidueReader* reader) {
    reader->planesLeft--;
    reader->mask = static_cast<int8_t>(reader->mask >> 1);
    reader->refinementNext = 0;
    reader->refinementEnd = reader->significantCount;
    reader->node = reader->nodes.front;
}

} // namespace

bool WriteResidue(BitWriter* writer, const int8_t* residual) {
    WalkedBlock block;
    WalkResidual(&block, residual);
    const uint32_t planes = LongestOf(block);
    if (planes == 0) return false;
    BitWriter own = *writer; // nothing else points to it, so it can stay in registers
    WriteBits(&own, planes - 1, RESIDUE_PLANES_BITS);
    NodePlaces places;
    StartPlaces(&places, block, planes, RESIDUE_NODES);
    uint8_t significant[BLOCK_SAMPLES]; // block positions
    int significantCount = 0;
    for (uint32_t plane = planes; plane > 0; plane--) {
        for (int i = 0; i < significantCount; i++) {
            const int value = residual[significant[i]];
            WriteBits(&own, static_cast<uint32_t>(value < 0 ? -value : value) >> (plane - 1), 1);
        }
        WriteNodePass(&own, &places, block, plane, 1, [&](int n) { significant[significantCount++] = WALK_ORDER[n]; });
    }
    *writer = own;
    return true;
}

void StartResidueReader(ResidueReader* reader, const BitReader& bits) {
    *reader = {};
    reader->bits = bits;
    StartNodes(&reader->nodes, RESIDUE_NODES);
    const uint32_t top = ReadBits(&reader->bits, RESIDUE_PLANES_BITS);
    reader->mask = Wrapped(1 << top);
    reader->planesLeft = static_cast<int>(top) + 1;
    reader->node = reader->nodes.front;
}

bool NextResidueEvent(ResidueReader* reader) {
    while (reader->planesLeft > 0) {
        if (NextRefinement(reader) || NextShowing(reader)) return true;
        StartNextPlane(reader);
    }
    return false;
}

void ReadResidue(int8_t* out, BitReader* bits, uint32_t limit) {
    ResidueReader reader;
    StartResidueReader(&reader, *bits);
    uint32_t events = 0;
    while (NextResidueEvent(&reader) && events < limit) events++;
    for (int i = 0; i < BLOCK_SAMPLES; i++) out[i] = reader.values[i];
    *bits = reader.bits;
}

void WriteResiduePayload(BlockDataList* list, const int8_t* residual, uint32_t truncation, int8_t* shown) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, room, sizeof room);
    WriteBits(&writer, truncation & BitMask(RESIDUE_HEAD_BITS), RESIDUE_HEAD_BITS);
    WriteResidue(&writer, residual);
    PadToWord(&writer);
    // What the reader has taken when it stops is the string. An all-zero residual reads as one plane of four 0 flags.
    BitReader reader;
    StartReader(&reader, room, static_cast<uint32_t>(writer.position - writer.start));
    ReadBits(&reader, RESIDUE_HEAD_BITS);
    ReadResidue(shown, &reader, truncation);
    AppendBitString(list, room, reader.consumed);
}

} // namespace vorn
