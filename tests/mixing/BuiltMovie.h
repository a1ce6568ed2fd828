// BuiltMovie.h - movies put together word by word, with arbitrary bytes for pictures and sound, and taken apart again.
#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include "format/MovieLayout.h"

namespace vorn {

using Bytes = std::vector<uint8_t>;

struct BuiltTrack {
    uint32_t largestPcm, format, id;
    bool operator==(const BuiltTrack&) const = default;
};
struct BuiltFrame {
    bool key;
    std::vector<Bytes> sound; // a whole audio packet per track
    Bytes video;
    bool operator==(const BuiltFrame&) const = default;
};
struct BuiltMovie {
    uint32_t magic = MovieMagic('i');
    uint32_t capacity = 0, width = 33, height = 17, numerator = 12, denominator = 1, flags = 0x20000000;
    std::vector<BuiltTrack> tracks;
    std::vector<BuiltFrame> frames;
};

inline void SetWord(Bytes* bytes, size_t at, uint32_t word) {
    for (size_t i = 0; i < 4; i++) (*bytes)[at + i] = static_cast<uint8_t>(word >> 8 * i);
}
inline void PutWord(Bytes* bytes, uint32_t word) {
    bytes->resize(bytes->size() + 4);
    SetWord(bytes, bytes->size() - 4, word);
}
inline uint32_t GetWord(const Bytes& bytes, size_t at) {
    uint32_t word = 0;
    for (size_t i = 0; i < 4; i++) word |= uint32_t{at + i < bytes.size() ? bytes[at + i] : 0xEEu} << 8 * i;
    return word;
}

// The head of a movie, its index given word by word: the first frames + 1 are used, and `capacity` decides on their number.
inline Bytes BuildHead(const BuiltMovie& movie, uint32_t frames, uint32_t largest, uint32_t size,
                       const std::vector<uint32_t>& index) {
    Bytes head;
    for (uint32_t word : {movie.magic, size - 8, frames, largest, movie.capacity, movie.width, movie.height,
                          movie.numerator, movie.denominator, movie.flags, static_cast<uint32_t>(movie.tracks.size())})
        PutWord(&head, word);
    for (const BuiltTrack& track : movie.tracks) PutWord(&head, track.largestPcm);
    for (const BuiltTrack& track : movie.tracks) PutWord(&head, track.format);
    for (const BuiltTrack& track : movie.tracks) PutWord(&head, track.id);
    for (uint32_t word : index) PutWord(&head, word);
    return head;
}

inline Bytes BuildMovie(const BuiltMovie& movie) {
    const size_t head = 48 + 12 * movie.tracks.size() + 4 * size_t{movie.capacity};
    const uint32_t frames = static_cast<uint32_t>(movie.frames.size());
    Bytes packets;
    std::vector<uint32_t> index;
    size_t largest = 0;
    for (const BuiltFrame& frame : movie.frames) {
        const size_t start = packets.size();
        index.push_back(static_cast<uint32_t>(head + start) + frame.key);
        for (const Bytes& sound : frame.sound) packets.insert(packets.end(), sound.begin(), sound.end());
        packets.insert(packets.end(), frame.video.begin(), frame.video.end());
        largest = std::max(largest, packets.size() - start);
    }
    const uint32_t size = static_cast<uint32_t>(head + packets.size());
    index.push_back(frames == 0 ? 0 : size);
    index.resize(size_t{movie.capacity} + 1);
    Bytes file = BuildHead(movie, frames, static_cast<uint32_t>(largest), size, index);
    file.insert(file.end(), packets.begin(), packets.end());
    return file;
}

// Takes a file apart; false if anything doesn't fit. What is left then builds the same file again, which shows that sizes,
// index, tail and largest frame are right.
inline bool ParseMovie(const Bytes& file, BuiltMovie* movie) {
    *movie = {};
    const uint32_t frames = GetWord(file, 8), tracks = GetWord(file, 40);
    uint32_t* const fields[] = {&movie->capacity,  &movie->width,       &movie->height,
                                &movie->numerator, &movie->denominator, &movie->flags};
    for (size_t i = 0; i < 6; i++) *fields[i] = GetWord(file, 16 + 4 * i);
    movie->magic = GetWord(file, 0);
    if (!IsMovieMagic(movie->magic) || frames > movie->capacity ||
        48 + uint64_t{12} * tracks + uint64_t{4} * movie->capacity > file.size())
        return false;
    const auto table = [&](size_t number, size_t at) { return GetWord(file, 44 + 4 * (number * tracks + at)); };
    for (size_t t = 0; t < tracks; t++) movie->tracks.push_back({table(0, t), table(1, t), table(2, t)});
    for (size_t i = 0; i < frames; i++) {
        size_t at = table(3, i) & ~1u;
        const size_t end = table(3, i + 1) & ~1u;
        if (end > file.size() || at > end) return false;
        const auto cut = [&](size_t bytes) {
            const uint8_t* const from = file.data() + at;
            at += bytes;
            return Bytes(from, from + bytes);
        };
        BuiltFrame& frame = movie->frames.emplace_back();
        frame.key = (table(3, i) & 1) != 0;
        for (size_t t = 0; t < tracks; t++) {
            if (end - at < 4 || GetWord(file, at) > end - at - 4) return false;
            frame.sound.push_back(cut(GetWord(file, at) + 4));
        }
        frame.video = cut(end - at);
    }
    return true;
}

} // namespace vorn
