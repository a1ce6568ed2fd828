// NodeWriter.h - what the writers of DCT and residue strings share: a block in walk order, and the pass of one plane.
#pragma once

#include <cstdint>

#include "bitstream/BitWriter.h"
#include "bitstream/NodeList.h"
#include "format/BlockFormat.h"

namespace vorn {

// A block in walk order.
struct WalkedBlock {
    uint32_t magnitude[BLOCK_SAMPLES];
    bool negative[BLOCK_SAMPLES];
    uint32_t longest;      // greatest bit length, 0 if all are 0
    uint8_t lengthOf[256]; // by node: greatest bit length of what it covers; set for the nodes that can arise
};

// Fills longest and lengthOf from the magnitudes.
inline void MeasureNodes(WalkedBlock* block) {
    uint32_t groups[BLOCK_SAMPLES / GROUP_SIZE]; // bits that any of the four has
    uint32_t all = 0;
    for (int n = 0; n < BLOCK_SAMPLES; n += GROUP_SIZE) {
        uint32_t bits = 0;
        for (int i = 0; i < GROUP_SIZE; i++) {
            block->lengthOf[Node(n + i, NODE_ONE)] = static_cast<uint8_t>(BitLength(block->magnitude[n + i]));
            bits |= block->magnitude[n + i];
        }
        block->lengthOf[Node(n, NODE_FOUR)] = static_cast<uint8_t>(BitLength(bits));
        groups[n / GROUP_SIZE] = bits;
        all |= bits;
    }
    for (int group = 1; group < BLOCK_SAMPLES / GROUP_SIZE; group += 5) {
        const uint32_t bits = groups[group + 1] | groups[group + 2] | groups[group + 3] | groups[group + 4];
        block->lengthOf[Node((group + 1) * GROUP_SIZE, NODE_SIXTEEN)] = static_cast<uint8_t>(BitLength(bits));
        block->lengthOf[Node(group * GROUP_SIZE, NODE_TWENTY)] = static_cast<uint8_t>(BitLength(bits | groups[group]));
    }
    block->longest = BitLength(all);
}

// The node pass of plane `plane`, counted from 1 at the bottom. Send(n) writes coefficient n, which shows in this plane,
// without its flag. Flags of nodes are 1 where the greatest value shows; flags within a group are 0 where a value shows.
template <class Sender>
void WriteNodePass(BitWriter* writer, NodeList* nodes, const WalkedBlock& block, uint32_t plane, Sender send) {
    for (int at = nodes->front; at < nodes->back;) {
        const uint8_t node = nodes->entries[at];
        if (node == GONE) {
            at++;
            continue;
        }
        const bool opens = block.lengthOf[node] == plane;
        WriteBits(writer, opens, 1);
        if (!opens) {
            at++;
            continue;
        }
        const int n = NodeCoefficient(node);
        const NodeKind kind = OpenNode(nodes, &at);
        if (kind == NODE_ONE) send(n);
        if (kind != NODE_TWENTY && kind != NODE_FOUR) continue;
        for (int i = n; i < n + GROUP_SIZE; i++) {
            const bool shows = block.lengthOf[Node(i, NODE_ONE)] == plane;
            WriteBits(writer, !shows, 1);
            if (shows)
                send(i);
            else
                JoinAtFront(nodes, i);
        }
    }
}

} // namespace vorn
