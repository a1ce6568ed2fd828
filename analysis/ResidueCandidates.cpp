// ResidueCandidates.cpp - at which points can the bit-plane stream of a block's residual be cut off?
// No stream is written: where an event lies and what it shows follow from the residual. A walk goes through the planes as the
// writer and the reader of a stream do, and counts the bits. A plane of many coefficients is one word, so that only those with
// an event are looked at one by one.
#include <algorithm>
#include <cstring>

#include "analysis/Evaluators.h"
#include "bitstream/CoefficientCoder.h"
#include "bitstream/NodeGroups.h"
#include "blocks/PixelOps.h"

namespace vorn {

namespace {

constexpr uint32_t BIT = 256;     // cost of a bit
constexpr uint32_t HEAD_BITS = 3; // of the stream: the number of planes less one
constexpr int GROUPS = BLOCK_SAMPLES / GROUP_SIZE;
constexpr int TREE_ROOM = 16; // nodes of four and more: four to begin with, nine that join

// Distance of a source sample from what a decoder shows for it. The sum of reference and residual wraps.
uint32_t ShownError(uint8_t source, uint8_t moved, int value) {
    const int shown = static_cast<uint8_t>(moved + value);
    return static_cast<uint32_t>(source < shown ? shown - source : source - shown);
}

// How many bits are set.
inline uint32_t CountBits(uint64_t word) {
    word -= word >> 1 & 0x5555555555555555;
    word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
    word = (word + (word >> 4)) & 0x0f0f0f0f0f0f0f0f;
    return static_cast<uint32_t>(word * 0x0101010101010101 >> 56);
}

struct LadderBlock {
    uint8_t groups[GROUPS][GROUP_SIZE];  // magnitudes in walk order
    uint8_t nodeBits[4 * BLOCK_SAMPLES]; // by node of four and more: the bits that any magnitude it covers has
    const uint8_t* src;                  // block order, as the next two
    const uint8_t* moved;
    const int8_t* residual;
};

// The events so far, in order. A plane's last may be followed by room that has been written to.
struct Ladder {
    uint16_t costs[MAX_RESIDUE_STEPS + BLOCK_SAMPLES];  // bits of the stream up to the event's end
    uint8_t numbers[MAX_RESIDUE_STEPS + BLOCK_SAMPLES]; // of the coefficient, in walk order; kept if the block wraps
    int count;
    int planeEnds[8]; // by plane: the count behind it
    uint32_t bits;    // of the stream up to here
};

// Coefficients in some order: magnitudes, and numbers in walk order, which are kept if the block wraps.
struct Coefficients {
    uint8_t magnitudes[BLOCK_SAMPLES + GROUP_SIZE];
    uint8_t numbers[BLOCK_SAMPLES + GROUP_SIZE];
};

// Where the walk stands.
struct LadderWalk {
    uint32_t plane;     // 0 at the bottom
    Coefficients shown; // in the order in which they did
    int shownCount;
    Coefficients opened;      // of groups that have opened, in the order of a pass: the last group's last one first
    int openedFront;          // the first of them; they reach to the end
    uint64_t waiting;         // bit i: opened number i hasn't shown yet
    uint8_t nodes[TREE_ROOM]; // of four and more, front to back
    int nodeCount;
};

void TakeMagnitudes(LadderBlock* block) {
    uint8_t magnitudes[BLOCK_SAMPLES];
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        const int value = block->residual[i];
        magnitudes[i] = static_cast<uint8_t>(value < 0 ? -value : value);
    }
    // A group is a square, two samples of a row and two of the next.
    for (int group = 0; group < GROUPS; group++) {
        const uint8_t* corner = magnitudes + WALK_ORDER[group * GROUP_SIZE];
        std::memcpy(block->groups[group], corner, 2);
        std::memcpy(block->groups[group] + 2, corner + BLOCK_SIDE, 2);
    }
}

// Returns the bits that any magnitude has.
uint8_t MeasureTree(LadderBlock* block) {
    uint8_t bits[GROUPS];
    for (int group = 0; group < GROUPS; group++) {
        uint32_t four;
        std::memcpy(&four, block->groups[group], sizeof four);
        four |= four >> 16;
        bits[group] = static_cast<uint8_t>(four | four >> 8);
        block->nodeBits[Node(group * GROUP_SIZE, NODE_FOUR)] = bits[group];
    }
    uint8_t all = bits[0];
    for (int group = 1; group < GROUPS; group += 5) {
        const uint8_t* g = bits + group;
        const uint8_t sixteen = static_cast<uint8_t>(g[1] | g[2] | g[3] | g[4]);
        const uint8_t twenty = static_cast<uint8_t>(sixteen | g[0]);
        block->nodeBits[Node((group + 1) * GROUP_SIZE, NODE_SIXTEEN)] = sixteen;
        block->nodeBits[Node(group * GROUP_SIZE, NODE_TWENTY)] = twenty;
        all = static_cast<uint8_t>(all | twenty);
    }
    return all;
}

// A bit for each coefficient that has shown; an event if it is set.
template <bool WRAPS> inline void RefineShown(Ladder* ladder, const LadderWalk& walk) {
    uint64_t events = BitOfEach(walk.shown.magnitudes, walk.plane);
    if (walk.shownCount < BLOCK_SAMPLES) events &= (uint64_t(1) << walk.shownCount) - 1;
    for (; events != 0; events &= events - 1) {
        const int i = __builtin_ctzll(events);
        ladder->costs[ladder->count] = static_cast<uint16_t>(ladder->bits + static_cast<uint32_t>(i) + 1);
        if (WRAPS) ladder->numbers[ladder->count] = walk.shown.numbers[i];
        ladder->count++;
    }
    ladder->bits += static_cast<uint32_t>(walk.shownCount);
}

// A flag for each coefficient that waits; an event, and a sign, if it shows.
template <bool WRAPS> inline void PassWaiting(Ladder* ladder, LadderWalk* walk) {
    const uint64_t showing = BitOfEach(walk->opened.magnitudes, walk->plane) & walk->waiting;
    uint32_t signs = 0;
    for (uint64_t left = showing; left != 0; left &= left - 1) {
        const int i = __builtin_ctzll(left);
        signs++;
        const uint64_t upTo = (uint64_t(2) << i) - 1;
        ladder->costs[ladder->count] = static_cast<uint16_t>(ladder->bits + CountBits(walk->waiting & upTo) + signs);
        walk->shown.magnitudes[walk->shownCount] = walk->opened.magnitudes[i];
        if (WRAPS) {
            ladder->numbers[ladder->count] = walk->opened.numbers[i];
            walk->shown.numbers[walk->shownCount] = walk->opened.numbers[i];
        }
        walk->shownCount++;
        ladder->count++;
    }
    ladder->bits += CountBits(walk->waiting) + signs;
    walk->waiting ^= showing;
}

// A group opens: a flag for each of its four; an event, and a sign, if it shows. Else it waits.
template <bool WRAPS> inline void OpenGroup(Ladder* ladder, LadderWalk* walk, const LadderBlock& block, int group) {
    for (int k = 0; k < GROUP_SIZE; k++) {
        const uint8_t magnitude = block.groups[group][k];
        const uint8_t number = static_cast<uint8_t>(group * GROUP_SIZE + k);
        const uint32_t shows = magnitude >> walk->plane & 1;
        walk->openedFront--;
        walk->opened.magnitudes[walk->openedFront] = magnitude;
        walk->waiting |= uint64_t(shows ^ 1) << walk->openedFront;
        walk->shown.magnitudes[walk->shownCount] = magnitude;
        ladder->bits += 1 + shows;
        ladder->costs[ladder->count] = static_cast<uint16_t>(ladder->bits);
        if (WRAPS) {
            walk->opened.numbers[walk->openedFront] = number;
            walk->shown.numbers[walk->shownCount] = number;
            ladder->numbers[ladder->count] = number;
        }
        walk->shownCount += static_cast<int>(shows);
        ladder->count += static_cast<int>(shows);
    }
}

template <bool WRAPS> inline void PassTree(Ladder* ladder, LadderWalk* walk, const LadderBlock& block) {
    int kept = 0;
    for (int at = 0; at < walk->nodeCount; at++) {
        uint8_t node = walk->nodes[at];
        for (;;) {
            ladder->bits++;
            if (block.nodeBits[node] >> walk->plane == 0) {
                walk->nodes[kept++] = node;
                break;
            }
            const int n = NodeCoefficient(node);
            if (KindOfNode(node) == NODE_SIXTEEN) {
                for (int i = 1; i < 4; i++) walk->nodes[walk->nodeCount++] = Node(n + i * GROUP_SIZE, NODE_FOUR);
                node = Node(n, NODE_FOUR);
                continue;
            }
            OpenGroup<WRAPS>(ladder, walk, block, n / GROUP_SIZE);
            if (KindOfNode(node) == NODE_FOUR) break;
            node = Node(n + GROUP_SIZE, NODE_SIXTEEN);
        }
    }
    walk->nodeCount = kept;
}

// Goes through the planes until there are as many events as a payload can name.
template <bool WRAPS> void WalkPlanes(Ladder* ladder, const LadderBlock& block, uint32_t planes) {
    LadderWalk walk;
    std::memset(walk.shown.magnitudes, 0, BLOCK_SAMPLES); // read as a whole
    std::memset(walk.opened.magnitudes, 0, BLOCK_SAMPLES);
    walk.shownCount = 0;
    walk.openedFront = BLOCK_SAMPLES;
    walk.waiting = 0;
    walk.nodeCount = static_cast<int>(sizeof RESIDUE_NODES);
    std::memcpy(walk.nodes, RESIDUE_NODES, sizeof RESIDUE_NODES);
    ladder->count = 0;
    ladder->bits = HEAD_BITS;
    for (walk.plane = planes; walk.plane-- > 0;) {
        if (ladder->count < MAX_RESIDUE_STEPS) {
            // A coefficient has at most one event a plane, so there is room for a plane's.
            RefineShown<WRAPS>(ladder, walk);
            PassWaiting<WRAPS>(ladder, &walk);
            PassTree<WRAPS>(ladder, &walk, block);
        }
        ladder->planeEnds[walk.plane] = std::min(ladder->count, MAX_RESIDUE_STEPS);
    }
}

// Each event brings what is shown nearer to the source by its plane's weight. The last one ends at the source itself.
int ListNearing(BlockCandidate* list, const Ladder& ladder, uint32_t planes, uint32_t fixedCost, uint32_t error) {
    int count = 0;
    for (uint32_t plane = planes; plane-- > 0;) {
        for (; count < ladder.planeEnds[plane]; count++) {
            error -= 1u << plane;
            list[count] = {fixedCost + ladder.costs[count] * BIT, error, static_cast<uint16_t>(count), MODE_RESIDUE};
        }
    }
    return count;
}

// The same for a block that wraps: what an event shows may be farther from the source, or may be the source by chance.
int ListWrapping(BlockCandidate* list, const Ladder& ladder, const LadderBlock& block, uint32_t planes,
                 uint32_t fixedCost, uint32_t error) {
    int count = 0;
    for (uint32_t plane = planes; plane-- > 0;) {
        const int weight = 1 << plane;
        for (; count < ladder.planeEnds[plane]; count++) {
            const int at = WALK_ORDER[ladder.numbers[count]];
            const int value = block.residual[at];
            const int shown = (value < 0 ? -value : value) & -weight;
            const int before = shown - weight;
            error += ShownError(block.src[at], block.moved[at], value < 0 ? -shown : shown) -
                     ShownError(block.src[at], block.moved[at], value < 0 ? -before : before);
            list[count] = {fixedCost + ladder.costs[count] * BIT, error, static_cast<uint16_t>(count), MODE_RESIDUE};
            if (error == 0) return count + 1;
        }
    }
    return count;
}

} // namespace

int ResidueCandidates(BlockCandidate* list, const uint8_t* src, const int8_t* residual, const uint8_t* moved,
                      uint32_t motionBits) {
    const uint32_t error = SadBlock(src, moved);
    if (error == 0) return 0;
    LadderBlock block;
    block.src = src;
    block.moved = moved;
    block.residual = residual;
    TakeMagnitudes(&block);
    const uint32_t planes = BitLength(MeasureTree(&block));
    // Beside a -128 all weights are negative.
    if (planes == 8) return ResidueCandidatesPlain(list, src, residual, moved, motionBits);
    const uint32_t fixedCost = RESIDUE_HEAD_BITS * BIT + motionBits;
    Ladder ladder;
    // A residual that hasn't wrapped is the distance itself; one that has is less.
    if (error == SadColour(block.groups[0], BLOCK_SAMPLES, 0)) {
        WalkPlanes<false>(&ladder, block, planes);
        return ListNearing(list, ladder, planes, fixedCost, error);
    }
    WalkPlanes<true>(&ladder, block, planes);
    return ListWrapping(list, ladder, block, planes, fixedCost, error);
}

// The stream is written once, in full, and read back as a decoder would. Each event changes one sample, so the error is
// kept up by that sample's change. Candidate k is the stream cut off behind event k + 1.
int ResidueCandidatesPlain(BlockCandidate* list, const uint8_t* src, const int8_t* residual, const uint8_t* moved,
                           uint32_t motionBits) {
    uint8_t stream[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, stream, PAYLOAD_ROOM_BYTES);
    if (!WriteResidue(&writer, residual)) return 0;
    PadToWord(&writer);

    BitReader bits;
    StartReader(&bits, stream, static_cast<uint32_t>(writer.position - stream));
    ResidueReader reader;
    StartResidueReader(&reader, bits);
    const uint32_t fixedBits = RESIDUE_HEAD_BITS * BIT + motionBits;
    uint32_t error = SadBlock(src, moved);
    int count = 0;
    while (count < MAX_RESIDUE_STEPS && NextResidueEvent(&reader)) {
        const int at = reader.position;
        error -= ShownError(src[at], moved[at], reader.before);
        error += ShownError(src[at], moved[at], reader.values[at]);
        list[count] = {reader.bits.consumed * BIT + fixedBits, error, static_cast<uint16_t>(count), MODE_RESIDUE};
        count++;
        if (error == 0) break;
    }
    return count;
}

} // namespace vorn
