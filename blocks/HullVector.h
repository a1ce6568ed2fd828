// HullVector.h - the hull of a list, for files that are built for one instruction set. Lanes is that file's vector of floats.
//
// Jarvis' march: from each point of the hull all entries are looked at for the next one; the hull of a block's list is short.
// Rough slopes, many at once, pass over all entries but a few; exact products decide between these.
#pragma once

#include <stdint.h>

#include "blocks/BlockRecord.h"
#include "blocks/HullKernels.h"

namespace vorn {
namespace {

// Numbers below this are exact as floats, and so are their differences. And the plain rules, which compare quotients rounded
// to 53 bits, then compare exactly: two different fractions of numbers below 2^24 differ by more than 2^-48 of their value.
constexpr int HULL_WIDTH = 24;
constexpr float HULL_BOUND = (float)(1 << HULL_WIDTH); // padding: dearer and worse than any entry, so on no hull
constexpr int GROUP = 32;                              // entries that share a word of flags
// A rough slope is the product of a gain and a reciprocal, at most 1.5 * 2^-12 off relative to the true slope and another 2^-24
// for the product. Two that are equal in truth differ by less than this.
constexpr float ROUGHNESS = 1.0f - 1.0f / 512;

// The points of a list, padded to whole groups.
struct HullPoints {
    alignas(64) float bits[SCRATCH_CANDIDATES + GROUP];
    alignas(64) float errors[SCRATCH_CANDIDATES + GROUP];
    int padded;
    int cheapest; // of those the best, of those the first in the list
    int best;     // the lowest error, of those the cheapest, of those the first in the list
};

// The first entry with the least `seconds` among those whose `firsts` are `least`.
template <class Lanes>
static inline int FirstLeast(const float* firsts, const float* seconds, int padded, float least) {
    const typename Lanes::Vector wanted = Lanes::Set(least);
    int found = -1;
    for (int group = 0; group < padded; group += GROUP) {
        uint32_t lanes = 0;
        for (int at = 0; at < GROUP; at += Lanes::COUNT)
            lanes |= Lanes::Equal(Lanes::Load(firsts + group + at), wanted) << at;
        for (; lanes != 0; lanes &= lanes - 1) {
            const int entry = group + __builtin_ctz(lanes);
            if (found < 0 || seconds[entry] < seconds[found]) found = entry;
        }
    }
    return found;
}

// False if a number is out of bounds. Entries behind the last whole vector are taken with some before them once more.
template <class Lanes> static inline bool TakePoints(HullPoints* points, const BlockCandidate* list, int count) {
    constexpr int COUNT = Lanes::COUNT;
    using Vector = typename Lanes::Vector;
    static_assert(sizeof(BlockCandidate) == 3 * sizeof(float));
    BlockCandidate few[COUNT];
    const Vector never = Lanes::Set(HULL_BOUND);
    Vector leastBits = never;
    Vector leastError = never;
    uint32_t outside = 0;
    const int whole = count < COUNT ? COUNT : count;
    if (count < COUNT) {
        for (int i = 0; i < COUNT; i++) few[i] = list[i < count ? i : 0];
        list = few;
    }
    for (int next = 0; next < whole; next += COUNT) {
        const int at = next + COUNT <= whole ? next : whole - COUNT;
        Vector bits, errors;
        outside |= Lanes::Take(&bits, &errors, list + at);
        Lanes::Store(points->bits + at, bits);
        Lanes::Store(points->errors + at, errors);
        leastBits = Lanes::Min(leastBits, bits);
        leastError = Lanes::Min(leastError, errors);
    }
    points->padded = (count + GROUP - 1) / GROUP * GROUP;
    for (int at = count; at < points->padded; at += COUNT) {
        Lanes::Store(points->bits + at, never);
        Lanes::Store(points->errors + at, never);
    }
    if (outside != 0) return false;
    points->cheapest = FirstLeast<Lanes>(points->bits, points->errors, points->padded, Lanes::Least(leastBits));
    points->best = FirstLeast<Lanes>(points->errors, points->bits, points->padded, Lanes::Least(leastError));
    return true;
}

// The step from one point to another, or what is known of it.
struct HullStep {
    int to;
    float cost; // more bits
    float gain; // less error
    bool twin;  // another entry is the same point as `to`
};
static inline HullStep StepTo(const HullPoints* points, int from, int to) {
    return {to, points->bits[to] - points->bits[from], points->errors[from] - points->errors[to], false};
}

// Takes over a step that is steeper, or as steep and nearer. Costs and gains are below 2^24, so the products are exact.
static inline void Improve(HullStep* step, HullStep other) {
    if (other.to == step->to) return;
    const double gained = (double)other.gain * step->cost;
    const double needed = (double)step->gain * other.cost;
    if (gained > needed || (gained == needed && other.cost < step->cost))
        *step = other;
    else if (gained == needed && other.cost == step->cost)
        step->twin = true;
}

// Rough slopes of the steps to all points, 0 or less where there is no gain for a cost. Returns the greatest, above 0.
template <class Lanes> static inline float RoughSlopes(float* slopes, const HullPoints* points, int from) {
    using Vector = typename Lanes::Vector;
    const Vector fromBits = Lanes::Set(points->bits[from]);
    const Vector fromError = Lanes::Set(points->errors[from]);
    Vector greatest[2] = {Lanes::Set(0), Lanes::Set(0)};
    for (int at = 0; at < points->padded; at += 2 * Lanes::COUNT) {
        for (int i = 0; i < 2; i++) {
            const int place = at + i * Lanes::COUNT;
            const Vector cost = Lanes::Sub(Lanes::Load(points->bits + place), fromBits);
            const Vector gain = Lanes::Sub(fromError, Lanes::Load(points->errors + place));
            const Vector slope = Lanes::Slope(gain, cost);
            greatest[i] = Lanes::Max(slope, greatest[i]);
            Lanes::Store(slopes + place, slope);
        }
    }
    return Lanes::Greatest(Lanes::Max(greatest[0], greatest[1]));
}

// The steepest step from `from`, among equals the nearest. Only steps whose rough slopes come near the greatest are looked at
// exactly.
template <class Lanes> static inline HullStep SteepestStep(const HullPoints* points, int from) {
    alignas(64) float slopes[SCRATCH_CANDIDATES + GROUP];
    const typename Lanes::Vector near = Lanes::Set(RoughSlopes<Lanes>(slopes, points, from) * ROUGHNESS);
    HullStep step = StepTo(points, from, points->best);
    for (int group = 0; group < points->padded; group += GROUP) {
        uint32_t lanes = 0;
        for (int at = 0; at < GROUP; at += Lanes::COUNT)
            lanes |= Lanes::NotLess(Lanes::Load(slopes + group + at), near) << at;
        for (; lanes != 0; lanes &= lanes - 1) Improve(&step, StepTo(points, from, group + __builtin_ctz(lanes)));
    }
    return step;
}

template <class Lanes>
static inline int FindHullIn(uint16_t* kept, bool* twins, const BlockCandidate* list, int count) {
    HullPoints points;
    if (!TakePoints<Lanes>(&points, list, count)) return -1;
    int found = 0;
    *twins = false;
    int at = points.cheapest;
    kept[found++] = (uint16_t)at;
    while (points.errors[at] != points.errors[points.best]) {
        const HullStep step = SteepestStep<Lanes>(&points, at);
        *twins |= step.twin;
        at = step.to;
        kept[found++] = (uint16_t)at;
    }
    return found;
}

} // namespace
} // namespace vorn
