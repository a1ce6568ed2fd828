// Bundles.h - the nine queues of block values and how their chunks are read. Internal to the reader.
#pragma once

#include <vector>

#include "reader/CodeTables.h"

namespace vorn::reader {

constexpr uint32_t FULL_CHUNK = 512; // a chunk ends with the block row in which it gets this far
constexpr uint32_t COLOUR_CONTEXTS = 16;

struct Bundle {
    std::vector<int16_t> elements; // of the chunk in hand
    size_t next = 0;               // first element not taken yet
    uint32_t countBits = 0;
    bool ended = false;
};

struct Bundles {
    Bundle all[BUNDLES];
    CodeTable blockTypes, subBlockTypes;
    CodeTable colourHigh[COLOUR_CONTEXTS], colourLow; // the high nibble's code goes by that of the colour before
    CodeTable patterns, xOffsets, yOffsets, runs;
    uint32_t colourContext = 0;
};

void PrepareBundles(uint32_t width, Bundles* bundles);
// The 23 tables at the head of a plane stream.
void ReadTables(BitSource& bits, Bundles* bundles, PlaneStatistics* statistics);
// The chunks that fall due at the start of a block row.
void ReadDueChunks(BitSource& bits, Reporter& report, Bundles* bundles, PlaneStatistics* statistics);
// The next element. Throws StreamFault if there is none.
int32_t TakeElement(Bundles* bundles, BundleId bundle);
// At the plane's end all elements must have been taken.
void CheckBundlesEmpty(Reporter& report, const Bundles& bundles);

} // namespace vorn::reader
