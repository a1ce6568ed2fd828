// NodeList.h - the tree of nodes over the coefficients of a block, as the writers and the reader of bit strings walk it.
// A plane's pass goes from the front to the back. Nodes that join at the back are reached in the same pass, nodes that join
// at the front in the next one, the last to join first. An entry that has gone away is passed over and costs nothing.
#pragma once

#include <cstdint>

namespace vorn {

// What a node at coefficient number n covers, and what becomes of it when it opens.
enum NodeKind : uint8_t {
    NODE_TWENTY = 0,  // n to n + 19: the group n to n + 3 is sent; becomes a NODE_SIXTEEN at n + 4
    NODE_SIXTEEN = 1, // n to n + 15: becomes a NODE_FOUR at n; three more, at n + 4, n + 8, n + 12, join at the back
    NODE_FOUR = 2,    // n to n + 3: the group is sent; goes away
    NODE_ONE = 3,     // n: the coefficient is sent; goes away
};

constexpr int GROUP_SIZE = 4;
constexpr uint8_t GONE = 0; // no node: the first NODE_TWENTY stands at 4
constexpr uint8_t Node(int coefficient, NodeKind kind) {
    return static_cast<uint8_t>(coefficient * 4 + kind);
}
constexpr int NodeCoefficient(uint8_t node) {
    return node >> 2;
}
constexpr NodeKind KindOfNode(uint8_t node) {
    return static_cast<NodeKind>(node & 3);
}

// Each coefficient joins at the front at most once, and 9 nodes at the back, behind up to 6 to begin with.
constexpr int NODE_FRONT_ROOM = 64;
constexpr int NODE_ROOM = NODE_FRONT_ROOM + 16;

struct NodeList {
    int front; // first entry
    int back;  // behind the last entry
    uint8_t entries[NODE_ROOM];
};

template <int COUNT> void StartNodes(NodeList* list, const uint8_t (&nodes)[COUNT]) {
    list->front = NODE_FRONT_ROOM;
    list->back = NODE_FRONT_ROOM + COUNT;
    for (int i = 0; i < COUNT; i++) list->entries[NODE_FRONT_ROOM + i] = nodes[i];
}

inline void JoinAtFront(NodeList* list, int coefficient) {
    list->entries[--list->front] = Node(coefficient, NODE_ONE);
}

// Opens the node at entry *at and returns what it was. *at moves on if the node goes away, and stays if the entry, now
// another node, is to be looked at once more in this plane.
inline NodeKind OpenNode(NodeList* list, int* at) {
    const uint8_t node = list->entries[*at];
    const int n = NodeCoefficient(node);
    const NodeKind kind = KindOfNode(node);
    switch (kind) {
    case NODE_TWENTY:
        list->entries[*at] = Node(n + GROUP_SIZE, NODE_SIXTEEN);
        break;
    case NODE_SIXTEEN:
        list->entries[*at] = Node(n, NODE_FOUR);
        for (int i = 1; i < 4; i++) list->entries[list->back++] = Node(n + i * GROUP_SIZE, NODE_FOUR);
        break;
    case NODE_FOUR:
    case NODE_ONE:
        list->entries[(*at)++] = GONE;
        break;
    }
    return kind;
}

// DCT strings leave out coefficient 0, which travels in a bundle.
constexpr uint8_t DCT_NODES[] = {Node(4, NODE_TWENTY), Node(24, NODE_TWENTY), Node(44, NODE_TWENTY),
                                 Node(1, NODE_ONE),    Node(2, NODE_ONE),     Node(3, NODE_ONE)};
constexpr uint8_t RESIDUE_NODES[] = {Node(4, NODE_TWENTY), Node(24, NODE_TWENTY), Node(44, NODE_TWENTY),
                                     Node(0, NODE_FOUR)};

} // namespace vorn
