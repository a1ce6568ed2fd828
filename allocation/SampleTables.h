// SampleTables.h - how often does each sample value occur in a plane, or in the part of it that matters?
// All counts take whole planes, in samples, a multiple of 64.
#pragma once

#include <cstdint>

namespace vorn {

// 256 counts and their total.
struct SampleTable {
    uint32_t counts[256];
    uint32_t total;
};

// Counts every sample.
void CountAll(SampleTable* table, const uint8_t* plane, uint64_t samples);
// Counts the samples that are more than 2 away from `before`.
void CountChanged(SampleTable* table, const uint8_t* plane, const uint8_t* before, uint64_t samples);
// Counts the samples that would pass as colours: those unlike the one before them, in raster order over the row ends, and
// with a reference (not null) more than 1 away from it. The first sample of all always counts as unlike.
void CountColours(SampleTable* table, const uint8_t* plane, const uint8_t* reference, uint64_t samples);

} // namespace vorn
