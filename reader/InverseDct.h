// InverseDct.h - from quantised coefficients back to samples. Internal to the reader.
#pragma once

#include "format/BlockFormat.h"

namespace vorn::reader {

// Both take 64 coefficients in block order and give 64 samples, row by row, of which only the low 8 bits stand.
// For residuals they are to be added to the displaced reference, modulo 256.
void RestoreIntra(const int16_t coefficients[BLOCK_SAMPLES], uint32_t quantiser, uint8_t samples[BLOCK_SAMPLES]);
void RestoreInter(const int16_t coefficients[BLOCK_SAMPLES], uint32_t quantiser, uint8_t samples[BLOCK_SAMPLES]);

} // namespace vorn::reader
