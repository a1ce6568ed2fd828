// AudioInternal.h - what the files of the sound coder share: the encoder's record, its bit output, the steps of a
// block.
#pragma once

#include <cstdint>

#include "audio/AudioTransforms.h"
#include "format/AudioFormat.h"

namespace vorn {

constexpr uint32_t MAX_LINES = MAX_TRANSFORM / 2;
constexpr uint32_t STEP_INDICES = 1u << STEP_INDEX_BITS;
constexpr float LARGEST_COEFFICIENT = 32767;

// One track's coder. The record and its buffers are one block of memory. N is shape.transformSize.
struct AudioEncoder {
    AudioShape shape;
    bool perChannelDct;
    float scale;               // 1 / sqrt(N)
    uint32_t firstBlock;       // 1 until the first block has been coded
    uint32_t pcmTaken;         // PCM bytes handed in, wrapping at 32 bits
    uint32_t pcmReported;      // PCM bytes reported as accounted for, likewise
    uint32_t thresholdQuality; // the quality that `threshold` is made for; all ones before the first block
    uint8_t* pcm;              // shape.blockBytes; from the second block on the head repeats the last block's tail
    uint8_t* coded;            // CodedBlockBound bytes
    float* history; // of each transform four arrays of N/2: amplitudes and phases of the last block, of the one before
    float* hearingFloor; // N, dB: threshold of hearing at each coefficient, raised by 28; infinite at coefficient 0
    float* threshold;    // N: coefficients whose square is below are not coded
    TransformTables* tables;
    float spreadNorm[MAX_BANDS];     // takes a spread flat spectrum back to its level
    float bandFloor[MAX_BANDS];      // dB: lowest hearingFloor of the band less 14, at most 1000
    float step[STEP_INDICES];        // 10^(0.0664 * index)
    float inverseStep[STEP_INDICES]; // 1 / step
};

// A coefficient's size in steps as a whole number: nearest, ties away from 0, at most 32767. Adding the number just
// below 1/2 instead of 1/2 keeps 0.49999997 from being rounded up to 1 by the addition; all else comes out the same.
inline int32_t RoundedSteps(float size) {
    return int32_t((size < LARGEST_COEFFICIENT ? size : LARGEST_COEFFICIENT) + 0x1.fffffep-2f);
}

// Output of bits, low bits first, into bytes; a word is four of them, low byte first.
struct AudioBits {
    uint8_t* next;
    uint64_t pending; // the low `count` bits wait
    uint32_t count;   // below 32 between calls
};

// Appends the low `bits` bits of a value that has no others; 0 to 32.
inline void PutBits(AudioBits* out, uint32_t value, uint32_t bits) {
    out->pending |= uint64_t(value) << out->count;
    out->count += bits;
    if (out->count < 32) return;
    for (int i = 0; i < 4; i++) out->next[i] = uint8_t(out->pending >> (8 * i));
    out->next += 4;
    out->pending >>= 32;
    out->count -= 32;
}

// Zero bits up to the next word.
inline void PadToWord(AudioBits* out) {
    if (out->count > 0) PutBits(out, 0, 32 - out->count);
}

// `value` as a packed float: exponent, mantissa, sign.
uint32_t PackFloat(float value);

// Sets all that depends on nothing but the shape, and clears `history`.
void FillAudioTables(AudioEncoder* encoder);
// Makes `threshold` for a quality number.
void FillThresholds(AudioEncoder* encoder, uint32_t quality);

// A step index for each band from the scaled analysis spectrum; its first two values are overwritten. `history` is this
// transform's part, and moves on by a block.
void ChooseBandSteps(const AudioEncoder* encoder, float* spectrum, float* history, uint32_t quality,
                     uint8_t steps[MAX_BANDS]);

// Quantises the coded spectrum and appends coefficients 2 to N - 1 in groups. `threshold` must be made.
void WriteAudioCoefficients(const AudioEncoder* encoder, AudioBits* out, const float* spectrum,
                            const uint8_t steps[MAX_BANDS]);

} // namespace vorn
