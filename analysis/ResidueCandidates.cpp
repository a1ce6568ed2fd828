// ResidueCandidates.cpp - at which points can the bit-plane stream of a block's residual be cut off?
// No stream is written: where an event lies and what it shows follow from the residual. A walk goes through the planes as the
// writer of a stream does, and counts the bits. Which coefficients have an event can't be foreseen, so that there are few
// branches on it: flags in a row and groups that open are looked up in tables.
#include <algorithm>
#include <array>
#include <cstring>

#include "analysis/Evaluators.h"
#include "bitstream/CoefficientCoder.h"
#include "bitstream/NodeGroups.h"
#include "blocks/PixelOps.h"

namespace vorn {

namespace {

constexpr uint32_t BIT = 256; // cost of a bit
constexpr int FLAGS_AT_ONCE = 8;

// Of eight flags in a row: the bits up to each set one, the first one first, and how many are set.
struct SetFlags {
    uint16_t ends[FLAGS_AT_ONCE];
    uint16_t count;
};

constexpr std::array<SetFlags, 1 << FLAGS_AT_ONCE> MakeSetFlags() {
    std::array<SetFlags, 1 << FLAGS_AT_ONCE> cases = {};
    for (uint32_t flags = 0; flags < cases.size(); flags++) {
        for (uint32_t i = 0; i < FLAGS_AT_ONCE; i++) {
            if ((flags >> i & 1) != 0) cases[flags].ends[cases[flags].count++] = static_cast<uint16_t>(i + 1);
        }
    }
    return cases;
}
constexpr std::array<SetFlags, 1 << FLAGS_AT_ONCE> SET_FLAGS = MakeSetFlags();

// Distance of a source sample from what a decoder shows for it. The sum of reference and residual wraps.
uint32_t ShownError(uint8_t source, uint8_t moved, int value) {
    const int shown = static_cast<uint8_t>(moved + value);
    return static_cast<uint32_t>(source < shown ? shown - source : source - shown);
}

// How far the walk has come. Passes work on a copy, which can stay in registers.
struct LadderMarks {
    uint32_t bits;    // of the stream
    int count;        // events
    int shownCount;   // coefficients that have shown
    int waitingFront; // the first of those that wait
};

// Coefficients are numbered in walk order. What lies behind the last of anything may have been written to.
struct LadderWalk {
    LadderMarks marks;
    uint64_t reached; // coefficients as great as the plane's weight, or greater
    uint64_t shows;   // of these, those that show in this plane
    uint16_t costs[MAX_RESIDUE_STEPS + BLOCK_SAMPLES + FLAGS_AT_ONCE]; // by event: bits of the stream up to its end
    uint8_t numbers[BLOCK_SAMPLES + GROUP_SIZE]; // of those that have shown, in the order in which they did
    uint8_t shown[BLOCK_SAMPLES];                // magnitudes of those that had before this plane; then 0
    int shownBefore;                             // how many
    uint8_t waiting[WAITING_ROOM]; // numbers of single nodes, as a pass meets them; new ones join at the front
    int waitingEnd;
    uint8_t nodes[TREE_ROOM]; // of four and more, as a pass meets them
    int nodeCount;
    int planeEnds[8]; // by plane: the events up to its end
};

// Returns the bits that any magnitude has.
uint32_t TakeMagnitudes(uint8_t* magnitudes, const int8_t* residual) {
    uint8_t inPlace[BLOCK_SAMPLES];
    uint32_t all = 0;
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        inPlace[i] = static_cast<uint8_t>(residual[i] < 0 ? -residual[i] : residual[i]);
        all |= inPlace[i];
    }
    for (int n = 0; n < BLOCK_SAMPLES; n += GROUP_SIZE) { // a group is a square of the block
        const uint8_t* corner = inPlace + WALK_ORDER[n];
        std::memcpy(magnitudes + n, corner, 2);
        std::memcpy(magnitudes + n + 2, corner + BLOCK_SIDE, 2);
    }
    return all;
}

// A bit for each coefficient that has shown; an event if it is set.
inline void RefineShown(LadderWalk* walk, const uint8_t* magnitudes, uint32_t plane) {
    LadderMarks marks = walk->marks;
    for (int i = walk->shownBefore; i < marks.shownCount; i++) walk->shown[i] = magnitudes[walk->numbers[i]];
    walk->shownBefore = marks.shownCount;
    const uint64_t events = BitOfEach(walk->shown, plane);
    for (int first = 0; first < marks.shownCount; first += FLAGS_AT_ONCE) {
        const SetFlags& set = SET_FLAGS[events >> first & 0xff];
        const uint32_t bits = marks.bits + static_cast<uint32_t>(first);
        for (int k = 0; k < FLAGS_AT_ONCE; k++)
            walk->costs[marks.count + k] = static_cast<uint16_t>(bits + set.ends[k]);
        marks.count += set.count;
    }
    marks.bits += static_cast<uint32_t>(marks.shownCount);
    walk->marks = marks;
}

// A flag for each coefficient that waits; an event, and a sign, if it shows.
inline void PassWaiting(LadderWalk* walk) {
    LadderMarks marks = walk->marks;
    const uint64_t showing = walk->shows;
    const int end = walk->waitingEnd;
    int left = marks.waitingFront;
    for (int at = marks.waitingFront; at < end; at++) {
        const uint8_t n = walk->waiting[at];
        const auto shows = static_cast<uint32_t>(showing >> n & 1);
        marks.bits += 1 + shows;
        walk->costs[marks.count] = static_cast<uint16_t>(marks.bits);
        walk->numbers[marks.shownCount] = n;
        walk->waiting[left] = n;
        marks.count += static_cast<int>(shows);
        marks.shownCount += static_cast<int>(shows);
        left += static_cast<int>(1 - shows);
    }
    walk->waitingEnd = left;
    walk->marks = marks;
}

// The flag of a node at group `n`. The group follows if `opens`, all ones or all zeros, says so: a flag for each of its four; an
// event, and a sign, if it shows. Else it waits.
inline void PassGroup(LadderMarks* marks, LadderWalk* walk, int n, uint32_t opens) {
    const uint32_t shows = walk->shows >> n & (GROUP_CASES - 1);
    const GroupOrder& order = GROUP_ORDERS[shows];
    uint64_t ends; // four numbers of 16 bits
    std::memcpy(&ends, GROUP_ENDS[shows].data(), sizeof ends);
    ends += (marks->bits + 1) * uint64_t{0x0001000100010001};
    std::memcpy(walk->costs + marks->count, &ends, sizeof ends);
    StoreWord(walk->numbers + marks->shownCount, static_cast<uint32_t>(n) * EACH_PLACE + order.showing);
    StoreWord(walk->waiting + marks->waitingFront - GROUP_SIZE, static_cast<uint32_t>(n) * EACH_PLACE + order.waiting);
    marks->count += order.showCount;
    marks->shownCount += order.showCount;
    marks->waitingFront -= static_cast<int>((GROUP_SIZE - order.showCount) & opens);
    marks->bits += 1 + ((GROUP_SIZE + order.showCount) & opens);
}

// Nodes of four and more. One that becomes another in its place is looked at once more; those that join at the back are reached
// as well.
inline void PassTree(LadderWalk* walk) {
    LadderMarks marks = walk->marks;
    const uint64_t reached = walk->reached;
    int count = walk->nodeCount;
    int left = 0;
    for (int at = 0; at < count;) {
        const uint8_t node = walk->nodes[at];
        const int n = NodeCoefficient(node);
        const NodeKind kind = KindOfNode(node);
        if (kind == NODE_FOUR) {
            const auto opens = static_cast<uint32_t>((reached >> n & 15) != 0);
            PassGroup(&marks, walk, n, 0 - opens);
            walk->nodes[left] = node;
            left += static_cast<int>(1 - opens);
            at++;
            continue;
        }
        const uint64_t below = kind == NODE_TWENTY ? 0xfffff : 0xffff; // the values that it covers
        if ((reached >> n & below) == 0) {
            marks.bits++;
            walk->nodes[left++] = node;
            at++;
        } else if (kind == NODE_TWENTY) {
            PassGroup(&marks, walk, n, ~0u);
            walk->nodes[at] = Node(n + GROUP_SIZE, NODE_SIXTEEN);
        } else {
            marks.bits++;
            walk->nodes[at] = Node(n, NODE_FOUR);
            for (int i = 1; i < 4; i++) walk->nodes[count++] = Node(n + i * GROUP_SIZE, NODE_FOUR);
        }
    }
    walk->nodeCount = left;
    walk->marks = marks;
}

// Goes through the planes until there are as many events as a payload can name.
void WalkPlanes(LadderWalk* walk, const uint8_t* magnitudes, uint32_t planes) {
    walk->marks = {RESIDUE_PLANES_BITS, 0, 0, WAITING_ROOM};
    walk->reached = 0;
    std::memset(walk->shown, 0, sizeof walk->shown);
    walk->shownBefore = 0;
    walk->waitingEnd = WAITING_ROOM;
    std::memcpy(walk->nodes, RESIDUE_NODES, sizeof RESIDUE_NODES);
    walk->nodeCount = sizeof RESIDUE_NODES;
    for (uint32_t plane = planes; plane-- > 0;) {
        if (walk->marks.count < MAX_RESIDUE_STEPS) {
            // A coefficient has at most one event a plane, so there is room for a plane's.
            RefineShown(walk, magnitudes, plane);
            const uint64_t before = walk->reached;
            walk->reached |= BitOfEach(magnitudes, plane);
            walk->shows = walk->reached ^ before;
            PassWaiting(walk);
            PassTree(walk);
        }
        walk->planeEnds[plane] = std::min(walk->marks.count, MAX_RESIDUE_STEPS);
    }
}

} // namespace

int ResidueCandidates(BlockCandidate* list, const uint8_t* src, const int8_t* residual, const uint8_t* moved,
                      uint32_t motionBits) {
    uint32_t error = SadBlock(src, moved);
    if (error == 0) return 0;
    uint8_t magnitudes[BLOCK_SAMPLES];
    const uint32_t planes = BitLength(TakeMagnitudes(magnitudes, residual));
    // A residual that hasn't wrapped is the distance itself; one that has is less, and an event may lead away from the source.
    // So it may beside a -128, where all weights are negative. Both are rare.
    if (planes == 8 || error != SadColour(magnitudes, BLOCK_SAMPLES, 0))
        return ResidueCandidatesPlain(list, src, residual, moved, motionBits);
    LadderWalk walk;
    WalkPlanes(&walk, magnitudes, planes);
    // Each event brings what is shown nearer to the source by its plane's weight. The last one ends at the source itself.
    const uint32_t fixedCost = RESIDUE_HEAD_BITS * BIT + motionBits;
    int count = 0;
    for (uint32_t plane = planes; plane-- > 0;) {
        for (; count < walk.planeEnds[plane]; count++) {
            error -= 1u << plane;
            list[count] = {fixedCost + walk.costs[count] * BIT, error, static_cast<uint16_t>(count), MODE_RESIDUE};
        }
    }
    return count;
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
