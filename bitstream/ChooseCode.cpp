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

// One tree with a description of its symbol order.
struct CodePlan {
    uint64_t cost; // bits of the order's description, its form bit left out, and of all symbols
    int tree;
    bool listed;
    int depth;            // merged form: passes sent, less one. Listed form: symbols sent, less one
    uint64_t comparisons; // merged form: the bits of the comparisons, at most 49, first one lowest
    uint32_t comparisonBits;
    uint8_t symbolAt[SYMBOLS]; // symbol of each entry
};

// What an alphabet's plans are made from.
struct Alphabet {
    const uint32_t* counts;
    uint8_t order[SYMBOLS];     // symbols by falling count, equal ones by rising number
    uint32_t sorted[SYMBOLS];   // their counts
    uint64_t least[CODE_TREES]; // bits of all symbols with each tree, the most frequent on the shortest entries
    int listings;               // how many of the next are set
    uint8_t listed[MAX_LISTED][SYMBOLS]; // symbol of each entry with 1, 2, .. symbols listed: the same for any tree
};

// Whether a plan of this tree and cost goes before the best so far. Of equals the lowest tree wins, then the first one met.
bool Improves(const CodePlan& best, uint64_t cost, int tree) {
    return cost < best.cost || (cost == best.cost && tree < best.tree);
}

// What the symbols cost when they take the entries in this order.
uint64_t SymbolBits(const uint8_t* lengths, const uint32_t* counts, const uint8_t* symbolAt) {
    uint64_t bits = 0;
    for (int i = 0; i < COUNT; i++) bits += uint64_t{counts[symbolAt[i]]} * lengths[i];
    return bits;
}

void StartAlphabet(Alphabet* alphabet, const uint32_t* counts) {
    alphabet->counts = counts;
    uint8_t* order = alphabet->order;
    for (int symbol = 0; symbol < COUNT; symbol++) {
        int at = symbol;
        for (; at > 0 && counts[order[at - 1]] < counts[symbol]; at--) order[at] = order[at - 1];
        order[at] = static_cast<uint8_t>(symbol);
    }
    for (int i = 0; i < COUNT; i++) alphabet->sorted[i] = counts[order[i]];
    for (int tree = 0; tree < CODE_TREES; tree++) {
        uint64_t bits = 0;
        for (int i = 0; i < COUNT; i++) bits += uint64_t{alphabet->sorted[i]} * TREE_LENGTHS[tree][i];
        alphabet->least[tree] = bits;
    }
    alphabet->listings = 0;
}

// The next of the `listed` rows: the next most frequent symbol moves to the front, behind those that have.
void ListNext(Alphabet* alphabet) {
    const int row = alphabet->listings++;
    uint8_t* symbolAt = alphabet->listed[row];
    for (int i = 0; i < COUNT; i++) symbolAt[i] = row > 0 ? alphabet->listed[row - 1][i] : static_cast<uint8_t>(i);
    int at = row;
    while (symbolAt[at] != alphabet->order[row]) at++;
    for (; at > row; at--) symbolAt[at] = symbolAt[at - 1];
    symbolAt[row] = alphabet->order[row];
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

// Merged forms: sorts the symbols by the length wanted for each and looks at the cost after every pass. A pass takes at least
// 8 comparisons.
void OfferMerged(CodePlan* best, const Alphabet& alphabet, int tree) {
    constexpr uint32_t LEAST_COMPARISONS = 8;
    const uint8_t* lengths = TREE_LENGTHS[tree];
    uint8_t wanted[SYMBOLS];
    for (int i = 0; i < COUNT; i++) wanted[alphabet.order[i]] = lengths[i];
    uint8_t stage[SYMBOLS];
    for (int i = 0; i < COUNT; i++) stage[i] = static_cast<uint8_t>(i);
    ComparisonBits noted = {0, 0};
    for (int pass = 0; pass < MERGE_PASSES; pass++) {
        if (!Improves(*best, 2 + noted.count + LEAST_COMPARISONS + alphabet.least[tree], tree)) return;
        const int run = 1 << pass;
        uint8_t merged[SYMBOLS];
        for (int i = 0; i < COUNT; i += 2 * run) MergeRuns(merged + i, stage + i, run, wanted, &noted);
        std::memcpy(stage, merged, sizeof stage);
        const uint64_t cost = 2 + noted.count + SymbolBits(lengths, alphabet.counts, stage);
        if (!Improves(*best, cost, tree)) continue;
        *best = {cost, tree, false, pass, noted.bits, noted.count, {}};
        std::memcpy(best->symbolAt, stage, sizeof stage);
    }
}

// Listed forms: the most frequent symbols one after the other to the front.
void OfferListed(CodePlan* best, Alphabet* alphabet, int tree) {
    for (int row = 0; row < MAX_LISTED; row++) {
        const uint64_t listBits = 3 + 4 * (static_cast<uint64_t>(row) + 1);
        if (!Improves(*best, listBits + alphabet->least[tree], tree)) return;
        if (row == alphabet->listings) ListNext(alphabet);
        const uint64_t cost = listBits + SymbolBits(TREE_LENGTHS[tree], alphabet->counts, alphabet->listed[row]);
        if (!Improves(*best, cost, tree)) continue;
        *best = {cost, tree, true, row, 0, 0, {}};
        std::memcpy(best->symbolAt, alphabet->listed[row], sizeof best->symbolAt);
    }
}

void OfferTree(CodePlan* best, Alphabet* alphabet, int tree) {
    OfferMerged(best, *alphabet, tree);
    OfferListed(best, alphabet, tree);
}

CodePlan PlanFlat(const uint32_t* counts) {
    CodePlan flat = {};
    for (int i = 0; i < COUNT; i++) {
        flat.symbolAt[i] = static_cast<uint8_t>(i);
        flat.cost += uint64_t{counts[i]} * TREE_LENGTHS[0][i];
    }
    return flat;
}

// A plan costs no less than its tree's `least` and the shortest description. The tree with the least of them is looked at
// first: of the others this bound then leaves few. An alphabet that isn't used costs nothing flat, so that no other plan is
// looked at.
CodePlan PlanCode(const uint32_t* counts) {
    CodePlan best = PlanFlat(counts);
    if (best.cost == 0) return best;
    Alphabet alphabet;
    StartAlphabet(&alphabet, counts);
    int likely = 1;
    for (int tree = 2; tree < CODE_TREES; tree++)
        if (alphabet.least[tree] < alphabet.least[likely]) likely = tree;
    OfferTree(&best, &alphabet, likely);
    for (int tree = 1; tree < CODE_TREES; tree++)
        if (tree != likely) OfferTree(&best, &alphabet, tree);
    return best;
}

void WriteOrder(BitWriter* writer, const CodePlan& plan) {
    WriteBits(writer, plan.listed, 1);
    if (plan.listed) {
        WriteBits(writer, static_cast<uint32_t>(plan.depth), 3);
        for (int i = 0; i <= plan.depth; i++) WriteBits(writer, plan.symbolAt[i], 4);
        return;
    }
    WriteBits(writer, static_cast<uint32_t>(plan.depth), 2);
    WriteLong(writer, plan.comparisons, plan.comparisonBits);
}

} // namespace

void ChooseCode(BitWriter* writer, const uint32_t* counts, uint8_t* codeWords, uint8_t* codeLengths) {
    const CodePlan best = PlanCode(counts);
    WriteBits(writer, static_cast<uint32_t>(best.tree), 4);
    if (best.tree != 0) WriteOrder(writer, best);
    for (int i = 0; i < COUNT; i++) {
        codeLengths[best.symbolAt[i]] = TREE_LENGTHS[best.tree][i];
        codeWords[best.symbolAt[i]] = TREE_WORDS[best.tree][i];
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
