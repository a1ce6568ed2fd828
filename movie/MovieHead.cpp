// MovieHead.cpp - the head of a movie under construction: written once with zeros where values aren't known yet, then
// patched in place whenever the file is to be readable.
#include <algorithm>
#include <atomic>

#include "audio/AudioTrack.h"
#include "movie/Movie.h"

namespace vorn {

namespace {

constexpr uint64_t GROWING_WORDS_POSITION = 4; // fileSize, frames, largestFrame
constexpr uint64_t INDEX_PIECE_WORDS = MOVIE_BUFFER_BYTES / 8;

void WriteTrackTable(VornMakeState* state, uint32_t AudioTrackState::*field) {
    for (uint32_t i = 0; i < state->trackCount; i++) SpoolWriteWord(state->file, state->tracks[i].*field);
}

// False if the place can't be reached; nothing must be written then.
bool MoveTo(SpoolFile* file, uint64_t position) {
    SpoolSeek(file, position);
    return SpoolTell(file) == position;
}

// Patches track tables and index. False if one of the writes came up short. The index goes out in pieces, each sought anew:
// what one of them lacks doesn't shift those behind it.
bool WriteTables(VornMakeState* state) {
    SpoolFile* file = state->file;
    if (!MoveTo(file, HEADER_BYTES)) return false;
    WriteTrackTable(state, &AudioTrackState::largestPcm);
    WriteTrackTable(state, &AudioTrackState::format);
    WriteTrackTable(state, &AudioTrackState::id);
    const uint64_t start = HEADER_BYTES + uint64_t{12} * state->trackCount;
    const uint64_t words = uint64_t{state->frameCapacity} + 1;
    for (uint64_t i = 0; i < words; i += INDEX_PIECE_WORDS) {
        const uint64_t end = std::min(words, i + INDEX_PIECE_WORDS);
        if (!MoveTo(file, start + 4 * i)) return false;
        for (uint64_t k = i; k < end; k++) {
            SpoolWriteWord(file, std::atomic_ref<uint32_t>(state->frameIndex[k]).load(std::memory_order_relaxed));
        }
        SpoolFlush(file, false);
        if (SpoolTell(file) != start + 4 * end) return false;
    }
    return true;
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

// The counts go last, and only behind an index that came out whole: a process that is killed in between, or a write that fails,
// leaves the old counts before a newer index, which still reads, and not new counts before an old one.
bool RewriteHead(VornMakeState* state) {
    SpoolFile* file = state->file;
    const uint64_t size = SpoolSize(file);
    // Read before the index words: those that this count covers are stored by then.
    const uint32_t frames = std::atomic_ref<uint32_t>(state->framesDone).load(std::memory_order_acquire);
    const uint64_t position = SpoolTell(file);
    SpoolFlush(file, false);
    // Frames whose end is missing mustn't be counted; those after a gap may.
    if (SpoolReaches(file, position) && WriteTables(state) && MoveTo(file, GROWING_WORDS_POSITION)) {
        SpoolWriteWord(file, static_cast<uint32_t>(size - 8));
        SpoolWriteWord(file, frames);
        SpoolWriteWord(file, state->largestFrame);
    }
    SpoolSeek(file, position);
    return file->incomplete == 0;
}

void StoreIndexWord(VornMakeState* state, uint32_t frame, uint32_t word) {
    std::atomic_ref<uint32_t>(state->frameIndex[frame]).store(word, std::memory_order_relaxed);
}

// The movie's own thread is the only one that changes the count.
void RaiseFramesDone(VornMakeState* state) {
    std::atomic_ref<uint32_t>(state->framesDone).store(state->framesDone + 1, std::memory_order_release);
}

} // namespace vorn
