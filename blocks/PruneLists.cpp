// PruneLists.cpp - which ways of coding a block are worth keeping? The answers of the plain rules, sooner.
// Both results are sets of points in the plane of bits and error that don't depend on the order of the list: the lower convex
// hull, points on its edges included, and the staircase. What the plain rules drop at a point costs less or saves nothing
// against it, and so it does against all later points. Only which of several entries with the same bits and error stands for a
// point depends on the order. So the points are found by whatever way is quick, and where one has twins the swaps and drops of
// the plain rules are gone through without their search. The cheapest point is settled: of twins the first in the list. A list
// with numbers out of bounds goes the plain way.
#include "blocks/CandidateLists.h"

#include <algorithm>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>

#include "blocks/HullVector.h"
#endif

namespace vorn {

namespace {

// Sorting keys for the staircase hold bits above error above index; an encoder's numbers stay far below these.
constexpr int INDEX_WIDTH = 10;
constexpr int ERROR_WIDTH = 22;
constexpr uint64_t INDEX_MASK = (1u << INDEX_WIDTH) - 1;
constexpr uint64_t ERROR_MASK = (1u << ERROR_WIDTH) - 1;
constexpr unsigned SORTED_AT_ONCE = 4;
static_assert(SCRATCH_CANDIDATES <= 1 << INDEX_WIDTH);

// Moves the entries `kept` to the front, in this order.
void Gather(BlockCandidate* list, const uint16_t* kept, int count) {
    BlockCandidate entries[SCRATCH_CANDIDATES];
    for (int i = 0; i < count; i++) entries[i] = list[kept[i]];
    for (int i = 0; i < count; i++) list[i] = entries[i];
}

// Settles which entries stand for the points `kept` if some have twins, as the plain rules do. At each point the entries that
// `isBehind` puts behind it are dropped, the last entry moving into the hole; of those that are the next point the first one
// met is taken, and changes places with the entry that follows the point.
template <class Rule>
__attribute__((noinline)) // rarely called
void ChooseTwins(uint16_t* kept, int found, const BlockCandidate* list, int count, Rule isBehind) {
    uint16_t order[SCRATCH_CANDIDATES];
    for (int i = 0; i < count; i++) order[i] = static_cast<uint16_t>(i);
    std::swap(order[0], order[kept[0]]);
    for (int k = 1; k < found; k++) {
        const BlockCandidate point = list[kept[k - 1]];
        const BlockCandidate next = list[kept[k]];
        int taken = 0;
        for (int j = k; j < count;) {
            const BlockCandidate& entry = list[order[j]];
            if (isBehind(entry, point)) {
                order[j] = order[--count];
                continue;
            }
            if (taken == 0 && entry.bits == next.bits && entry.error == next.error) taken = j;
            j++;
        }
        std::swap(order[k], order[taken]);
        kept[k] = order[k];
    }
}

inline void OrderKeys(uint64_t* low, uint64_t* high) {
    const uint64_t a = *low;
    const uint64_t b = *high;
    *low = std::min(a, b);
    *high = std::max(a, b);
}
inline void SortFour(uint64_t* keys) {
    OrderKeys(keys, keys + 1);
    OrderKeys(keys + 2, keys + 3);
    OrderKeys(keys, keys + 2);
    OrderKeys(keys + 1, keys + 3);
    OrderKeys(keys + 1, keys + 2);
}

// Merges two neighbouring rising runs of the same length: the lower half of the result from the front, the upper half from
// the back. Neither half can use up a run before it is through, so there is no end to look for and no branch.
inline void MergeRuns(uint64_t* out, const uint64_t* runs, unsigned length) {
    const uint64_t* a = runs;
    const uint64_t* b = runs + length;
    const uint64_t* last = runs + 2 * length - 1; // of b; that of a lies `length` in front
    size_t fromA = 0;                             // how many of the i lowest came from a
    size_t lastFromA = 0;                         // how many of the i highest did
    for (size_t i = 0; i < length; i++) {
        const uint64_t lowA = a[fromA];
        const uint64_t lowB = b[i - fromA];
        out[i] = std::min(lowA, lowB);
        fromA += lowA < lowB;
        const uint64_t highA = *(last - length - lastFromA);
        const uint64_t highB = *(last - (i - lastFromA));
        out[2 * length - 1 - i] = std::max(highA, highB);
        lastFromA += highA > highB;
    }
}

// The keys of a list in rising order, in `keys` or in `spare`; null if a number is out of bounds. Both have room for the next
// power of two.
const uint64_t* SortKeys(uint64_t* keys, uint64_t* spare, const BlockCandidate* list, int count) {
    uint32_t seen = 0;
    for (int i = 0; i < count; i++) {
        keys[i] = ((uint64_t(list[i].bits) << ERROR_WIDTH | list[i].error) << INDEX_WIDTH) + static_cast<uint64_t>(i);
        seen |= list[i].error;
    }
    if (seen >> ERROR_WIDTH != 0) return nullptr;
    unsigned padded = SORTED_AT_ONCE;
    while (padded < static_cast<unsigned>(count)) padded *= 2;
    for (unsigned i = static_cast<unsigned>(count); i < padded; i++) keys[i] = UINT64_MAX;
    for (unsigned at = 0; at < padded; at += SORTED_AT_ONCE) SortFour(keys + at);
    for (unsigned length = SORTED_AT_ONCE; length < padded; length *= 2) {
        for (unsigned at = 0; at < padded; at += 2 * length) MergeRuns(spare + at, keys + at, length);
        std::swap(keys, spare);
    }
    return keys;
}

// The points of the staircase in `kept`, and whether one behind the first has twins. Returns how many, or -1 if the plain way has
// to be gone.
int FindStairs(uint16_t* kept, bool* twins, const BlockCandidate* list, int count) {
    uint64_t room[2][SCRATCH_CANDIDATES];
    const uint64_t* keys = SortKeys(room[0], room[1], list, count);
    if (keys == nullptr) return -1;
    int found = 0;
    uint64_t lowest = UINT64_MAX;
    uint64_t stair = UINT64_MAX; // the last point kept
    for (int i = 0; i < count; i++) {
        const uint64_t point = keys[i] >> INDEX_WIDTH;
        *twins |= (point == stair) & (found > 1);
        const bool lower = (point & ERROR_MASK) < lowest;
        kept[found] = static_cast<uint16_t>(keys[i] & INDEX_MASK);
        found += lower;
        lowest = lower ? point & ERROR_MASK : lowest;
        stair = lower ? point : stair;
    }
    return found;
}

#if defined(__SSE2__)

struct FourLanes {
    using Vector = __m128;
    static constexpr int COUNT = 4;
    static Vector Load(const float* at) { return _mm_loadu_ps(at); }
    static void Store(float* at, Vector v) { _mm_storeu_ps(at, v); }
    static Vector Set(float value) { return _mm_set1_ps(value); }
    static Vector Sub(Vector a, Vector b) { return _mm_sub_ps(a, b); }
    static Vector Min(Vector a, Vector b) { return _mm_min_ps(a, b); }
    static Vector Max(Vector a, Vector b) { return _mm_max_ps(a, b); }
    // gain / cost, roughly; 0 where the cost isn't above 0.
    static Vector Slope(Vector gain, Vector cost) {
        return _mm_and_ps(_mm_mul_ps(gain, _mm_rcp_ps(cost)), _mm_cmpgt_ps(cost, _mm_setzero_ps()));
    }
    static uint32_t Equal(Vector a, Vector b) { return static_cast<uint32_t>(_mm_movemask_ps(_mm_cmpeq_ps(a, b))); }
    static uint32_t NotLess(Vector a, Vector b) { return static_cast<uint32_t>(_mm_movemask_ps(_mm_cmpge_ps(a, b))); }
    static float Least(Vector v) {
        v = _mm_min_ps(v, _mm_movehl_ps(v, v));
        return _mm_cvtss_f32(_mm_min_ss(v, _mm_shuffle_ps(v, v, 1)));
    }
    static float Greatest(Vector v) {
        v = _mm_max_ps(v, _mm_movehl_ps(v, v));
        return _mm_cvtss_f32(_mm_max_ss(v, _mm_shuffle_ps(v, v, 1)));
    }
    // Four entries, three words each, as numbers. Not 0 if one of theirs is out of bounds.
    static uint32_t Take(Vector* bits, Vector* errors, const BlockCandidate* list) {
        const float* words = reinterpret_cast<const float*>(list);
        const Vector x = _mm_loadu_ps(words);                                // b0 e0 -- b1
        const Vector y = _mm_loadu_ps(words + 4);                            // e1 -- b2 e2
        const Vector z = _mm_loadu_ps(words + 8);                            // -- b3 e3 --
        const Vector upper = _mm_shuffle_ps(y, z, _MM_SHUFFLE(2, 1, 3, 2));  // b2 e2 b3 e3
        const Vector middle = _mm_shuffle_ps(x, y, _MM_SHUFFLE(0, 0, 1, 1)); // e0 e0 e1 e1
        const __m128i b = _mm_castps_si128(_mm_shuffle_ps(x, upper, _MM_SHUFFLE(2, 0, 3, 0)));
        const __m128i e = _mm_castps_si128(_mm_shuffle_ps(middle, upper, _MM_SHUFFLE(3, 1, 2, 0)));
        *bits = _mm_cvtepi32_ps(b);
        *errors = _mm_cvtepi32_ps(e);
        const __m128i above = _mm_srli_epi32(_mm_or_si128(b, e), HULL_WIDTH);
        return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi32(above, _mm_setzero_si128()))) ^ 0xffff;
    }
};

#endif

// What PruneRuns takes out of a part of a list is on no hull and no staircase, or else the twin of an entry that stays. So it
// needn't be taken out, unless a point of the result has twins: then this returns false and leaves the list alone.
bool PruneUnlessTwins(BlockCandidate* list, int* count, FindHullKernel findPoints) {
    if (*count < 1 || *count > SCRATCH_CANDIDATES) return false;
    uint16_t kept[SCRATCH_CANDIDATES];
    bool twins = false;
    const int found = findPoints(kept, &twins, list, *count);
    if (found < 0 || twins) return false;
    Gather(list, kept, found);
    *count = found;
    return true;
}

// Takes them out. Returns the new count.
int PruneRunsWithin(BlockCandidate* list, int count, int first, int last) {
    const int runs = PruneRuns(list + first, last - first);
    std::copy(list + last, list + count, list + first + runs);
    return count - (last - first) + runs;
}

} // namespace

int FindHull(uint16_t* kept, bool* twins, const BlockCandidate* list, int count) {
#if defined(__SSE2__)
    return FindHullIn<FourLanes>(kept, twins, list, count);
#else
    (void)kept, (void)twins, (void)list, (void)count;
    return -1;
#endif
}

int PruneHull(BlockCandidate* list, int count) {
    if (count < 1) return 0;
    uint16_t kept[SCRATCH_CANDIDATES];
    bool twins = false;
    const int found = count <= SCRATCH_CANDIDATES ? FindHull(kept, &twins, list, count) : -1;
    if (found < 0) return PruneHullPlain(list, count);
    if (twins) {
        ChooseTwins(kept, found, list, count, [](const BlockCandidate& entry, const BlockCandidate& point) {
            return entry.bits <= point.bits || entry.error >= point.error;
        });
    }
    Gather(list, kept, found);
    return found;
}

int PruneRuns(BlockCandidate* list, int count) {
    if (count < 1) return 0;
    uint16_t kept[SCRATCH_CANDIDATES];
    bool twins = false;
    const int found = count <= SCRATCH_CANDIDATES ? FindStairs(kept, &twins, list, count) : -1;
    if (found < 0) return PruneRunsPlain(list, count);
    if (twins) {
        ChooseTwins(kept, found, list, count, [](const BlockCandidate& entry, const BlockCandidate& point) {
            return entry.bits < point.bits || entry.error > point.error;
        });
    }
    Gather(list, kept, found);
    return found;
}

int PruneHullOverRuns(BlockCandidate* list, int count, int first, int last, FindHullKernel findHull) {
    if (PruneUnlessTwins(list, &count, findHull)) return count;
    return PruneHull(list, PruneRunsWithin(list, count, first, last));
}

int PruneRunsOverRuns(BlockCandidate* list, int count, int first, int last) {
    if (PruneUnlessTwins(list, &count, FindStairs)) return count;
    return PruneRuns(list, PruneRunsWithin(list, count, first, last));
}

} // namespace vorn
