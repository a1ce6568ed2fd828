// ChooseCodeTest.cpp - the code of an alphabet: the cheapest of all, with ties as promised, and a table that reads back.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "bitstream/Bundle.h"
#include "format/CodeTrees.h"
#include "reader/CodeTables.h"
#include "tests/bitstream/StreamReading.h"

namespace vorn {
namespace {

using Counts = std::vector<uint32_t>;

uint64_t OrderCost(int tree, const std::vector<int>& order, const Counts& counts) {
    uint64_t cost = 0;
    for (size_t i = 0; i < 16; i++) cost += uint64_t{TREE_LENGTHS[tree][i]} * counts[static_cast<size_t>(order[i])];
    return cost;
}

struct Plan {
    uint64_t cost;
    int tree;
    bool listed;
    std::vector<int> order;
};

// Plans of one tree in the order of preference at equal cost: merged ones, then listed ones.
std::vector<Plan> PlansOfTree(int tree, const Counts& counts) {
    std::vector<int> byCount(16);
    std::iota(byCount.begin(), byCount.end(), 0);
    std::vector<int> list = byCount;
    std::stable_sort(byCount.begin(), byCount.end(),
                     [&](int a, int b) { return counts[static_cast<size_t>(a)] > counts[static_cast<size_t>(b)]; });
    auto wanted = [&](int symbol) {
        return TREE_LENGTHS[tree][std::find(byCount.begin(), byCount.end(), symbol) - byCount.begin()];
    };
    std::vector<Plan> plans;
    uint64_t comparisons = 0;
    for (size_t run = 1; run < 16; run *= 2) {
        std::vector<int> merged;
        for (size_t start = 0; start < 16; start += 2 * run) {
            std::vector<int> left(list.begin() + static_cast<long>(start),
                                  list.begin() + static_cast<long>(start + run));
            std::vector<int> right(list.begin() + static_cast<long>(start + run),
                                   list.begin() + static_cast<long>(start + 2 * run));
            while (!left.empty() && !right.empty()) {
                comparisons++;
                const int l = wanted(left[0]);
                const int r = wanted(right[0]);
                auto& from = l > r || (l == r && right.size() < left.size()) ? right : left;
                merged.push_back(from[0]);
                from.erase(from.begin());
            }
            merged.insert(merged.end(), left.begin(), left.end());
            merged.insert(merged.end(), right.begin(), right.end());
        }
        list = merged;
        plans.push_back({2 + comparisons + OrderCost(tree, list, counts), tree, false, list});
    }
    for (uint64_t listed = 1; listed <= 8; listed++) {
        std::vector<int> order(byCount.begin(), byCount.begin() + static_cast<long>(listed));
        for (int symbol = 0; symbol < 16; symbol++)
            if (std::find(order.begin(), order.end(), symbol) == order.end()) order.push_back(symbol);
        plans.push_back({3 + 4 * listed + OrderCost(tree, order, counts), tree, true, order});
    }
    return plans;
}

Plan BestPlan(const Counts& counts) {
    Plan best = {4 * std::accumulate(counts.begin(), counts.end(), uint64_t{0}), 0, false, std::vector<int>(16)};
    std::iota(best.order.begin(), best.order.end(), 0);
    for (int tree = 1; tree < 16; tree++)
        for (const Plan& plan : PlansOfTree(tree, counts))
            if (plan.cost < best.cost) best = plan;
    return best;
}

// Chooses, compares with the slow choice, reads the table back. Returns the table's bits.
uint32_t CheckChoice(const Counts& counts, const Plan& best) {
    TestStream stream(64);
    uint8_t words[16];
    uint8_t lengths[16];
    ChooseCode(&stream.writer, counts.data(), words, lengths);
    const uint32_t bits = BitsWritten(&stream.writer);
    PadToWord(&stream.writer);
    EXPECT_EQ(stream.room[0] & 15, best.tree);
    EXPECT_EQ(stream.room[0] >> 4 & 1, best.listed);
    reader::BitSource source = stream.Bits();
    reader::CodeTable read;
    ReadCodeTable(source, &read);
    EXPECT_EQ(source.Position(), bits);
    uint64_t cost = bits - 4 - (best.tree != 0);
    for (size_t i = 0; i < 16; i++) {
        EXPECT_EQ(read.symbols[words[i]], i);
        EXPECT_EQ(read.lengths[words[i]], lengths[i]) << i;
        EXPECT_EQ(words[best.order[i]], TREE_WORDS[best.tree][i]) << i;
        cost += uint64_t{lengths[i]} * counts[i];
    }
    EXPECT_EQ(cost, best.cost);
    return bits;
}

TEST(ChooseCode, FewSymbolsByHand) {
    for (const uint32_t level : {0u, 1u, 1u << 24})
        EXPECT_EQ(CheckChoice(Counts(16, level), BestPlan(Counts(16, level))), 4u);
    // One symbol alone: tree 1 (or a later one) saves 3 bits a symbol and a table of 7 bits names the symbol.
    Counts counts(16, 0);
    counts[11] = 3; // 12 bits flat; 7 + 3 listed
    EXPECT_EQ(CheckChoice(counts, BestPlan(counts)), 4u + 1 + 3 + 4);
    counts[11] = 2; // 8 bits flat; 9 listed
    EXPECT_EQ(CheckChoice(counts, BestPlan(counts)), 4u);
}

TEST(ChooseCode, EqualsTheSlowChoiceOnManyAlphabets) {
    std::mt19937 random(20240501);
    bool formSeen[2] = {};
    for (int round = 0; round < 300; round++) {
        Counts counts(16);
        const int spread = RandomInt(&random, 1, 20);
        for (uint32_t& count : counts) {
            // Skewed, with many ties and zeros.
            const uint32_t size = BitMask(static_cast<uint32_t>(RandomInt(&random, 0, spread)));
            count = static_cast<uint32_t>(random()) & size;
        }
        if (round % 3 == 0) std::sort(counts.begin(), counts.end());
        SCOPED_TRACE(round);
        const Plan best = BestPlan(counts);
        CheckChoice(counts, best);
        if (HasFailure()) return;
        if (best.tree != 0) formSeen[best.listed] = true;
    }
    EXPECT_TRUE(formSeen[0] && formSeen[1]);
}

} // namespace
} // namespace vorn
