// MovieFile.cpp - the file around the coded data: header, track tables, index, and the parts of a frame's packet.
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "reader/Rules.h"

namespace vorn::reader {
namespace {

constexpr uint32_t MOST_RATE = 65535;
constexpr uint32_t RATE_MASK = TRACK_FLAG_VARIANT_LOW - 1; // the bits of a format word below its flags

uint32_t WordAt(const uint8_t* bytes) {
    return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
}

bool Refuse(Violations* violations, const std::string& text) {
    NoteMovie(violations, SEVERITY_ERROR, text);
    return false;
}

bool ReadHeader(Movie* movie, Violations* violations) {
    if (movie->bytes.size() < HEADER_BYTES) return Refuse(violations, "The file is too short for a movie's header.");
    const uint8_t* at = movie->bytes.data();
    uint32_t* const fields[] = {
        &movie->header.magic,           &movie->header.fileSize, &movie->header.frames,    &movie->header.largestFrame,
        &movie->header.indexCapacity,   &movie->header.width,    &movie->header.height,    &movie->header.rateNumerator,
        &movie->header.rateDenominator, &movie->header.flags,    &movie->header.trackCount};
    for (uint32_t* field : fields) {
        *field = WordAt(at);
        at += 4;
    }
    const VornFileHeader& header = movie->header;
    if (!IsMovieMagic(header.magic)) return Refuse(violations, "The file isn't a Vorn movie.");
    // 64 bits: neither count can make this wrap.
    const uint64_t headBytes =
        HEADER_BYTES + 12 * uint64_t(header.trackCount) + 4 * (uint64_t(header.indexCapacity) + 1);
    if (headBytes > movie->bytes.size()) {
        return Refuse(violations, "The file is too short for " + std::to_string(header.trackCount) +
                                      " tracks and an index of " + std::to_string(header.indexCapacity) + " frames.");
    }
    if (header.frames > header.indexCapacity)
        return Refuse(violations, "The movie has more frames than its index holds.");
    return true;
}

bool SetGeometry(Movie* movie, Violations* violations) {
    const VornFileHeader& header = movie->header;
    movie->hasChroma = (header.flags & MOVIE_FLAG_GREY) == 0;
    movie->hasAlpha = (header.flags & MOVIE_FLAG_ALPHA) != 0;
    const uint64_t width = (uint64_t(header.width) + 7) & ~uint64_t(7);
    const uint64_t height = (uint64_t(header.height) + 7) & ~uint64_t(7);
    if (width == 0 || height == 0 || width > MOST_WIDTH || width * height > MOST_PLANE_SAMPLES) {
        return Refuse(violations, "A picture of " + std::to_string(header.width) + " x " +
                                      std::to_string(header.height) + " can't be read.");
    }
    movie->lumaWidth = uint32_t(width);
    movie->lumaHeight = uint32_t(height);
    movie->chromaWidth = ((header.width + 1) / 2 + 7) & ~7u;
    movie->chromaHeight = ((header.height + 1) / 2 + 7) & ~7u;
    return true;
}

void ReadTracks(Movie* movie) {
    const uint32_t count = movie->header.trackCount;
    const uint8_t* tables = movie->bytes.data() + HEADER_BYTES;
    movie->tracks.resize(count);
    for (size_t t = 0; t < count; t++) {
        Track& track = movie->tracks[t];
        track.largestPcm = WordAt(tables + 4 * t);
        track.format = WordAt(tables + 4 * (count + t));
        track.id = WordAt(tables + 4 * (2 * size_t(count) + t));
        track.sampleRate = track.format & RATE_MASK;
        track.channels = (track.format & TRACK_FLAG_STEREO) != 0 ? 2 : 1;
        track.sixteenBit = (track.format & TRACK_FLAG_16BIT) != 0;
        track.perChannelDct = (track.format & TRACK_FLAG_VARIANT_LOW) != 0;
        const bool oneVariant = track.perChannelDct != ((track.format & TRACK_FLAG_VARIANT_HIGH) != 0);
        track.usable = oneVariant && track.sampleRate >= 1 && track.sampleRate <= MOST_RATE;
    }
}

// Frames follow the index without gaps, each as long as the difference of two index words.
bool ReadIndex(Movie* movie, Violations* violations) {
    const VornFileHeader& header = movie->header;
    const size_t start = HEADER_BYTES + 12 * size_t(header.trackCount);
    movie->index.resize(size_t(header.indexCapacity) + 1);
    for (size_t i = 0; i < movie->index.size(); i++) movie->index[i] = WordAt(movie->bytes.data() + start + 4 * i);
    size_t position = start + 4 * movie->index.size();
    movie->frameStarts.assign(1, position);
    for (size_t i = 0; i < header.frames; i++) {
        const uint32_t from = movie->index[i] & ~KEY_FRAME_BIT;
        const uint32_t to = movie->index[i + 1] & ~KEY_FRAME_BIT;
        if (to <= from) return Refuse(violations, "The index doesn't rise at frame " + std::to_string(i) + ".");
        if (to - from > movie->bytes.size() - position) {
            return Refuse(violations, "Frame " + std::to_string(i) + " reaches beyond the end of the file.");
        }
        position += to - from;
        movie->frameStarts.push_back(position);
    }
    return true;
}

// Takes whole words and byte ranges off the front of a packet.
struct PacketCursor {
    Bytes rest;
    bool TakeWord(uint32_t* word) {
        if (rest.size < 4) return false;
        *word = WordAt(rest.data);
        rest.data += 4;
        rest.size -= 4;
        return true;
    }
    bool TakeBytes(size_t count, Bytes* part) {
        if (count > rest.size) return false;
        *part = {rest.data, count};
        rest.data += count;
        rest.size -= count;
        return true;
    }
};

struct FrameCutter {
    const Movie& movie;
    Frame* frame;
    Violations* violations;
    PacketCursor cursor;

    bool Error(int plane, int track, const std::string& text) {
        Violation violation = {SEVERITY_ERROR};
        violation.frame = frame->number;
        violation.plane = plane;
        violation.track = track;
        violation.text = text;
        AddViolation(violations, violation);
        return false;
    }
    bool CutAudio(int track) {
        AudioPacket packet = {};
        Bytes whole;
        if (!cursor.TakeWord(&packet.length))
            return Error(NO_PLANE, track, "The frame ends ahead of the audio packet.");
        if (!cursor.TakeBytes(packet.length, &whole))
            return Error(NO_PLANE, track, "The audio packet is longer than the frame.");
        if (packet.length % 4 != 0) Error(NO_PLANE, track, "The length of the audio packet isn't a multiple of 4.");
        if (packet.length != 0) {
            PacketCursor inside = {whole};
            if (!inside.TakeWord(&packet.pcmBytes)) return Error(NO_PLANE, track, "The audio packet is too short.");
            packet.coded = inside.rest;
        }
        frame->audio.push_back(packet);
        return true;
    }
    // A plane stream behind its offset word, which counts itself.
    bool CutPlane(int plane, Bytes* stream) {
        uint32_t offset = 0;
        if (!cursor.TakeWord(&offset)) return Error(plane, -1, "The frame ends ahead of the plane's size.");
        if (offset < 4 || !cursor.TakeBytes(offset - 4, stream)) {
            return Error(plane, -1, "A plane size of " + std::to_string(offset) + " doesn't fit the frame.");
        }
        if (offset % 4 != 0) Error(plane, -1, "The size of the plane stream isn't a multiple of 4.");
        return true;
    }
    bool Cut() {
        for (size_t t = 0; t < movie.tracks.size(); t++) {
            if (!CutAudio(int(t))) return false;
        }
        frame->video = cursor.rest;
        if (movie.hasAlpha && !CutPlane(PLANE_ALPHA, &frame->alpha)) return false;
        if (!CutPlane(PLANE_Y, &frame->luma)) return false;
        frame->chroma = cursor.rest;
        if (!movie.hasChroma && frame->chroma.size != 0) {
            Error(PLANE_Y, -1, std::to_string(frame->chroma.size) + " bytes follow the last plane of the frame.");
            frame->chroma = {};
        }
        return true;
    }
};

} // namespace

bool ParseMovie(std::vector<uint8_t> bytes, const MovieOptions& options, Movie* movie, Violations* violations) {
    *movie = Movie();
    movie->options = options;
    if (options.offset > bytes.size()) return Refuse(violations, "The file ends ahead of the movie's offset.");
    bytes.erase(bytes.begin(), bytes.begin() + std::ptrdiff_t(options.offset));
    movie->bytes = std::move(bytes);
    if (!ReadHeader(movie, violations)) return false;
    ReadTracks(movie);
    if (!SetGeometry(movie, violations) || !ReadIndex(movie, violations)) return false;
    CheckHead(*movie, violations);
    return true;
}

bool OpenMovie(const std::string& name, const MovieOptions& options, Movie* movie, Violations* violations) {
    // A device has no end, and a pipe keeps its reader waiting.
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(name, error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        return Refuse(violations, "The file '" + name + "' isn't a plain file.");
    FILE* file = fopen(name.c_str(), "rb");
    if (file == nullptr) return Refuse(violations, "The file '" + name + "' can't be opened.");
    std::vector<uint8_t> bytes;
    std::vector<uint8_t> piece(1 << 18);
    size_t count = 0;
    while ((count = fread(piece.data(), 1, piece.size(), file)) != 0) {
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + std::ptrdiff_t(count));
    }
    const bool failed = ferror(file) != 0;
    fclose(file);
    if (failed) return Refuse(violations, "The file '" + name + "' can't be read.");
    return ParseMovie(std::move(bytes), options, movie, violations);
}

bool MovieHasPlane(const Movie& movie, int plane) {
    if (plane == PLANE_Y) return true;
    return plane == PLANE_ALPHA ? movie.hasAlpha : movie.hasChroma && (plane == PLANE_CR || plane == PLANE_CB);
}

void PlaneSize(const Movie& movie, int plane, uint32_t* width, uint32_t* height) {
    const bool chroma = plane == PLANE_CR || plane == PLANE_CB;
    *width = chroma ? movie.chromaWidth : movie.lumaWidth;
    *height = chroma ? movie.chromaHeight : movie.lumaHeight;
}

bool ReadFrame(const Movie& movie, uint32_t number, Frame* frame, Violations* violations) {
    *frame = Frame();
    frame->number = number;
    if (number >= movie.header.frames)
        return Refuse(violations, "The movie has no frame " + std::to_string(number) + ".");
    const size_t start = movie.frameStarts[number];
    frame->key = (movie.index[number] & KEY_FRAME_BIT) != 0;
    frame->packet = {movie.bytes.data() + start, movie.frameStarts[size_t(number) + 1] - start};
    return FrameCutter{movie, frame, violations, {frame->packet}}.Cut();
}

} // namespace vorn::reader
