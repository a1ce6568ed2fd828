// MotionSearchTest.cpp - the motion search against every position in visiting order: ties, borders, known shifts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Evaluators.h"
#include "analysis/Kernels.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

struct Offset {
    int x;
    int y;
    bool operator==(const Offset&) const = default;
};

// 0, 1, .. 15, -15, .. -1, as far as the block stays inside.
std::vector<int> VisitingOrder(int position, int size) {
    std::vector<int> order;
    for (int d = 0; d <= 15; d++) order.push_back(d);
    for (int d = -15; d < 0; d++) order.push_back(d);
    std::erase_if(order, [&](int d) { return position + d < 0 || position + d + 8 > size; });
    return order;
}

Offset BruteForce(const uint8_t* source, const uint8_t* reference, int width, int height, int x, int y) {
    Offset best = {0, 0};
    int least = 0x7ffffff;
    for (int dy : VisitingOrder(y, height)) {
        for (int dx : VisitingOrder(x, width)) {
            int sum = 0;
            for (int i = 0; i < 64; i++) {
                const int row = y + i / 8;
                const int column = x + i % 8;
                sum += std::abs(source[row * width + column] - reference[(row + dy) * width + column + dx]);
            }
            if (sum >= least) continue;
            least = sum;
            best = {dx, dy};
        }
    }
    return best;
}

// The block's task as the pass makes it, searched at every level that the machine has; all must agree.
Offset Search(const uint8_t* source, const uint8_t* reference, int width, int height, int x, int y) {
    std::vector<uint16_t> sums(
        MotionScratchWords(static_cast<uint32_t>(width), static_cast<uint32_t>(height)), 0xffff);
    SumAreas(sums.data(), reference, static_cast<uint32_t>(width), static_cast<uint32_t>(height));
    WorkQueue queue = {};
    queue.sourcePlane = source;
    queue.referencePlane = reference;
    queue.areaSums = sums.data();
    queue.width = static_cast<uint32_t>(width);
    queue.height = static_cast<uint32_t>(height);
    const MotionTask task = TaskOfBlock(&queue, static_cast<uint32_t>(y / 8 * (width / 8) + x / 8));
    const Displacement plain = SearchMotionPlain(&task);
    for (int level = 0; level <= static_cast<int>(BestCpuLevel()); level++) {
        const Displacement found = AnalysisKernelsOf(static_cast<CpuLevel>(level)).searchMotion(&task);
        EXPECT_EQ(found.x, plain.x) << NameOfCpuLevel(static_cast<CpuLevel>(level));
        EXPECT_EQ(found.y, plain.y) << NameOfCpuLevel(static_cast<CpuLevel>(level));
    }
    return {plain.x, plain.y};
}

// Contents of few values are full of ties.
TEST(MotionSearch, EqualsBruteForce) {
    const struct {
        int width;
        int height;
    } sizes[] = {{8, 8}, {16, 8}, {8, 24}, {32, 24}, {56, 48}};
    Noise noise = {6};
    for (const auto& size : sizes) {
        for (int content = 0; content < CONTENTS; content++) {
            std::vector<uint8_t> source(static_cast<size_t>(size.width * size.height));
            std::vector<uint8_t> reference(source.size());
            FillSamples(source.data(), size.width, size.height, static_cast<Content>(content), &noise);
            FillSamples(reference.data(), size.width, size.height, static_cast<Content>(content), &noise);
            for (int y = 0; y < size.height; y += 8)
                for (int x = 0; x < size.width; x += 8)
                    EXPECT_EQ(Search(source.data(), reference.data(), size.width, size.height, x, y),
                              BruteForce(source.data(), reference.data(), size.width, size.height, x, y))
                        << size.width << " " << content << " " << x << " " << y;
        }
    }
}

// The middle block of a black plane holds the only content; copies of it are put where the table says.
class PlacedCopies : public ::testing::Test {
protected:
    static constexpr int SIDE = 56;
    std::vector<uint8_t> source = std::vector<uint8_t>(SIDE * SIDE);
    std::vector<uint8_t> reference = std::vector<uint8_t>(SIDE * SIDE);

    void PutBlock(std::vector<uint8_t>* plane, int dx, int dy) {
        for (int i = 0; i < 64; i++)
            (*plane)[static_cast<size_t>((24 + dy + i / 8) * SIDE + 24 + dx + i % 8)] = static_cast<uint8_t>(50 + i);
    }
    Offset SearchMiddle() { return Search(source.data(), reference.data(), SIDE, SIDE, 24, 24); }
};

TEST_F(PlacedCopies, FarthestCornersAreReached) {
    for (Offset corner : {Offset{15, 15}, Offset{-15, 15}, Offset{15, -15}, Offset{-15, -15}}) {
        std::fill(reference.begin(), reference.end(), uint8_t(0));
        PutBlock(&source, 0, 0);
        PutBlock(&reference, corner.x, corner.y);
        EXPECT_EQ(SearchMiddle(), corner);
    }
}

TEST_F(PlacedCopies, EqualMatchesGoToTheFirstVisited) {
    PutBlock(&source, 0, 0);
    PutBlock(&reference, -9, 0);
    PutBlock(&reference, 9, 0);
    EXPECT_EQ(SearchMiddle(), (Offset{9, 0}));
    std::fill(reference.begin(), reference.end(), uint8_t(0));
    PutBlock(&reference, 0, -9);
    PutBlock(&reference, 15, 1);
    EXPECT_EQ(SearchMiddle(), (Offset{15, 1}));
    PutBlock(&reference, 0, 0); // covers part of the other copies, and is visited first anyway
    EXPECT_EQ(SearchMiddle(), (Offset{0, 0}));
}

TEST(MotionSearch, FlatAgainstFlatStaysInPlace) {
    std::vector<uint8_t> source(32 * 32, 90);
    std::vector<uint8_t> reference(32 * 32, 100);
    EXPECT_EQ(Search(source.data(), reference.data(), 32, 32, 8, 16), (Offset{0, 0}));
    EXPECT_EQ(Search(source.data(), reference.data(), 32, 32, 24, 24), (Offset{0, 0}));
}

} // namespace
} // namespace vorn
