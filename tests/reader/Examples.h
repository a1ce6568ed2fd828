// Examples.h - streams and movies written bit by bit, for the reader's tests.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "reader/Reader.h"
#include "tests/mixing/BuiltMovie.h"

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

// One 8x8 plane, filled with a colour.
inline std::vector<uint8_t> FilledPlane(uint32_t colour) {
    PlaneStream stream(8);
    stream.Codes(BLOCK_TYPES, {6}).Colours({colour}).End();
    return stream.PadToWord().bytes;
}

struct ExampleTrack {
    uint32_t id, format;
    std::vector<vorn::Bytes> packets; // of each frame, behind the length word
};

// A movie of 8 x 8 pixels, `frames` frames of one colour each, frame i filled with 16 + i, all key frames.
inline std::vector<uint8_t> ExampleMovie(uint32_t frames, uint32_t capacity, uint32_t flags,
                                         const std::vector<ExampleTrack>& tracks = {}) {
    BuiltMovie movie;
    movie.capacity = capacity;
    movie.width = movie.height = 8;
    movie.numerator = 25;
    movie.flags = flags;
    for (const ExampleTrack& track : tracks) {
        uint32_t most = 0;
        for (const auto& packet : track.packets) most = std::max(most, packet.size() < 4 ? 0 : GetWord(packet, 0));
        movie.tracks.push_back({most, track.format, track.id});
    }
    for (uint32_t i = 0; i < frames; i++) {
        BuiltFrame& frame = movie.frames.emplace_back();
        frame.key = true;
        for (const ExampleTrack& track : tracks) {
            PutWord(&frame.sound.emplace_back(), static_cast<uint32_t>(track.packets[i].size()));
            frame.sound.back().insert(frame.sound.back().end(), track.packets[i].begin(), track.packets[i].end());
        }
        const auto plane = FilledPlane(16 + i);
        const bool alpha = (flags & MOVIE_FLAG_ALPHA) != 0, grey = (flags & MOVIE_FLAG_GREY) != 0;
        for (int part = alpha ? 0 : 1; part < (grey ? 2 : 4); part++) {
            if (part < 2) PutWord(&frame.video, static_cast<uint32_t>(plane.size()) + 4); // alpha and luma
            frame.video.insert(frame.video.end(), plane.begin(), plane.end());
        }
    }
    return BuildMovie(movie);
}

} // namespace vorn::reader
