// PruneListsPlain.cpp - the plain rules of pruning, which define what survives: steps, swaps and drops one after the other.
#include "blocks/CandidateLists.h"

#include <utility>

namespace vorn {

namespace {

constexpr uint32_t NO_ERROR_YET = 0x7ffffff; // above the error of any block

// Cheaper, or as cheap and nearer to the source.
bool IsBetterStart(const BlockCandidate& a, const BlockCandidate& b) {
    return a.bits < b.bits || (a.bits == b.bits && a.error < b.error);
}

// The cheapest entry goes to the front, of equals the first.
void BringCheapestForward(BlockCandidate* list, int count) {
    int best = 0;
    for (int i = 1; i < count; i++) {
        if (IsBetterStart(list[i], list[best])) best = i;
    }
    std::swap(list[0], list[best]);
}

uint32_t LowestError(const BlockCandidate* list, int count) {
    uint32_t lowest = NO_ERROR_YET;
    for (int i = 0; i < count; i++) {
        if (list[i].error < lowest) lowest = list[i].error;
    }
    return lowest;
}

// Takes entry `at` out: the last entry moves into its place.
void DropEntry(BlockCandidate* list, int* count, int at) {
    *count -= 1;
    if (at != *count) list[at] = list[*count];
}

// The entry behind `i` that saves most error a bit, among equals the nearest, of equals the first. What costs no more than
// entry i, or saves nothing against it, is dropped on the way. With nothing left, the last index of the list as it came.
int SteepestStep(BlockCandidate* list, int* count, int i) {
    int found = *count - 1;
    double foundSlope = 0.0;
    int32_t foundCost = 0;
    for (int j = i + 1; j < *count;) {
        const int32_t cost = static_cast<int32_t>(list[j].bits - list[i].bits);
        const double gain = static_cast<double>(list[i].error) - static_cast<double>(list[j].error);
        if (cost <= 0 || gain <= 0.0) {
            DropEntry(list, count, j);
            continue;
        }
        const double slope = gain / cost;
        if (slope > foundSlope || (slope == foundSlope && cost < foundCost)) {
            found = j;
            foundSlope = slope;
            foundCost = cost;
        }
        j++;
    }
    return found;
}

} // namespace

// From each corner of the hull the next is the one in steepest descent. The entry with the lowest error survives until it is
// reached: had a corner been as dear, the step to that entry would have been the steeper one. So the walk ends there. The
// price is quadratic in the length of the list.
int PruneHullPlain(BlockCandidate* list, int count) {
    if (count < 1) return 0;
    const uint32_t lowest = LowestError(list, count);
    BringCheapestForward(list, count);
    if (list[0].error == lowest) return 1;
    for (int i = 0; i + 1 < count; i++) {
        const int found = SteepestStep(list, &count, i);
        if (found > i + 1) std::swap(list[i + 1], list[found]);
        if (list[i + 1].error == lowest) return i + 2;
    }
    return count;
}

int PruneRunsPlain(BlockCandidate* list, int count) {
    if (count < 1) return 0;
    BringCheapestForward(list, count);
    for (int k = 1;; k++) {
        const BlockCandidate current = list[k - 1];
        int next = -1;
        for (int j = k; j < count;) {
            if (list[j].bits < current.bits || list[j].error > current.error) {
                DropEntry(list, &count, j);
                continue;
            }
            const bool competes = list[j].bits > current.bits && list[j].error < current.error;
            if (competes && (next < 0 || IsBetterStart(list[j], list[next]))) next = j;
            j++;
        }
        if (next < 0) return k;
        std::swap(list[k], list[next]);
        if (list[k].error == 0 || k + 1 >= count) return k + 1;
    }
}

} // namespace vorn
