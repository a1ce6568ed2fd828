// WalkOrder.cpp - the numbering of the positions of DCT and residue blocks: 2x2 squares, near ones first.
#include "format/BlockFormat.h"

namespace vorn {

// Entry k: block position, 8 * row + column, of coefficient number k. Four numbers from a multiple of 4 on are a 2x2 square.
// clang-format off
const uint8_t WALK_ORDER[BLOCK_SAMPLES] = {
     0,  1,  8,  9,  2,  3, 10, 11,  4,  5, 12, 13,  6,  7, 14, 15,
    20, 21, 28, 29, 22, 23, 30, 31, 16, 17, 24, 25, 32, 33, 40, 41,
    34, 35, 42, 43, 48, 49, 56, 57, 50, 51, 58, 59, 18, 19, 26, 27,
    36, 37, 44, 45, 38, 39, 46, 47, 52, 53, 60, 61, 54, 55, 62, 63,
};
// clang-format on

} // namespace vorn
