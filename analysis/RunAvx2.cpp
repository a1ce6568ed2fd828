// RunAvx2.cpp - the codings of a block in flat runs, with half a block in a register.
#include <immintrin.h>
#include <string.h>

#include "analysis/RunVector.h"

namespace vorn {
namespace {

struct ThirtyTwoLanes {
    using Part = __m256i;
    static constexpr int COUNT = 32;
    static constexpr int PARTS = 2;
    struct Block {
        Part parts[PARTS];
    };

    static Part Load(const void* at) { return _mm256_loadu_si256((const __m256i*)at); }
    static void Store(void* at, Part v) { _mm256_storeu_si256((__m256i*)at, v); }
    static void StoreForBytes(void* at, Part v) { Store(at, v); }
    static Part Set(uint8_t value) { return _mm256_set1_epi8((char)value); }
    static Part Min(Part a, Part b) { return _mm256_min_epu8(a, b); }
    static Part Max(Part a, Part b) { return _mm256_max_epu8(a, b); }
    static Part Sub(Part a, Part b) { return _mm256_sub_epi8(a, b); }
    static Part SubDown(Part a, Part b) { return _mm256_subs_epu8(a, b); } // not below 0
    static Part Average(Part a, Part b) { return _mm256_avg_epu8(a, b); }
    static Part And(Part a, Part b) { return _mm256_and_si256(a, b); }
    static Part Or(Part a, Part b) { return _mm256_or_si256(a, b); }
    static Part Xor(Part a, Part b) { return _mm256_xor_si256(a, b); }
    static Part Sad(Part a, Part b) { return _mm256_sad_epu8(a, b); }
    static Part AddSums(Part a, Part b) { return _mm256_add_epi64(a, b); }
    template <int BITS> static Part ShiftSums(Part v) { return _mm256_slli_epi64(v, BITS); }
    static __m128i Fold(Part sums) {
        return _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
    }

    // Flags of lanes, all bits set or none. Turned round: those whose step is below the threshold have none.
    static Part Below(Part steps, Part threshold) { return _mm256_cmpeq_epi8(Max(steps, threshold), steps); }
    static Part Choose(Part flags, Part unset, Part set) { return _mm256_blendv_epi8(set, unset, flags); }
    static Part Only(Part flags, uint8_t value) { return _mm256_andnot_si256(flags, Set(value)); }
    static Part AddWhere(Part v, Part flags, uint8_t value) { return _mm256_add_epi8(v, Only(flags, value)); }

    // Bytes of `order` that name a sample of the i-th 16 fetch it, others 0.
    static Part Fetch(Part samples, Part order, int i) {
        const Part offset = Xor(order, Set((uint8_t)(16 * i)));                   // 0..15 if it is one of them
        return _mm256_shuffle_epi8(samples, _mm256_adds_epu8(offset, Set(0x70))); // all others from 0x80 up
    }
    static Block Scan(const uint8_t* block, const uint8_t* order) {
        Block scanned = {{Set(0), Set(0)}};
        for (int i = 0; i < 4; i++) {
            const Part samples = _mm256_broadcastsi128_si256(_mm_loadu_si128((const __m128i*)(block + 16 * i)));
            for (int k = 0; k < PARTS; k++)
                scanned.parts[k] = Or(scanned.parts[k], Fetch(samples, Load(order + COUNT * k), i));
        }
        return scanned;
    }
    // The last lane stays as it is.
    static Block Successors(Block b) {
        const Part middle = _mm256_permute2x128_si256(b.parts[0], b.parts[1], 0x21); // samples 16..47
        const Part last = _mm256_srli_si256(_mm256_permute2x128_si256(b.parts[1], b.parts[1], 0x81), 15);
        const Part end = _mm256_permute2x128_si256(b.parts[1], last, 0x21); // samples 48..63, then sample 63 alone
        return {{_mm256_alignr_epi8(middle, b.parts[0], 1), _mm256_alignr_epi8(end, b.parts[1], 1)}};
    }
    static uint64_t Bits(Part low, Part high) {
        return (uint32_t)_mm256_movemask_epi8(low) | (uint64_t)(uint32_t)_mm256_movemask_epi8(high) << 32;
    }
    // The least of eight words, and above it the place of the first that is it.
    static uint32_t LeastOfEight(__m128i sums) { return (uint32_t)_mm_cvtsi128_si32(_mm_minpos_epu16(sums)); }
    static uint64_t Equal(Block a, Block b) {
        return Bits(_mm256_cmpeq_epi8(a.parts[0], b.parts[0]), _mm256_cmpeq_epi8(a.parts[1], b.parts[1]));
    }
    static uint64_t EqualTo(Block b, __m128i value) {
        const Part all = _mm256_broadcastb_epi8(value);
        return Bits(_mm256_cmpeq_epi8(b.parts[0], all), _mm256_cmpeq_epi8(b.parts[1], all));
    }
    // All bits of the lanes whose bit is set.
    static Part Chosen(uint32_t lanes) {
        const Part byteOfLane = _mm256_set_epi64x(0x0303030303030303, 0x0202020202020202, 0x0101010101010101, 0);
        const Part bitOfLane = _mm256_set1_epi64x((int64_t)0x8040201008040201);
        const Part bytes = _mm256_shuffle_epi8(_mm256_set1_epi32((int)lanes), byteOfLane);
        return _mm256_cmpeq_epi8(And(bytes, bitOfLane), bitOfLane);
    }
    // Lanes from `first` to `first + last`, by their bits.
    static void Put(Block* b, int, int, uint64_t lanes, uint8_t value) {
        b->parts[0] = _mm256_blendv_epi8(b->parts[0], Set(value), Chosen((uint32_t)lanes));
        b->parts[1] = _mm256_blendv_epi8(b->parts[1], Set(value), Chosen((uint32_t)(lanes >> 32)));
    }
    // The least of the chosen lanes, 255 if there is none, in all lanes.
    static __m128i Least(Block b, uint64_t lanes) {
        const Part low = Or(b.parts[0], Chosen((uint32_t)~lanes));
        const Part both = Min(low, Or(b.parts[1], Chosen((uint32_t)(~lanes >> 32))));
        const __m128i half = _mm_min_epu8(_mm256_castsi256_si128(both), _mm256_extracti128_si256(both, 1));
        return _mm_broadcastb_epi8(_mm_minpos_epu16(_mm_min_epu8(half, _mm_srli_epi16(half, 8))));
    }
    // Samples 8 * i and on, four times each.
    static Part Quadruple(const Block& b, int i) {
        const Part places =
            _mm256_set_epi64x(0x0707070706060606, 0x0505050504040404, 0x0303030302020202, 0x0101010100000000);
        int64_t samples;
        memcpy(&samples, (const uint8_t*)b.parts + 8 * i, sizeof samples);
        return _mm256_shuffle_epi8(_mm256_set1_epi64x(samples), places);
    }
};

} // namespace

int ListRunsAvx2(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                 uint32_t runBits) {
    return ListRuns<ThirtyTwoLanes>(list, block, high, colourBits, runBits);
}

} // namespace vorn
