// Bundle.h - a queue of fixed-width elements of one kind, packed in chunks and written a chunk at a time.
// A bundle's road: CreateBundle, AppendElement for every element, CloseChunk after every block row, FinishBundle, then
// ChooseCode for its alphabets, then the chunk writer of its kind at the start of every block row.
// When the arena runs out the bundle drops elements and the arena says so.
#pragma once

#include <cstdint>

#include "bitstream/Arena.h"
#include "bitstream/BitWriter.h"

namespace vorn {

constexpr uint32_t SYMBOLS = 16;           // of every alphabet
constexpr uint32_t COLOUR_CONTEXTS = 16;   // alphabets of the high nibble, by the high nibble before
constexpr uint32_t FLUSH_THRESHOLD = 512;  // a chunk is closed at a row's end once it holds this many elements
constexpr uint32_t COLOUR_LOW = COLOUR_CONTEXTS * SYMBOLS; // first counter of the low nibbles
constexpr uint32_t MAX_COUNT_BITS = 15;

struct Chunk {
    uint32_t elements;
    uint32_t packedBits; // set when the chunk is closed
    Chunk* next;         // null for the last
    // The packed elements follow, in 32-bit words.
};
inline uint8_t* ChunkWords(Chunk* chunk) { return reinterpret_cast<uint8_t*>(chunk + 1); }

struct Bundle {
    Chunk* currentChunk;    // the one being filled; later the next one to write
    Chunk* firstChunk;
    uint32_t chunkCapacity; // bytes of packed elements in a chunk
    uint32_t remaining;     // while writing: elements of the last written chunk that no block has consumed; 1 for good behind the last chunk
    Arena* arena;
    uint32_t elementBits;
    uint32_t flushThreshold;
    uint32_t bias;          // added to a value to make its stored form; 0 in unsigned bundles
    BitWriter packer;       // position in the chunk being filled
    uint32_t symbolCounts[COLOUR_LOW + SYMBOLS]; // colours use all: 16 * context + high nibble, then 256 + low nibble
    uint8_t codeLengths[COLOUR_LOW + SYMBOLS];   // filled by ChooseCode, indexed alike
    uint8_t codeWords[COLOUR_LOW + SYMBOLS];
    uint32_t previousValue; // last block type; in colours the high nibble of the last colour
    uint32_t pendingRepeats;// repeats of previousValue not yet counted
    uint32_t countBits;     // bits of a chunk's element count
    uint32_t totalElements; // what the chunks of this plane took in the stream, counts and flags included
    uint32_t totalBits;
};

struct BundleShape {
    uint32_t elementBits;
    uint32_t multiplicity; // elements that one block can add
    bool isSigned;
};

// Bytes of packed elements in one chunk: 512 elements and a whole row of the largest kind.
uint32_t ChunkCapacity(uint32_t width, const BundleShape& shape);
// Bytes that one chunk takes from the arena.
uint32_t ChunkArenaBytes(uint32_t width, const BundleShape& shape);

// `width` in samples: of the plane, or half of it for the types of 16x16 blocks.
void CreateBundle(Bundle* bundle, Arena* arena, uint32_t width, const BundleShape& shape);
// Stores (value + bias) in elementBits bits. The caller counts symbols.
void AppendElement(Bundle* bundle, int32_t value);
// Turns pendingRepeats into symbol counts.
void CountRepeats(Bundle* bundle);
// The symbol that a run of repeats of a block type begins with, 12 to 15 or the type itself, and how many of them it covers.
struct Repeat {
    uint32_t symbol;
    uint32_t covered;
};
Repeat NextRepeat(uint32_t type, uint32_t repeats); // repeats is at least 1
void CloseChunk(Bundle* bundle);
void FinishBundle(Bundle* bundle);

// What the callers of AppendElement do for each kind: count the symbol, then store.
void AppendType(Bundle* bundle, uint32_t mode);        // block types: repeats are counted when they end
void AppendColour(Bundle* bundle, uint32_t colour);    // two nibbles, the high one in the context of the colour before
void AppendOffset(Bundle* bundle, int32_t offset);     // by magnitude, at most 15
void AppendRunLength(Bundle* bundle, uint32_t length); // a nibble
void AppendPattern(Bundle* bundle, uint32_t mask);     // two nibbles of one alphabet

// Chooses the code of one alphabet of 16 symbols, writes its table, fills 16 code words and lengths.
void ChooseCode(BitWriter* writer, const uint32_t* counts, uint8_t* codeWords, uint8_t* codeLengths);
// ChooseCode for the bundle's first alphabet, or all 17 of colours.
void ChooseBundleCode(BitWriter* writer, Bundle* bundle);
void ChooseColourCodes(BitWriter* writer, Bundle* colours);

// Each writes the bundle's next chunk if the last one is used up; a count of 0 once there is none left.
void WriteTypeChunk(BitWriter* writer, Bundle* bundle);    // repeat-coded nibbles
void WriteColourChunk(BitWriter* writer, Bundle* bundle);  // context-coded bytes
void WritePatternChunk(BitWriter* writer, Bundle* bundle); // nibble pairs
void WriteOffsetChunk(BitWriter* writer, Bundle* bundle);  // magnitude and sign
void WriteRunChunk(BitWriter* writer, Bundle* bundle);     // zero-skipping nibbles
void WriteDcChunk(BitWriter* writer, Bundle* bundle);      // delta groups

} // namespace vorn
