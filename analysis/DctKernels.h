// DctKernels.h - the trials of all quantisers on one block, plain and fast. This file is included by files that are built
// for one instruction set, so it holds no inline function.
#pragma once

#include <stdint.h>

namespace vorn {

// What one quantiser makes of a block.
struct DctTrial {
    uint32_t acBits; // bits of the 63 AC coefficients' string
    uint32_t error;  // SAD of what a decoder shows
};

// Each fills one trial a quantiser, from 0 up, and returns how many. `trials` has room for all 16.
// Intra: stops before the first quantiser that leaves no AC. `high`, if not null, holds the 256 samples that the error of a
// half-scale block is measured on.
using TryIntraKernel = int (*)(DctTrial* trials, const uint8_t* block, const uint8_t* high);
int TryIntraPlain(DctTrial* trials, const uint8_t* block, const uint8_t* high);
int TryIntraSse2(DctTrial* trials, const uint8_t* block, const uint8_t* high);
int TryIntraAvx2(DctTrial* trials, const uint8_t* block, const uint8_t* high);
int TryIntraAvx512(DctTrial* trials, const uint8_t* block, const uint8_t* high);

// Inter: stops behind the first quantiser that leaves no AC.
using TryInterKernel = int (*)(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved);
int TryInterPlain(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved);
int TryInterSse2(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved);
int TryInterAvx2(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved);
int TryInterAvx512(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved);

} // namespace vorn
