// DctKernelsTest.cpp - the twins of every level give the plain form's trials, on noise, on extremes that wrap, on smooth
// blocks, and at every alignment.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "analysis/Kernels.h"
#include "blocks/BlockRecord.h"
#include "tests/blocks/TestBlocks.h"

namespace vorn {
namespace {

// Exactly the samples of a block, at an address of the given misalignment, so that a sanitizer sees a read too far.
class Samples {
public:
    Samples(size_t count, size_t misalignment) : room(count + misalignment), shift(misalignment) {}
    uint8_t* Data() { return room.data() + shift; }

private:
    std::vector<uint8_t> room;
    size_t shift;
};

// Rows 0 and 1 at one end and 6 and 7 at the other make products outgrow 32 bits.
void FillWrapping(uint8_t* block, Noise* noise) {
    const uint8_t upper = NextNoise(noise) % 2 != 0 ? 255 : 0;
    for (int i = 0; i < 64; i++) {
        if (i < 16) block[i] = upper;
        if (i >= 16 && i < 48) block[i] = static_cast<uint8_t>(NextNoise(noise));
        if (i >= 48) block[i] = static_cast<uint8_t>(255 - upper);
    }
}

void ExpectSameTrials(const DctTrial* found, int foundCount, const DctTrial* plain, int plainCount, int round) {
    ASSERT_EQ(foundCount, plainCount) << round;
    for (int q = 0; q < plainCount; q++) {
        ASSERT_EQ(found[q].acBits, plain[q].acBits) << round << " " << q;
        ASSERT_EQ(found[q].error, plain[q].error) << round << " " << q;
    }
}

TEST(DctKernels, EveryLevelGivesThePlainTrials) {
    Noise noise = {77};
    for (int round = 0; round < 3000; round++) {
        const size_t shift = static_cast<size_t>(round % 17);
        Samples src(64, shift), moved(64, shift), residual(64, shift), high(256, shift);
        const Content content = static_cast<Content>(round % CONTENTS);
        FillSamples(src.Data(), 8, 8, content, &noise);
        FillSamples(moved.Data(), 8, 8, round % 5 == 0 ? CONTENT_EXTREMES : content, &noise);
        if (round % 7 == 0) FillWrapping(src.Data(), &noise);
        if (round % 7 == 1) { // every residual -128: the DC that the stream has no room for
            for (int i = 0; i < 64; i++) moved.Data()[i] = static_cast<uint8_t>(src.Data()[i] + 128);
        }
        FillSamples(high.Data(), 16, 16, content, &noise);
        for (int i = 0; i < 64; i++) residual.Data()[i] = static_cast<uint8_t>(src.Data()[i] - moved.Data()[i]);
        const int8_t* difference = reinterpret_cast<const int8_t*>(residual.Data());

        DctTrial plain[QUANTISERS];
        DctTrial found[QUANTISERS];
        for (int level = 1; level <= static_cast<int>(BestCpuLevel()); level++) {
            const AnalysisKernels& kernels = AnalysisKernelsOf(static_cast<CpuLevel>(level));
            int plainCount = TryIntraPlain(plain, src.Data(), nullptr);
            ExpectSameTrials(found, kernels.tryIntra(found, src.Data(), nullptr), plain, plainCount, round);
            plainCount = TryIntraPlain(plain, src.Data(), high.Data());
            ExpectSameTrials(found, kernels.tryIntra(found, src.Data(), high.Data()), plain, plainCount, round);
            plainCount = TryInterPlain(plain, src.Data(), difference, moved.Data());
            ExpectSameTrials(found, kernels.tryInter(found, src.Data(), difference, moved.Data()), plain, plainCount,
                             round);
        }
    }
}

} // namespace
} // namespace vorn
