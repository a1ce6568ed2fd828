// NodeGroups.h - what the writers of DCT and residue strings share. Of a plane's pass everything is known beforehand as one word,
// bit n for the value of number n in the walk: which values have been reached, which of them show in this plane, which are
// negative. A group of four is four bits of each, and what becomes of it is a matter of tables. Which values show can't be
// foreseen, so there are few branches on it.
#pragma once

#include <array>
#include <cstdint>

#include "bitstream/NodeList.h"
#include "format/BlockFormat.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vorn {

constexpr uint32_t GROUP_CASES = 1 << GROUP_SIZE;
constexpr uint32_t EACH_PLACE = 0x01010101; // times a number: added to all four places of a word
constexpr int WAITING_ROOM = BLOCK_SAMPLES;
constexpr int TREE_ROOM = 16; // nodes of a list but for those that wait: up to six to begin with, nine that join

// Where the four of a group go, by those that show: bit i for the i-th.
struct GroupOrder {
    uint32_t showing;  // places in the group of those that show, the first one in the lowest byte
    uint32_t waiting;  // of the others, the first one in the highest byte: the last to join is the next pass's first
    uint8_t showCount; // how many show
};

constexpr std::array<GroupOrder, GROUP_CASES> MakeGroupOrders() {
    std::array<GroupOrder, GROUP_CASES> orders = {};
    for (uint32_t shows = 0; shows < GROUP_CASES; shows++) {
        GroupOrder& order = orders[shows];
        uint32_t waitCount = 0;
        for (uint32_t i = 0; i < GROUP_SIZE; i++) {
            if ((shows >> i & 1) != 0)
                order.showing |= i << (8 * order.showCount++);
            else
                order.waiting |= i << (24 - 8 * waitCount++);
        }
    }
    return orders;
}
inline constexpr std::array<GroupOrder, GROUP_CASES> GROUP_ORDERS = MakeGroupOrders();

// In a residue string a group that opens has a flag for each of its four, and a sign behind that of one that shows. By those that
// show: for each of them the bits of the group up to the end of its sign.
constexpr std::array<std::array<uint16_t, GROUP_SIZE>, GROUP_CASES> MakeGroupEnds() {
    std::array<std::array<uint16_t, GROUP_SIZE>, GROUP_CASES> ends = {};
    for (uint32_t shows = 0; shows < GROUP_CASES; shows++) {
        uint32_t bits = 0, showCount = 0;
        for (uint32_t i = 0; i < GROUP_SIZE; i++) {
            const bool one = (shows >> i & 1) != 0;
            bits += one ? 2 : 1;
            if (one) ends[shows][showCount++] = static_cast<uint16_t>(bits);
        }
    }
    return ends;
}
inline constexpr std::array<std::array<uint16_t, GROUP_SIZE>, GROUP_CASES> GROUP_ENDS = MakeGroupEnds();

// Bit i is set if byte i of 64 has bit number `bit`.
inline uint64_t BitOfEach(const uint8_t bytes[BLOCK_SAMPLES], uint32_t bit) {
    uint64_t found = 0;
#if defined(__SSE2__)
    const __m128i toTop = _mm_cvtsi32_si128(static_cast<int>(7 - bit));
    for (int i = 0; i < BLOCK_SAMPLES; i += 16) {
        const __m128i sixteen = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
        found |= uint64_t(static_cast<uint32_t>(_mm_movemask_epi8(_mm_sll_epi16(sixteen, toTop)))) << i;
    }
#else
    for (int i = 0; i < BLOCK_SAMPLES; i++) found |= uint64_t(bytes[i] >> bit & 1) << i;
#endif
    return found;
}

// How many bits are set.
inline uint32_t CountOnes(uint64_t word) {
    word -= word >> 1 & 0x5555555555555555;
    word = (word & 0x3333333333333333) + (word >> 2 & 0x3333333333333333);
    word = (word + (word >> 4)) & 0x0f0f0f0f0f0f0f0f;
    return static_cast<uint32_t>(word * 0x0101010101010101 >> 56);
}

} // namespace vorn
