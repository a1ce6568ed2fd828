// NodeWriter.h - what the writers of DCT and residue strings share: a block in walk order, and the pass of one plane.
//
// Idea: of the flags of a plane all are 0 but those of the nodes that open. So the list of nodes is held as bit masks over its
// places: the nodes that still live, and for each plane those that open in it. A pass goes from one opening node to the next
// and sends the 0 flags in between by their number.
#pragma once

#include <cstdint>

#include "bitstream/BitWriter.h"
#include "bitstream/NodeList.h"
#include "format/BlockFormat.h"

namespace vorn {

constexpr int GROUPS = BLOCK_SAMPLES / GROUP_SIZE;
constexpr int MAX_PLANES = 16;

// A block in walk order. Coefficient n shows in plane length[n], counted from 1 at the bottom, and is then sent: sent[n].
struct WalkedBlock {
    uint8_t length[BLOCK_SAMPLES]; // bits of its magnitude, 0 if it is 0
    uint16_t sent[BLOCK_SAMPLES];
    uint32_t groups[GROUPS]; // bits that any magnitude of the four has
};

// All coefficients 0.
inline void StartWalk(WalkedBlock* block) {
    for (uint8_t& length : block->length) length = 0;
    for (uint16_t& sent : block->sent) sent = 0;
    for (uint32_t& group : block->groups) group = 0;
}

// The greatest bit length, 0 if all are 0.
inline uint32_t LongestOf(const WalkedBlock& block) {
    uint32_t bits = 0;
    for (const uint32_t group : block.groups) bits |= group;
    return BitLength(bits);
}

// The greatest bit length of what a node covers: the plane in which it opens, 0 if it never does.
inline uint32_t OpeningPlane(const WalkedBlock& block, uint8_t node) {
    const int n = NodeCoefficient(node);
    const uint32_t* groups = block.groups + n / GROUP_SIZE;
    switch (KindOfNode(node)) {
    case NODE_TWENTY:
        return BitLength(groups[0] | groups[1] | groups[2] | groups[3] | groups[4]);
    case NODE_SIXTEEN:
        return BitLength(groups[0] | groups[1] | groups[2] | groups[3]);
    case NODE_FOUR:
        return BitLength(groups[0]);
    default:
        return block.length[n];
    }
}

// The list of nodes. Only single coefficients join at its front: place 63 first, then 62 and so on; a pass begins at the lowest
// place. What the list starts with and joins at its back has places of its own behind them, from 0 up.
struct NodePlaces {
    int frontPlace; // lowest in use
    int backCount;
    uint64_t frontLiving;
    uint32_t backLiving;
    uint64_t frontOpening[MAX_PLANES + 1]; // by plane; entry 0: those that never open
    uint32_t backOpening[MAX_PLANES + 1];
    uint8_t coefficientAt[NODE_FRONT_ROOM];
    uint8_t nodeAt[NODE_ROOM - NODE_FRONT_ROOM];
};

// Puts a node in a place of the back part. What stood there has gone.
inline void PlaceNode(NodePlaces* places, const WalkedBlock& block, int place, uint8_t node) {
    places->nodeAt[place] = node;
    places->backLiving |= 1u << place;
    places->backOpening[OpeningPlane(block, node)] |= 1u << place;
}

inline void JoinAtBack(NodePlaces* places, const WalkedBlock& block, uint8_t node) {
    PlaceNode(places, block, places->backCount++, node);
}

template <int COUNT>
void StartPlaces(NodePlaces* places, const WalkedBlock& block, uint32_t planes, const uint8_t (&nodes)[COUNT]) {
    places->frontPlace = NODE_FRONT_ROOM;
    places->backCount = 0;
    places->frontLiving = 0;
    places->backLiving = 0;
    for (uint32_t plane = 0; plane <= planes; plane++) {
        places->frontOpening[plane] = 0;
        places->backOpening[plane] = 0;
    }
    for (const uint8_t node : nodes) JoinAtBack(places, block, node);
}

inline uint32_t CountOnes(uint64_t mask) {
    mask -= mask >> 1 & 0x5555555555555555u;
    mask = (mask & 0x3333333333333333u) + (mask >> 2 & 0x3333333333333333u);
    mask = (mask + (mask >> 4)) & 0x0f0f0f0f0f0f0f0fu;
    return static_cast<uint32_t>(mask * 0x0101010101010101u >> 56);
}

inline void WriteZeros(BitWriter* writer, uint32_t count) {
    for (; count > 32; count -= 32) WriteClean(writer, 0, 32);
    WriteClean(writer, 0, count);
}

// A 0 for each node passed over, the 1 of the one that opens, and what is sent with it.
inline void WriteOpening(BitWriter* writer, uint64_t passed, uint32_t sent, uint32_t sentBits) {
    const uint32_t zeros = CountOnes(passed);
    const uint32_t bits = zeros + 1 + sentBits;
    if (bits <= 64) {
        WriteLong(writer, (uint64_t{sent} << 1 | 1) << zeros, bits);
    } else {
        WriteZeros(writer, zeros);
        WriteClean(writer, sent << 1 | 1, 1 + sentBits);
    }
}

// The four coefficients of a group: flags are 0 where one shows, the others join at the front. Which of them show can't be
// foreseen, so there is no branch on it. At least one does.
template <class Note>
[[gnu::always_inline]] inline void WriteGroup(BitWriter* writer, NodePlaces* places, const WalkedBlock& block, int n,
                                              uint32_t plane, uint32_t sentBits, Note note) {
    uint64_t flags = 0;
    uint32_t bits = 0;
    int place = places->frontPlace - 1; // of the next that joins
    uint64_t joined = 0;
    for (int i = n; i < n + GROUP_SIZE; i++) {
        const uint32_t length = block.length[i];
        const uint32_t shows = length == plane;
        flags |= uint64_t{(uint32_t{block.sent[i]} << 1 & (0 - shows)) | (1 - shows)} << bits;
        bits += 1 + (sentBits & (0 - shows));
        note(i, shows, bits);
        const uint64_t joining = uint64_t{1 - shows} << place;
        places->coefficientAt[place] = static_cast<uint8_t>(i);
        places->frontOpening[length] |= joining;
        joined |= joining;
        place -= static_cast<int>(1 - shows);
    }
    places->frontPlace = place + 1;
    places->frontLiving |= joined;
    WriteLong(writer, flags, bits);
}

template <class Note>
[[gnu::always_inline]] inline void WriteFrontPass(BitWriter* writer, NodePlaces* places, const WalkedBlock& block,
                                                  uint32_t plane, uint32_t sentBits, Note note) {
    uint64_t ahead = places->frontLiving; // places that haven't been passed
    uint64_t opening = places->frontOpening[plane];
    places->frontLiving &= ~opening;
    for (; opening != 0; opening &= opening - 1) {
        const int place = __builtin_ctzll(opening);
        const uint64_t below = (uint64_t{1} << place) - 1;
        const int n = places->coefficientAt[place];
        WriteOpening(writer, ahead & below, block.sent[n], sentBits);
        ahead &= ~(below << 1 | 1);
        note(n, 1, 0);
    }
    WriteZeros(writer, CountOnes(ahead));
}

// A node that becomes another one in its place is looked at once more; what joins at the back is reached as well.
template <class Note>
[[gnu::always_inline]] inline void WriteBackPass(BitWriter* writer, NodePlaces* places, const WalkedBlock& block,
                                                 uint32_t plane, uint32_t sentBits, Note note) {
    uint32_t ahead = ~0u; // places that haven't been passed
    while ((places->backOpening[plane] & ahead) != 0) {
        const int place = __builtin_ctz(places->backOpening[plane] & ahead);
        const uint32_t below = (1u << place) - 1;
        const uint8_t node = places->nodeAt[place];
        const int n = NodeCoefficient(node);
        const NodeKind kind = KindOfNode(node);
        const bool single = kind == NODE_ONE;
        WriteOpening(writer, places->backLiving & ahead & below, single ? block.sent[n] : 0, single ? sentBits : 0);
        ahead = ~below;
        places->backLiving &= ~(1u << place);
        places->backOpening[plane] &= ~(1u << place);
        if (kind == NODE_TWENTY) PlaceNode(places, block, place, Node(n + GROUP_SIZE, NODE_SIXTEEN));
        if (kind == NODE_SIXTEEN) {
            PlaceNode(places, block, place, Node(n, NODE_FOUR));
            for (int i = 1; i < 4; i++) JoinAtBack(places, block, Node(n + i * GROUP_SIZE, NODE_FOUR));
        } else if (single) {
            note(n, 1, 0);
        } else {
            WriteGroup(writer, places, block, n, plane, sentBits, note);
        }
    }
    WriteZeros(writer, CountOnes(places->backLiving & ahead));
}

// The node pass of plane `plane`. Flags of nodes are 1 where the greatest value shows; flags within a group are 0 where a value
// shows. A coefficient that shows is sent in `sentBits` bits. Note(n, shows, bits) is told of each one that is looked at, if it
// shows, and how many bits behind the writer's own the end of it lies.
template <class Note>
[[gnu::always_inline]] inline void WriteNodePass(BitWriter* writer, NodePlaces* places, const WalkedBlock& block,
                                                 uint32_t plane, uint32_t sentBits, Note note) {
    WriteFrontPass(writer, places, block, plane, sentBits, note);
    WriteBackPass(writer, places, block, plane, sentBits, note);
}

} // namespace vorn
