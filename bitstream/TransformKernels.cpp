// TransformKernels.cpp - the plain forms, and which twins belong to which level of the processor.
#include "bitstream/TransformKernels.h"

#include "bitstream/Transforms.h"

namespace vorn {

namespace {

constexpr TransformKernels PLAIN = {CodeIntraPlain, CodeInterPlain};

#if defined(__x86_64__) || defined(__i386__)
constexpr TransformKernels FAST = {CodeIntraAvx2, CodeInterAvx2};
#else
constexpr TransformKernels FAST = PLAIN;
#endif

} // namespace

void CodeIntraPlain(int16_t* quantised, uint8_t* shown, const uint8_t* block, int q) {
    int32_t coefficients[BLOCK_SAMPLES];
    ForwardTransform(coefficients, block);
    QuantiseIntra(quantised, coefficients, q);
    InverseIntra(shown, BLOCK_SIDE, quantised, q);
}

void CodeInterPlain(int16_t* quantised, uint8_t* change, const int8_t* residual, int q) {
    int32_t coefficients[BLOCK_SAMPLES];
    ForwardTransformSigned(coefficients, residual);
    QuantiseInter(quantised, coefficients, q);
    InverseInter(change, BLOCK_SIDE, quantised, q);
}

const TransformKernels& TransformKernelsOf(CpuLevel level) {
    return level >= CpuLevel::AVX2 ? FAST : PLAIN;
}

const TransformKernels& Transforms() {
    return TransformKernelsOf(LevelInForce());
}

} // namespace vorn
