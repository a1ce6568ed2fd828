// Examples.h - streams and movies written bit by bit, for the reader's tests.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "reader/Reader.h"

namespace vorn::reader {

// Bits, lowest first, into bytes.
struct BitSink {
    std::vector<uint8_t> bytes;
    size_t used = 0;

    BitSink& Put(uint32_t value, uint32_t count) {
        for (uint32_t i = 0; i < count; i++, used++) {
            if (used % 8 == 0) bytes.push_back(0);
            bytes.back() = uint8_t(bytes.back() | (value >> i & 1) << used % 8);
        }
        return *this;
    }
    BitSink& PadToWord() { return Put(0, uint32_t(-used & 31)); }
};

// A plane stream being written: flat tables, so that a symbol's code is its 4-bit value, then counts and elements of row
// starts; the test puts the blocks' bit strings itself.
struct PlaneStream : BitSink {
    uint32_t width;
    int next = 0; // bundle whose count is due

    explicit PlaneStream(uint32_t samples) : width(samples) {
        for (int i = 0; i < TABLES; i++) Put(0, 4);
    }
    uint32_t CountBits(int id) const {
        const uint32_t elements = id == COLOURS ? 64 : id == PATTERNS ? 8 : id == RUNS ? 48 : 1; // of a block
        const uint32_t most = width / 8 / (id == SUB_BLOCK_TYPES ? 2 : 1) * elements + 511;
        uint32_t length = 0;
        while (most >> length != 0) length++;
        return length;
    }
    // Zero counts for the bundles ahead of `id`, then the count for it.
    PlaneStream& Count(int id, uint32_t count) {
        for (; next < id; next++) Put(0, CountBits(next));
        Put(count, CountBits(id));
        next = id + 1;
        return *this;
    }
    void End() {
        while (next < BUNDLES) Put(0, CountBits(next++));
    }
    // A chunk of nibbles by their codes behind a flag of 0.
    PlaneStream& Codes(int id, const std::vector<uint32_t>& symbols, uint32_t count) {
        Count(id, count).Put(0, 1);
        for (const uint32_t symbol : symbols) Put(symbol, 4);
        return *this;
    }
    PlaneStream& Codes(int id, const std::vector<uint32_t>& symbols) {
        return Codes(id, symbols, uint32_t(symbols.size()));
    }
    PlaneStream& Colours(const std::vector<uint32_t>& colours) {
        const bool same = std::equal(colours.begin() + 1, colours.end(), colours.begin());
        Count(COLOURS, uint32_t(colours.size())).Put(same, 1);
        for (size_t i = 0; i < (same ? 1 : colours.size()); i++) Put(colours[i] >> 4, 4).Put(colours[i] & 15, 4);
        return *this;
    }
    // A chunk of one offset.
    PlaneStream& Offset(int id, int offset) {
        Count(id, 1).Put(offset == 0, 1).Put(uint32_t(offset < 0 ? -offset : offset), 4);
        if (offset != 0) Put(offset < 0, 1);
        return *this;
    }
};

struct Decoded {
    bool whole;
    DecodedPlane plane;
    Violations violations;
};
inline Decoded Decode(const std::vector<uint8_t>& stream, uint32_t width, uint32_t height,
                      const std::vector<uint8_t>& reference = {}, bool keyFrame = false) {
    Decoded result;
    PlaneRequest request;
    request.stream = {stream.data(), stream.size()};
    request.width = width;
    request.height = height;
    request.reference = reference.empty() ? nullptr : reference.data();
    request.keyFrame = keyFrame;
    request.frame = 7;
    result.whole = DecodePlane(request, &result.plane, &result.violations);
    return result;
}

// True if a violation of that severity has these words in its line.
inline bool Tells(const Violations& violations, Severity severity, const std::string& words) {
    return std::any_of(violations.list.begin(), violations.list.end(), [&](const Violation& violation) {
        return violation.severity == severity && DescribeViolation(violation).find(words) != std::string::npos;
    });
}
inline std::string AllLines(const Violations& violations) {
    std::string lines;
    for (const Violation& violation : violations.list) lines += DescribeViolation(violation) + "\n";
    return lines;
}

inline void PutWord(std::vector<uint8_t>* bytes, uint32_t word) {
    for (int i = 0; i < 4; i++) bytes->push_back(uint8_t(word >> 8 * i));
}
inline void SetWord(std::vector<uint8_t>* bytes, size_t offset, uint32_t word) {
    for (size_t i = 0; i < 4; i++) (*bytes)[offset + i] = uint8_t(word >> 8 * i);
}

// One 8x8 plane, filled with a colour.
inline std::vector<uint8_t> FilledPlane(uint32_t colour) {
    PlaneStream stream(8);
    stream.Codes(BLOCK_TYPES, {6}).Colours({colour}).End();
    return stream.PadToWord().bytes;
}

struct ExampleTrack {
    uint32_t id, format;
    std::vector<std::vector<uint8_t>> packets; // of each frame, behind the length word
};

// A movie of 8 x 8 pixels, `frames` frames of one colour each, frame i filled with 16 + i, all key frames.
inline std::vector<uint8_t> ExampleMovie(uint32_t frames, uint32_t capacity, uint32_t flags,
                                         const std::vector<ExampleTrack>& tracks = {}) {
    const uint32_t headBytes = uint32_t(48 + 12 * tracks.size() + 4 * capacity);
    std::vector<uint8_t> packets;
    std::vector<uint32_t> index;
    uint32_t largest = 0;
    for (uint32_t i = 0; i < frames; i++) {
        const size_t start = packets.size();
        index.push_back((headBytes + uint32_t(start)) | 1);
        for (const ExampleTrack& track : tracks) {
            PutWord(&packets, uint32_t(track.packets[i].size()));
            packets.insert(packets.end(), track.packets[i].begin(), track.packets[i].end());
        }
        const std::vector<uint8_t> plane = FilledPlane(16 + i);
        for (int part = (flags & MOVIE_FLAG_ALPHA) != 0 ? 0 : 1; part < 2; part++) {
            PutWord(&packets, uint32_t(plane.size()) + 4);
            packets.insert(packets.end(), plane.begin(), plane.end());
        }
        for (int part = 0; part < 2 && (flags & MOVIE_FLAG_GREY) == 0; part++) {
            packets.insert(packets.end(), plane.begin(), plane.end());
        }
        largest = std::max(largest, uint32_t(packets.size() - start));
    }
    if (frames > 0) index.push_back(headBytes + uint32_t(packets.size()));
    index.resize(capacity + 1);

    std::vector<uint8_t> bytes;
    for (const uint32_t word : {0x694e5256u, headBytes + uint32_t(packets.size()) - 8, frames, largest, capacity, 8u,
                                8u, 25u, 1u, flags, uint32_t(tracks.size())}) {
        PutWord(&bytes, word);
    }
    for (const ExampleTrack& track : tracks) {
        uint32_t most = 0;
        for (const auto& packet : track.packets) {
            if (packet.size() >= 4) most = std::max(most, uint32_t(packet[0] | packet[1] << 8 | packet[2] << 16));
        }
        PutWord(&bytes, most);
    }
    for (const ExampleTrack& track : tracks) PutWord(&bytes, track.format);
    for (const ExampleTrack& track : tracks) PutWord(&bytes, track.id);
    for (const uint32_t word : index) PutWord(&bytes, word);
    bytes.insert(bytes.end(), packets.begin(), packets.end());
    return bytes;
}

} // namespace vorn::reader
