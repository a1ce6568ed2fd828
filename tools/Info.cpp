// Info.cpp - `vorn info`: what a movie is and where its bytes go.
#include <algorithm>
#include <array>

#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/MovieFile.h"

namespace vorn {

namespace {

struct Sums {
    uint64_t total = 0; // bytes of all packets
    uint64_t smallest = UINT64_MAX;
    uint64_t largest = 0;
    uint64_t luma = 0;
    uint64_t chroma = 0;
    uint64_t alpha = 0;
    uint32_t keys = 0;
    std::vector<uint64_t> trackBytes; // by track, length words included
    std::vector<uint64_t> trackPcm;
};

void AddFrame(const reader::Frame& frame, Sums* sums) {
    sums->total += frame.packet.size;
    sums->smallest = std::min<uint64_t>(sums->smallest, frame.packet.size);
    sums->largest = std::max<uint64_t>(sums->largest, frame.packet.size);
    sums->luma += frame.luma.size;
    sums->chroma += frame.chroma.size;
    sums->alpha += frame.alpha.size;
    sums->keys += frame.key ? 1 : 0;
    for (size_t t = 0; t < frame.audio.size(); t++) {
        sums->trackBytes[t] += uint64_t(frame.audio[t].length) + 4;
        sums->trackPcm[t] += frame.audio[t].pcmBytes;
    }
}

void PrintFrame(const reader::Frame& frame) {
    uint64_t sound = 0;
    for (const reader::AudioPacket& packet : frame.audio) sound += uint64_t(packet.length) + 4;
    fmt::print("frame {:6} {:4} {:8} bytes: sound {}, Y {}, chroma {}, alpha {}\n", frame.number,
               frame.key ? "key" : "", frame.packet.size, sound, frame.luma.size, frame.chroma.size, frame.alpha.size);
}

void PrintHead(const std::string& name, const reader::Movie& movie, double seconds) {
    const VornFileHeader& header = movie.header;
    const uint32_t rateUnit = std::max(1u, header.rateDenominator);
    fmt::print("file      {}: {} bytes, version {}\n", name, movie.bytes.size(), static_cast<char>(header.magic >> 24));
    fmt::print("picture   {}x{}, {}{}\n", header.width, header.height, movie.hasChroma ? "colour" : "grey",
               movie.hasAlpha ? " with alpha" : "");
    fmt::print("rate      {}/{} frames per second ({:.3f})\n", header.rateNumerator, header.rateDenominator,
               double(header.rateNumerator) / rateUnit);
    fmt::print("frames    {} of room for {}, {}\n", header.frames, header.indexCapacity, TimeText(seconds));
    if (header.flags >> HEADER_MODE_SHIFT != 0) fmt::print("mode      {}\n", header.flags >> HEADER_MODE_SHIFT);
}

double KiloBits(uint64_t bytes, double seconds) {
    return seconds > 0 ? static_cast<double>(bytes) * 8 / 1000 / seconds : 0;
}

void PrintSums(const reader::Movie& movie, const Sums& sums, double seconds) {
    const uint32_t frames = movie.header.frames;
    fmt::print("packets   {} key frames; {} to {} bytes, {} on average; {:.2f} kbit/s\n", sums.keys, sums.smallest,
               sums.largest, sums.total / frames, KiloBits(sums.total, seconds));
    fmt::print("luma      {} bytes, {:.2f} kbit/s\n", sums.luma, KiloBits(sums.luma, seconds));
    if (movie.hasChroma) fmt::print("chroma    {} bytes, {:.2f} kbit/s\n", sums.chroma, KiloBits(sums.chroma, seconds));
    if (movie.hasAlpha) fmt::print("alpha     {} bytes, {:.2f} kbit/s\n", sums.alpha, KiloBits(sums.alpha, seconds));
    for (size_t t = 0; t < movie.tracks.size(); t++) {
        const reader::Track& track = movie.tracks[t];
        const double perSecond = double(track.sampleRate) * track.channels * 2;
        fmt::print("track {:3} {} Hz, {}, {}; {} of sound in {} bytes, {:.2f} kbit/s\n", track.id, track.sampleRate,
                   track.channels == 2 ? "stereo" : "mono",
                   track.perChannelDct ? "a DCT per channel" : "one DFT for all",
                   TimeText(perSecond > 0 ? static_cast<double>(sums.trackPcm[t]) / perSecond : 0), sums.trackBytes[t],
                   KiloBits(sums.trackBytes[t], seconds));
    }
}

} // namespace

int RunInfo(const InfoOptions& options) {
    reader::Movie movie;
    reader::Violations violations;
    OpenMovieFile(options.movie, true, &movie, &violations);
    const VornFileHeader& header = movie.header;
    const double seconds =
        header.rateNumerator == 0 ? 0 : double(header.frames) * header.rateDenominator / header.rateNumerator;
    PrintHead(options.movie, movie, seconds);
    Sums sums;
    sums.trackBytes.resize(movie.tracks.size());
    sums.trackPcm.resize(movie.tracks.size());
    for (uint32_t i = 0; i < header.frames; i++) {
        reader::Frame frame;
        if (!ReadFrame(movie, i, &frame, &violations))
            throw Failure{EXIT_DAMAGED,
                          fmt::format("{}: {}", options.movie,
                                      violations.list.empty() ? fmt::format("frame {} can't be read", i)
                                                              : DescribeViolation(violations.list.back()))};
        AddFrame(frame, &sums);
        if (options.frames) PrintFrame(frame);
    }
    if (header.frames != 0) PrintSums(movie, sums, seconds);
    return EXIT_DONE;
}

} // namespace vorn
