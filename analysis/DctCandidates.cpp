// DctCandidates.cpp - what do the 16 quantisers make of a block, or of what motion leaves of it?
#include "analysis/Evaluators.h"
#include "analysis/Kernels.h"
#include "bitstream/CoefficientCoder.h"
#include "bitstream/Transforms.h"
#include "blocks/PixelOps.h"

namespace vorn {

namespace {

bool HasAc(const int16_t* quantised) {
    int any = 0;
    for (int i = 1; i < BLOCK_SAMPLES; i++) any |= quantised[i];
    return any != 0;
}

// Cost of a block's coefficients and quantiser index, 1/256 bit, without the DC value.
uint32_t AcCost(const DctTrial& trial) {
    return (trial.acBits + QUANTISER_BITS) * 256;
}

// Candidates from trials, one a quantiser from 0 up; `fixedBits` is what all of them cost besides.
int ListTrials(BlockCandidate* list, const DctTrial* trials, int count, uint32_t fixedBits, BlockMode mode) {
    for (int q = 0; q < count; q++) {
        list[q] = {AcCost(trials[q]) + fixedBits, trials[q].error, static_cast<uint16_t>(q), mode};
    }
    return count;
}

int ListIntra(BlockCandidate* list, const uint8_t* block, const uint8_t* high, const CostModel* costModel) {
    DctTrial trials[QUANTISERS];
    const int count = Kernels().tryIntra(trials, block, high);
    return ListTrials(list, trials, count, costModel->intraDcBits, MODE_INTRA);
}

} // namespace

// The first quantiser that leaves no AC ends the list before it: the fill candidate does better.
int TryIntraPlain(DctTrial* trials, const uint8_t* block, const uint8_t* high) {
    int32_t coefficients[BLOCK_SAMPLES];
    ForwardTransform(coefficients, block);
    int count = 0;
    for (int q = 0; q < QUANTISERS; q++) {
        int16_t quantised[BLOCK_SAMPLES];
        QuantiseIntra(quantised, coefficients, q);
        if (!HasAc(quantised)) break;
        uint8_t shown[BLOCK_SAMPLES];
        InverseIntra(shown, BLOCK_SIDE, quantised, q);
        const uint32_t error = high == nullptr ? SadBlock(block, shown) : SadHighBlock(shown, high);
        trials[count++] = {CountCoefficientBits(quantised), error};
    }
    return count;
}

// Unlike intra, the first quantiser that leaves no AC still makes the last trial.
int TryInterPlain(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved) {
    int32_t coefficients[BLOCK_SAMPLES];
    ForwardTransformSigned(coefficients, residual);
    int count = 0;
    for (int q = 0; q < QUANTISERS; q++) {
        int16_t quantised[BLOCK_SAMPLES];
        QuantiseInter(quantised, coefficients, q);
        uint8_t shown[BLOCK_SAMPLES];
        InverseInter(shown, BLOCK_SIDE, quantised, q);
        AddBlock(shown, shown, moved);
        trials[count++] = {CountCoefficientBits(quantised), SadBlock(src, shown)};
        if (!HasAc(quantised)) break;
    }
    return count;
}

int IntraCandidates(BlockCandidate* list, const uint8_t* src, const CostModel* costModel) {
    return ListIntra(list, src, nullptr, costModel);
}

int HighIntraCandidates(BlockCandidate* list, const uint8_t* high, const uint8_t* half, const CostModel* costModel) {
    return ListIntra(list, half, high, costModel);
}

int InterCandidates(BlockCandidate* list, const uint8_t* src, const int8_t* residual, const uint8_t* moved,
                    const CostModel* costModel) {
    DctTrial trials[QUANTISERS];
    const int count = Kernels().tryInter(trials, src, residual, moved);
    return ListTrials(list, trials, count, costModel->interDcBits + costModel->motionBits, MODE_INTER);
}

} // namespace vorn
