// Words.h - 32-bit words as files hold them: four bytes, the lowest first.
#pragma once

#include <cstdint>

namespace vorn {

inline uint32_t WordAt(const uint8_t* bytes) {
    return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
}

inline void PutWord(uint8_t* bytes, uint32_t word) {
    for (int i = 0; i < 4; i++) bytes[i] = static_cast<uint8_t>(word >> 8 * i);
}

} // namespace vorn
