// RunVector.h - all codings of a block in flat runs, for files that are built for one instruction set. Lanes is that file's
// way to hold 64 bytes: a Block is one or more Parts.
//
// Idea: from one threshold to the next, few runs change. What can be known of all runs that there can be, by start and
// length, is worked out at once, many starts at a time. At each threshold the lengths of the runs at all starts are, too; then
// it is cut anew only from the runs that the threshold lets grow, up to where the old cuts are met again. The next threshold is the
// least that lets a run grow: the same thresholds as a walk over all runs finds. Cost and error follow from the whole simplified sequence in registers.
// Price: some 400 vector operations a block, 30 to 90 a threshold, and then one cut after another, on film about four a
// threshold; what they take is the wait from each cut to the next.
#pragma once

#include <emmintrin.h>
#include <stdint.h>

#include "analysis/RunKernels.h"
#include "analysis/RunSegmentCost.h"
#include "blocks/BlockRecord.h"

namespace vorn {
namespace {

constexpr int LONGEST_RUN = 16;
constexpr int WINDOW_SLACK = 64; // bytes behind a sequence that windows on it may touch
constexpr uint8_t NEVER = 255;

// "Step" is what ends a run: its range with the next sample in, less one; a run goes on at threshold T if its step is below
// T. Steps of a start never fall as the run grows. NEVER if the run is as long as it can be.
struct RunTables {
    alignas(64) uint8_t steps[LONGEST_RUN][BLOCK_SAMPLES]; // [length - 1][start], for thresholds from 1 up
    alignas(64) uint8_t zeroSteps[BLOCK_SAMPLES];          // [start]: of the run at threshold 0
    // [length - 1][start]; no meaning if the run would pass the end.
    alignas(64) uint8_t medians[LONGEST_RUN][BLOCK_SAMPLES];
    alignas(64) uint8_t lasts[BLOCK_SAMPLES]; // [start]: length - 1 of the run at the threshold in hand
    alignas(64) uint8_t sequence[BLOCK_SAMPLES + WINDOW_SLACK];
    alignas(64) uint32_t groups[BLOCK_SAMPLES]; // half scale only: the four full-scale samples of each sample
};

// A window on it i samples in says which samples of the same window on a sequence are behind the end.
alignas(64) static const uint8_t BEHIND_END[BLOCK_SAMPLES + WINDOW_SLACK] = {
    // clang-format off
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255,
    // clang-format on
};

// Roughness of one scan order in parts of 64 bits.
template <class Lanes> static inline typename Lanes::Part RoughnessParts(const uint8_t* block, int order) {
    const typename Lanes::Block sequence = Lanes::Scan(block, SCAN_ORDER[order]);
    const typename Lanes::Block next = Lanes::Successors(sequence);
    typename Lanes::Part sum = Lanes::Set(0);
    for (int i = 0; i < Lanes::PARTS; i++) {
        const typename Lanes::Part a = sequence.parts[i], b = next.parts[i];
        const typename Lanes::Part step = Lanes::Sub(Lanes::Max(a, b), Lanes::Min(a, b));
        sum = Lanes::AddSums(sum, Lanes::Sad(step, Lanes::Set(0)));
        sum = Lanes::AddSums(sum, Lanes::Sad(Lanes::Min(step, Lanes::Set(1)), Lanes::Set(0)));
    }
    return sum;
}

// Roughness of four orders in 16 bits each, first order lowest, in two halves. A whole one is at most 63 * 256.
template <class Lanes> static inline __m128i FourRoughnesses(const uint8_t* block, int order) {
    const typename Lanes::Part a = RoughnessParts<Lanes>(block, order);
    const typename Lanes::Part b = Lanes::template ShiftSums<16>(RoughnessParts<Lanes>(block, order + 1));
    const typename Lanes::Part c = Lanes::template ShiftSums<32>(RoughnessParts<Lanes>(block, order + 2));
    const typename Lanes::Part d = Lanes::template ShiftSums<48>(RoughnessParts<Lanes>(block, order + 3));
    return Lanes::Fold(Lanes::Or(Lanes::Or(a, b), Lanes::Or(c, d)));
}

// Of eight orders the least roughness, and above it the place of the first that has it.
template <class Lanes> static inline uint32_t SmoothestOfEight(const uint8_t* block, int order) {
    const __m128i a = FourRoughnesses<Lanes>(block, order);
    const __m128i b = FourRoughnesses<Lanes>(block, order + 4);
    const __m128i sums = _mm_add_epi16(_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b));
    return Lanes::LeastOfEight(sums);
}

template <class Lanes> static inline int SmoothestOrder(const uint8_t* block) {
    const uint32_t low = SmoothestOfEight<Lanes>(block, 0);
    const uint32_t high = SmoothestOfEight<Lanes>(block, 8);
    return (int)((high & 0xffff) < (low & 0xffff) ? 8 + (high >> 16) : low >> 16);
}

// Steps of the runs that start in one part.
template <class Lanes> static inline void MakeSteps(RunTables* tables, int first) {
    using Part = typename Lanes::Part;
    const Part one = Lanes::Set(1);
    Part low = Lanes::Load(tables->sequence + first);
    Part high = low;
    Part zeroStep = Lanes::Set(NEVER);
#pragma GCC unroll 16
    for (int i = 1; i < LONGEST_RUN; i++) {
        const Part sample = Lanes::Load(tables->sequence + first + i);
        const Part behind = Lanes::Load(BEHIND_END + first + i);
        low = Lanes::Min(low, sample);
        high = Lanes::Max(high, sample);
        const Part range = Lanes::Sub(high, low);
        Lanes::Store(tables->steps[i - 1] + first, Lanes::Or(Lanes::SubDown(range, one), behind));
        zeroStep = Lanes::Min(zeroStep, Lanes::Or(Lanes::Sub(range, one), behind)); // a range of 0 gives NEVER
    }
    Lanes::Store(tables->steps[LONGEST_RUN - 1] + first, Lanes::Set(NEVER));
    Lanes::Store(tables->zeroSteps + first, zeroStep);
}

// How far the runs at a threshold reach from the starts in one part: over all steps below it, which are the first ones. Their
// number, 0 to 15, is found bit by bit from the top.
template <class Lanes>
static inline void MeasureRuns(RunTables* tables, int first, const typename Lanes::Part& threshold) {
    using Part = typename Lanes::Part;
    const auto step = [&](int i) { return Lanes::Load(tables->steps[i] + first); };
    const auto eight = Lanes::Below(step(7), threshold);
    const auto four = Lanes::Below(Lanes::Choose(eight, step(3), step(11)), threshold);
    const auto inFour = [&](int i) { return Lanes::Choose(four, step(i), step(i + 4)); };
    const auto two = Lanes::Below(Lanes::Choose(eight, inFour(1), inFour(9)), threshold);
    const auto inTwo = [&](int i) { return Lanes::Choose(two, step(i), step(i + 2)); };
    const auto inSix = [&](int i) { return Lanes::Choose(four, inTwo(i), inTwo(i + 4)); };
    const auto one = Lanes::Below(Lanes::Choose(eight, inSix(0), inSix(8)), threshold);
    Part lasts = Lanes::Only(eight, 8);
    lasts = Lanes::AddWhere(lasts, four, 4);
    lasts = Lanes::AddWhere(lasts, two, 2);
    lasts = Lanes::AddWhere(lasts, one, 1);
    Lanes::StoreForBytes(tables->lasts + first, lasts);
}

// Medians of the runs that start in one part. Their samples are sorted by insertion, one more at a time, in one register a
// rank. Only ranks that can still come to the middle are kept: with n samples in, n - 9 .. 8.
template <class Lanes> static inline void MakeMedians(RunTables* tables, int first) {
    using Part = typename Lanes::Part;
    Part ranks[LONGEST_RUN];
    ranks[0] = Lanes::Load(tables->sequence + first);
    Lanes::Store(tables->medians[0] + first, ranks[0]);
#pragma GCC unroll 16
    for (int n = 1; n < LONGEST_RUN; n++) {
        const Part sample = Lanes::Load(tables->sequence + first + n);
        if (n <= 8) ranks[n] = Lanes::Max(ranks[n - 1], sample);
#pragma GCC unroll 16
        for (int k = 8; k > 0; k--) {
            if (k < n && k >= n - 8) ranks[k] = Lanes::Max(ranks[k - 1], Lanes::Min(ranks[k], sample));
        }
        if (n <= 8) ranks[0] = Lanes::Min(ranks[0], sample);
        Part median = ranks[n / 2];
        if (n % 2 != 0) {
            const Part upper = ranks[n / 2 + 1];
            const Part odd = Lanes::And(Lanes::Xor(median, upper), Lanes::Set(1));
            median = Lanes::Sub(Lanes::Average(median, upper), odd); // the average rounds up
        }
        Lanes::Store(tables->medians[n] + first, median);
    }
}

// `high`: 256 samples, 16 a row.
static inline void ScanGroups(uint32_t* groups, const uint8_t* high, const uint8_t* order) {
    uint32_t inPlace[BLOCK_SAMPLES];
    for (int row = 0; row < BLOCK_SIDE; row++, high += 2 * HIGH_SIDE) {
        const __m128i above = _mm_loadu_si128((const __m128i*)high);
        const __m128i below = _mm_loadu_si128((const __m128i*)(high + HIGH_SIDE));
        _mm_storeu_si128((__m128i*)(inPlace + 8 * row), _mm_unpacklo_epi16(above, below));
        _mm_storeu_si128((__m128i*)(inPlace + 8 * row + 4), _mm_unpackhi_epi16(above, below));
    }
    for (int i = 0; i < BLOCK_SAMPLES; i++) groups[i] = inPlace[order[i]];
}

// `groups` is null for a block at full scale.
template <class Lanes>
static inline uint32_t ErrorOfRuns(const typename Lanes::Block& smooth, const typename Lanes::Block& sequence,
                                   const uint32_t* groups) {
    typename Lanes::Part sum = Lanes::Set(0);
    if (groups == nullptr) {
        for (int i = 0; i < Lanes::PARTS; i++)
            sum = Lanes::AddSums(sum, Lanes::Sad(smooth.parts[i], sequence.parts[i]));
    } else {
        const uint8_t* samples = (const uint8_t*)groups;
        for (int i = 0; i < 4 * Lanes::PARTS; i++)
            sum = Lanes::AddSums(sum, Lanes::Sad(Lanes::Quadruple(smooth, i), Lanes::Load(samples + i * Lanes::COUNT)));
    }
    const __m128i halves = Lanes::Fold(sum);
    return (uint32_t)(_mm_cvtsi128_si32(halves) + _mm_extract_epi16(halves, 4));
}

template <class Lanes> static inline uint64_t EqualNeighbours(const typename Lanes::Block& sequence) {
    return Lanes::Equal(sequence, Lanes::Successors(sequence)) & ~((uint64_t)1 << (BLOCK_SAMPLES - 1));
}

// The runs at one threshold.
template <class Lanes> struct RunState {
    typename Lanes::Block smooth; // the median of its run in the place of each sample
    typename Lanes::Block steps;  // at each start the run's step; no meaning elsewhere
    uint64_t starts;              // bit p: a run starts at p
};

// Cuts anew at each start in `cuts`, and then where such a run ends without meeting another start.
template <class Lanes> static inline void Recut(RunState<Lanes>* state, const RunTables* tables, uint64_t cuts) {
    do {
        const int start = __builtin_ctzll(cuts);
        const int last = tables->lasts[start];
        const uint64_t first = cuts & (~cuts + 1);
        const uint64_t behind = first << last << 1; // 0 at the end of the sequence
        const uint64_t samples = behind - first;
        cuts = (cuts & ~samples) | (behind & ~state->starts);
        Lanes::Put(&state->smooth, start, last, samples, tables->medians[last][start]);
        Lanes::Put(&state->steps, start, 0, first, tables->steps[last][start]);
        state->starts = (state->starts & ~samples) | first;
    } while (cuts != 0);
}

template <class Lanes>
static inline int ListRuns(BlockCandidate* list, const uint8_t* block, const uint8_t* high, uint32_t colourBits,
                           uint32_t runBits) {
    const int order = SmoothestOrder<Lanes>(block);
    const typename Lanes::Block sequence = Lanes::Scan(block, SCAN_ORDER[order]);
    RunTables tables;
    for (int i = 0; i < Lanes::PARTS; i++) Lanes::Store(tables.sequence + i * Lanes::COUNT, sequence.parts[i]);
    for (int i = 0; i < WINDOW_SLACK; i += Lanes::COUNT)
        Lanes::Store(tables.sequence + BLOCK_SAMPLES + i, Lanes::Set(0));
    for (int first = 0; first < BLOCK_SAMPLES; first += Lanes::COUNT) MakeSteps<Lanes>(&tables, first);
    for (int first = 0; first < BLOCK_SAMPLES; first += Lanes::COUNT) MakeMedians<Lanes>(&tables, first);
    if (high != nullptr) ScanGroups(tables.groups, high, SCAN_ORDER[order]);

    RunState<Lanes> state = {sequence, {}, ~(CutFlat(EqualNeighbours<Lanes>(sequence)) << 1)};
    for (int i = 0; i < Lanes::PARTS; i++) state.steps.parts[i] = Lanes::Load(tables.zeroSteps + i * Lanes::COUNT);
    uint32_t threshold = 0;
    for (int count = 0;;) {
        BlockCandidate* candidate = &list[count++];
        candidate->bits = CostOfSegments(EqualNeighbours<Lanes>(state.smooth), colourBits, runBits);
        candidate->error = ErrorOfRuns<Lanes>(state.smooth, sequence, high == nullptr ? nullptr : tables.groups);
        candidate->payload = (uint16_t)((uint32_t)order * 256 + threshold);
        candidate->mode = MODE_RUN;

        // Mostly the next threshold is this one and one. The processor guesses so and need not wait for the least step.
        uint64_t growing = Lanes::EqualTo(state.steps, _mm_set1_epi8((char)threshold)) & state.starts;
        if (growing == 0) {
            const __m128i step = Lanes::Least(state.steps, state.starts); // in all lanes
            threshold = (uint32_t)_mm_cvtsi128_si32(step) & 255;
            growing = Lanes::EqualTo(state.steps, step) & state.starts;
        }
        if (threshold == NEVER) return count;
        threshold++;
        for (int first = 0; first < BLOCK_SAMPLES; first += Lanes::COUNT)
            MeasureRuns<Lanes>(&tables, first, Lanes::Set((uint8_t)threshold));
        Recut(&state, &tables, growing);
    }
}

} // namespace
} // namespace vorn
