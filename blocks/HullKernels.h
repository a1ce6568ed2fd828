// HullKernels.h - the search for the points of a hull, in vectors of several widths. This file is included by files that are
// built for one instruction set, so it holds no inline function.
#pragma once

#include <stdint.h>

namespace vorn {

struct BlockCandidate;

// Finds which of 1 to SCRATCH_CANDIDATES entries are on the lower convex hull, and whether any of them but the first has twins.
// Their places go to `kept`, cheapest first. Returns how many, or -1 if a number is 2^24 or more, or there is no fast way.
using FindHullKernel = int (*)(uint16_t* kept, bool* twins, const BlockCandidate* list, int count);
int FindHull(uint16_t* kept, bool* twins, const BlockCandidate* list, int count); // for the base processor
int FindHullAvx2(uint16_t* kept, bool* twins, const BlockCandidate* list, int count);
int FindHullAvx512(uint16_t* kept, bool* twins, const BlockCandidate* list, int count);

} // namespace vorn
