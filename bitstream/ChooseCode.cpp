// ChooseCode.cpp - which of the fixed codes does an alphabet get, and which symbol gets which of its entries?
//
// A table in the stream is the tree in 4 bits, then, for all trees but the flat tree 0, the order in which the symbols take
// its entries, in one of two forms:
//   1, count - 1 in 3 bits, 4 bits a symbol    the listed symbols come first, all others follow in rising order
//   0, k in 2 bits, a bit a comparison         the symbols sorted by the first k + 1 passes of a merge sort
// Both are tried for every tree, at every length, and the cheapest of all wins. Where costs are equal the lower tree, the
// merged form and the shorter description win, so that the choice is the same everywhere.
#include <cstring>

#include "bitstream/Bundle.h"
#include "format/CodeTrees.h"

namespace vorn {

namespace {

constexpr int COUNT = static_cast<int>(SYMBOLS);
constexpr int MERGE_PASSES = 4;
constexpr int MAX_LISTED = 8;

// One tree with the best description of its symbol order.
struct CodePlan {
    uint64_t cost; // bits of the order's description, its form bit left out, and of all symbols
    bool listed;
    int depth;            // merged form: passes sent, less one. Listed form: symbols sent, less one
    uint64_t comparisons; // merged form: the bits of the comparisons, first one lowest
    uint32_t comparisonBits;
    uint8_t symbolAt[SYMBOLS]; // symbol of each entry
};

// What the symbols cost when they take the entries in this order.
uint64_t SymbolBits(const uint8_t* lengths, const uint32_t* counts, const uint8_t* symbolAt) {
    uint64_t bits = 0;
    for (int i = 0; i < COUNT; i++) bits += uint64_t{counts[symbolAt[i]]} * lengths[i];
    return bits;
}

// Symbols by falling count, equal ones by rising number.
void SortByCount(uint8_t* order, const uint32_t* counts) {
    for (int symbol = 0; symbol < COUNT; symbol++) {
        int at = symbol;
        for (; at > 0 && counts[order[at - 1]] < counts[symbol]; at--) order[at] = order[at - 1];
        order[at] = static_cast<uint8_t>(symbol);
    }
}

struct ComparisonBits {
    uint64_t bits;
    uint32_t count;
};

// Merges the two neighbouring runs of `run` symbols at `in` into `out`, the shorter wanted length first. At equal lengths the
// run with fewer symbols left goes first, the left one if they are level.
void MergeRuns(uint8_t* out, const uint8_t* in, int run, const uint8_t* wanted, ComparisonBits* noted) {
    const uint8_t* left = in;
    const uint8_t* right = in + run;
    int leftLeft = run;
    int rightLeft = run;
    while (leftLeft > 0 && rightLeft > 0) {
        const int leftLength = wanted[*left];
        const int rightLength = wanted[*right];
        const bool takeRight = leftLength > rightLength || (leftLength == rightLength && rightLeft < leftLeft);
        noted->bits |= uint64_t{takeRight} << noted->count++;
        *out++ = takeRight ? *right : *left;
        right += takeRight;
        rightLeft -= takeRight;
        left += !takeRight;
        leftLeft -= !takeRight;
    }
    std::memcpy(out, leftLeft > 0 ? left : right, static_cast<size_t>(leftLeft + rightLeft));
}

// The best merged form: sorts the symbols by the length wanted for each and looks at the cost after every pass.
CodePlan PlanMerged(const uint8_t* lengths, const uint32_t* counts, const uint8_t* order) {
    uint8_t wanted[SYMBOLS];
    for (int i = 0; i < COUNT; i++) wanted[order[i]] = lengths[i];
    uint8_t stage[SYMBOLS];
    for (int i = 0; i < COUNT; i++) stage[i] = static_cast<uint8_t>(i);
    ComparisonBits noted = {0, 0};
    CodePlan best = {};
    for (int pass = 0; pass < MERGE_PASSES; pass++) {
        const int run = 1 << pass;
        uint8_t merged[SYMBOLS];
        for (int i = 0; i < COUNT; i += 2 * run) MergeRuns(merged + i, stage + i, run, wanted, &noted);
        std::memcpy(stage, merged, sizeof stage);
        const uint64_t cost = 2 + noted.count + SymbolBits(lengths, counts, stage);
        if (pass > 0 && cost >= best.cost) continue;
        best.cost = cost;
        best.depth = pass;
        best.comparisons = noted.bits;
        best.comparisonBits = noted.count;
        std::memcpy(best.symbolAt, stage, sizeof stage);
    }
    return best;
}

// The best listed form: the most frequent symbols one after the other to the front.
CodePlan PlanListed(const uint8_t* lengths, const uint32_t* counts, const uint8_t* order) {
    uint8_t symbolAt[SYMBOLS];
    for (int i = 0; i < COUNT; i++) symbolAt[i] = static_cast<uint8_t>(i);
    CodePlan best = {};
    best.listed = true;
    for (int listed = 1; listed <= MAX_LISTED; listed++) {
        const uint8_t symbol = order[listed - 1];
        int at = listed - 1;
        while (symbolAt[at] != symbol) at++;
        for (; at >= listed; at--) symbolAt[at] = symbolAt[at - 1];
        symbolAt[at] = symbol;
        const uint64_t cost = 3 + 4 * static_cast<uint64_t>(listed) + SymbolBits(lengths, counts, symbolAt);
        if (listed > 1 && cost >= best.cost) continue;
        best.cost = cost;
        best.depth = listed - 1;
        std::memcpy(best.symbolAt, symbolAt, sizeof symbolAt);
    }
    return best;
}

CodePlan PlanTree(int tree, const uint32_t* counts, const uint8_t* order) {
    const CodePlan listed = PlanListed(TREE_LENGTHS[tree], counts, order);
    const CodePlan merged = PlanMerged(TREE_LENGTHS[tree], counts, order);
    return listed.cost < merged.cost ? listed : merged;
}

CodePlan PlanFlat(const uint32_t* counts) {
    CodePlan flat = {};
    for (int i = 0; i < COUNT; i++) flat.symbolAt[i] = static_cast<uint8_t>(i);
    flat.cost = SymbolBits(TREE_LENGTHS[0], counts, flat.symbolAt);
    return flat;
}

void WriteOrder(BitWriter* writer, const CodePlan& plan) {
    WriteBits(writer, plan.listed, 1);
    if (plan.listed) {
        WriteBits(writer, static_cast<uint32_t>(plan.depth), 3);
        for (int i = 0; i <= plan.depth; i++) WriteBits(writer, plan.symbolAt[i], 4);
        return;
    }
    WriteBits(writer, static_cast<uint32_t>(plan.depth), 2);
    uint64_t bits = plan.comparisons;
    uint32_t left = plan.comparisonBits;
    for (; left > 31; left -= 31, bits >>= 31) WriteBits(writer, static_cast<uint32_t>(bits), 31);
    WriteBits(writer, static_cast<uint32_t>(bits), left);
}

} // namespace

void ChooseCode(BitWriter* writer, const uint32_t* counts, uint8_t* codeWords, uint8_t* codeLengths) {
    uint8_t order[SYMBOLS];
    SortByCount(order, counts);
    CodePlan best = PlanFlat(counts);
    int bestTree = 0;
    for (int tree = 1; tree < CODE_TREES; tree++) {
        const CodePlan plan = PlanTree(tree, counts, order);
        if (plan.cost >= best.cost) continue;
        best = plan;
        bestTree = tree;
    }
    WriteBits(writer, static_cast<uint32_t>(bestTree), 4);
    if (bestTree != 0) WriteOrder(writer, best);
    for (int i = 0; i < COUNT; i++) {
        codeLengths[best.symbolAt[i]] = TREE_LENGTHS[bestTree][i];
        codeWords[best.symbolAt[i]] = TREE_WORDS[bestTree][i];
    }
}

void ChooseBundleCode(BitWriter* writer, Bundle* bundle) {
    ChooseCode(writer, bundle->symbolCounts, bundle->codeWords, bundle->codeLengths);
}

void ChooseColourCodes(BitWriter* writer, Bundle* colours) {
    for (uint32_t first = 0; first < COLOUR_LOW + SYMBOLS; first += SYMBOLS)
        ChooseCode(writer, colours->symbolCounts + first, colours->codeWords + first, colours->codeLengths + first);
}

} // namespace vorn
