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
    std::vector<uint16_t> sums(MotionScratchWords(static_cast<uint32_t>(width), static_cast<uint32_t>(height)), 0xffff);
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
    Noise noise = {6};
    for (const auto& [width, height] : {Offset{8, 8}, Offset{16, 8}, Offset{8, 24}, Offset{32, 24}, Offset{56, 48}}) {
        for (int content = 0; content < CONTENTS; content++) {
            std::vector<uint8_t> source(static_cast<size_t>(width * height));
            std::vector<uint8_t> reference(source.size());
            FillSamples(source.data(), width, height, static_cast<Content>(content), &noise);
            FillSamples(reference.data(), width, height, static_cast<Content>(content), &noise);
            for (int y = 0; y < height; y += 8)
                for (int x = 0; x < width; x += 8)
                    EXPECT_EQ(Search(source.data(), reference.data(), width, height, x, y),
                              BruteForce(source.data(), reference.data(), width, height, x, y))
                        << width << " " << content << " " << x << " " << y;
        }
    }
}

// The middle block of a black plane holds the only content; copies of it lie where the table says, later ones over others.
TEST(MotionSearch, PlacedCopiesAreFoundInVisitingOrder) {
    constexpr int SIDE = 56;
    const auto put = [](std::vector<uint8_t>* plane, Offset offset) {
        for (int i = 0; i < 64; i++) {
            const int place = (24 + offset.y + i / 8) * SIDE + 24 + offset.x + i % 8;
            (*plane)[static_cast<size_t>(place)] = static_cast<uint8_t>(50 + i);
        }
    };
    const struct {
        std::vector<Offset> copies;
        Offset found;
    } cases[] = {
        {{{15, 15}}, {15, 15}},
        {{{-15, 15}}, {-15, 15}},
        {{{15, -15}}, {15, -15}},
        {{{-15, -15}}, {-15, -15}},
        {{{-9, 0}, {9, 0}}, {9, 0}},
        {{{0, -9}, {15, 1}}, {15, 1}},
        {{{0, -9}, {15, 1}, {0, 0}}, {0, 0}},
    };
    for (const auto& one : cases) {
        std::vector<uint8_t> source(SIDE * SIDE);
        std::vector<uint8_t> reference(SIDE * SIDE);
        put(&source, {0, 0});
        for (const Offset& copy : one.copies) put(&reference, copy);
        EXPECT_EQ(Search(source.data(), reference.data(), SIDE, SIDE, 24, 24), one.found);
    }
}

} // namespace
} // namespace vorn
