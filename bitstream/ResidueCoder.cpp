// ResidueCoder.cpp - the strings of residue blocks: written once, cut off anywhere.
// Head: the number of planes less one in 3 bits. Each plane of weight w then has one bit, that of weight w, for each value
// that has already shown, in the order in which they did, and after that the node pass; a value that shows sends its sign.
#include "bitstream/CoefficientCoder.h"

#include <cstring>

#include "bitstream/NodeWriter.h"

namespace vorn {

namespace {

constexpr uint32_t RESIDUE_PLANES_BITS = 3;

int8_t Wrapped(int value) {
    return static_cast<int8_t>(static_cast<uint8_t>(value));
}

// A residual in walk order, and its values in the order in which they show.
struct WalkedResidual {
    WalkedBlock block;
    uint8_t magnitudes[BLOCK_SAMPLES];      // walk order
    uint8_t shownNumbers[BLOCK_SAMPLES];    // of the values that have shown
    uint8_t shownMagnitudes[BLOCK_SAMPLES]; // theirs
};

// What is left of a stream that is cut off behind an event.
struct ResidueCut {
    uint32_t bits;       // of the writer, up to there
    uint32_t plane;      // where the event lies, 1 at the bottom; 0 if the stream ends before it
    uint64_t refined;    // that plane's refinements up to the event: bit i for the value that showed as number i
    uint32_t firstShown; // values that had shown before that plane,
    uint32_t endShown;   // and up to the event
};

void WalkResidual(WalkedResidual* walked, const int8_t* residual) {
    WalkedBlock* block = &walked->block;
    uint8_t magnitudes[BLOCK_SAMPLES]; // block order, as the next ones
    uint8_t negative[BLOCK_SAMPLES];
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        magnitudes[i] = static_cast<uint8_t>(residual[i] < 0 ? -residual[i] : residual[i]);
        negative[i] = residual[i] < 0;
    }
    uint8_t sent[BLOCK_SAMPLES];
    for (int n = 0; n < BLOCK_SAMPLES; n += GROUP_SIZE) { // a group is a square of the block
        const int corner = WALK_ORDER[n];
        std::memcpy(walked->magnitudes + n, magnitudes + corner, 2);
        std::memcpy(walked->magnitudes + n + 2, magnitudes + corner + BLOCK_SIDE, 2);
        std::memcpy(sent + n, negative + corner, 2);
        std::memcpy(sent + n + 2, negative + corner + BLOCK_SIDE, 2);
    }
    const uint8_t* m = walked->magnitudes;
    // Bit lengths by comparing, which compilers do for many values at once.
    for (int n = 0; n < BLOCK_SAMPLES; n++) {
        block->length[n] = static_cast<uint8_t>((m[n] > 0) + (m[n] > 1) + (m[n] > 3) + (m[n] > 7) + (m[n] > 15) +
                                                (m[n] > 31) + (m[n] > 63) + (m[n] > 127));
    }
    for (int n = 0; n < BLOCK_SAMPLES; n++) block->sent[n] = sent[n];
    for (int group = 0; group < GROUPS; group++, m += GROUP_SIZE) {
        block->groups[group] = static_cast<uint32_t>(m[0] | m[1] | m[2] | m[3]);
    }
    std::memset(walked->shownMagnitudes, 0, sizeof walked->shownMagnitudes);
}

// Bit i is set if magnitude i of the first `count` has bit number `bit`.
uint64_t BitOfEach(const uint8_t* magnitudes, uint32_t count, uint32_t bit) {
    uint64_t found = 0;
    for (uint32_t i = 0; i < count; i += 8) {
        uint64_t eight = 0;
        for (uint32_t k = 8; k > 0; k--) eight = eight << 8 | magnitudes[i + k - 1];
        eight = eight >> bit & 0x0101010101010101u;
        found |= (eight * 0x0102040810204080u >> 56) << i; // moves the bits next to each other
    }
    return count < BLOCK_SAMPLES ? found & ((uint64_t{1} << count) - 1) : found;
}

// Writes the stream down to the plane with event number `limit` + 1 in it, or all of it. An event is a refinement bit of 1 or
// a value that shows.
ResidueCut WriteEvents(BitWriter* writer, WalkedResidual* walked, uint32_t planes, uint32_t limit) {
    BitWriter own = *writer; // nothing else points to it, so it can stay in registers
    WriteBits(&own, planes - 1, RESIDUE_PLANES_BITS);
    NodePlaces places;
    StartPlaces(&places, walked->block, planes, RESIDUE_NODES);
    ResidueCut cut = {};
    uint32_t shown = 0;                  // values that have
    uint32_t endOfShown[BLOCK_SAMPLES];  // bits
    uint64_t left = uint64_t{limit} + 1; // events
    for (cut.plane = planes; cut.plane > 0; cut.plane--) {
        uint32_t refinements = shown;
        cut.firstShown = cut.endShown = refinements;
        cut.refined = BitOfEach(walked->shownMagnitudes, refinements, cut.plane - 1);
        const uint32_t ones = CountOnes(cut.refined);
        if (ones >= left) {
            uint64_t behind = cut.refined;
            for (; left > 0; left--) behind &= behind - 1;
            cut.refined ^= behind;
            refinements = 64 - static_cast<uint32_t>(__builtin_clzll(cut.refined));
        }
        WriteLong(&own, cut.refined, refinements);
        cut.bits = BitsWritten(&own);
        if (left == 0) break;
        left -= ones;
        const uint64_t last = cut.firstShown + left;
        WriteNodePass(&own, &places, walked->block, cut.plane, 1, [&](int n, uint32_t shows, uint32_t bits) {
            walked->shownNumbers[shown] = static_cast<uint8_t>(n);
            walked->shownMagnitudes[shown] = walked->magnitudes[n];
            endOfShown[shown] = BitsWritten(&own) + bits;
            shown += shows;
        });
        if (shown >= last) {
            cut.endShown = static_cast<uint32_t>(last);
            cut.bits = endOfShown[last - 1];
            break;
        }
        left -= shown - cut.firstShown;
        cut.bits = BitsWritten(&own);
    }
    *writer = own;
    return cut;
}

// What a reader of the stream up to the cut sees: the planes above it, and its events.
void ShowEvents(int8_t* shown, const WalkedResidual& walked, uint32_t planes, const ResidueCut& cut,
                const int8_t* residual) {
    uint8_t magnitudes[BLOCK_SAMPLES]; // block order
    const uint32_t whole = ~BitMask(cut.plane);
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        const int value = residual[i];
        magnitudes[i] = static_cast<uint8_t>(static_cast<uint32_t>(value < 0 ? -value : value) & whole);
    }
    if (cut.plane > 0) {
        const uint32_t weight = 1u << (cut.plane - 1);
        const auto show = [&](uint32_t i) { magnitudes[WALK_ORDER[walked.shownNumbers[i]]] |= uint8_t(weight); };
        for (uint64_t left = cut.refined; left != 0; left &= left - 1)
            show(static_cast<uint32_t>(__builtin_ctzll(left)));
        for (uint32_t i = cut.firstShown; i < cut.endShown; i++) show(i);
    }
    // In a stream of eight planes the weights of a reader are negative, -128, -64 and so on: signs are turned, and refinements
    // lead back towards 0.
    const bool turned = planes == 8;
    for (int i = 0; turned && i < BLOCK_SAMPLES; i++) {
        const uint32_t length = BitLength(magnitudes[i]);
        if (length > 0) magnitudes[i] = static_cast<uint8_t>((1u << length) - magnitudes[i]);
    }
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        shown[i] = Wrapped((residual[i] < 0) != turned ? -magnitudes[i] : magnitudes[i]);
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
    WalkedResidual walked;
    WalkResidual(&walked, residual);
    const uint32_t planes = LongestOf(walked.block);
    if (planes == 0) return false;
    WriteEvents(writer, &walked, planes, UINT32_MAX);
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
    WalkedResidual walked;
    WalkResidual(&walked, residual);
    const uint32_t planes = LongestOf(walked.block);
    ResidueCut cut = {};
    if (planes > 0) {
        cut = WriteEvents(&writer, &walked, planes, truncation);
    } else { // one plane of four 0 flags
        WriteBits(&writer, 0, RESIDUE_PLANES_BITS + sizeof RESIDUE_NODES);
        cut.bits = BitsWritten(&writer);
    }
    ShowEvents(shown, walked, planes, cut, residual);
    PadToWord(&writer);
    AppendBitString(list, room, cut.bits);
}

} // namespace vorn
