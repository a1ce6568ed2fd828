// ChunkWriters.cpp - how the elements of a chunk go into the stream, for each of the six kinds of bundle.
//
// Every chunk starts with its element count in the bundle's countBits; a count of 0 ends the bundle. What follows:
//   repeat-coded nibbles    0, then codes; 12 to 15 stand for 4, 8, 12, 32 more of the element before, which is 0 at the start
//   context-coded bytes     1 and one colour if all are equal; else 0 and all. A colour: the code of the high nibble from the
//                           alphabet of the high nibble before it, then the code of the low nibble
//   nibble pairs            for each byte the code of the low nibble, then that of the high one
//   magnitude and sign      0, then for each element the code of its magnitude and, if it isn't 0, a sign bit, 1 for negative
//   zero-skipping nibbles   0, then the code of each element
//   delta groups            the first value, then groups of up to 8 differences, as wide as the widest of the group
// Chunks of the first, fourth and fifth kind that are all 0 shrink to a 1 bit and a 0 in 4 bits.
#include <algorithm>

#include "bitstream/Bundle.h"

namespace vorn {

namespace {

constexpr uint32_t GROUP_VALUES = 8;
constexpr uint32_t GROUP_WIDTH_BITS = 4;

// A chunk that is due: its elements, and where it began in the stream.
struct DueChunk {
    BitReader packed;
    uint32_t elements;
    uint32_t startBits;
};

// Writes the count of the chunk that is due. False if there is nothing more to write: the last chunk still lasts, or the
// bundle ends here, or it has ended, when `remaining` stays at 1 for good.
bool BeginChunk(BitWriter* writer, Bundle* bundle, DueChunk* due) {
    if (bundle->remaining != 0) return false;
    Chunk* chunk = bundle->currentChunk;
    if (chunk == nullptr || chunk->elements == 0) {
        WriteBits(writer, 0, bundle->countBits);
        bundle->remaining = 1;
        return false;
    }
    due->startBits = BitsWritten(writer);
    due->elements = chunk->elements;
    StartReader(&due->packed, ChunkWords(chunk), (chunk->packedBits + 31) / 32 * 4);
    WriteBits(writer, chunk->elements, bundle->countBits);
    return true;
}

void EndChunk(BitWriter* writer, Bundle* bundle, const DueChunk& due) {
    bundle->totalElements += due.elements;
    bundle->totalBits += BitsWritten(writer) - due.startBits;
    bundle->remaining = due.elements;
    bundle->currentChunk = bundle->currentChunk->next;
}

uint32_t NextElement(DueChunk* due, const Bundle* bundle) {
    return ReadBits(&due->packed, bundle->elementBits);
}

// `symbol` counts from the start of the first alphabet.
void SendSymbol(BitWriter* writer, const Bundle* bundle, uint32_t symbol) {
    WriteBits(writer, bundle->codeWords[symbol], bundle->codeLengths[symbol]);
}

// The whole chunk is 0.
void SendZeroChunk(BitWriter* writer) {
    WriteBits(writer, 1, 5);
}

void SendRepeats(BitWriter* writer, const Bundle* bundle, uint32_t type, uint32_t repeats) {
    while (repeats > 0) {
        const Repeat repeat = NextRepeat(type, repeats);
        SendSymbol(writer, bundle, repeat.symbol);
        repeats -= repeat.covered;
    }
}

void SendColour(BitWriter* writer, Bundle* bundle, uint32_t colour) {
    const uint32_t high = colour >> 4;
    SendSymbol(writer, bundle, bundle->previousValue * SYMBOLS + high);
    SendSymbol(writer, bundle, COLOUR_LOW + (colour & 15));
    bundle->previousValue = high;
}

bool AllEqual(DueChunk due, const Bundle* bundle) {
    const uint32_t first = NextElement(&due, bundle);
    for (uint32_t i = 1; i < due.elements; i++)
        if (NextElement(&due, bundle) != first) return false;
    return true;
}

void SendMagnitudes(BitWriter* writer, Bundle* bundle, bool withSign) {
    DueChunk due;
    if (!BeginChunk(writer, bundle, &due)) return;
    bool flagSent = false;
    uint32_t zeros = 0;
    for (uint32_t i = 0; i < due.elements; i++) {
        const auto value = static_cast<int32_t>(NextElement(&due, bundle) - bundle->bias);
        if (value == 0) {
            zeros++;
            continue;
        }
        if (!flagSent) WriteBits(writer, 0, 1);
        flagSent = true;
        for (; zeros > 0; zeros--) SendSymbol(writer, bundle, 0);
        SendSymbol(writer, bundle, static_cast<uint32_t>(value < 0 ? -value : value));
        if (withSign) WriteBits(writer, value < 0, 1);
    }
    if (!flagSent) SendZeroChunk(writer);
    for (; flagSent && zeros > 0; zeros--) SendSymbol(writer, bundle, 0);
    EndChunk(writer, bundle, due);
}

// A magnitude in `bits` bits and, if it isn't 0, a sign bit.
void SendSigned(BitWriter* writer, int32_t value, uint32_t bits) {
    WriteBits(writer, static_cast<uint32_t>(value < 0 ? -value : value), bits);
    if (value != 0) WriteBits(writer, value < 0, 1);
}

// Sends the next `count` values as differences from each other; returns the last of them.
int32_t SendDeltaGroup(BitWriter* writer, const Bundle* bundle, DueChunk* due, uint32_t count, int32_t before) {
    int32_t differences[GROUP_VALUES];
    uint32_t magnitudes = 0; // bits that any of them has
    for (uint32_t i = 0; i < count; i++) {
        const auto value = static_cast<int32_t>(NextElement(due, bundle) - bundle->bias);
        differences[i] = value - before;
        magnitudes |= static_cast<uint32_t>(differences[i] < 0 ? -differences[i] : differences[i]);
        before = value;
    }
    const uint32_t width = BitLength(magnitudes);
    WriteBits(writer, width, GROUP_WIDTH_BITS);
    for (uint32_t i = 0; width > 0 && i < count; i++) SendSigned(writer, differences[i], width);
    return before;
}

} // namespace

void WriteTypeChunk(BitWriter* writer, Bundle* bundle) {
    DueChunk due;
    if (!BeginChunk(writer, bundle, &due)) return;
    bool flagSent = false;
    uint32_t previous = 0;
    uint32_t repeats = 0;
    for (uint32_t i = 0; i < due.elements; i++) {
        const uint32_t type = NextElement(&due, bundle);
        if (type == previous) {
            repeats++;
            continue;
        }
        if (!flagSent) WriteBits(writer, 0, 1);
        flagSent = true;
        SendRepeats(writer, bundle, previous, repeats);
        repeats = 0;
        SendSymbol(writer, bundle, type);
        previous = type;
    }
    if (flagSent)
        SendRepeats(writer, bundle, previous, repeats);
    else
        SendZeroChunk(writer);
    EndChunk(writer, bundle, due);
}

void WriteColourChunk(BitWriter* writer, Bundle* bundle) {
    DueChunk due;
    if (!BeginChunk(writer, bundle, &due)) return;
    const bool same = AllEqual(due, bundle);
    WriteBits(writer, same, 1);
    const uint32_t sent = same ? 1 : due.elements;
    for (uint32_t i = 0; i < sent; i++) SendColour(writer, bundle, NextElement(&due, bundle));
    EndChunk(writer, bundle, due);
}

void WritePatternChunk(BitWriter* writer, Bundle* bundle) {
    DueChunk due;
    if (!BeginChunk(writer, bundle, &due)) return;
    for (uint32_t i = 0; i < due.elements; i++) {
        const uint32_t mask = NextElement(&due, bundle);
        SendSymbol(writer, bundle, mask & 15);
        SendSymbol(writer, bundle, mask >> 4);
    }
    EndChunk(writer, bundle, due);
}

void WriteOffsetChunk(BitWriter* writer, Bundle* bundle) {
    SendMagnitudes(writer, bundle, true);
}

void WriteRunChunk(BitWriter* writer, Bundle* bundle) {
    SendMagnitudes(writer, bundle, false);
}

void WriteDcChunk(BitWriter* writer, Bundle* bundle) {
    DueChunk due;
    if (!BeginChunk(writer, bundle, &due)) return;
    auto value = static_cast<int32_t>(NextElement(&due, bundle) - bundle->bias);
    if (bundle->bias != 0)
        SendSigned(writer, value, bundle->elementBits - 1);
    else
        WriteBits(writer, static_cast<uint32_t>(value), bundle->elementBits);
    for (uint32_t done = 1; done < due.elements; done += GROUP_VALUES) {
        const uint32_t count = std::min(GROUP_VALUES, due.elements - done);
        value = SendDeltaGroup(writer, bundle, &due, count, value);
    }
    EndChunk(writer, bundle, due);
}

} // namespace vorn
