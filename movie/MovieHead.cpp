// MovieHead.cpp - the head of a movie under construction: written once with zeros where values aren't known yet, then
// patched in place whenever the file is to be readable.
#include <atomic>

#include "audio/AudioTrack.h"
#include "movie/Movie.h"

namespace vorn {

namespace {

constexpr uint64_t GROWING_WORDS_POSITION = 4; // fileSize, frames, largestFrame

void WriteTrackTable(VornMakeState* state, uint32_t AudioTrackState::*field) {
    for (uint32_t i = 0; i < state->trackCount; i++) SpoolWriteWord(state->file, state->tracks[i].*field);
}

} // namespace

void WriteMovieHead(VornMakeState* state) {
    VornFileHeader header = {};
    header.magic = MovieMagic('i');
    header.indexCapacity = state->frameCapacity;
    header.width = state->width;
    header.height = state->height;
    header.rateNumerator = state->rateNumerator;
    header.rateDenominator = state->rateDenominator;
    header.flags = state->flags | state->headerMode << HEADER_MODE_SHIFT; // the shift drops all but four bits
    header.trackCount = state->trackCount;
    WriteFileHeader(state->file, header);
    WriteZeroWords(state->file, state->trackCount);
    WriteTrackTable(state, &AudioTrackState::format);
    WriteTrackTable(state, &AudioTrackState::id);
    WriteZeroWords(state->file, uint64_t(state->frameCapacity) + 1);
}

// The counts go last: a process that is killed in between leaves the old counts before a newer index, which still reads, and
// not new counts before an old one.
void RewriteHead(VornMakeState* state) {
    SpoolFile* file = state->file;
    const uint64_t size = SpoolSize(file);
    // Read before the index words: those that this count covers are stored by then.
    const uint32_t frames = std::atomic_ref<uint32_t>(state->framesDone).load(std::memory_order_acquire);
    const uint64_t position = SpoolSeek(file, HEADER_BYTES);
    WriteTrackTable(state, &AudioTrackState::largestPcm);
    WriteTrackTable(state, &AudioTrackState::format);
    WriteTrackTable(state, &AudioTrackState::id);
    for (uint64_t i = 0; i <= state->frameCapacity; i++) {
        SpoolWriteWord(file, std::atomic_ref<uint32_t>(state->frameIndex[i]).load(std::memory_order_relaxed));
    }
    SpoolSeek(file, GROWING_WORDS_POSITION);
    SpoolWriteWord(file, static_cast<uint32_t>(size - 8));
    SpoolWriteWord(file, frames);
    SpoolWriteWord(file, state->largestFrame);
    SpoolSeek(file, position);
}

void StoreIndexWord(VornMakeState* state, uint32_t frame, uint32_t word) {
    std::atomic_ref<uint32_t>(state->frameIndex[frame]).store(word, std::memory_order_relaxed);
}

// The movie's own thread is the only one that changes the count.
void RaiseFramesDone(VornMakeState* state) {
    std::atomic_ref<uint32_t>(state->framesDone).store(state->framesDone + 1, std::memory_order_release);
}

} // namespace vorn
