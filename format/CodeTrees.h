// CodeTrees.h - the 16 fixed prefix codes. Code words go out lowest bit first; each row fills its code exactly.
#pragma once

#include <cstdint>

namespace vorn {

constexpr int CODE_TREES = 16;

extern const uint8_t TREE_LENGTHS[CODE_TREES][16]; // bits of entries 0 to 15, shortest first
extern const uint8_t TREE_WORDS[CODE_TREES][16];

} // namespace vorn
