// Budget.h - how many bytes may the picture of a queued frame take?
// The queue as a whole may spend its targets and what was saved before (the pool). After the sound's expected part is
// taken off, each frame gets a share by its weight, an estimate of the information in it.
// Sums and differences of targets are 32-bit words that wrap; carry and pool are such words, read as signed
// numbers where they are weighed.
#pragma once

#include <cstdint>

#include "public/vornmake.h"

namespace vorn {

// What the queue weighs and may spend, as far as a call of RunBatch has come.
struct QueueAccount {
    uint64_t weightSum; // bytes, of the frames not yet compressed
    uint32_t rateSum;   // bytes: targets of the whole queue at the start of the call
    uint32_t pool;      // bytes that the frames left may spend, sound included
};

// Weights of the frames at the front of the queue. A frame's weight follows from the frame, the one before it and its key
// flag, none of which changes while it waits, so that it is worked out once and then moves along with the frame.
struct QueueWeights {
    uint32_t bytes[VORN_QUEUE_FRAMES];
    uint32_t known; // frames that have been weighed, from slot 0 on
};
// The first `done` frames leave the queue.
void DropWeights(QueueWeights* weights, uint32_t done);

// Weighs the frames that haven't been: afterwards the whole queue is.
QueueAccount OpenAccount(const VornMakeState* state, QueueWeights* weights);
// Charges a frame: `counted` bytes leave the pool, and the carry gains the frame's target less these.
void ChargeFrame(QueueAccount* account, VornMakeState* state, uint32_t slot, uint32_t counted);

// Estimated information in a queued frame, bytes: all of it times 3/2 in a key frame, else only what changed by more than
// 2 against the frame before it.
uint32_t FrameWeight(const VornMakeState* state, uint32_t slot);
// Bytes that the sound of this many frames is expected to take.
uint32_t EstimateAudio(const VornMakeState* state, uint32_t frames);
// A frame's part of the bytes left for pictures; with no weight in the whole queue an even part of `queueCount`.
uint32_t FrameShare(int32_t available, uint32_t weight, uint64_t weightSum, uint32_t queueCount);
// Raises a budget to a tenth of the frame's target and to twice what the block types take; then the frame's cap holds.
uint32_t HoldBudget(const VornMakeState* state, uint32_t slot, uint32_t budget);
// No surplus or debt survives that exceeds what the queue was to spend.
int32_t ClampCarry(int32_t carry, uint32_t rateSum);

} // namespace vorn
