// CandidateListsTest.cpp - what pruning promises: hull and staircase, which of equals survives, even thinning.
#include "blocks/CandidateLists.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

using namespace vorn;

namespace {

// A number from 0 to below - 1.
uint32_t Draw(std::mt19937* random, uint32_t below) {
    return static_cast<uint32_t>((*random)() % below);
}

using Point = std::pair<uint32_t, uint32_t>; // bits, error

BlockCandidate Make(uint32_t bits, uint32_t error, uint16_t payload = 0) {
    return {bits, error, payload, MODE_FILL};
}

std::vector<Point> PointsOf(const BlockCandidate* list, int count) {
    std::vector<Point> points;
    for (int i = 0; i < count; i++) points.push_back({list[i].bits, list[i].error});
    return points;
}

// Is a steeper seen from `from`, or as steep and nearer? Exact, by products.
bool Steeper(Point from, Point a, Point b) {
    const int64_t left = (int64_t{from.second} - a.second) * (int64_t{b.first} - from.first);
    const int64_t right = (int64_t{from.second} - b.second) * (int64_t{a.first} - from.first);
    return left > right || (left == right && a.first < b.first);
}

bool NearerStep(Point, Point a, Point b) {
    return a < b;
}

// The chain that starts at the cheapest point and goes on to the first of all points that are dearer and better.
template <class Better> std::vector<Point> SlowChain(const std::vector<Point>& points, Better better) {
    std::vector<Point> chain = {*std::min_element(points.begin(), points.end())};
    for (;;) {
        const Point from = chain.back();
        const Point* next = nullptr;
        for (const Point& point : points) {
            if (point.first <= from.first || point.second >= from.second) continue;
            if (next == nullptr || better(from, point, *next)) next = &point;
        }
        if (next == nullptr) return chain;
        chain.push_back(*next);
    }
}

// Few values bring twins and lines; odd lengths end within a vector; the greatest range goes past the bounds of the quick ways.
// Half of the lists look like those of blocks: a few ladders, each of rising bits, of which some repeat entries.
std::vector<BlockCandidate> RandomList(std::mt19937* random, bool ladders, uint32_t longest) {
    const uint32_t ranges[] = {3, 6, 20, 300, 70000, (1u << 24) + 1000, 1u << 27};
    const uint32_t bitRange = ranges[Draw(random, 7)];
    const uint32_t errorRange = ranges[Draw(random, 7)];
    std::vector<BlockCandidate> list(1 + Draw(random, longest));
    BlockCandidate last = Make(0, 0);
    for (size_t i = 0; i < list.size(); i++) {
        if (!ladders || Draw(random, 15) == 0) {
            last.bits = Draw(random, bitRange);
            last.error = Draw(random, errorRange);
        } else if (Draw(random, 4) != 0) {
            last.bits += Draw(random, bitRange / 16 + 2);
            last.error -= last.error / (2 + Draw(random, 30));
        }
        last.payload = static_cast<uint16_t>(i);
        list[i] = last;
    }
    return list;
}

// Payloads tell entries apart, and entries move as a whole.
void ExpectSame(const std::vector<BlockCandidate>& a, int countA, const std::vector<BlockCandidate>& b, int countB) {
    ASSERT_EQ(PointsOf(a.data(), countA), PointsOf(b.data(), countB));
    for (size_t i = 0; i < static_cast<size_t>(countA); i++) ASSERT_EQ(a[i].payload, b[i].payload) << i;
}

} // namespace

// The plain rules find the chains of a slow search, and decide which of equal entries stays; the quick ways do the same.
TEST(CandidateLists, ChainsEqualSlowSearchInBothWays) {
    std::mt19937 random(3);
    for (int round = 0; round < 20000 && !HasFailure(); round++) {
        SCOPED_TRACE(round);
        const auto list = RandomList(&random, round % 2 == 0, round % 10 == 0 ? SCRATCH_CANDIDATES : 70);
        const int count = static_cast<int>(list.size());
        const std::vector<Point> points = PointsOf(list.data(), count);
        std::vector<BlockCandidate> quick = list;
        std::vector<BlockCandidate> plain = list;
        int plainCount = PruneHullPlain(plain.data(), count);
        EXPECT_EQ(PointsOf(plain.data(), plainCount), SlowChain(points, Steeper));
        ExpectSame(quick, PruneHull(quick.data(), count), plain, plainCount);

        quick = plain = list;
        plainCount = PruneRunsPlain(plain.data(), count);
        EXPECT_EQ(PointsOf(plain.data(), plainCount), SlowChain(points, NearerStep));
        ExpectSame(quick, PruneRuns(quick.data(), count), plain, plainCount);

        const int from = static_cast<int>(Draw(&random, static_cast<uint32_t>(count) + 1));
        const int to = from + static_cast<int>(Draw(&random, static_cast<uint32_t>(count - from) + 1));
        std::vector<BlockCandidate> thinned = list;
        const int runs = PruneRunsPlain(thinned.data() + from, to - from);
        std::copy(list.begin() + to, list.end(), thinned.begin() + from + runs);
        const int left = count - (to - from) + runs;
        quick = list, plain = thinned;
        plainCount = PruneHullPlain(plain.data(), left);
        ExpectSame(quick, PruneHullOverRuns(quick.data(), count, from, to, FindHull), plain, plainCount);
        quick = list, plain = thinned;
        plainCount = PruneRunsPlain(plain.data(), left);
        ExpectSame(quick, PruneRunsOverRuns(quick.data(), count, from, to), plain, plainCount);
    }
}

// Which of two equal entries survives depends on the swaps and on the last entry moving into a hole.
TEST(CandidateLists, KnownListsKeepTheseEntries) {
    const struct {
        int (*prune)(BlockCandidate*, int);
        std::vector<Point> list;
        std::vector<int> kept; // places in the list
    } cases[] = {
        {PruneHull, {}, {}},
        {PruneHull, {{9, 5}, {8, 1}, {8, 0}, {8, 0}}, {2}}, // the cheapest is the best as well; of equals the first
        {PruneHull, {{20, 5}, {20, 5}, {10, 10}}, {2, 1}},  // 0 went to the end when the cheapest came forward
        {PruneHull, {{10, 10}, {10, 12}, {20, 5}, {20, 5}}, {0, 3}}, // moved into the hole, it is met first
        {PruneRuns, {{10, 10}, {15, 12}, {20, 5}, {20, 5}}, {0, 3}},
        {PruneRuns, {{10, 10}, {20, 5}, {20, 5}, {30, 0}}, {0, 1, 3}},
    };
    for (const auto& one : cases) {
        std::vector<BlockCandidate> list;
        for (const auto& [bits, error] : one.list) list.push_back(Make(bits, error, uint16_t(list.size())));
        list.resize(static_cast<size_t>(one.prune(list.data(), static_cast<int>(list.size()))));
        std::vector<int> kept;
        for (const BlockCandidate& entry : list) kept.push_back(entry.payload);
        EXPECT_EQ(kept, one.kept) << "case " << &one - cases;
    }
}

TEST(CandidateLists, LimitSpreadsEvenly) {
    BlockCandidate list[100];
    for (uint16_t i = 0; i < 100; i++) list[i] = Make(i, 100u - i, i);
    EXPECT_EQ(LimitList(list, 100, 100), 100);
    ASSERT_EQ(LimitList(list, 100, 32), 32);
    const uint16_t places[] = {0, 3, 6, 9, 12, 15, 19};
    for (int i = 0; i < 7; i++) EXPECT_EQ(list[i].payload, places[i]);
    EXPECT_EQ(list[30].payload, 95);
    EXPECT_EQ(list[31].payload, 99);
    EXPECT_EQ(LimitList(list, 32, 1), 1);
    EXPECT_EQ(LimitList(list, 32, 0), 0);
    EXPECT_EQ(list[0].payload, 0);
}
