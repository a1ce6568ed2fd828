// Analysis.h - fills the records of a plane with the ways to code each block, spread over worker threads.
// Each pass starts its threads, works on the calling thread too, and returns when all blocks are done. Blocks are dealt
// out one at a time by an atomic counter; a record has one writer, so the result is the same for any number of workers.
#pragma once

#include <cstdint>

#include "blocks/BlockRecord.h"
#include "public/vornmake.h"

namespace vorn {

// Words of scratch that a plane's motion search can use.
uint64_t MotionScratchWords(uint32_t width, uint32_t height);

// 8x8 records: motion offsets (not on a key frame), then the pruned lists. The reference is not read on a key frame.
// `scratch`: MotionScratchWords, no meaning between calls; null only makes the search slow.
void AnalysePlane(BlockRecord* records, const uint8_t* sourcePlane, const uint8_t* referencePlane, uint32_t width,
                  uint32_t height, bool keyFrame, const CostModel* costModel, uint16_t* scratch);

// 16x16 records: lists of half-scale codings, possibly empty.
void AnalyseHighPlane(BlockRecord* records, const uint8_t* sourcePlane, const uint8_t* referencePlane, uint32_t width,
                      uint32_t height, bool keyFrame, const CostModel* costModel);

} // namespace vorn
