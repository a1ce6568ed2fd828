// Budget.cpp - how many bytes may the picture of a queued frame take?
#include "movie/Budget.h"

#include <algorithm>

#include "allocation/CostModels.h"
#include "audio/AudioTrack.h"
#include "blocks/BlockRecord.h"
#include "movie/Movie.h"

namespace vorn {

namespace {

// `before` is null in a key frame.
uint32_t PlaneInformation(const uint8_t* plane, const uint8_t* before, uint64_t samples) {
    SampleTable table;
    if (before == nullptr) {
        CountAll(&table, plane, samples);
    } else {
        CountChanged(&table, plane, before, samples);
    }
    return EstimateEntropyBits(table);
}

// 8x8 and 16x16 blocks of a plane.
uint32_t CountBothSizes(uint64_t samples) {
    return static_cast<uint32_t>(samples / HIGH_SAMPLES + samples / BLOCK_SAMPLES);
}

} // namespace

uint32_t FrameWeight(const VornMakeState* state, uint32_t slot) {
    const bool key = state->queueKey[slot] != 0;
    const auto information = [&](uint8_t* const* queue, const uint8_t* previous, uint64_t samples) {
        const uint8_t* before = slot > 0 ? queue[slot - 1] : previous;
        return PlaneInformation(queue[slot], key ? nullptr : before, samples);
    };
    uint32_t sum = information(state->queueY, state->previousY, LumaSamples(state));
    if ((state->flags & FLAG_GREY) == 0) {
        sum += information(state->queueCr, state->previousCr, ChromaSamples(state));
        sum += information(state->queueCb, state->previousCb, ChromaSamples(state));
    }
    if ((state->flags & FLAG_ALPHA) != 0) {
        sum += information(state->queueAlpha, state->previousAlpha, LumaSamples(state));
    }
    return key ? sum * 3 / 2 : sum;
}

void DropWeights(QueueWeights* weights, uint32_t done) {
    weights->known = weights->known > done ? weights->known - done : 0;
    std::copy(weights->bytes + done, weights->bytes + done + weights->known, weights->bytes);
}

QueueAccount OpenAccount(const VornMakeState* state, QueueWeights* weights) {
    QueueAccount account = {};
    for (; weights->known < state->queueCount; weights->known++) {
        weights->bytes[weights->known] = FrameWeight(state, weights->known);
    }
    for (uint32_t i = 0; i < state->queueCount; i++) {
        account.rateSum += state->queueRate[i];
        account.weightSum += weights->bytes[i];
    }
    account.pool = static_cast<uint32_t>(state->rateCarry) + account.rateSum;
    return account;
}

void ChargeFrame(QueueAccount* account, VornMakeState* state, uint32_t slot, uint32_t counted) {
    account->pool -= counted;
    const uint32_t carry = static_cast<uint32_t>(state->rateCarry) + (state->queueRate[slot] - counted);
    state->rateCarry = static_cast<int32_t>(carry);
}

uint32_t EstimateAudio(const VornMakeState* state, uint32_t frames) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < state->trackCount; i++) {
        const AudioTrackState& track = state->tracks[i];
        if (track.pcmTally == 0) continue; // it has come round after 4 GiB, an odd number of bytes among them
        const uint64_t played = uint64_t{frames} * track.bytesPerSecond * state->rateDenominator / state->rateNumerator;
        const uint64_t pcm = std::min<uint64_t>(played, track.pcmLeft);
        sum += static_cast<uint32_t>(pcm * track.codedTally / track.pcmTally);
    }
    return sum;
}

uint32_t FrameShare(int32_t available, uint32_t weight, uint64_t weightSum, uint32_t queueCount) {
    if (available < 0) return 0;
    const uint32_t bytes = static_cast<uint32_t>(available);
    if (weightSum == 0) return bytes / queueCount;
    return static_cast<uint32_t>(uint64_t{bytes} * weight / weightSum);
}

uint32_t HoldBudget(const VornMakeState* state, uint32_t slot, uint32_t budget) {
    const uint32_t lumaBlocks = CountBothSizes(LumaSamples(state));
    const uint32_t chromaBlocks = CountBothSizes(ChromaSamples(state));
    uint32_t floor = state->costY.typeBits * lumaBlocks;
    if ((state->flags & FLAG_ALPHA) != 0) floor += state->costAlpha.typeBits * lumaBlocks;
    if ((state->flags & FLAG_GREY) == 0) floor += (state->costCr.typeBits + state->costCb.typeBits) * chromaBlocks;
    floor = floor * 2 / COST_UNITS_PER_BYTE;
    return std::min(std::max({budget, state->queueRate[slot] / 10, floor}), state->queueCap[slot]);
}

int32_t ClampCarry(int32_t carry, uint32_t rateSum) {
    const int64_t limit = rateSum;
    return static_cast<int32_t>(std::clamp<int64_t>(carry, -limit, limit));
}

} // namespace vorn
