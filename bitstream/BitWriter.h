// BitWriter.h - bits, lowest first, into 32-bit little-endian words, and back.
// A writer knows the end of its room: what doesn't fit is dropped and `overflow` is set, for its owner to look at.
#pragma once

#include <cstdint>

namespace vorn {

struct BitWriter {
    uint8_t* position; // next word
    uint8_t* start;
    uint8_t* end;         // first byte behind the room
    uint64_t accumulator; // bits not yet stored
    uint32_t used;        // how many, 0 to 31
    bool overflow;
};

// Reads what a BitWriter wrote; the owner sees to it that there is enough. Behind `end` everything reads as 0.
struct BitReader {
    const uint8_t* position;
    const uint8_t* end;
    uint32_t accumulator; // unread bits of the last word fetched
    uint32_t left;        // how many
    uint32_t consumed;    // bits taken so far
};

constexpr uint32_t BitMask(uint32_t bits) {
    return bits >= 32 ? 0xffffffffu : (1u << bits) - 1;
}
// Bits needed for a number: 0 for 0, 1 for 1, 2 for 2 and 3.
constexpr uint32_t BitLength(uint32_t value) {
    return value == 0 ? 0 : 32 - static_cast<uint32_t>(__builtin_clz(value));
}

inline void StoreWord(uint8_t* at, uint32_t word) {
    at[0] = static_cast<uint8_t>(word);
    at[1] = static_cast<uint8_t>(word >> 8);
    at[2] = static_cast<uint8_t>(word >> 16);
    at[3] = static_cast<uint8_t>(word >> 24);
}
inline uint32_t LoadWord(const uint8_t* at) {
    return at[0] | uint32_t(at[1]) << 8 | uint32_t(at[2]) << 16 | uint32_t(at[3]) << 24;
}

inline void StartWriter(BitWriter* writer, uint8_t* room, uint32_t bytes) {
    *writer = {room, room, room + bytes, 0, 0, false};
}

inline void StoreAccumulator(BitWriter* writer) {
    if (writer->end - writer->position < 4) {
        writer->overflow = true;
        return;
    }
    StoreWord(writer->position, static_cast<uint32_t>(writer->accumulator));
    writer->position += 4;
}

// Appends `bits` bits, at most 32; `value` has no others.
inline void WriteClean(BitWriter* writer, uint32_t value, uint32_t bits) {
    writer->accumulator |= static_cast<uint64_t>(value) << writer->used;
    writer->used += bits;
    if (writer->used < 32) return;
    StoreAccumulator(writer);
    writer->used -= 32;
    writer->accumulator >>= 32;
}

// Appends the low `bits` bits of value, at most 32.
inline void WriteBits(BitWriter* writer, uint32_t value, uint32_t bits) {
    WriteClean(writer, value & BitMask(bits), bits);
}

// Appends `bits` bits, at most 64; `value` has no others.
inline void WriteLong(BitWriter* writer, uint64_t value, uint32_t bits) {
    if (bits > 32) {
        WriteClean(writer, static_cast<uint32_t>(value), 32);
        value >>= 32;
        bits -= 32;
    }
    WriteClean(writer, static_cast<uint32_t>(value), bits);
}

// Zero bits up to a word boundary; nothing at one.
inline void PadToWord(BitWriter* writer) {
    if (writer->used == 0) return;
    StoreAccumulator(writer);
    writer->used = 0;
    writer->accumulator = 0;
}

inline uint32_t BitsWritten(const BitWriter* writer) {
    return static_cast<uint32_t>(writer->position - writer->start) * 8 + writer->used;
}

inline void StartReader(BitReader* reader, const uint8_t* words, uint32_t bytes) {
    *reader = {words, words + bytes, 0, 0, 0};
}

// Takes the next `bits` bits, at most 31.
inline uint32_t ReadBits(BitReader* reader, uint32_t bits) {
    reader->consumed += bits;
    if (bits <= reader->left) {
        const uint32_t value = reader->accumulator & BitMask(bits);
        reader->accumulator >>= bits;
        reader->left -= bits;
        return value;
    }
    const uint32_t low = reader->accumulator;
    const uint32_t have = reader->left;
    const uint32_t missing = bits - have;
    uint32_t word = 0;
    if (reader->end - reader->position >= 4) {
        word = LoadWord(reader->position);
        reader->position += 4;
    }
    reader->accumulator = word >> missing;
    reader->left = 32 - missing;
    return low | (word & BitMask(missing)) << have;
}

// Appends the first `bits` bits of whole words.
inline void CopyWords(BitWriter* writer, const uint8_t* words, uint32_t bits) {
    for (; bits >= 32; bits -= 32, words += 4) WriteBits(writer, LoadWord(words), 32);
    if (bits > 0) WriteBits(writer, LoadWord(words), bits);
}

} // namespace vorn
