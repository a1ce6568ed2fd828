// DctAvx512.cpp - the trials of all quantisers, with twice the registers.
#include "analysis/DctVector.h"

namespace vorn {

int TryIntraAvx512(DctTrial* trials, const uint8_t* block, const uint8_t* high) {
    return TryIntra<EightColumns>(trials, block, high);
}

int TryInterAvx512(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved) {
    return TryInter<EightColumns>(trials, src, residual, moved);
}

} // namespace vorn
