// PlaneEncoder.cpp - set-up of a plane, its two phases, what it reports, and how much room it can need.
#include "bitstream/PlaneEncoder.h"

#include <initializer_list>

#include "bitstream/PlaneInternal.h"

namespace vorn {

namespace {

constexpr uint32_t LEARNING_THRESHOLD = 10; // elements up to which a plane says nothing about their price

void SetUp(PlaneCoder* coder, const PlaneJob& job) {
    Arena* arena = &coder->arena;
    coder->job = &job;
    *arena = MakeArena(job.arenaRoom, job.arenaBytes);
    for (const BundleKind& kind : BUNDLE_KINDS)
        CreateBundle(&(coder->*kind.bundle), arena, kind.halfWidth ? job.width / 2 : job.width, kind.shape);
    for (BlockDataList* list : {&coder->runData, &coder->intraData, &coder->interData, &coder->residueData})
        StartBlockDataList(list, arena);
}

void Report(CostHistory* history, uint32_t elements, uint32_t bits) {
    if (elements <= LEARNING_THRESHOLD) return;
    history->numerator[0] = bits;
    history->denominator[0] = elements + 1;
}

void ReportTotals(const PlaneCoder* coder, CostModel* model) {
    Report(&model->type, coder->blockTypes.totalElements, coder->blockTypes.totalBits);
    Report(&model->subType, coder->subBlockTypes.totalElements, coder->subBlockTypes.totalBits);
    Report(&model->pattern, coder->patterns.totalElements / BLOCK_SIDE, coder->patterns.totalBits);
    Report(&model->motion, coder->xOffsets.totalElements, coder->xOffsets.totalBits + coder->yOffsets.totalBits);
    Report(&model->intraDc, coder->intraDc.totalElements, coder->intraDc.totalBits);
    Report(&model->interDc, coder->interDc.totalElements, coder->interDc.totalBits);
    Report(&model->run, coder->runs.totalElements, coder->runs.totalBits);
    if (coder->colours.totalElements <= LEARNING_THRESHOLD) return;
    model->colourFeedback = static_cast<int32_t>(coder->colours.totalBits);
    model->colourCount = coder->colours.totalElements + 1;
}

} // namespace

uint32_t EncodePlane(const PlaneJob& job) {
    PlaneCoder coder;
    SetUp(&coder, job);
    CollectPlane(&coder);
    if (coder.arena.exhausted) return 0;
    for (const BundleKind& kind : BUNDLE_KINDS) FinishBundle(&(coder.*kind.bundle));
    BitWriter writer;
    StartWriter(&writer, job.output, job.outputBytes);
    WritePlane(&coder, &writer);
    PadToWord(&writer);
    if (writer.overflow) return 0;
    ReportTotals(&coder, job.costModel);
    return BitsWritten(&writer) / 8;
}

// The dearest block is an inter block:
//   - Its string. A coefficient has at most 13 bits: without wrapping at most 1020 * 16 / 16 in magnitude and a rounding, and a
//     wrapped product of the forward column pass, 2^21 off, adds at most 2^21 * the greatest quantiser 3339447 / 2^30 = 6523.
//     With 13 planes: 4 bits of head, 63 values of 14 bits (a flag, then flags, low bits and sign always make 13), 18 flags of
//     the wider nodes (opening later costs a flag more but 4 bits a group less), 4 bits of the quantiser: 908.
//   - 7 bits of type, the longest code word.
//   - Two offsets of 5 bits. An alphabet whose counts are those of the symbols sent costs at most 4 bits a symbol on average,
//     its table included, as the flat code would win else; a sign comes on top.
//   - 12.5 bits of DC: 11 and a sign, 4 bits of width for up to 8.
//   - Chunk counts, flags and first widths: below 24 bits for 512 elements or more, thus less than 1 bit for four elements.
// All others stay below: a residue block has 7 + 3 + 64 * 9 + 19 bits of string; raw samples take 8 bits each by the rule for
// alphabets, a run block 26 bits (2 colours, 2 lengths, 2 flags) for 3 samples at most; 16x16 blocks share theirs among four.
// On top of the blocks: 23 tables of 60 bits or less, and for each of nine bundles a last chunk below 512 elements and the
// count that ends it, together less than 48 bits.
uint64_t PlaneStreamBound(uint32_t width, uint32_t height) {
    constexpr uint32_t BLOCK_BITS = 944;
    constexpr uint32_t PLANE_BYTES = 512;
    const uint64_t blocks = uint64_t{width / BLOCK_SIDE} * (height / BLOCK_SIDE);
    return blocks * BLOCK_BITS / 8 + PLANE_BYTES;
}

// A chunk is a row's worth of elements and 512 elements' worth. Each bundle has one that is never closed, and opens another at
// most once a row, when it has been filled with at least 512 elements: so the rows' worths are covered by one of each bundle
// for every row, and the 512 elements' worths by the elements themselves. Per block the latter are, string included:
//   inter     4 + 2 * 5 + 11 bits of elements, a string of 908 bits with its header: below 4 + 136 bytes
//   residue   4 + 2 * 5 bits, 605 bits with header: less. Raw: 4 bits, 64 bytes. Run: 4 bits, fewer than 48 lengths and 64
//             colours, a string of 52 bits. Their chunk headers and roundings (below 32 bytes for 512 elements) add 8 at most:
//             below 128 bytes.
uint64_t PlaneArenaBound(uint32_t width, uint32_t height) {
    constexpr uint32_t BLOCK_BYTES = 140;
    const uint32_t columns = width / BLOCK_SIDE;
    const uint32_t rows = height / BLOCK_SIDE;
    uint64_t lastChunks = 0;
    uint64_t rowBits = 0;
    for (const BundleKind& kind : BUNDLE_KINDS) {
        lastChunks += ChunkArenaBytes(width, kind.shape);
        rowBits += uint64_t{columns} * kind.shape.multiplicity * kind.shape.elementBits;
    }
    return lastChunks + rows * ((rowBits + 7) / 8) + uint64_t{rows} * columns * BLOCK_BYTES;
}

} // namespace vorn
