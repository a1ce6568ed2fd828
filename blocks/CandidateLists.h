// CandidateLists.h - thinning lists of candidates. Entries move as a whole; what lies behind the new count is left over.
#pragma once

#include "blocks/BlockRecord.h"
#include "blocks/HullKernels.h"

namespace vorn {

// Reduces a list to its lower convex hull: bits rise, errors fall, slopes do not rise. Returns the new count.
int PruneHull(BlockCandidate* list, int count);
// Reduces a list to its staircase: bits rise strictly, errors fall strictly. Returns the new count.
int PruneRuns(BlockCandidate* list, int count);
// PruneHull of a list whose entries from `first` to `last` - 1 have to go through PruneRuns before, with the
// widest vectors that the processor has. Returns the new count.
int PruneHullOverRuns(BlockCandidate* list, int count, int first, int last, FindHullKernel findHull);
// PruneRuns of such a list.
int PruneRunsOverRuns(BlockCandidate* list, int count, int first, int last);
// The two by their plain rules, which also settle which of equal entries survives. Any bits below 2^31.
int PruneHullPlain(BlockCandidate* list, int count);
int PruneRunsPlain(BlockCandidate* list, int count);
// Thins a list to `limit` entries at an even spacing, first and last kept. Returns the new count.
int LimitList(BlockCandidate* list, int count, int limit);

// Stores a list in a record, `overhead` (1/256 bit) added to every entry's bits.
void StoreList(BlockRecord* record, const BlockCandidate* list, int count, uint32_t overhead);
// Copies a record's list out; returns its count.
int FetchList(const BlockRecord* record, BlockCandidate* list);

} // namespace vorn
