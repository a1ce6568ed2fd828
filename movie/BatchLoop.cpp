// BatchLoop.cpp - how do queued frames become packets in the file, and when is the head brought up to date?
#include <algorithm>
#include <cassert>
#include <cstdio>
#include <utility>

#include "allocation/CostModels.h"
#include "allocation/FrameDriver.h"
#include "audio/AudioTrack.h"
#include "files/SpoolFile.h"
#include "movie/Budget.h"
#include "movie/Movie.h"

namespace vorn {

namespace {

constexpr uint64_t LAST_POSITION = 0xfffffffc; // highest offset that a word of the index can name

enum class FrameOutcome {
    WRITTEN,    // in the file and counted
    NOT_CODED,  // compression failed: the batch ends on the spot
    NOT_COUNTED // a short write, a lost position, or no room below 4 GiB: the batch ends, the queue moves on
};

uint64_t NotePosition(VornMakeState* state) {
    TakeFileHold(state);
    const uint64_t position = SpoolTell(state->file);
    ReleaseFileHold(state);
    return position;
}

void AnnounceFrame(VornMakeState* state) {
    if (state->progressCallback == nullptr) return;
    state->progressFrame = static_cast<int32_t>(state->framesDone);
    if (state->progressCallback(VORN_PROGRESS, state, "Compressing") != 0) state->cancel = 1;
}

// The share comes from the queue, the floors from the estimates, which take in the last frame in between.
uint32_t DecideBudget(VornMakeState* state, const QueueAccount& account, uint32_t slot) {
    const uint32_t sound = EstimateAudio(state, state->queueCount - slot);
    const int32_t available = static_cast<int32_t>(account.pool - sound);
    const uint32_t weight = BlockOf(state)->weights.bytes[slot];
    const uint32_t share = FrameShare(available, weight, account.weightSum, state->queueCount);
    RefreshCostModel(&state->costY);
    RefreshCostModel(&state->costCr);
    RefreshCostModel(&state->costCb);
    RefreshCostModel(&state->costAlpha);
    return HoldBudget(state, slot, share);
}

constexpr uint32_t RoundToWords(uint32_t bytes) {
    return (bytes + 3) & ~3u;
}

// Most bytes that the packet of this frame can take.
uint64_t LargestPacket(const VornMakeState* state, const FrameResult& result) {
    uint64_t bytes = 4 + uint64_t{RoundToWords(result.sizes[0])} + result.sizes[1] + result.sizes[2];
    if ((state->flags & FLAG_ALPHA) != 0) bytes += 4 + uint64_t{RoundToWords(result.sizes[3])};
    for (uint32_t i = 0; i < state->trackCount; i++) {
        bytes += AudioPacketBound(&state->tracks[i], state->framesDone, state->rateNumerator, state->rateDenominator);
    }
    return bytes;
}

void WriteSizedPlane(SpoolFile* file, const uint8_t* packet, uint32_t size) {
    const uint32_t rounded = RoundToWords(size);
    SpoolWriteWord(file, rounded + 4);
    SpoolWrite(file, packet, rounded);
}

void WriteVideoPacket(VornMakeState* state, const FrameResult& result) {
    if ((state->flags & FLAG_ALPHA) != 0) WriteSizedPlane(state->file, state->packetAlpha, result.sizes[3]);
    WriteSizedPlane(state->file, state->packetY, result.sizes[0]);
    if ((state->flags & FLAG_GREY) != 0) return;
    SpoolWrite(state->file, state->packetCr, result.sizes[1]);
    SpoolWrite(state->file, state->packetCb, result.sizes[2]);
}

// Appends the frame's packet at `start` and charges it. Under fileHold. Returns where it ends.
uint32_t AppendFrame(VornMakeState* state, QueueAccount* account, uint32_t slot, uint32_t start,
                     const FrameResult& result) {
    state->frameErrors[state->framesDone] = result.errors[0] + result.errors[1] + result.errors[2] + result.errors[3];
    for (uint32_t i = 0; i < state->trackCount; i++) {
        WriteAudioPacket(state->file, &state->tracks[i], state->framesDone, state->rateNumerator,
                         state->rateDenominator, state);
    }
    const uint32_t videoStart = static_cast<uint32_t>(SpoolTell(state->file));
    WriteVideoPacket(state, result);
    const uint32_t end = static_cast<uint32_t>(SpoolTell(state->file));
    state->largestFrame = std::max(state->largestFrame, end - start);
    // The first frame's sound runs ahead of the picture and isn't charged.
    ChargeFrame(account, state, slot, end - (state->framesDone == 0 ? videoStart : start));
    state->fileBytes = static_cast<uint32_t>(SpoolSize(state->file));
    return end;
}

// The movie ends with the frames that it has. How large a packet comes out is known for sure only once it is written: what
// could pass the end is left out, so that a frame with long sound may leave room unused.
void EndAtLastPosition(VornMakeState* state) {
    state->cancel = 1;
    char text[200];
    std::snprintf(
        text, sizeof text,
        "Frame %u could take the movie past 4 GiB, the most that its index can address. It is left out; the %u "
        "frames before it are kept.",
        static_cast<unsigned>(state->framesDone), static_cast<unsigned>(state->framesDone));
    ReportMessage(state->progressCallback, state, text);
}

FrameOutcome MakeFrame(VornMakeState* state, QueueAccount* account, uint32_t slot) {
    const uint64_t position = NotePosition(state);
    if (position == NO_POSITION) {
        state->failed = 1;
        return FrameOutcome::NOT_COUNTED;
    }
    if (position > LAST_POSITION) {
        EndAtLastPosition(state);
        return FrameOutcome::NOT_COUNTED;
    }
    const uint32_t start = static_cast<uint32_t>(position);
    const uint32_t keyBit = state->queueKey[slot] != 0 ? KEY_FRAME_BIT : 0;
    StoreIndexWord(state, state->framesDone, start | keyBit);
    AnnounceFrame(state);

    FrameResult result;
    const uint32_t budget = DecideBudget(state, *account, slot);
    if (!CompressFrame(state, slot, budget, &result)) {
        state->failed = 1;
        return FrameOutcome::NOT_CODED;
    }

    TakeFileHold(state);
    const bool fits = position + LargestPacket(state, result) <= LAST_POSITION;
    // A head rewritten meanwhile may have failed to come back to where the frame goes.
    const bool inPlace = SpoolTell(state->file) == position;
    const uint32_t end = fits && inPlace ? AppendFrame(state, account, slot, start, result) : start;
    const bool cutShort = !inPlace || state->file->writeError != 0 || (state->file->incomplete & SEEK_FAILED) != 0;
    ReleaseFileHold(state);
    if (!fits) {
        StoreIndexWord(state, state->framesDone, start);
        EndAtLastPosition(state);
        return FrameOutcome::NOT_COUNTED;
    }
    if (cutShort) {
        state->failed = 1;
        return FrameOutcome::NOT_COUNTED;
    }
    account->weightSum -= BlockOf(state)->weights.bytes[slot];
    StoreIndexWord(state, state->framesDone + 1, end);
    RaiseFramesDone(state);
    return FrameOutcome::WRITTEN;
}

// The last frame compressed becomes the one before what comes next; its old buffer and those of the other `done` frames
// go behind the frames left, in their old order. No sample is copied.
void MovePlanes(uint8_t** queue, uint8_t** previous, uint32_t count, uint32_t done) {
    std::swap(*previous, queue[done - 1]);
    std::rotate(queue, queue + done, queue + count);
}

void MoveQueue(VornMakeState* state, uint32_t done, uint32_t rateSum) {
    const uint32_t count = state->queueCount;
    MovePlanes(state->queueY, &state->previousY, count, done);
    MovePlanes(state->queueCr, &state->previousCr, count, done);
    MovePlanes(state->queueCb, &state->previousCb, count, done);
    MovePlanes(state->queueAlpha, &state->previousAlpha, count, done);
    std::copy(state->queueRate + done, state->queueRate + count, state->queueRate);
    std::copy(state->queueCap + done, state->queueCap + count, state->queueCap);
    std::copy(state->queueKey + done, state->queueKey + count, state->queueKey);

    state->rateCarry = ClampCarry(state->rateCarry, rateSum);
    state->queueCount = count - done;
    state->nextRate = state->queueRate + state->queueCount;
    state->nextCap = state->queueCap + state->queueCount;
    state->nextKey = state->queueKey + state->queueCount;
}

// A flush that is refused isn't tried again before the next threshold.
void FlushIfDue(VornMakeState* state) {
    const uint32_t now = MOKTimerRead();
    if (state->fileBytes <= state->nextFlushBytes && now <= state->nextFlushTime) return;
    state->nextFlushBytes = state->fileBytes + FLUSH_BYTES;
    state->nextFlushTime = now + FLUSH_MILLISECONDS;
    BringUpToDate(state);
}

} // namespace

void RunBatch(VornMakeState* state, bool final) {
    assert(state->queueCount >= 1);
    QueueWeights* weights = &BlockOf(state)->weights;
    QueueAccount account = OpenAccount(state, weights);
    const uint32_t frames = final ? state->queueCount : 1;
    for (uint32_t slot = 0; slot < frames; slot++) {
        const FrameOutcome outcome = MakeFrame(state, &account, slot);
        if (outcome == FrameOutcome::NOT_CODED) return;
        if (outcome == FrameOutcome::NOT_COUNTED || state->cancel != 0) break;
    }
    MoveQueue(state, frames, account.rateSum);
    DropWeights(weights, frames);
    FlushIfDue(state);
}

} // namespace vorn
