// MotionVector.h - the fast full search, for files that are built for one instruction set. Lanes is that file's vector of
// 16-bit lanes.
//
// Idea: the sums of a block's four 4x4 quarters bound its SAD from below: SAD >= sum of |quarter - quarter'|. The bounds of
// all positions are worked out branch-free from the reference's area sums, many positions at once. The position with the
// least bound and (0, 0) set the bar; only positions whose bound does not exceed it are measured in full. On film these are
// a few in a hundred. Where they are many, as in noise, all positions are measured instead, if the level has a fast way.
// Ties: a position counts as a number, its place in the visiting order, and the pair (SAD, number) is minimised, so the order
// in which positions are measured is of no consequence.
#pragma once

#include <emmintrin.h>

#include "analysis/MotionKernels.h"

namespace vorn {
namespace {

constexpr int MOST_POSITIONS = 31;       // along an axis
constexpr int ROW_LANES = 32;            // lanes of a row of bounds
constexpr uint16_t NO_POSITION = 0x7fff; // above every bound and every SAD
constexpr int MANY_SURVIVORS = 220;      // measured: from here on a full search of 961 positions costs no more

// The best so far. `order` is dy's step times 32 plus dx's step, the steps as in 0, 1, .. 15, -15, .. -1.
struct BestMatch {
    uint32_t error;
    int order;
};

static inline int OrderOf(int dx, int dy) {
    return (dy < 0 ? dy + MOST_POSITIONS : dy) * 32 + (dx < 0 ? dx + MOST_POSITIONS : dx);
}

static inline Displacement DisplacementOf(int order) {
    const int stepY = order / 32;
    const int stepX = order % 32;
    return {(int8_t)(stepX > 15 ? stepX - MOST_POSITIONS : stepX),
            (int8_t)(stepY > 15 ? stepY - MOST_POSITIONS : stepY)};
}

static inline void Offer(BestMatch* best, uint32_t error, int order) {
    if (error > best->error || (error == best->error && order > best->order)) return;
    best->error = error;
    best->order = order;
}

// Two rows of eight samples in one register.
static inline __m128i LoadTwoRows(const uint8_t* at, int pitch) {
    const __m128i low = _mm_loadl_epi64((const __m128i*)at);
    return _mm_unpacklo_epi64(low, _mm_loadl_epi64((const __m128i*)(at + pitch)));
}

struct SourceRows {
    __m128i rows[4]; // two rows each
};

static inline uint32_t AddHalves(__m128i sums) {
    return (uint32_t)(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
}

static inline uint32_t SadOfBlock(const SourceRows* source, const uint8_t* at, int pitch) {
    const __m128i a = _mm_sad_epu8(source->rows[0], LoadTwoRows(at, pitch));
    const __m128i b = _mm_sad_epu8(source->rows[1], LoadTwoRows(at + 2 * pitch, pitch));
    const __m128i c = _mm_sad_epu8(source->rows[2], LoadTwoRows(at + 4 * pitch, pitch));
    const __m128i d = _mm_sad_epu8(source->rows[3], LoadTwoRows(at + 6 * pitch, pitch));
    return AddHalves(_mm_add_epi64(_mm_add_epi64(a, b), _mm_add_epi64(c, d)));
}

// Sums of the source block's quarters: upper left, upper right, lower left, lower right.
static inline void SumQuarters(const SourceRows* source, int16_t* quarters) {
    const __m128i left = _mm_set_epi32(0, -1, 0, -1);
    const __m128i zero = _mm_setzero_si128();
    for (int half = 0; half < 2; half++) {
        const __m128i a = source->rows[2 * half];
        const __m128i b = source->rows[2 * half + 1];
        quarters[2 * half] = (int16_t)AddHalves(
            _mm_add_epi64(_mm_sad_epu8(_mm_and_si128(left, a), zero), _mm_sad_epu8(_mm_and_si128(left, b), zero)));
        quarters[2 * half + 1] = (int16_t)AddHalves(_mm_add_epi64(_mm_sad_epu8(_mm_andnot_si128(left, a), zero),
                                                                  _mm_sad_epu8(_mm_andnot_si128(left, b), zero)));
    }
}

// The bounds of all positions, ROW_LANES a row, NO_POSITION in the lanes behind the last. Returns the least.
template <class Lanes>
static inline int BoundPositions(int16_t* bounds, const MotionTask* task, const int16_t* quarters) {
    const int columns = task->right - task->left + 1;
    const int rows = task->down - task->up + 1;
    const int pitch = task->pitch;
    const typename Lanes::Vector q0 = Lanes::Set(quarters[0]), q1 = Lanes::Set(quarters[1]);
    const typename Lanes::Vector q2 = Lanes::Set(quarters[2]), q3 = Lanes::Set(quarters[3]);
    typename Lanes::Vector least = Lanes::Set((int16_t)NO_POSITION);
    for (int first = 0; first < columns; first += Lanes::COUNT) {
        const typename Lanes::Vector outside = Lanes::Outside(columns - first);
        const uint16_t* areas = task->areas + task->up * pitch + task->left + first;
        for (int row = 0; row < rows; row++, areas += pitch) {
            const typename Lanes::Vector upper =
                Lanes::Add(Lanes::Distance(Lanes::Load(areas), q0), Lanes::Distance(Lanes::Load(areas + 4), q1));
            const typename Lanes::Vector lower = Lanes::Add(Lanes::Distance(Lanes::Load(areas + 4 * pitch), q2),
                                                            Lanes::Distance(Lanes::Load(areas + 4 * pitch + 4), q3));
            const typename Lanes::Vector bound = Lanes::Or(Lanes::Add(upper, lower), outside);
            Lanes::Store(bounds + row * ROW_LANES + first, bound);
            least = Lanes::Min(least, bound);
        }
    }
    return Lanes::Least(least);
}

// Positions whose bound does not exceed a bar.
struct Survivors {
    uint32_t lanes[MOST_POSITIONS]; // by row a bit for each position
    uint32_t rows;                  // a bit for each row that has any
};

template <class Lanes>
static inline void FindSurvivors(Survivors* found, const int16_t* bounds, int rows, int columns, uint32_t bar) {
    found->rows = 0;
    for (int row = 0; row < rows; row++, bounds += ROW_LANES) {
        uint32_t lanes = 0;
        for (int first = 0; first < columns; first += Lanes::COUNT)
            lanes |= Lanes::MaskUpTo(bounds + first, (int16_t)bar) << first;
        found->lanes[row] = lanes;
        found->rows |= (uint32_t)(lanes != 0) << row;
    }
}

static inline int CountSurvivors(const Survivors* found, int rows) {
    int count = 0;
    for (int row = 0; row < rows; row++) count += __builtin_popcount(found->lanes[row]);
    return count;
}

// The first position whose bound is `least`, row * ROW_LANES + lane.
template <class Lanes> static inline int FirstLeast(const int16_t* bounds, int columns, int least) {
    for (int row = 0;; row++) {
        for (int first = 0; first < columns; first += Lanes::COUNT) {
            const uint32_t lanes = Lanes::MaskUpTo(bounds + row * ROW_LANES + first, (int16_t)least);
            if (lanes != 0) return row * ROW_LANES + first + __builtin_ctz(lanes);
        }
    }
}

// `measureAll`, if there is one, offers every position.
template <class Lanes>
static inline Displacement SearchByBounds(const MotionTask* task,
                                          void (*measureAll)(BestMatch*, const MotionTask*, const SourceRows*)) {
    SourceRows source;
    for (int i = 0; i < 4; i++) source.rows[i] = LoadTwoRows(task->source + 2 * i * task->pitch, task->pitch);
    BestMatch best = {SadOfBlock(&source, task->reference, task->pitch), 0};
    if (best.error == 0) return {0, 0};

    const int rows = task->down - task->up + 1;
    const int columns = task->right - task->left + 1;
    int16_t quarters[4];
    alignas(64) int16_t bounds[MOST_POSITIONS * ROW_LANES];
    SumQuarters(&source, quarters);
    const int least = BoundPositions<Lanes>(bounds, task, quarters);
    const auto measure = [&](int place) {
        const int dx = task->left + place % ROW_LANES;
        const int dy = task->up + place / ROW_LANES;
        Offer(&best, SadOfBlock(&source, task->reference + dy * task->pitch + dx, task->pitch), OrderOf(dx, dy));
    };
    measure(FirstLeast<Lanes>(bounds, columns, least));
    Survivors survivors;
    FindSurvivors<Lanes>(&survivors, bounds, rows, columns, best.error);
    if (measureAll != nullptr && CountSurvivors(&survivors, rows) > MANY_SURVIVORS) {
        measureAll(&best, task, &source);
        return DisplacementOf(best.order);
    }
    for (uint32_t left = survivors.rows; left != 0; left &= left - 1) {
        const int row = __builtin_ctz(left);
        for (uint32_t lanes = survivors.lanes[row]; lanes != 0; lanes &= lanes - 1) {
            const int place = row * ROW_LANES + __builtin_ctz(lanes);
            if ((uint32_t)bounds[place] <= best.error) measure(place);
        }
    }
    return DisplacementOf(best.order);
}

} // namespace
} // namespace vorn
