// ReaderFuzz.cpp - any bytes as a movie: the reader walks, decodes and judges them, and is at one with itself.
#include "fuzz/Fuzz.h"
#include "reader/Reader.h"

using namespace vorn;
using namespace vorn::reader;

namespace {

constexpr uint64_t MOST_SAMPLES = 1 << 16;        // of a plane
constexpr uint64_t MOST_SAMPLES_IN_ALL = 1 << 18; // of all frames; keeps an input short

// Decodes frame after frame, and what belongs to a frame must be there.
bool DecodeFrames(const Movie& movie, Violations* violations) {
    MovieDecoder decoder;
    bool whole = true;
    for (uint32_t number = 0; number < movie.header.frames; number++) {
        Frame frame;
        const bool cut = ReadFrame(movie, number, &frame, violations);
        if (cut) Require(frame.audio.size() == movie.tracks.size(), "a cut frame has a packet a track");
        const bool decoded = cut && DecodeFrame(movie, frame, &decoder, violations);
        whole = whole && decoded;
        for (int id = 0; id < PLANES; id++) {
            const DecodedPlane& plane = decoder.planes[id];
            if (plane.samples.empty()) continue;
            uint32_t width = 0, height = 0;
            PlaneSize(movie, id, &width, &height);
            Require(MovieHasPlane(movie, id), "only planes of the movie are decoded");
            Require(plane.samples.size() == size_t{width} * height, "a plane has its size");
            if (decoded) Require(plane.consumed <= frame.packet.size, "a plane takes no more than there is");
        }
    }
    return whole;
}

void Read(std::vector<uint8_t> bytes, const MovieOptions& options) {
    Violations first;
    Movie movie;
    if (!ParseMovie(std::move(bytes), options, &movie, &first)) {
        Require(first.errors > 0, "a movie that can't be walked has an error");
        return;
    }
    const uint64_t samples = uint64_t(movie.lumaWidth) * movie.lumaHeight;
    if (samples > MOST_SAMPLES || samples * movie.header.frames > MOST_SAMPLES_IN_ALL) return;
    Violations second = first;
    const bool whole = VerifyMovie(movie, {}, &first);
    bool wholeAgain = DecodeFrames(movie, &second);
    for (uint32_t track = 0; track < movie.tracks.size(); track++) {
        TrackSound sound;
        wholeAgain = DecodeTrack(movie, track, &sound, &second) && wholeAgain;
        Require(sound.samples.size() <= sound.pcmBytes / 2, "a track is as long as its packets say");
    }
    Require(whole == wholeAgain, "all at once or one by one, a movie is whole or not");
    Require(whole || first.errors > 0, "a movie that breaks off has an error");
    Require(first.errors >= second.errors, "VerifyMovie sees all errors");
    for (const Violation& violation : first.list) Require(!DescribeViolation(violation).empty(), "a text");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<uint8_t> bytes(data, data + size);
    Read(bytes, {});
    MovieOptions growing;
    growing.growing = true;
    growing.offset = size % 3;
    Read(bytes, growing);
    return 0;
}
