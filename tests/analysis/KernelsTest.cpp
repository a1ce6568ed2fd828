// KernelsTest.cpp - the twins of every level give what the plain forms give, or brute force, at every alignment, and touch no
// memory in front of or behind the planes, blocks and lists that they are given: pages that mustn't be touched lie there.
#include <gtest/gtest.h>

#if defined(__unix__)
#include <sys/mman.h>
#endif

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Evaluators.h"
#include "analysis/Kernels.h"
#include "blocks/CandidateLists.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

// Room between two pages that can't be touched, where the system has such.
class Guarded {
public:
    Guarded() {
#if defined(__unix__)
        void* const all = mmap(nullptr, 3 * SIZE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        start = static_cast<uint8_t*>(all) + SIZE;
        if (all == MAP_FAILED || mprotect(start, SIZE, PROT_READ | PROT_WRITE) != 0) std::abort();
#else
        start = static_cast<uint8_t*>(std::malloc(SIZE));
#endif
    }
    Guarded(const Guarded&) = delete;
#if defined(__unix__)
    ~Guarded() {
        munmap(start - SIZE, 3 * SIZE);
    }
#else
    ~Guarded() {
        std::free(start);
    }
#endif
    // `size` bytes at its end, or `shift` bytes behind its start.
    uint8_t* Place(size_t size, bool atEnd, size_t shift = 0) const {
        return atEnd ? start + SIZE - size : start + shift;
    }

private:
    static constexpr size_t SIZE = 65536; // a multiple of the pages of any machine
    uint8_t* start;
};

constexpr uint32_t COLOUR_BITS = 1701;
constexpr uint32_t RUN_BITS = 907;

std::vector<uint32_t> FieldsOf(const DctTrial* trials, int count) {
    std::vector<uint32_t> fields;
    for (int i = 0; i < count; i++) fields.insert(fields.end(), {trials[i].acBits, trials[i].error});
    return fields;
}

// What a level makes of a block, at its own scale or with `high` at half scale.
struct Made {
    std::vector<uint32_t> intra, inter, runs;
    bool operator==(const Made&) const = default;
};
Made MakeAll(CpuLevel level, const uint8_t* block, const uint8_t* residual, const uint8_t* moved, const uint8_t* high) {
    const AnalysisKernels& kernels = AnalysisKernelsOf(level);
    DctTrial trials[QUANTISERS];
    static BlockCandidate list[SCRATCH_CANDIDATES];
    Made made;
    made.intra = FieldsOf(trials, kernels.tryIntra(trials, block, high));
    made.inter = FieldsOf(trials, kernels.tryInter(trials, block, reinterpret_cast<const int8_t*>(residual), moved));
    std::memset(static_cast<void*>(list), 0xa5, sizeof list);
    const int count = kernels.listRuns(list, block, high, COLOUR_BITS, RUN_BITS);
    for (int i = 0; i <= count; i++) { // the one behind the list stays as it was
        const BlockCandidate& entry = list[i];
        made.runs.insert(made.runs.end(), {entry.bits, entry.error, entry.payload, entry.mode});
    }
    return made;
}

// Stretches of equal samples and of lone ones, of lengths around those that a segment can have, along one scan order. Few
// values let the medians of neighbouring runs meet at high thresholds.
void FillStretches(uint8_t* block, const uint8_t* order, uint32_t values, Noise* noise) {
    static const uint32_t LENGTHS[] = {1, 2, 3, 14, 15, 16, 17, 18, 31, 32, 33, 47, 48, 49};
    uint32_t at = 0;
    while (at < 64) {
        const uint32_t end = std::min(64u, at + LENGTHS[NextNoise(noise) % 14]);
        const bool flat = NextNoise(noise) % 2 == 0;
        uint32_t value = NextNoise(noise);
        for (; at < end; at++) {
            if (!flat) value += 1 + NextNoise(noise) % 3; // with four values, never the same again
            block[order[at]] = static_cast<uint8_t>(value % values);
        }
    }
}

// Every second block is of stretches. Of the others some have rows 0 and 1 at one end and 6 and 7 at the other, which makes
// products outgrow 32 bits, some samples of the widest ranges by turns, some a flat rest.
void FillBlock(uint8_t* block, int round, Noise* noise) {
    if (round % 2 == 0) return FillStretches(block, SCAN_ORDER[round / 2 % 16], round % 3 == 0 ? 256 : 4, noise);
    FillSamples(block, 8, 8, static_cast<Content>(round / 2 % CONTENTS), noise);
    const uint8_t upper = round % 4 == 1 ? 255 : 0;
    if (round % 7 == 0) {
        std::memset(block, upper, 16);
        std::memset(block + 48, 255 - upper, 16);
    }
    const int spread = 250 + round % 6;
    for (int i = 0; i < 64 && round % 50 == 1; i++)
        block[i] = static_cast<uint8_t>(i % 2 != 0 ? spread - i / 3 : i / 2);
    const uint32_t rest = round % 5 == 0 ? NextNoise(noise) % 64 : 64;
    for (uint32_t i = rest; i < 64; i++) block[i] = 140;
}

TEST(Kernels, BlocksAsByThePlainForms) {
    Noise noise = {77};
    const Guarded blockRoom, residualRoom, movedRoom, highRoom;
    for (int round = 0; round < 4000; round++) {
        const bool atEnd = round / 2 % 2 == 0;
        const size_t shift = static_cast<size_t>(round % 17);
        uint8_t* const block = blockRoom.Place(64, atEnd, shift);
        uint8_t* const residual = residualRoom.Place(64, atEnd, shift);
        uint8_t* const moved = movedRoom.Place(64, atEnd, shift);
        uint8_t* const high = highRoom.Place(256, atEnd, shift);
        FillBlock(block, round, &noise);
        FillSamples(moved, 8, 8, static_cast<Content>(round / 2 % CONTENTS), &noise);
        for (int i = 0; i < 64; i++) {
            if (round % 9 == 1) // the DC that the stream has no room for, and some AC that lets it be seen
                moved[i] = static_cast<uint8_t>(block[i] + (i == round % 64 ? 124 : 128));
            residual[i] = static_cast<uint8_t>(block[i] - moved[i]);
        }
        for (int i = 0; i < 256; i++) { // near the half-scale block, as on film, or anything
            const uint32_t random = NextNoise(&noise);
            const uint32_t near = std::min(255u, block[i / 32 * 8 + i % 16 / 2] + random % 4);
            high[i] = static_cast<uint8_t>(round % 3 == 0 ? near : random);
        }
        for (const uint8_t* area : {static_cast<const uint8_t*>(nullptr), static_cast<const uint8_t*>(high)}) {
            const Made plain = MakeAll(CpuLevel::PLAIN, block, residual, moved, area);
            for (int level = 1; level <= static_cast<int>(BestCpuLevel()); level++)
                ASSERT_TRUE(MakeAll(static_cast<CpuLevel>(level), block, residual, moved, area) == plain)
                    << round << " " << level;
        }
    }
}

// Few values bring twins and lines; the greatest is the greatest that a fast way may be given, or one more.
TEST(Kernels, HullsAsByThePlainRules) {
    std::mt19937 random(5);
    const Guarded room;
    const uint32_t ranges[] = {2, 6, 20, 300, 70000, 1u << 24, (1u << 24) + 1};
    for (uint32_t round = 0; round < 6000; round++) {
        const int count = static_cast<int>(1 + random() % (round % 50 == 0 ? SCRATCH_CANDIDATES : 150));
        const uint32_t bitRange = ranges[random() % 7];
        const uint32_t errorRange = ranges[random() % 7];
        std::vector<BlockCandidate> list(static_cast<size_t>(count));
        for (BlockCandidate& entry : list) {
            entry.bits = static_cast<uint32_t>(random() % 4 == 0 ? bitRange - 1 : random() % bitRange);
            entry.error = static_cast<uint32_t>(random() % errorRange);
            entry.payload = static_cast<uint16_t>(&entry - list.data());
        }
        std::vector<BlockCandidate> plain = list;
        const int plainCount = PruneHullPlain(plain.data(), count);
        const size_t bytes = list.size() * sizeof list[0];
        BlockCandidate* const found = reinterpret_cast<BlockCandidate*>(room.Place(bytes, round % 2 == 0));
        for (int level = 0; level <= static_cast<int>(BestCpuLevel()); level++) {
            std::memcpy(static_cast<void*>(found), list.data(), bytes);
            const FindHullKernel find = AnalysisKernelsOf(static_cast<CpuLevel>(level)).findHull;
            ASSERT_EQ(PruneHullOverRuns(found, count, 0, 0, find), plainCount) << round << " " << level;
            for (int i = 0; i < plainCount; i++) {
                ASSERT_EQ(found[i].payload, plain[static_cast<size_t>(i)].payload) << round << " " << level;
                ASSERT_EQ(found[i].error, list[found[i].payload].error) << round << " " << level;
            }
        }
    }
}

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

// Contents of few values are full of ties. The block's task is made as the pass makes it.
TEST(Kernels, MotionAsByBruteForce) {
    Noise noise = {6};
    const Guarded sourceRoom, referenceRoom, sumsRoom;
    for (const auto& [width, height] : {Offset{8, 8}, Offset{16, 8}, Offset{8, 24}, Offset{32, 24}, Offset{56, 48}}) {
        for (int round = 0; round < 2 * CONTENTS; round++) {
            const bool atEnd = round % 2 == 0;
            WorkQueue queue = {};
            queue.width = static_cast<uint32_t>(width);
            queue.height = static_cast<uint32_t>(height);
            const size_t samples = size_t{queue.width} * queue.height;
            const size_t words = static_cast<size_t>(MotionScratchWords(queue.width, queue.height));
            uint8_t* const source = sourceRoom.Place(samples, atEnd);
            uint8_t* const reference = referenceRoom.Place(samples, atEnd);
            uint16_t* const sums = reinterpret_cast<uint16_t*>(sumsRoom.Place(words * sizeof(uint16_t), atEnd));
            FillSamples(source, width, height, static_cast<Content>(round / 2), &noise);
            FillSamples(reference, width, height, static_cast<Content>(round / 2), &noise);
            std::memset(sums, 0xff, words * sizeof(uint16_t));
            SumAreas(sums, reference, queue.width, queue.height);
            queue.sourcePlane = source;
            queue.referencePlane = reference;
            queue.areaSums = sums;
            for (int index = 0; index < width / 8 * (height / 8); index++) {
                const int x = index % (width / 8) * 8;
                const int y = index / (width / 8) * 8;
                const MotionTask task = TaskOfBlock(&queue, static_cast<uint32_t>(index));
                const Offset expected = BruteForce(source, reference, width, height, x, y);
                for (int level = 0; level <= static_cast<int>(BestCpuLevel()); level++) {
                    const Displacement found = AnalysisKernelsOf(static_cast<CpuLevel>(level)).searchMotion(&task);
                    EXPECT_EQ((Offset{found.x, found.y}), expected)
                        << width << " " << round << " " << index << " " << level;
                }
            }
        }
    }
}

} // namespace
} // namespace vorn
