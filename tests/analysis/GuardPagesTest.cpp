// GuardPagesTest.cpp - no kernel touches memory in front of or behind the planes, blocks and lists that it is given: pages
// that mustn't be touched lie on both sides. At every level the results are those of the plain level besides.
#include <gtest/gtest.h>

#if defined(__unix__)
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "analysis/Analysis.h"
#include "analysis/Kernels.h"
#include "platform/Workers.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

// Room for `size` bytes that ends, or starts, at a page that can't be touched.
class Guarded {
public:
    Guarded(size_t size, bool atEnd) {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t inner = (size + page - 1) / page * page;
        length = inner + 2 * page;
        void* all = mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        start = static_cast<uint8_t*>(all);
        if (all == MAP_FAILED || mprotect(start + page, inner, PROT_READ | PROT_WRITE) != 0) std::abort();
        data = start + page + (atEnd ? inner - size : 0);
    }
    ~Guarded() { munmap(start, length); }
    Guarded(const Guarded&) = delete;
    template <class T = uint8_t> T* Data() const { return reinterpret_cast<T*>(data); }

private:
    uint8_t* start;
    uint8_t* data;
    size_t length;
};

constexpr size_t MOST_RECORDS = 64;

// A plane's records, 8x8 and then 16x16, at one level.
std::vector<BlockRecord> Analyse(CpuLevel level, const Guarded& source, const Guarded& reference,
                                 const Guarded& scratch, uint32_t width, uint32_t height) {
    CostModel costs = {};
    costs.colourBits = 1500;
    costs.patternBits = 9000;
    costs.runBits = 800;
    costs.motionBits = 1800;
    costs.intraDcBits = 1700;
    costs.interDcBits = 1100;
    std::vector<BlockRecord> records(2 * MOST_RECORDS);
    std::memset(static_cast<void*>(records.data()), 0, records.size() * sizeof(BlockRecord));
    UseKernelsOf(level);
    AnalysePlane(records.data(), source.Data(), reference.Data(), width, height, false, &costs,
                 scratch.Data<uint16_t>());
    AnalyseHighPlane(records.data() + MOST_RECORDS, source.Data(), reference.Data(), width, height, false, &costs);
    UseKernelsOf(BestCpuLevel());
    return records;
}

TEST(GuardPages, PassesStayInsideTheirPlanes) {
    const uint32_t workers = ExchangeWorkerCount(1);
    Noise noise = {3};
    const uint32_t sizes[][2] = {{16, 16}, {48, 16}, {16, 48}, {32, 32}, {80, 48}};
    for (int round = 0; round < 60; round++) {
        const uint32_t width = sizes[round % 5][0];
        const uint32_t height = sizes[round % 5][1];
        const bool atEnd = round / 5 % 2 == 0;
        const Guarded source(width * height, atEnd), reference(width * height, atEnd);
        const Guarded scratch(MotionScratchWords(width, height) * sizeof(uint16_t), atEnd);
        FillSamples(source.Data(), static_cast<int>(width), static_cast<int>(height),
                    static_cast<Content>(round % CONTENTS), &noise);
        FillSamples(reference.Data(), static_cast<int>(width), static_cast<int>(height),
                    static_cast<Content>(round / 6 % CONTENTS), &noise);
        const auto plain = Analyse(CpuLevel::PLAIN, source, reference, scratch, width, height);
        for (int level = 1; level <= static_cast<int>(BestCpuLevel()); level++) {
            const auto fast = Analyse(static_cast<CpuLevel>(level), source, reference, scratch, width, height);
            EXPECT_EQ(std::memcmp(fast.data(), plain.data(), plain.size() * sizeof plain[0]), 0)
                << round << " " << level;
        }
    }
    ExchangeWorkerCount(workers);
}

TEST(GuardPages, BlockKernelsStayInsideBlocks) {
    Noise noise = {4};
    for (int round = 0; round < 24; round++) {
        const bool atEnd = round % 2 == 0;
        const Guarded block(64, atEnd), residual(64, atEnd), moved(64, atEnd), high(256, atEnd);
        const Content content = static_cast<Content>(round % CONTENTS);
        FillSamples(block.Data(), 8, 8, content, &noise);
        FillSamples(moved.Data(), 8, 8, content, &noise);
        FillSamples(high.Data(), 16, 16, content, &noise);
        for (int i = 0; i < 64; i++) residual.Data()[i] = static_cast<uint8_t>(block.Data()[i] - moved.Data()[i]);
        for (int level = 0; level <= static_cast<int>(BestCpuLevel()); level++) {
            const AnalysisKernels& kernels = AnalysisKernelsOf(static_cast<CpuLevel>(level));
            DctTrial trials[QUANTISERS];
            BlockCandidate list[SCRATCH_CANDIDATES];
            kernels.tryIntra(trials, block.Data(), high.Data());
            kernels.tryInter(trials, block.Data(), residual.Data<int8_t>(), moved.Data());
            const int count = kernels.listRuns(list, block.Data(), high.Data(), 1500, 800);
            const Guarded entries(static_cast<size_t>(count) * sizeof list[0], atEnd);
            std::memcpy(entries.Data(), list, static_cast<size_t>(count) * sizeof list[0]);
            uint16_t kept[SCRATCH_CANDIDATES];
            bool twins = false;
            const int found = kernels.findHull(kept, &twins, entries.Data<BlockCandidate>(), count);
            EXPECT_LE(found, count) << round << " " << level;
        }
    }
}

} // namespace
} // namespace vorn
#endif
