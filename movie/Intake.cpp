// Intake.cpp - how does a frame enter the queue, and when is a batch due?
#include "movie/Movie.h"

namespace vorn {

namespace {

// False once the movie takes no more frames. After a failed compression the queue stays as it is, full or with all that
// was promised, and a further frame has no place in it.
bool TakesFrames(VornMakeState* state) {
    if (BlockOf(state)->busy != 0 || state->framesDone == state->frameCapacity || state->cancel != 0) return false;
    return state->queueCount < state->lookAhead && state->framesDone + state->queueCount < state->frameCapacity;
}

// The caller's flag, unless a key frame is due. Either way a key frame starts the count again.
uint32_t DecideKey(VornMakeState* state, uint32_t key) {
    if (state->keyInterval != 0) {
        state->keyCountdown = static_cast<int32_t>(static_cast<uint32_t>(state->keyCountdown) - 1);
        if (state->keyCountdown <= 0) key = 1;
    }
    if (key != 0) state->keyCountdown = static_cast<int32_t>(state->keyInterval);
    return key;
}

void PutVideo(VornMakeState* state, uint32_t rate, uint32_t cap, uint32_t key, const uint8_t* pixels) {
    const uint32_t slot = state->queueCount;
    ConvertFrame(state->queueY[slot], state->queueCr[slot], state->queueCb[slot], state->queueAlpha[slot], pixels,
                 state->sourcePitch, state->width, state->height);
    *state->nextRate = rate;
    *state->nextCap = cap;
    *state->nextKey = DecideKey(state, key);
    state->queueCount++;

    const bool last = state->framesDone + state->queueCount == state->frameCapacity;
    if (last || state->queueCount == state->lookAhead) {
        RunBatch(state, last);
    } else {
        state->nextRate++;
        state->nextCap++;
        state->nextKey++;
    }
}

} // namespace

} // namespace vorn

void VORN_CALL VornMakePutVideo(VornMakeState* state, uint32_t rate, uint32_t cap, uint32_t key, const void* pixels) {
    if (state == nullptr || pixels == nullptr || !vorn::TakesFrames(state)) return;
    vorn::BlockOf(state)->busy = 1;
    vorn::PutVideo(state, rate, cap, key, static_cast<const uint8_t*>(pixels));
    vorn::BlockOf(state)->busy = 0;
}
