// ResidueReader.cpp - residue streams read back, event by event: what the writer's forms are held against.
#include "bitstream/CoefficientCoder.h"

namespace vorn {

namespace {

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

} // namespace vorn
