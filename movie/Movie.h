// Movie.h - what the files of this folder share about a movie under construction.
#pragma once

#include <cstdint>

#include "files/Container.h"
#include "movie/Budget.h"
#include "public/vornmake.h"

namespace vorn {

constexpr uint32_t MOVIE_BUFFER_BYTES = 0x20000; // of the temporary file
constexpr uint32_t LONGEST_NAME = 123;           // bytes: with ".tmp" it still fits the SpoolFile's 128
constexpr uint32_t HEAD_LOCK_MILLISECONDS = 250;
constexpr uint32_t FLUSH_BYTES = 200000; // between two periodic flushes
constexpr uint32_t FLUSH_MILLISECONDS = 60000;

// The head of a movie's block: the public record, then what only this library knows.
struct MovieBlock {
    VornMakeState state;
    QueueWeights weights;
    uint32_t busy; // 1 while VornMakePutVideo or VornMakeClose is at work: its callbacks mustn't begin another one
};
// The block that a movie's record stands at the start of.
inline MovieBlock* BlockOf(VornMakeState* state) {
    return reinterpret_cast<MovieBlock*>(state);
}

// The next multiple of 8; 0 for the last seven numbers.
constexpr uint32_t RoundToBlocks(uint32_t samples) {
    return (samples + 7) & ~7u;
}
// Samples, and bytes, of a padded plane: Y and alpha, Cr and Cb.
inline uint64_t LumaSamples(const VornMakeState* state) {
    return uint64_t{state->lumaWidth} * state->lumaHeight;
}
inline uint64_t ChromaSamples(const VornMakeState* state) {
    return uint64_t{state->chromaWidth} * state->chromaHeight;
}

// fileHold and headLock keep the thread that writes frames apart from the threads that rewrite the head.
// A holder of fileHold waits as long as a head is being rewritten; a rewriter gives up after 250 ms.
void TakeFileHold(VornMakeState* state);
void ReleaseFileHold(VornMakeState* state);
bool TakeHeadLock(VornMakeState* state);
void ReleaseHeadLock(VornMakeState* state);

// Writes the whole head of a movie of 0 frames. Under fileHold.
void WriteMovieHead(VornMakeState* state);
// Patches sizes, track tables and index of the head in place. Under headLock. True if every byte that was ever written
// reached the system, where the file then reads as a movie of all frames done.
bool RewriteHead(VornMakeState* state);
// The same with the lock taken for it; false as well if the lock isn't to be had.
bool BringUpToDate(VornMakeState* state);

// The two words that another thread reads while a movie grows: an index word is stored before the count that covers it.
void StoreIndexWord(VornMakeState* state, uint32_t frame, uint32_t word);
void RaiseFramesDone(VornMakeState* state);

// Takes frames from the queue, gives each its budget, writes it. `final` drains the queue.
void RunBatch(VornMakeState* state, bool final);

// Fills the four planes of a queue slot from 32-bit pixels (bytes B, G, R, A), padding included.
void ConvertFrame(uint8_t* yPlane, uint8_t* crPlane, uint8_t* cbPlane, uint8_t* alphaPlane, const uint8_t* pixels,
                  uint32_t sourcePitch, uint32_t width, uint32_t height);

// Calls the movie's callback, if it has one, with VORN_MESSAGE.
void ReportMessage(ProgressCallback callback, void* record, const char* text);

} // namespace vorn
