// ResidueWriter.cpp - the strings of residue blocks: written once, cut off anywhere.
// Head: the number of planes less one in 3 bits. Each plane of weight w then has one bit, that of weight w, for each value
// that has already shown, in the order in which they did, and after that the node pass; a value that shows sends its sign.
//
// Writing stops with the plane of the last event that is kept; what lies behind it is dropped.
#include <array>
#include <cstring>

#include "bitstream/CoefficientCoder.h"
#include "bitstream/NodeGroups.h"

namespace vorn {

namespace {

constexpr uint32_t EIGHT_PLANES = 8;

// What is sent for a group that opens, by those of the four that show and by the signs of the four: a bit for each, and one for
// each sign.
constexpr std::array<std::array<uint8_t, GROUP_CASES>, GROUP_CASES> MakeGroupFlags() {
    std::array<std::array<uint8_t, GROUP_CASES>, GROUP_CASES> flags = {};
    for (uint32_t shows = 0; shows < GROUP_CASES; shows++) {
        for (uint32_t signs = 0; signs < GROUP_CASES; signs++) {
            uint32_t sent = 0, bits = 0;
            for (uint32_t i = 0; i < GROUP_SIZE; i++) {
                const bool one = (shows >> i & 1) != 0;
                sent |= (one ? (signs >> i & 1) << 1 : 1) << bits;
                bits += one ? 2 : 1;
            }
            flags[shows][signs] = static_cast<uint8_t>(sent);
        }
    }
    return flags;
}
constexpr std::array<std::array<uint8_t, GROUP_CASES>, GROUP_CASES> GROUP_FLAGS = MakeGroupFlags();

// A residual in walk order.
struct WalkedResidual {
    uint8_t magnitudes[BLOCK_SAMPLES];
    uint64_t negative; // bit n
    uint32_t planes;   // greatest bit length
};

// Where the walk stands.
struct ResidueWalk {
    uint64_t reached;                   // values as great as the plane's weight, or greater
    uint64_t shows;                     // of these, those that show in this plane
    uint32_t shown;                     // values that have shown
    uint8_t numbers[BLOCK_SAMPLES + 4]; // theirs, in the order in which they did
    uint16_t ends[BLOCK_SAMPLES + 4];   // where in the stream, bits, their signs end
    uint8_t waiting[WAITING_ROOM];      // numbers of single nodes in the order of a pass; new ones join at the front
    int waitingFront, waitingEnd;
    uint8_t nodes[TREE_ROOM]; // of four and more, in the order of a pass
    int nodeCount;
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
    uint8_t values[BLOCK_SAMPLES];
    for (int n = 0; n < BLOCK_SAMPLES; n += GROUP_SIZE) { // a group is a square of the block
        const int8_t* corner = residual + WALK_ORDER[n];
        std::memcpy(values + n, corner, 2);
        std::memcpy(values + n + 2, corner + BLOCK_SIDE, 2);
    }
    uint32_t all = 0;
    for (int n = 0; n < BLOCK_SAMPLES; n++) {
        const auto value = static_cast<int8_t>(values[n]);
        walked->magnitudes[n] = static_cast<uint8_t>(value < 0 ? -value : value);
    }
    for (int n = 0; n < BLOCK_SAMPLES; n++) all |= walked->magnitudes[n];
    walked->negative = BitOfEach(values, 7);
    walked->planes = BitLength(all);
}

void StartWalk(ResidueWalk* walk) {
    static_assert(sizeof RESIDUE_NODES <= TREE_ROOM);
    walk->reached = 0;
    walk->shown = 0;
    walk->waitingFront = walk->waitingEnd = WAITING_ROOM;
    std::memcpy(walk->nodes, RESIDUE_NODES, sizeof RESIDUE_NODES);
    walk->nodeCount = sizeof RESIDUE_NODES;
}

// The flag of a node at group `n`, and the group if `opens`, all ones or all zeros, says so.
inline void WriteGroup(BitWriter* writer, ResidueWalk* walk, uint64_t negative, int n, uint32_t opens) {
    const uint32_t shows = walk->shows >> n & (GROUP_CASES - 1);
    const GroupOrder& order = GROUP_ORDERS[shows];
    uint64_t ends; // four numbers of 16 bits
    std::memcpy(&ends, GROUP_ENDS[shows].data(), sizeof ends);
    ends += (BitsWritten(writer) + 1) * uint64_t{0x0001000100010001};
    std::memcpy(walk->ends + walk->shown, &ends, sizeof ends);
    StoreWord(walk->numbers + walk->shown, static_cast<uint32_t>(n) * EACH_PLACE + order.showing);
    StoreWord(walk->waiting + walk->waitingFront - GROUP_SIZE, static_cast<uint32_t>(n) * EACH_PLACE + order.waiting);
    walk->shown += order.showCount;
    walk->waitingFront -= static_cast<int>((GROUP_SIZE - order.showCount) & opens);
    WriteClean(writer, (uint32_t{GROUP_FLAGS[shows][negative >> n & (GROUP_CASES - 1)]} << 1 | 1) & opens,
               1 + ((GROUP_SIZE + order.showCount) & opens));
}

// Single nodes: a flag each, and a sign behind those that show. The others stay, in their order.
void WriteWaiting(BitWriter* writer, ResidueWalk* walk, uint64_t negative) {
    constexpr int MOST = 16; // that 32 bits hold
    int left = walk->waitingFront;
    for (int at = walk->waitingFront; at < walk->waitingEnd;) {
        const uint32_t begin = BitsWritten(writer);
        uint32_t flags = 0;
        uint32_t bits = 0;
        for (const int stop = at + MOST < walk->waitingEnd ? at + MOST : walk->waitingEnd; at < stop; at++) {
            const uint8_t n = walk->waiting[at];
            const auto shows = static_cast<uint32_t>(walk->shows >> n & 1);
            flags |= (shows | (static_cast<uint32_t>(negative >> n) & shows) << 1) << bits;
            bits += 1 + shows;
            walk->numbers[walk->shown] = n;
            walk->ends[walk->shown] = static_cast<uint16_t>(begin + bits);
            walk->shown += shows;
            walk->waiting[left] = n;
            left += static_cast<int>(1 - shows);
        }
        WriteClean(writer, flags, bits);
    }
    walk->waitingEnd = left;
}

// Nodes of four and more. One that becomes another in its place is looked at once more; those that join at the back are reached
// as well.
void WriteTree(BitWriter* writer, ResidueWalk* walk, uint64_t negative) {
    int left = 0;
    for (int at = 0; at < walk->nodeCount;) {
        const uint8_t node = walk->nodes[at];
        const int n = NodeCoefficient(node);
        const NodeKind kind = KindOfNode(node);
        if (kind == NODE_FOUR) {
            const auto opens = static_cast<uint32_t>((walk->reached >> n & 15) != 0);
            WriteGroup(writer, walk, negative, n, 0 - opens);
            walk->nodes[left] = node;
            left += static_cast<int>(1 - opens);
            at++;
            continue;
        }
        const uint64_t below = kind == NODE_TWENTY ? 0xfffff : 0xffff; // the values that it covers
        if ((walk->reached >> n & below) == 0) {
            WriteClean(writer, 0, 1);
            walk->nodes[left++] = node;
            at++;
        } else if (kind == NODE_TWENTY) {
            WriteGroup(writer, walk, negative, n, ~0u);
            walk->nodes[at] = Node(n + GROUP_SIZE, NODE_SIXTEEN);
        } else {
            WriteClean(writer, 1, 1);
            walk->nodes[at] = Node(n, NODE_FOUR);
            for (int i = 1; i < 4; i++) walk->nodes[walk->nodeCount++] = Node(n + i * GROUP_SIZE, NODE_FOUR);
        }
    }
    walk->nodeCount = left;
}

// The plane's bit of each value that has shown, up to event number `left` if it is among them.
uint32_t WriteRefinements(BitWriter* writer, const ResidueWalk& walk, const WalkedResidual& residual, ResidueCut* cut,
                          uint64_t left) {
    uint8_t magnitudes[BLOCK_SAMPLES] = {};
    for (uint32_t i = 0; i < walk.shown; i++) magnitudes[i] = residual.magnitudes[walk.numbers[i]];
    uint32_t bits = walk.shown;
    cut->refined = BitOfEach(magnitudes, cut->plane - 1);
    const uint32_t ones = CountOnes(cut->refined);
    if (ones >= left) {
        uint64_t behind = cut->refined;
        for (; left > 0; left--) behind &= behind - 1;
        cut->refined ^= behind;
        bits = 64 - static_cast<uint32_t>(__builtin_clzll(cut->refined));
    }
    WriteLong(writer, cut->refined, bits);
    return ones;
}

// Writes the stream down to the plane with event number `limit` + 1 in it, or all of it. An event is a refinement bit of 1 or
// a value that shows.
ResidueCut WriteEvents(BitWriter* writer, ResidueWalk* walk, const WalkedResidual& residual, uint32_t limit) {
    BitWriter own = *writer; // nothing else points to it, so it can stay in registers
    WriteClean(&own, residual.planes - 1, RESIDUE_PLANES_BITS);
    StartWalk(walk);
    ResidueCut cut = {};
    uint64_t left = uint64_t{limit} + 1; // events
    for (cut.plane = residual.planes; cut.plane > 0; cut.plane--) {
        cut.firstShown = cut.endShown = walk->shown;
        const uint32_t ones = WriteRefinements(&own, *walk, residual, &cut, left);
        cut.bits = BitsWritten(&own);
        if (ones >= left) break;
        left -= ones;
        const uint64_t before = walk->reached;
        walk->reached |= BitOfEach(residual.magnitudes, cut.plane - 1);
        walk->shows = walk->reached ^ before;
        WriteWaiting(&own, walk, residual.negative);
        WriteTree(&own, walk, residual.negative);
        const uint32_t events = walk->shown - cut.firstShown;
        if (events >= left) {
            cut.endShown = cut.firstShown + static_cast<uint32_t>(left);
            cut.bits = walk->ends[cut.endShown - 1];
            break;
        }
        left -= events;
        cut.bits = BitsWritten(&own);
    }
    *writer = own;
    return cut;
}

// What a reader of the stream up to the cut sees: the planes above it, and its events.
void ShowEvents(int8_t* shown, const ResidueWalk& walk, uint32_t planes, const ResidueCut& cut,
                const int8_t* residual) {
    uint8_t magnitudes[BLOCK_SAMPLES]; // block order
    const auto whole = static_cast<uint8_t>(~BitMask(cut.plane));
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        magnitudes[i] =
            static_cast<uint8_t>(static_cast<uint8_t>(residual[i] < 0 ? -residual[i] : residual[i]) & whole);
    }
    if (cut.plane > 0) {
        const auto weight = static_cast<uint8_t>(1u << (cut.plane - 1));
        const auto show = [&](uint8_t number) { magnitudes[WALK_ORDER[number]] |= weight; };
        for (uint64_t left = cut.refined; left != 0; left &= left - 1) show(walk.numbers[__builtin_ctzll(left)]);
        for (uint32_t i = cut.firstShown; i < cut.endShown; i++) show(walk.numbers[i]);
    }
    // In a stream of eight planes the weights of a reader are negative, -128, -64 and so on: signs are turned, and refinements
    // lead back towards 0.
    const bool turned = planes == EIGHT_PLANES;
    for (int i = 0; turned && i < BLOCK_SAMPLES; i++) {
        const uint32_t length = BitLength(magnitudes[i]);
        if (length > 0) magnitudes[i] = static_cast<uint8_t>((1u << length) - magnitudes[i]);
    }
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        shown[i] = Wrapped((residual[i] < 0) != turned ? -magnitudes[i] : magnitudes[i]);
    }
}

} // namespace

bool WriteResidue(BitWriter* writer, const int8_t* residual) {
    WalkedResidual walked;
    WalkResidual(&walked, residual);
    if (walked.planes == 0) return false;
    ResidueWalk walk;
    WriteEvents(writer, &walk, walked, UINT32_MAX);
    return true;
}

void WriteResiduePayload(BlockDataList* list, const int8_t* residual, uint32_t truncation, int8_t* shown) {
    uint8_t room[PAYLOAD_ROOM_BYTES];
    BitWriter writer;
    StartWriter(&writer, room, sizeof room);
    WriteBits(&writer, truncation, RESIDUE_HEAD_BITS);
    WalkedResidual walked;
    WalkResidual(&walked, residual);
    ResidueWalk walk;
    ResidueCut cut = {};
    if (walked.planes > 0) {
        cut = WriteEvents(&writer, &walk, walked, truncation);
    } else { // one plane of four 0 flags
        WriteClean(&writer, 0, RESIDUE_PLANES_BITS + sizeof RESIDUE_NODES);
        cut.bits = BitsWritten(&writer);
    }
    ShowEvents(shown, walk, walked.planes, cut, residual);
    PadToWord(&writer);
    AppendBitString(list, room, cut.bits);
}

} // namespace vorn
