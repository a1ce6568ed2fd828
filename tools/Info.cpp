// Info.cpp - `vorn info`: what a movie is and where its bytes go.
#include <algorithm>

#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/MovieFacts.h"
#include "tools/MovieFile.h"
#include "tools/Text.h"

namespace vorn {

namespace {

constexpr size_t KEYS_TOLD = 12;

// "skip 1200, motion 31, 16x16 intra 7": modes that occur, 8x8 blocks first.
std::string BlockText(const BlockFacts& blocks) {
    std::string text;
    const auto add = [&](const char* size, const uint64_t* counts) {
        for (int mode = 0; mode < 16; mode++)
            if (counts[mode] != 0)
                text += fmt::format("{}{}{} {}", text.empty() ? "" : ", ", size, ModeName(mode), counts[mode]);
    };
    add("", blocks.modes);
    add("16x16 ", blocks.highModes);
    return text;
}

void PrintFrame(const reader::Movie& movie, const FrameFacts& frame, size_t number, bool blocks) {
    uint64_t sound = 0;
    for (const uint64_t bytes : frame.tracks) sound += bytes;
    std::string line =
        fmt::format("frame {:6} {:4} {:8} bytes: sound {}", number, frame.key ? "key" : "", frame.bytes, sound);
    for (int p = 0; p < reader::PLANES; p++)
        if (MovieHasPlane(movie, p)) line += fmt::format(", {} {}", reader::PlaneName(p), frame.planes[p].bytes);
    fmt::print("{}\n", line);
    for (int p = 0; blocks && p < reader::PLANES; p++)
        if (MovieHasPlane(movie, p)) fmt::print("  {:6} {}\n", reader::PlaneName(p), BlockText(frame.planes[p].blocks));
}

void PrintHead(const reader::Movie& movie, const MovieFacts& facts) {
    const VornFileHeader& header = movie.header;
    const uint32_t rateUnit = std::max(1u, header.rateDenominator);
    fmt::print("file      {}: {} bytes, version {}\n", facts.name, movie.bytes.size(),
               static_cast<char>(header.magic >> 24));
    fmt::print("picture   {}x{}, {}{}\n", header.width, header.height, movie.hasChroma ? "colour" : "grey",
               movie.hasAlpha ? " with alpha" : "");
    fmt::print("rate      {}/{} frames per second ({:.3f})\n", header.rateNumerator, header.rateDenominator,
               double(header.rateNumerator) / rateUnit);
    fmt::print("frames    {} of room for {}, {}\n", header.frames, header.indexCapacity, TimeText(facts.seconds));
    if (header.flags >> HEADER_MODE_SHIFT != 0) fmt::print("mode      {}\n", header.flags >> HEADER_MODE_SHIFT);
}

void PrintSums(const reader::Movie& movie, const MovieFacts& facts, bool blocks) {
    std::string keys;
    for (size_t i = 0; i < std::min(facts.keys.size(), KEYS_TOLD); i++)
        keys += fmt::format("{}{}", i == 0 ? ": " : ", ", facts.keys[i]);
    fmt::print("keys      {}{}{}\n", facts.keys.size(), keys, facts.keys.size() > KEYS_TOLD ? ", ..." : "");
    fmt::print("packets   {} bytes, {:.2f} kbit/s; {} to {} bytes, {} on average\n", facts.bytes,
               KiloBits(facts.bytes, facts.seconds), facts.smallest, facts.largest, facts.bytes / facts.frames.size());
    for (int p = 0; p < reader::PLANES; p++) {
        if (!MovieHasPlane(movie, p)) continue;
        const PlaneFacts& plane = facts.planes[p];
        fmt::print("{:9} {} bytes, {:.2f} kbit/s\n", reader::PlaneName(p), plane.bytes,
                   KiloBits(plane.bytes, facts.seconds));
        if (blocks) fmt::print("          {}\n", BlockText(plane.blocks));
    }
    for (size_t t = 0; t < movie.tracks.size(); t++) {
        const reader::Track& track = movie.tracks[t];
        fmt::print("track {:3} {} bytes, {:.2f} kbit/s; {} of {} Hz, {}, {}\n", track.id, facts.tracks[t].bytes,
                   KiloBits(facts.tracks[t].bytes, facts.seconds), TimeText(facts.tracks[t].seconds), track.sampleRate,
                   track.channels == 2 ? "stereo" : "mono",
                   track.perChannelDct ? "a DCT per channel" : "one DFT for all");
    }
}

} // namespace

int RunInfo(const InfoOptions& options) {
    reader::Movie movie;
    reader::Violations violations;
    OpenMovieFile(options.movie, true, &movie, &violations);
    const MovieFacts facts = GatherFacts(options.movie, movie, options.blocks);
    if (options.json) {
        PrintFactsAsJson(movie, facts, options.frames, options.blocks);
        return EXIT_DONE;
    }
    PrintHead(movie, facts);
    for (size_t i = 0; options.frames && i < facts.frames.size(); i++)
        PrintFrame(movie, facts.frames[i], i, options.blocks);
    if (!facts.frames.empty()) PrintSums(movie, facts, options.blocks);
    return EXIT_DONE;
}

} // namespace vorn
