// CoefficientCoder.cpp - the strings of DCT blocks: how they are written, and what they would cost.
// Head: the greatest bit length in 4 bits, 0 for none. Then plane by plane the node pass; a coefficient that shows in plane p
// is sent whole: the p - 1 low bits of its magnitude and a sign bit, 1 for negative.
#include "bitstream/CoefficientCoder.h"

#include <cstring>

#include "bitstream/NodeGroups.h"

namespace vorn {

namespace {

constexpr uint32_t DCT_HEAD_BITS = 4;

uint32_t Magnitude(int16_t value) {
    return static_cast<uint32_t>(value < 0 ? -value : value);
}

// A block in walk order. Number 0 travels elsewhere and is 0 here.
struct WalkedBlock {
    uint16_t magnitudes[BLOCK_SAMPLES];
    uint64_t negative; // bit n
    uint32_t planes;   // greatest bit length
};

// Where the walk stands.
struct CoefficientWalk {
    uint32_t plane;                // 1 at the bottom
    uint64_t reached;              // values of as many bits, or more
    uint64_t shows;                // of these, those that show in this plane
    uint8_t waiting[WAITING_ROOM]; // numbers of single nodes in the order of a pass; new ones join at the front
    int waitingFront, waitingEnd;
    uint8_t nodes[TREE_ROOM]; // the others, in the order of a pass
    int nodeCount;
};

// Loops without a branch, so that compilers do them for many values at once.
void WalkCoefficients(WalkedBlock* block, const int16_t* coefficients) {
    int16_t values[BLOCK_SAMPLES];
    for (int n = 0; n < BLOCK_SAMPLES; n += GROUP_SIZE) { // a group is a square of the block
        const int16_t* corner = coefficients + WALK_ORDER[n];
        std::memcpy(values + n, corner, 2 * sizeof *corner);
        std::memcpy(values + n + 2, corner + BLOCK_SIDE, 2 * sizeof *corner);
    }
    values[0] = 0;
    uint8_t signs[BLOCK_SAMPLES];
    uint16_t all = 0;
    for (int n = 0; n < BLOCK_SAMPLES; n++) {
        block->magnitudes[n] = static_cast<uint16_t>(values[n] < 0 ? -values[n] : values[n]);
        signs[n] = values[n] < 0;
    }
    for (int n = 0; n < BLOCK_SAMPLES; n++) all = static_cast<uint16_t>(all | block->magnitudes[n]);
    block->negative = BitOfEach(signs, 0);
    block->planes = BitLength(all);
}

void StartWalk(CoefficientWalk* walk) {
    walk->reached = 0;
    walk->waitingFront = walk->waitingEnd = WAITING_ROOM;
    std::memcpy(walk->nodes, DCT_NODES, sizeof DCT_NODES);
    walk->nodeCount = sizeof DCT_NODES;
}

void StartPlane(CoefficientWalk* walk, const WalkedBlock& block, uint32_t plane) {
    const auto least = static_cast<uint16_t>(1u << (plane - 1));
    uint8_t marks[BLOCK_SAMPLES];
    for (int n = 0; n < BLOCK_SAMPLES; n++) marks[n] = block.magnitudes[n] >= least;
    const uint64_t before = walk->reached;
    walk->plane = plane;
    walk->reached = BitOfEach(marks, 0);
    walk->shows = walk->reached ^ before;
}

// Bits to be appended.
struct Piece {
    uint64_t value;
    uint32_t bits;
};

// What follows the flag of a value that shows: the bits below its highest one, and its sign.
inline uint64_t SentOf(const CoefficientWalk& walk, const WalkedBlock& block, int n) {
    const uint32_t top = walk.plane - 1;
    return (block.magnitudes[n] & BitMask(top)) | (block.negative >> n & 1) << top;
}

// A single node: its flag, and the value if it shows.
inline Piece PieceOf(const CoefficientWalk& walk, const WalkedBlock& block, int n) {
    const uint64_t shows = walk.shows >> n & 1;
    return {shows | (SentOf(walk, block, n) << 1 & (0 - shows)), 1 + (walk.plane & static_cast<uint32_t>(0 - shows))};
}

// The flag of a node that opens at group `n`, and the group. In a group flags are 0 where a value shows.
inline void WriteGroup(BitWriter* writer, CoefficientWalk* walk, const WalkedBlock& block, int n) {
    const GroupOrder& order = GROUP_ORDERS[walk->shows >> n & (GROUP_CASES - 1)];
    Piece group = {0, 0};
    for (int i = n; i < n + GROUP_SIZE; i++) {
        const Piece piece = PieceOf(*walk, block, i);
        group.value |= (piece.value ^ 1) << group.bits;
        group.bits += piece.bits;
    }
    StoreWord(walk->waiting + walk->waitingFront - GROUP_SIZE, static_cast<uint32_t>(n) * EACH_PLACE + order.waiting);
    walk->waitingFront -= static_cast<int>(GROUP_SIZE - order.showCount);
    WriteClean(writer, 1, 1);
    WriteLong(writer, group.value, group.bits);
}

// The nodes that wait: those that don't show stay, in their order.
void WriteWaiting(BitWriter* writer, CoefficientWalk* walk, const WalkedBlock& block) {
    constexpr uint32_t FULL = 48; // bits behind which another piece might find no room
    Piece pieces = {0, 0};
    int left = walk->waitingFront;
    for (int at = walk->waitingFront; at < walk->waitingEnd; at++) {
        const uint8_t n = walk->waiting[at];
        const Piece piece = PieceOf(*walk, block, n);
        pieces.value |= piece.value << pieces.bits;
        pieces.bits += piece.bits;
        walk->waiting[left] = n;
        left += static_cast<int>(1 - (piece.value & 1));
        if (pieces.bits <= FULL) continue;
        WriteLong(writer, pieces.value, pieces.bits);
        pieces = {0, 0};
    }
    WriteLong(writer, pieces.value, pieces.bits);
    walk->waitingEnd = left;
}

// All other nodes. One that becomes another in its place is looked at once more; those that join at the back are reached as well.
void WriteTree(BitWriter* writer, CoefficientWalk* walk, const WalkedBlock& block) {
    int left = 0;
    for (int at = 0; at < walk->nodeCount;) {
        const uint8_t node = walk->nodes[at];
        const int n = NodeCoefficient(node);
        const NodeKind kind = KindOfNode(node);
        if (kind == NODE_ONE) {
            const Piece piece = PieceOf(*walk, block, n);
            WriteClean(writer, static_cast<uint32_t>(piece.value), piece.bits);
            walk->nodes[left] = node;
            left += static_cast<int>(1 - (piece.value & 1));
            at++;
            continue;
        }
        const uint64_t below = kind == NODE_TWENTY ? 0xfffff : kind == NODE_SIXTEEN ? 0xffff : 15; // what it covers
        if ((walk->reached >> n & below) == 0) {
            WriteClean(writer, 0, 1);
            walk->nodes[left++] = node;
            at++;
        } else if (kind != NODE_SIXTEEN) {
            WriteGroup(writer, walk, block, n);
            if (kind == NODE_FOUR)
                at++;
            else
                walk->nodes[at] = Node(n + GROUP_SIZE, NODE_SIXTEEN);
        } else {
            WriteClean(writer, 1, 1);
            walk->nodes[at] = Node(n, NODE_FOUR);
            for (int i = 1; i < 4; i++) walk->nodes[walk->nodeCount++] = Node(n + i * GROUP_SIZE, NODE_FOUR);
        }
    }
    walk->nodeCount = left;
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
    BitWriter own = *writer; // nothing else points to it, so it can stay in registers
    WriteBits(&own, block.planes, DCT_HEAD_BITS);
    CoefficientWalk walk;
    StartWalk(&walk);
    for (uint32_t plane = block.planes; plane > 0; plane--) {
        StartPlane(&walk, block, plane);
        WriteWaiting(&own, &walk, block);
        WriteTree(&own, &walk, block);
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
