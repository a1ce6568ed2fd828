// DctAvx2.cpp - the trials of all quantisers, with sixteen registers.
#include "analysis/DctVector.h"

namespace vorn {

int TryIntraAvx2(DctTrial* trials, const uint8_t* block, const uint8_t* high) {
    return TryIntra<EightColumns>(trials, block, high);
}

int TryInterAvx2(DctTrial* trials, const uint8_t* src, const int8_t* residual, const uint8_t* moved) {
    return TryInter<EightColumns>(trials, src, residual, moved);
}

} // namespace vorn
