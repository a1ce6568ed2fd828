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

#if defined(__SSE2__)

constexpr int LANES = 4;
constexpr int STEP = 2 * LANES; // entries a look

// Numbers below this are exact as floats, and so are their differences. And the plain rules, which compare quotients rounded
// to 53 bits, then compare exactly: two different fractions of numbers below 2^24 differ by more than 2^-48 of their value.
constexpr uint32_t HULL_BOUND = 1u << 24;
constexpr float NEVER = static_cast<float>(HULL_BOUND); // padding: dearer and worse than any entry, so on no hull
// A rough slope is the product of a gain and a reciprocal, at most 1.5 * 2^-12 off relative to the true slope and another 2^-24
// for the product. Two that are equal in truth differ by less than this.
constexpr float ROUGHNESS = 1.0f - 1.0f / 512;

// The points of a list, padded to whole steps.
struct HullPoints {
    alignas(16) float bits[SCRATCH_CANDIDATES];
    alignas(16) float errors[SCRATCH_CANDIDATES];
    int padded;
    int cheapest; // of those the best, of those the first in the list
    int best;     // the lowest error, of those the cheapest, of those the first in the list
};

// Four entries, of three words each, as a vector of bits and one of errors.
struct FourEntries {
    __m128i bits;
    __m128i errors;
};
inline FourEntries LoadFour(const BlockCandidate* list) {
    static_assert(sizeof(BlockCandidate) == 12);
    const __m128i* words = reinterpret_cast<const __m128i*>(list);
    const __m128 x = _mm_castsi128_ps(_mm_loadu_si128(words));           // b0 e0 -- b1
    const __m128 y = _mm_castsi128_ps(_mm_loadu_si128(words + 1));       // e1 -- b2 e2
    const __m128 z = _mm_castsi128_ps(_mm_loadu_si128(words + 2));       // -- b3 e3 --
    const __m128 upper = _mm_shuffle_ps(y, z, _MM_SHUFFLE(2, 1, 3, 2));  // b2 e2 b3 e3
    const __m128 errors = _mm_shuffle_ps(x, y, _MM_SHUFFLE(0, 0, 1, 1)); // e0 e0 e1 e1
    return {_mm_castps_si128(_mm_shuffle_ps(x, upper, _MM_SHUFFLE(2, 0, 3, 0))),
            _mm_castps_si128(_mm_shuffle_ps(errors, upper, _MM_SHUFFLE(3, 1, 2, 0)))};
}

inline float Least(__m128 lanes) {
    lanes = _mm_min_ps(lanes, _mm_movehl_ps(lanes, lanes));
    return _mm_cvtss_f32(_mm_min_ss(lanes, _mm_shuffle_ps(lanes, lanes, 1)));
}

inline float Greatest(__m128 lanes) {
    lanes = _mm_max_ps(lanes, _mm_movehl_ps(lanes, lanes));
    return _mm_cvtss_f32(_mm_max_ss(lanes, _mm_shuffle_ps(lanes, lanes, 1)));
}

// The first entry with the least `seconds` among those whose `firsts` are `least`.
int FirstLeast(const float* firsts, const float* seconds, int padded, float least) {
    const __m128 wanted = _mm_set1_ps(least);
    int found = -1;
    for (int at = 0; at < padded; at += LANES) {
        unsigned lanes = static_cast<unsigned>(_mm_movemask_ps(_mm_cmpeq_ps(_mm_load_ps(firsts + at), wanted)));
        for (; lanes != 0; lanes &= lanes - 1) {
            const int entry = at + __builtin_ctz(lanes);
            if (found < 0 || seconds[entry] < seconds[found]) found = entry;
        }
    }
    return found;
}

// False if a number is out of bounds.
bool TakePoints(HullPoints* points, const BlockCandidate* list, int count) {
    __m128i seen = _mm_setzero_si128(); // the bits that any number has
    __m128 leastBits = _mm_set1_ps(NEVER);
    __m128 leastError = leastBits;
    int at = 0;
    for (; at + LANES <= count; at += LANES) {
        const FourEntries four = LoadFour(list + at);
        seen = _mm_or_si128(seen, _mm_or_si128(four.bits, four.errors));
        const __m128 bits = _mm_cvtepi32_ps(four.bits);
        const __m128 errors = _mm_cvtepi32_ps(four.errors);
        _mm_store_ps(points->bits + at, bits);
        _mm_store_ps(points->errors + at, errors);
        leastBits = _mm_min_ps(leastBits, bits);
        leastError = _mm_min_ps(leastError, errors);
    }
    uint32_t seenLate = 0;
    for (; at < count; at++) {
        seenLate |= list[at].bits | list[at].error;
        points->bits[at] = static_cast<float>(list[at].bits);
        points->errors[at] = static_cast<float>(list[at].error);
        leastBits = _mm_min_ps(leastBits, _mm_set1_ps(points->bits[at]));
        leastError = _mm_min_ps(leastError, _mm_set1_ps(points->errors[at]));
    }
    for (; at % STEP != 0; at++) points->bits[at] = points->errors[at] = NEVER;
    seen = _mm_srli_epi32(_mm_or_si128(seen, _mm_set1_epi32(static_cast<int>(seenLate))), 24);
    if (_mm_movemask_epi8(_mm_cmpeq_epi32(seen, _mm_setzero_si128())) != 0xffff) return false;
    points->padded = at;
    points->cheapest = FirstLeast(points->bits, points->errors, at, Least(leastBits));
    points->best = FirstLeast(points->errors, points->bits, at, Least(leastError));
    return true;
}

// The step from one point to another, or what is known of it.
struct HullStep {
    int to;
    float cost; // more bits
    float gain; // less error
    bool twin;  // another entry is the same point as `to`
};
inline HullStep StepTo(const HullPoints& points, int from, int to) {
    return {to, points.bits[to] - points.bits[from], points.errors[from] - points.errors[to], false};
}

// Takes over a step that is steeper, or as steep and nearer. Costs and gains are below 2^24, so the products are exact.
inline void Improve(HullStep* step, const HullStep& other) {
    if (other.to == step->to) return;
    const double gained = static_cast<double>(other.gain) * step->cost;
    const double needed = static_cast<double>(step->gain) * other.cost;
    if (gained > needed || (gained == needed && other.cost < step->cost))
        *step = other;
    else if (gained == needed && other.cost == step->cost)
        step->twin = true;
}

// Rough slopes of the steps to all points, 0 or less where there is no gain for a cost. Returns the greatest, above 0.
inline float RoughSlopes(float* slopes, const HullPoints& points, int from) {
    const __m128 fromBits = _mm_set1_ps(points.bits[from]);
    const __m128 fromError = _mm_set1_ps(points.errors[from]);
    __m128 greatest = _mm_setzero_ps();
    for (int at = 0; at < points.padded; at += LANES) {
        const __m128 cost = _mm_sub_ps(_mm_load_ps(points.bits + at), fromBits);
        const __m128 gain = _mm_sub_ps(fromError, _mm_load_ps(points.errors + at));
        const __m128 slope = _mm_and_ps(_mm_mul_ps(gain, _mm_rcp_ps(cost)), _mm_cmpgt_ps(cost, _mm_setzero_ps()));
        greatest = _mm_max_ps(slope, greatest);
        _mm_store_ps(slopes + at, slope);
    }
    return Greatest(greatest);
}

// The steepest step from `from`, among equals the nearest. Only steps whose rough slopes come near the greatest are looked at
// exactly.
HullStep SteepestStep(const HullPoints& points, int from) {
    alignas(16) float slopes[SCRATCH_CANDIDATES];
    const __m128 near = _mm_set1_ps(RoughSlopes(slopes, points, from) * ROUGHNESS);
    HullStep step = StepTo(points, from, points.best);
    for (int at = 0; at < points.padded; at += STEP) {
        const __m128 lower = _mm_cmpge_ps(_mm_load_ps(slopes + at), near);
        const __m128 upper = _mm_cmpge_ps(_mm_load_ps(slopes + at + LANES), near);
        unsigned lanes =
            static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi32(_mm_castps_si128(lower), _mm_castps_si128(upper))));
        for (; lanes != 0; lanes &= lanes - 1) {
            const int entry = at + (__builtin_ctz(lanes) >> 1);
            lanes &= lanes - 1; // an entry has two bits
            Improve(&step, StepTo(points, from, entry));
        }
    }
    return step;
}

// The points of the hull in `kept`, and whether one of them behind the first has twins. Returns how many, or -1 if the plain
// way has to be gone.
int FindHull(uint16_t* kept, bool* twins, const BlockCandidate* list, int count) {
    HullPoints points;
    if (!TakePoints(&points, list, count)) return -1;
    int found = 0;
    *twins = false;
    int at = points.cheapest;
    kept[found++] = static_cast<uint16_t>(at);
    while (points.errors[at] != points.errors[points.best]) {
        const HullStep step = SteepestStep(points, at);
        *twins |= step.twin;
        at = step.to;
        kept[found++] = static_cast<uint16_t>(at);
    }
    return found;
}

#else

int FindHull(uint16_t*, bool*, const BlockCandidate*, int) {
    return -1;
}

#endif

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

// The points of the staircase in `kept`. Returns how many, or -1 if the plain way has to be gone.
int FindStairs(uint16_t* kept, const BlockCandidate* list, int count) {
    uint64_t room[2][SCRATCH_CANDIDATES];
    const uint64_t* keys = SortKeys(room[0], room[1], list, count);
    if (keys == nullptr) return -1;
    int found = 0;
    uint64_t lowest = UINT64_MAX;
    uint64_t stair = UINT64_MAX; // the last point kept
    bool twins = false;
    for (int i = 0; i < count; i++) {
        const uint64_t point = keys[i] >> INDEX_WIDTH;
        twins |= (point == stair) & (found > 1);
        const bool lower = (point & ERROR_MASK) < lowest;
        kept[found] = static_cast<uint16_t>(keys[i] & INDEX_MASK);
        found += lower;
        lowest = lower ? point & ERROR_MASK : lowest;
        stair = lower ? point : stair;
    }
    if (twins) {
        ChooseTwins(kept, found, list, count, [](const BlockCandidate& entry, const BlockCandidate& point) {
            return entry.bits < point.bits || entry.error > point.error;
        });
    }
    return found;
}

} // namespace

// Jarvis' march: from each point of the hull all entries are looked at for the next one. The hull of a block's list is short.
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

// What PruneRuns takes out of a part of the list is on no hull, or else the twin of an entry that stays. So it needn't be
// taken out, unless a point of the hull has twins.
int PruneHullOverRuns(BlockCandidate* list, int count, int first, int last) {
    uint16_t kept[SCRATCH_CANDIDATES];
    bool twins = false;
    const int found = count >= 1 && count <= SCRATCH_CANDIDATES ? FindHull(kept, &twins, list, count) : -1;
    if (found >= 0 && !twins) {
        Gather(list, kept, found);
        return found;
    }
    const int runs = PruneRuns(list + first, last - first);
    std::copy(list + last, list + count, list + first + runs);
    return PruneHull(list, count - (last - first) + runs);
}

int PruneRuns(BlockCandidate* list, int count) {
    if (count < 1) return 0;
    uint16_t kept[SCRATCH_CANDIDATES];
    const int found = count <= SCRATCH_CANDIDATES ? FindStairs(kept, list, count) : -1;
    if (found < 0) return PruneRunsPlain(list, count);
    Gather(list, kept, found);
    return found;
}

} // namespace vorn
