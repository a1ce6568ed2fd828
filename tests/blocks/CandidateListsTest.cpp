// CandidateListsTest.cpp - what pruning promises: hull and staircase, which of equals survives, even thinning, storage.
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

std::vector<BlockCandidate> RandomList(std::mt19937* random, int count, uint32_t range) {
    std::vector<BlockCandidate> list;
    for (int i = 0; i < count; i++) {
        const uint32_t bits = Draw(random, range);
        list.push_back(Make(bits, Draw(random, range), static_cast<uint16_t>(i)));
    }
    return list;
}

void ExpectSame(const BlockCandidate* a, int countA, const BlockCandidate* b, int countB) {
    ASSERT_EQ(countA, countB);
    for (int i = 0; i < countA; i++) {
        ASSERT_EQ(a[i].bits, b[i].bits) << i;
        ASSERT_EQ(a[i].error, b[i].error) << i;
        ASSERT_EQ(a[i].payload, b[i].payload) << i;
        ASSERT_EQ(a[i].mode, b[i].mode) << i;
    }
}

} // namespace

// Small ranges are full of equal points and of points on one line.
TEST(CandidateLists, ChainsEqualSlowSearch) {
    std::mt19937 random(1);
    for (int round = 0; round < 4000; round++) {
        const uint32_t ranges[] = {4, 12, 60, 70000};
        const int count = 1 + static_cast<int>(Draw(&random, 60));
        const std::vector<BlockCandidate> list = RandomList(&random, count, ranges[round % 4]);
        const std::vector<Point> points = PointsOf(list.data(), count);

        std::vector<BlockCandidate> hull = list;
        const int hullCount = PruneHull(hull.data(), count);
        EXPECT_EQ(PointsOf(hull.data(), hullCount), SlowChain(points, Steeper)) << "round " << round;

        std::vector<BlockCandidate> stairs = list;
        const int stairsCount = PruneRuns(stairs.data(), count);
        EXPECT_EQ(PointsOf(stairs.data(), stairsCount), SlowChain(points, NearerStep)) << "round " << round;
        for (int i = 0; i < hullCount; i++) { // entries move as a whole
            EXPECT_EQ(hull[static_cast<size_t>(i)].error, list[hull[static_cast<size_t>(i)].payload].error);
        }
    }
}

// The plain rules decide which of equal entries stays. Few values bring twins and lines; odd lengths end within a vector; the
// greatest range goes past the bounds of the quick ways. Some lists look like those of blocks: a few ladders, each of rising
// bits, of which some repeat entries.
TEST(CandidateLists, QuickWaysEqualThePlainRules) {
    std::mt19937 random(3);
    const uint32_t ranges[] = {3, 6, 20, 300, 70000, (1u << 24) + 1000, 1u << 27};
    for (int round = 0; round < 20000; round++) {
        const int count = 1 + static_cast<int>(Draw(&random, round % 10 == 0 ? SCRATCH_CANDIDATES : 70));
        std::vector<BlockCandidate> list;
        BlockCandidate last = Make(0, 0);
        const uint32_t bitRange = ranges[Draw(&random, 7)];
        const uint32_t errorRange = ranges[Draw(&random, 7)];
        const bool ladders = round % 2 == 0;
        for (int i = 0; i < count; i++) {
            if (!ladders || Draw(&random, 15) == 0) {
                last.bits = Draw(&random, bitRange);
                last.error = Draw(&random, errorRange);
            } else if (Draw(&random, 4) != 0) {
                last.bits += Draw(&random, bitRange / 16 + 2);
                last.error -= last.error / (2 + Draw(&random, 30));
            }
            last.payload = static_cast<uint16_t>(i);
            list.push_back(last);
        }
        std::vector<BlockCandidate> quick = list;
        std::vector<BlockCandidate> plain = list;
        ExpectSame(quick.data(), PruneHull(quick.data(), count), plain.data(), PruneHullPlain(plain.data(), count));
        quick = plain = list;
        const int from = static_cast<int>(Draw(&random, static_cast<uint32_t>(count) + 1));
        const int to = from + static_cast<int>(Draw(&random, static_cast<uint32_t>(count - from) + 1));
        const int runs = PruneRunsPlain(plain.data() + from, to - from);
        std::copy(plain.begin() + to, plain.end(), plain.begin() + from + runs);
        const int plainCount = PruneHullPlain(plain.data(), count - (to - from) + runs);
        ExpectSame(quick.data(), PruneHullOverRuns(quick.data(), count, from, to, FindHull), plain.data(), plainCount);
        quick = plain = list;
        ExpectSame(quick.data(), PruneRuns(quick.data(), count), plain.data(), PruneRunsPlain(plain.data(), count));
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
}

TEST(CandidateLists, HullOfShortLists) {
    EXPECT_EQ(PruneHull(nullptr, 0), 0);
    BlockCandidate one[] = {Make(7, 9)};
    EXPECT_EQ(PruneHull(one, 1), 1);
    BlockCandidate line[] = {Make(40, 0), Make(10, 30), Make(30, 10), Make(20, 20), Make(25, 16)};
    ASSERT_EQ(PruneHull(line, 5), 4); // three steps on one line stay; the point above it goes
    EXPECT_EQ(PointsOf(line, 4), (std::vector<Point>{{10, 30}, {20, 20}, {30, 10}, {40, 0}}));
    BlockCandidate bestFirst[] = {Make(9, 5), Make(8, 1), Make(8, 0), Make(8, 0, 1)};
    ASSERT_EQ(PruneHull(bestFirst, 4), 1); // the cheapest is the best as well; of equals the first
    EXPECT_EQ(bestFirst[0].payload, 0);
}

// Which of two equal entries survives depends on the swaps and on the last entry moving into a hole.
TEST(CandidateLists, SwapsAndDropsDecideBetweenEquals) {
    BlockCandidate swapped[] = {Make(20, 5, 1), Make(20, 5, 2), Make(10, 10, 3)};
    ASSERT_EQ(PruneHull(swapped, 3), 2);
    EXPECT_EQ(swapped[1].payload, 2); // 1 went to the end when the cheapest came forward
    BlockCandidate dropped[] = {Make(10, 10, 0), Make(10, 12, 9), Make(20, 5, 1), Make(20, 5, 2)};
    ASSERT_EQ(PruneHull(dropped, 4), 2);
    EXPECT_EQ(dropped[1].payload, 2); // moved into the hole, it is met first
    BlockCandidate runs[] = {Make(10, 10, 0), Make(15, 12, 9), Make(20, 5, 1), Make(20, 5, 2)};
    ASSERT_EQ(PruneRuns(runs, 4), 2);
    EXPECT_EQ(runs[1].payload, 2);
    BlockCandidate kept[] = {Make(10, 10, 0), Make(20, 5, 1), Make(20, 5, 2), Make(30, 0, 3)};
    ASSERT_EQ(PruneRuns(kept, 4), 3);
    EXPECT_EQ(kept[1].payload, 1);
}

TEST(CandidateLists, LimitSpreadsEvenly) {
    BlockCandidate list[100];
    for (uint16_t i = 0; i < 100; i++) list[i] = Make(i, 100u - i, i);
    EXPECT_EQ(LimitList(list, 100, 100), 100);
    ASSERT_EQ(LimitList(list, 100, 32), 32);
    const uint16_t first[] = {0, 3, 6, 9, 12, 15, 19};
    for (int i = 0; i < 7; i++) EXPECT_EQ(list[i].payload, first[i]);
    EXPECT_EQ(list[30].payload, 95);
    EXPECT_EQ(list[31].payload, 99);
    EXPECT_EQ(LimitList(list, 32, 1), 1);
    EXPECT_EQ(LimitList(list, 32, 0), 0);
    EXPECT_EQ(list[0].payload, 0);
}

TEST(CandidateLists, RecordsGiveBackWhatWasStored) {
    std::mt19937 random(2);
    const std::vector<BlockCandidate> list = RandomList(&random, MAX_CANDIDATES, 70000);
    BlockRecord record;
    BlockCandidate fetched[MAX_CANDIDATES];
    StoreList(&record, list.data(), MAX_CANDIDATES, 435);
    ASSERT_EQ(FetchList(&record, fetched), MAX_CANDIDATES);
    for (size_t i = 0; i < MAX_CANDIDATES; i++) {
        EXPECT_EQ(fetched[i].bits, list[i].bits + 435);
        EXPECT_EQ(fetched[i].error, list[i].error);
        EXPECT_EQ(fetched[i].payload, list[i].payload);
        EXPECT_EQ(fetched[i].mode, list[i].mode);
    }
    StoreList(&record, nullptr, 0, 435);
    EXPECT_EQ(FetchList(&record, fetched), 0);
}
