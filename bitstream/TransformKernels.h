// TransformKernels.h - all that a DCT block goes through once its quantiser is chosen, plain and fast. This file is included by
// files that are built for one instruction set, so it holds no inline function.
#pragma once

#include <stdint.h>

#include "platform/CpuLevel.h"

namespace vorn {

// Transforms 64 packed samples, quantises them with quantiser q, and transforms back: `shown` is what a decoder shows.
using CodeIntraKernel = void (*)(int16_t* quantised, uint8_t* shown, const uint8_t* block, int q);
void CodeIntraPlain(int16_t* quantised, uint8_t* shown, const uint8_t* block, int q);
void CodeIntraAvx2(int16_t* quantised, uint8_t* shown, const uint8_t* block, int q);

// Likewise for 64 residuals; `change` is what a decoder adds to the displaced reference.
using CodeInterKernel = void (*)(int16_t* quantised, uint8_t* change, const int8_t* residual, int q);
void CodeInterPlain(int16_t* quantised, uint8_t* change, const int8_t* residual, int q);
void CodeInterAvx2(int16_t* quantised, uint8_t* change, const int8_t* residual, int q);

struct TransformKernels {
    CodeIntraKernel codeIntra;
    CodeInterKernel codeInter;
};
// Those of a level of the processor; the machine must be able to run it.
const TransformKernels& TransformKernelsOf(CpuLevel level);
// Those of the level in force.
const TransformKernels& Transforms();

} // namespace vorn
