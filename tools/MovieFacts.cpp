// MovieFacts.cpp - where do the bytes of a movie go?
#include "tools/MovieFacts.h"

#include <algorithm>

#include "format/BlockFormat.h"
#include "tools/Exit.h"
#include "tools/MovieFile.h"
#include "tools/Text.h"

namespace vorn {

namespace {

// A plane stream needs no pictures to tell how long it is.
size_t LengthOfCr(const reader::Movie& movie, const reader::Frame& frame, reader::Violations* violations) {
    reader::PlaneRequest request;
    request.stream = frame.chroma;
    PlaneSize(movie, reader::PLANE_CR, &request.width, &request.height);
    request.keyFrame = frame.key;
    request.plane = reader::PLANE_CR;
    request.frame = frame.number;
    reader::DecodedPlane plane;
    if (!DecodePlane(request, &plane, violations)) return SIZE_MAX;
    return std::min(plane.consumed, frame.chroma.size);
}

void CountBlocks(const reader::DecodedPlane& plane, BlockFacts* blocks) {
    for (int mode = 0; mode < 16; mode++) {
        blocks->highModes[mode] = plane.statistics.highModes[mode];
        if (mode != MODE_SCALED) blocks->modes[mode] = plane.statistics.modes[mode];
    }
}

void Add(const FrameFacts& frame, MovieFacts* facts) {
    facts->bytes += frame.bytes;
    facts->smallest = std::min(facts->smallest, frame.bytes);
    facts->largest = std::max(facts->largest, frame.bytes);
    for (int p = 0; p < reader::PLANES; p++) {
        facts->planes[p].bytes += frame.planes[p].bytes;
        for (int mode = 0; mode < 16; mode++) {
            facts->planes[p].blocks.modes[mode] += frame.planes[p].blocks.modes[mode];
            facts->planes[p].blocks.highModes[mode] += frame.planes[p].blocks.highModes[mode];
        }
    }
}

void AddSound(const reader::Movie& movie, const reader::Frame& frame, FrameFacts* one, MovieFacts* facts) {
    for (size_t t = 0; t < frame.audio.size(); t++) {
        one->tracks.push_back(uint64_t(frame.audio[t].length) + 4);
        TrackFacts& track = facts->tracks[t];
        track.bytes += one->tracks.back();
        track.pcmBytes += frame.audio[t].pcmBytes;
        const double perSecond = double(movie.tracks[t].sampleRate) * movie.tracks[t].channels * 2;
        if (perSecond > 0) track.seconds = static_cast<double>(track.pcmBytes) / perSecond;
    }
}

// The planes' sizes, and with `decoder` their blocks. False if a plane can't be read.
bool AddPlanes(const reader::Movie& movie, const reader::Frame& frame, reader::MovieDecoder* decoder, FrameFacts* one,
               reader::Violations* violations) {
    size_t cr = 0;
    if (decoder != nullptr) {
        if (!DecodeFrame(movie, frame, decoder, violations)) return false;
        cr = std::min(decoder->planes[reader::PLANE_CR].consumed, frame.chroma.size);
        for (int p = 0; p < reader::PLANES; p++)
            if (MovieHasPlane(movie, p)) CountBlocks(decoder->planes[p], &one->planes[p].blocks);
    } else if (movie.hasChroma) {
        cr = LengthOfCr(movie, frame, violations);
        if (cr == SIZE_MAX) return false;
    }
    one->planes[reader::PLANE_Y].bytes = frame.luma.size;
    one->planes[reader::PLANE_CR].bytes = cr;
    one->planes[reader::PLANE_CB].bytes = frame.chroma.size - cr;
    one->planes[reader::PLANE_ALPHA].bytes = frame.alpha.size;
    return true;
}

} // namespace

MovieFacts GatherFacts(const std::string& name, const reader::Movie& movie, bool blocks) {
    const VornFileHeader& header = movie.header;
    MovieFacts facts;
    facts.name = name;
    facts.smallest = header.frames == 0 ? 0 : UINT64_MAX;
    if (header.rateNumerator != 0)
        facts.seconds = double(header.frames) * header.rateDenominator / header.rateNumerator;
    facts.tracks.resize(movie.tracks.size());
    reader::MovieDecoder decoder;
    for (uint32_t i = 0; i < header.frames; i++) {
        reader::Violations violations;
        reader::Frame frame;
        FrameFacts one;
        if (!ReadFrame(movie, i, &frame, &violations) ||
            !AddPlanes(movie, frame, blocks ? &decoder : nullptr, &one, &violations))
            throw Failure{EXIT_DAMAGED, fmt::format("{}: {}", name, WhatIsWrong(violations))};
        one.key = frame.key;
        one.offset = movie.options.offset + movie.frameStarts[i];
        one.bytes = frame.packet.size;
        AddSound(movie, frame, &one, &facts);
        Add(one, &facts);
        if (one.key) facts.keys.push_back(i);
        facts.frames.push_back(std::move(one));
    }
    return facts;
}

const char* ModeName(int mode) {
    static const char* const NAMES[16] = {"skip",    "scaled", "motion", "run", "residue", "intra", "fill", "inter",
                                          "pattern", "raw",    "10",     "11",  "12",      "13",    "14",   "split"};
    return NAMES[mode & 15];
}

double KiloBits(uint64_t bytes, double seconds) {
    return seconds > 0 ? static_cast<double>(bytes) * 8 / 1000 / seconds : 0;
}

} // namespace vorn
