// MovieFacts.h - where the bytes of a movie go: gathered once, told as text or as JSON.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "reader/Reader.h"

namespace vorn {

// How the blocks of a plane are coded, by BlockMode.
struct BlockFacts {
    uint64_t modes[16] = {};     // blocks of 8x8, those of 16x16 left out
    uint64_t highModes[16] = {}; // blocks of 16x16
};

struct PlaneFacts {
    uint64_t bytes = 0; // of the plane streams, without the words that tell their sizes
    BlockFacts blocks;  // if they were asked for
};

struct FrameFacts {
    bool key = false;
    uint64_t offset = 0; // byte of the file
    uint64_t bytes = 0;  // of the packet
    PlaneFacts planes[reader::PLANES];
    std::vector<uint64_t> tracks; // bytes, the words that tell their sizes included
};

struct TrackFacts {
    uint64_t bytes = 0;
    uint64_t pcmBytes = 0;
    double seconds = 0; // of sound
};

struct MovieFacts {
    std::string name;
    double seconds = 0; // of the picture
    uint64_t bytes = 0; // of all packets
    uint64_t smallest = 0;
    uint64_t largest = 0;
    std::vector<uint32_t> keys; // frames
    PlaneFacts planes[reader::PLANES];
    std::vector<TrackFacts> tracks;
    std::vector<FrameFacts> frames;
};

// Without `blocks` nothing is decoded but the Cr planes, whose ends are where the Cb planes begin. Throws a Failure for what
// can't be read.
MovieFacts GatherFacts(const std::string& name, const reader::Movie& movie, bool blocks);

const char* ModeName(int mode); // a BlockMode
double KiloBits(uint64_t bytes, double seconds);

// The facts as JSON on standard output; `frames` and `blocks` as the options of `vorn info`.
void PrintFactsAsJson(const reader::Movie& movie, const MovieFacts& facts, bool frames, bool blocks);

} // namespace vorn
