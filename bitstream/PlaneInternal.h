// PlaneInternal.h - a plane on its way from decided blocks to a stream: the bundles and lists between the two phases.
#pragma once

#include "bitstream/BlockData.h"
#include "bitstream/Bundle.h"
#include "bitstream/PlaneEncoder.h"

namespace vorn {

constexpr BundleShape TYPE_SHAPE = {4, 1, false};
constexpr BundleShape COLOUR_SHAPE = {8, 64, false};
constexpr BundleShape PATTERN_SHAPE = {8, 8, false};
constexpr BundleShape OFFSET_SHAPE = {5, 1, true};
constexpr BundleShape INTRA_DC_SHAPE = {11, 1, false};
constexpr BundleShape INTER_DC_SHAPE = {11, 1, true};
constexpr BundleShape RUN_SHAPE = {4, 48, false};

struct PlaneCoder {
    const PlaneJob* job;
    Arena arena; // all chunks and strings
    // In the order of their chunks in a row.
    Bundle blockTypes;
    Bundle subBlockTypes; // of 16x16 blocks
    Bundle colours;
    Bundle patterns;
    Bundle xOffsets;
    Bundle yOffsets;
    Bundle intraDc;
    Bundle interDc;
    Bundle runs;
    BlockDataList runData;
    BlockDataList intraData;
    BlockDataList interData;
    BlockDataList residueData;
};

inline BlockRecord* RecordAt(const PlaneJob& job, uint32_t row, uint32_t column) {
    return job.records + row * (job.width / BLOCK_SIDE) + column;
}

// Modes that a 16x16 block can have. Any other mode to the right of a MODE_SCALED block says that the row above has coded it.
inline bool IsHighMode(uint32_t mode) {
    return mode == MODE_RUN || mode == MODE_INTRA || mode == MODE_FILL || mode == MODE_PATTERN || mode == MODE_RAW;
}

// Rebuilds all blocks and fills bundles and lists.
void CollectPlane(PlaneCoder* coder);
// Sends the code tables, then the rows. All bundles are finished.
void WritePlane(PlaneCoder* coder, BitWriter* writer);

} // namespace vorn
