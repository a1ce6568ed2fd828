// MotionMeasureAll.h - the SAD of every position, branch-free, sixteen positions at a time; for files built for AVX2.
#pragma once

#include <immintrin.h>
#include <string.h>

#include "analysis/MotionVector.h"

namespace vorn {
namespace {

constexpr int WINDOW_PITCH = 64;
constexpr int WINDOW_ROWS = MOST_POSITIONS + 7;
constexpr int WINDOW_BYTES = 48; // of a row: two steps of 16 positions reach 40

// Copies the samples that the positions can touch, so that wide loads stay inside what is ours.
static inline void CopyWindow(uint8_t* window, const MotionTask* task) {
    const int rows = task->down - task->up + 8;
    const int bytes = task->right - task->left + 8;
    for (int row = 0; row < rows; row++, window += WINDOW_PITCH) {
        const uint8_t* from = task->reference + (task->up + row) * task->pitch + task->left;
        if (task->referenceEnd - from >= WINDOW_BYTES) {
            memcpy(window, from, WINDOW_BYTES);
        } else {
            memset(window, 0, WINDOW_BYTES);
            memcpy(window, from, (size_t)bytes);
        }
    }
}

// Adds the distances of one row of eight samples to the sums of sixteen positions.
template <int LOW, int HIGH> static inline __m256i AddRow(__m256i sums, const uint8_t* at, __m256i source) {
    const __m256i row = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128((const __m128i*)at)),
                                                _mm_loadu_si128((const __m128i*)(at + 8)), 1);
    sums = _mm256_add_epi16(sums, _mm256_mpsadbw_epu8(row, source, LOW));
    return _mm256_add_epi16(sums, _mm256_mpsadbw_epu8(row, source, HIGH));
}

static inline __m256i SixteenSads(const uint8_t* at, const __m256i* source) {
    // The selectors name four of the register's sixteen source samples, and where in the row they begin, for both halves.
    constexpr int FIRST_LOW = 0x00, FIRST_HIGH = 0x2d, SECOND_LOW = 0x12, SECOND_HIGH = 0x3f;
    __m256i even = _mm256_setzero_si256();
    __m256i odd = _mm256_setzero_si256();
    for (int pair = 0; pair < 4; pair++, at += 2 * WINDOW_PITCH) {
        even = AddRow<FIRST_LOW, FIRST_HIGH>(even, at, source[pair]);
        odd = AddRow<SECOND_LOW, SECOND_HIGH>(odd, at + WINDOW_PITCH, source[pair]);
    }
    return _mm256_add_epi16(even, odd);
}

static void MeasureAll(BestMatch* best, const MotionTask* task, const SourceRows* source) {
    alignas(32) uint8_t window[WINDOW_ROWS * WINDOW_PITCH];
    CopyWindow(window, task);
    __m256i rows[4];
    for (int i = 0; i < 4; i++) rows[i] = _mm256_broadcastsi128_si256(source->rows[i]);
    const int columns = task->right - task->left + 1;
    for (int dy = task->up; dy <= task->down; dy++) {
        const uint8_t* at = window + (dy - task->up) * WINDOW_PITCH;
        for (int first = 0; first < columns; first += 16) {
            const __m256i sads = SixteenSads(at + first, rows);
            const __m128i low = _mm_min_epu16(_mm256_castsi256_si128(sads), _mm256_extracti128_si256(sads, 1));
            if ((uint32_t)_mm_extract_epi16(_mm_minpos_epu16(low), 0) > best->error) continue;
            alignas(32) uint16_t errors[16];
            _mm256_store_si256((__m256i*)errors, sads);
            for (int lane = 0; lane < 16 && first + lane < columns; lane++) {
                Offer(best, errors[lane], OrderOf(task->left + first + lane, dy));
            }
        }
    }
}

} // namespace
} // namespace vorn
