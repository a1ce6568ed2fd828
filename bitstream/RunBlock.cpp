// RunBlock.cpp - a block as runs along a scan order. Its string: the scan order in 4 bits, then a flag a segment, 1 for a flat
// one. A flat segment stores one colour, a literal one all of its samples; each stores its length less one.
#include "bitstream/RunPatternBlocks.h"

#include "blocks/PixelOps.h"
#include "blocks/Runs.h"

namespace vorn {

namespace {

constexpr uint32_t SCAN_ORDER_BITS = 4;
constexpr int LAST_SAMPLE = BLOCK_SAMPLES - 1;

} // namespace

uint32_t WriteRunBlock(uint8_t* destination, int pitch, Bundle* colours, Bundle* runs, BlockDataList* runData,
                       const uint8_t* block, uint32_t payload) {
    const int scanOrder = static_cast<int>(payload >> 8 & 15);
    uint8_t sequence[BLOCK_SAMPLES];
    ScanBlock(sequence, block, scanOrder);
    SmoothRuns(sequence, sequence, static_cast<int>(payload & 255), nullptr, nullptr, nullptr);

    uint8_t room[16];
    BitWriter writer;
    StartWriter(&writer, room, sizeof room);
    WriteBits(&writer, static_cast<uint32_t>(scanOrder), SCAN_ORDER_BITS);
    uint32_t segments = 0;
    uint32_t colourCount = 0;
    int start = 0;
    while (start < LAST_SAMPLE) {
        const RunSegment segment = NextRunSegment(sequence, start);
        const int stored = segment.flat ? 1 : segment.length;
        for (int i = 0; i < stored; i++) AppendColour(colours, sequence[start + i]);
        colourCount += static_cast<uint32_t>(stored);
        WriteBits(&writer, segment.flat, 1);
        AppendRunLength(runs, static_cast<uint32_t>(segment.length - 1));
        segments++;
        start += segment.length;
    }
    if (start == LAST_SAMPLE) { // belongs to no segment
        AppendColour(colours, sequence[LAST_SAMPLE]);
        colourCount++;
    }
    const uint32_t bits = BitsWritten(&writer);
    PadToWord(&writer);
    AppendBitString(runData, room, bits);

    uint8_t shown[BLOCK_SAMPLES];
    UnscanBlock(shown, sequence, scanOrder);
    StoreBlock(destination, shown, pitch);
    return segments * 256 + colourCount;
}

} // namespace vorn
