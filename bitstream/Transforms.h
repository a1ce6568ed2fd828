// Transforms.h - the 8x8 transforms and quantisers, exact to the bit: 32-bit arithmetic that wraps, arithmetic shifts.
// Blocks are in block order, 8 * row + column; quantiser 0 is the finest, 15 the coarsest. Pure functions.
#pragma once

#include <cstdint>

#include "format/BlockFormat.h"

namespace vorn {

void ForwardTransform(int32_t* coefficients, const uint8_t* block);       // samples
void ForwardTransformSigned(int32_t* coefficients, const int8_t* block);  // residuals
void QuantiseIntra(int16_t* quantised, const int32_t* coefficients, int q);
// As QuantiseIntra with the inter tables, and a DC of -1024 becomes -1023: the stream has no room for more.
void QuantiseInter(int16_t* quantised, const int32_t* coefficients, int q);
// Writes 8 rows of 8 bytes, `pitch` bytes apart; values keep their low 8 bits.
void InverseIntra(uint8_t* destination, int pitch, const int16_t* quantised, int q);
void InverseInter(uint8_t* destination, int pitch, const int16_t* quantised, int q);

} // namespace vorn
