// Bundle.cpp - filling a bundle: packing elements into chunks, and counting the symbols that they will be sent as.
#include "bitstream/Bundle.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace vorn {

namespace {

uint32_t RowElements(uint32_t width, const BundleShape& shape) {
    return (width >> 3) * shape.multiplicity;
}

// Makes an empty chunk the current one; none if the arena is out of room, and all further elements are dropped.
void OpenChunk(Bundle* bundle) {
    const auto bytes = static_cast<uint32_t>(sizeof(Chunk)) + bundle->chunkCapacity;
    auto* chunk = static_cast<Chunk*>(TakeFromArena(bundle->arena, bytes));
    bundle->currentChunk = chunk;
    if (chunk == nullptr) return;
    *chunk = {0, 0, nullptr};
    StartWriter(&bundle->packer, ChunkWords(chunk), bundle->chunkCapacity);
}

// Stores the bit count of the current chunk and pads its words.
void SealChunk(Bundle* bundle) {
    bundle->currentChunk->packedBits = BitsWritten(&bundle->packer);
    PadToWord(&bundle->packer);
}

} // namespace

uint32_t ChunkCapacity(uint32_t width, const BundleShape& shape) {
    const uint32_t rowBits = RowElements(width, shape) * shape.elementBits;
    const uint32_t bytes = ((rowBits + 7) >> 3) + ((FLUSH_THRESHOLD * shape.elementBits + 7) >> 3);
    return (bytes + 3) & ~3u;
}

uint32_t ChunkArenaBytes(uint32_t width, const BundleShape& shape) {
    const auto bytes = static_cast<uint32_t>(sizeof(Chunk)) + ChunkCapacity(width, shape);
    return (bytes + 7) & ~7u;
}

void CreateBundle(Bundle* bundle, Arena* arena, uint32_t width, const BundleShape& shape) {
    std::memset(bundle, 0, sizeof *bundle);
    bundle->arena = arena;
    bundle->chunkCapacity = ChunkCapacity(width, shape);
    bundle->elementBits = shape.elementBits;
    bundle->flushThreshold = FLUSH_THRESHOLD;
    bundle->bias = shape.isSigned ? 1u << (shape.elementBits - 1) : 0;
    bundle->countBits = std::min(BitLength(RowElements(width, shape) + FLUSH_THRESHOLD - 1), MAX_COUNT_BITS);
    OpenChunk(bundle);
    bundle->firstChunk = bundle->currentChunk;
}

void AppendElement(Bundle* bundle, int32_t value) {
    if (bundle->currentChunk == nullptr) return;
    WriteBits(&bundle->packer, static_cast<uint32_t>(value) + bundle->bias, bundle->elementBits);
    bundle->currentChunk->elements++;
}

Repeat NextRepeat(uint32_t type, uint32_t repeats) {
    if (repeats > 32) return {15, 32};
    if (repeats > 12) return {14, 12};
    if (repeats > 8) return {13, 8};
    if (repeats > 4) return {12, 4};
    return {type, 1};
}

void CountRepeats(Bundle* bundle) {
    while (bundle->pendingRepeats > 0) {
        const Repeat repeat = NextRepeat(bundle->previousValue, bundle->pendingRepeats);
        bundle->symbolCounts[repeat.symbol]++;
        bundle->pendingRepeats -= repeat.covered;
    }
}

void CloseChunk(Bundle* bundle) {
    Chunk* full = bundle->currentChunk;
    if (full == nullptr || full->elements < bundle->flushThreshold) return;
    CountRepeats(bundle);
    SealChunk(bundle);
    OpenChunk(bundle);
    full->next = bundle->currentChunk;
}

void FinishBundle(Bundle* bundle) {
    if (bundle->currentChunk != nullptr) SealChunk(bundle);
    bundle->currentChunk = bundle->firstChunk;
    bundle->remaining = 0;
}

void AppendType(Bundle* bundle, uint32_t mode) {
    if (mode == bundle->previousValue) {
        bundle->pendingRepeats++;
    } else {
        CountRepeats(bundle);
        bundle->symbolCounts[mode]++;
        bundle->previousValue = mode;
    }
    AppendElement(bundle, static_cast<int32_t>(mode));
}

void AppendColour(Bundle* bundle, uint32_t colour) {
    const uint32_t high = colour >> 4;
    bundle->symbolCounts[bundle->previousValue * SYMBOLS + high]++;
    bundle->symbolCounts[COLOUR_LOW + (colour & 15)]++;
    bundle->previousValue = high;
    AppendElement(bundle, static_cast<int32_t>(colour));
}

void AppendOffset(Bundle* bundle, int32_t offset) {
    assert(offset >= -15 && offset <= 15);
    bundle->symbolCounts[offset < 0 ? -offset : offset]++;
    AppendElement(bundle, offset);
}

void AppendRunLength(Bundle* bundle, uint32_t length) {
    bundle->symbolCounts[length]++;
    AppendElement(bundle, static_cast<int32_t>(length));
}

void AppendPattern(Bundle* bundle, uint32_t mask) {
    bundle->symbolCounts[mask & 15]++;
    bundle->symbolCounts[mask >> 4]++;
    AppendElement(bundle, static_cast<int32_t>(mask));
}

} // namespace vorn
