// FlushClose.cpp - who may use the file when, and the two calls that bring it up to date: for now, and for good.
#include <atomic>
#include <cstdio>

#include "audio/AudioTrack.h"
#include "movie/Movie.h"

namespace vorn {

namespace {

// All accesses are sequentially consistent: each side announces itself, then looks for the other.
using Counter = std::atomic_ref<uint32_t>;

// Reports a text with the final name and the temporary one in it, in this order.
void ReportNames(VornMakeState* state, const char* format) {
    char text[512];
    std::snprintf(text, sizeof text, format, state->finalName, state->tempName);
    ReportMessage(state->progressCallback, state, text);
}

// Puts the temporary file in the place of the final one.
void SwapNames(VornMakeState* state) {
    if (DeleteNamedFile(state->finalName) == NameResult::FAILED) {
        ReportNames(state, "Vorn couldn't overwrite, '%.123s', so the new Vorn file is called: '%.127s'.");
        return;
    }
    if (RenameNamedFile(state->finalName, state->tempName) != NameResult::DONE) {
        ReportMessage(state->progressCallback, state, "Vorn couldn't rename the temporary file.");
    }
    SyncFolderOf(state->finalName);
}

// Closes the file and gives the movie its name. One that isn't whole on disk never replaces another file: what could be
// written of it stays under the temporary name.
void SettleFile(VornMakeState* state, bool discard) {
    const bool whole = !discard && SpoolFinish(state->file);
    SpoolClose(state->file);
    if (discard) {
        DeleteNamedFile(state->tempName);
    } else if (whole) {
        SwapNames(state);
    } else {
        ReportNames(state, "Vorn couldn't write the whole movie, so '%.123s' wasn't touched. What was written of it is "
                           "called: '%.127s'.");
    }
}

// Compresses what is queued and makes the head final. If the head isn't to be had it stays as it was last written.
void FinishMovie(VornMakeState* state) {
    if (state->cancel == 0 && state->queueCount != 0) RunBatch(state, true);
    if (state->failed == 0) BringUpToDate(state);
}

} // namespace

void TakeFileHold(VornMakeState* state) {
    Counter(state->fileHold).fetch_add(1);
    while (Counter(state->headLock).load() != 0) platform->sleepMilliseconds(1);
}

void ReleaseFileHold(VornMakeState* state) {
    Counter(state->fileHold).fetch_sub(1);
}

// The lock is given up again while the caller sleeps. A file user that waits with its hold taken would otherwise keep it out,
// and be kept out by it, up to the time limit; and threads that flush without a pause would keep the file user out for good.
bool TakeHeadLock(VornMakeState* state) {
    const uint32_t begin = MOKTimerRead();
    for (;;) {
        Counter(state->headLock).fetch_add(1);
        if (Counter(state->fileHold).load() == 0 && Counter(state->headLock).load() == 1) return true;
        Counter(state->headLock).fetch_sub(1);
        if (MOKTimerRead() - begin > HEAD_LOCK_MILLISECONDS) return false; // a difference: the clock may wrap meanwhile
        platform->sleepMilliseconds(1);
    }
}

void ReleaseHeadLock(VornMakeState* state) {
    Counter(state->headLock).fetch_sub(1);
}

// The seek that ends a rewriting leaves nothing in the file's buffer, so that there is nothing left to flush.
bool BringUpToDate(VornMakeState* state) {
    if (!TakeHeadLock(state)) return false;
    const bool written = RewriteHead(state);
    ReleaseHeadLock(state);
    return written;
}

void ReportMessage(ProgressCallback callback, void* record, const char* text) {
    if (callback != nullptr) callback(VORN_MESSAGE, record, text);
}

} // namespace vorn

using namespace vorn;

uint32_t VORN_CALL VornMakeFlush(VornMakeState* state) {
    return state != nullptr && BringUpToDate(state);
}

uint64_t VORN_CALL VornMakeClose(VornMakeState* state, uint32_t abort) {
    if (state == nullptr || BlockOf(state)->busy != 0) return 0;
    BlockOf(state)->busy = 1;
    if (abort == 0 && state->failed == 0) FinishMovie(state);
    for (uint32_t i = 0; i < state->trackCount; i++) mokfree(state->tracks[i].encoder);
    TakeFileHold(state);
    const uint64_t size = SpoolSize(state->file);
    SettleFile(state, abort != 0 || state->failed != 0);
    ReleaseFileHold(state);
    *state = {};
    mokfree(state);
    return size;
}
