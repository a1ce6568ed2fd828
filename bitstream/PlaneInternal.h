// PlaneInternal.h - a plane on its way from decided blocks to a stream: the bundles and lists between the two phases.
#pragma once

#include "bitstream/BlockData.h"
#include "bitstream/Bundle.h"
#include "bitstream/PlaneEncoder.h"

namespace vorn {

struct PlaneCoder {
    const PlaneJob* job;
    Arena arena; // all chunks and strings
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

// What is different about each bundle. They stand in the order of their chunks in a row and of their tables.
struct BundleKind {
    Bundle PlaneCoder::*bundle;
    BundleShape shape;
    bool halfWidth;                          // a block row has elements for every 16 samples of width, else for every 8
    void (*chooseCode)(BitWriter*, Bundle*); // null: it has no table
    void (*writeChunk)(BitWriter*, Bundle*);
};
constexpr BundleKind BUNDLE_KINDS[] = {
    {&PlaneCoder::blockTypes, {4, 1, false}, false, ChooseBundleCode, WriteTypeChunk},
    {&PlaneCoder::subBlockTypes, {4, 1, false}, true, ChooseBundleCode, WriteTypeChunk},
    {&PlaneCoder::colours, {8, 64, false}, false, ChooseColourCodes, WriteColourChunk},
    {&PlaneCoder::patterns, {8, 8, false}, false, ChooseBundleCode, WritePatternChunk},
    {&PlaneCoder::xOffsets, {5, 1, true}, false, ChooseBundleCode, WriteOffsetChunk},
    {&PlaneCoder::yOffsets, {5, 1, true}, false, ChooseBundleCode, WriteOffsetChunk},
    {&PlaneCoder::intraDc, {11, 1, false}, false, nullptr, WriteDcChunk},
    {&PlaneCoder::interDc, {11, 1, true}, false, nullptr, WriteDcChunk},
    {&PlaneCoder::runs, {4, 48, false}, false, ChooseBundleCode, WriteRunChunk},
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
