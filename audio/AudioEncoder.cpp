// AudioEncoder.cpp - a block of PCM becomes a coded block: samples, spectra, and the order of what is written.
#include "audio/AudioEncoder.h"

#include <cmath>
#include <cstring>

#include "audio/AudioInternal.h"
#include "files/Memory.h"

namespace vorn {
namespace {

constexpr uint32_t LEAD_BITS = 2;   // zeros before a block of the DCT variant
constexpr uint32_t RAMP_PARTS = 32; // each ramp of the analysis covers 1/32 of the transform
constexpr float SILENT = 0.001f;    // ramped samples of this size and less become 0

// The samples of transform `channel` of the block; `have` bytes of PCM are valid. The last sample is held to the end.
void LoadSamples(const AudioEncoder* encoder, uint32_t channel, uint32_t have, float* samples) {
    const uint32_t n = encoder->shape.transformSize;
    const uint32_t stride = encoder->shape.transformCount;
    const uint32_t available = have / 2 / stride;
    const uint32_t count = available < n ? available : n;
    for (uint32_t i = 0; i < count; i++) {
        const uint8_t* bytes = encoder->pcm + 2 * (channel + i * stride);
        samples[i] = float(int16_t(uint16_t(bytes[0] | bytes[1] << 8)));
    }
    const float held = count > 0 ? samples[count - 1] : 0.0f;
    for (uint32_t i = count; i < n; i++) samples[i] = held;
}

float Ramped(float sample, float position) {
    const float value = sample * (3.0f * position * position - 2.0f * position * position * position);
    return value >= -SILENT && value <= SILENT ? 0.0f : value;
}

// Fades the ends of the block in and out for the analysis.
void RampEnds(float* samples, uint32_t n) {
    const uint32_t length = n / RAMP_PARTS;
    float* tail = samples + n - length;
    for (uint32_t i = 0; i < length; i++) {
        samples[i] = Ramped(samples[i], float(i) / float(length));
        tail[i] = Ramped(tail[i], float(length - i) / float(length));
    }
}

void ScaleSpectrum(float* spectrum, uint32_t n, float scale) {
    for (uint32_t i = 0; i < n; i++) spectrum[i] *= scale;
}

// The spectrum that is coded, of unramped samples.
void TransformCoded(const AudioEncoder* encoder, float* x) {
    if (encoder->perChannelDct) {
        DctForward(x, encoder->tables);
        x[0] *= 0.5f;
    } else {
        RealDftForward(x, encoder->tables);
    }
    ScaleSpectrum(x, encoder->shape.transformSize, encoder->scale);
}

void WriteTransform(AudioEncoder* encoder, AudioBits* out, uint32_t transform, uint32_t have, uint32_t quality) {
    const uint32_t n = encoder->shape.transformSize;
    alignas(32) float x[MAX_TRANSFORM];
    uint8_t steps[MAX_BANDS];
    LoadSamples(encoder, transform, have, x);
    RampEnds(x, n);
    RealDftForward(x, encoder->tables);
    ScaleSpectrum(x, n, encoder->scale);
    ChooseBandSteps(encoder, x, encoder->history + size_t(transform) * 2 * n, quality, steps);

    LoadSamples(encoder, transform, have, x);
    TransformCoded(encoder, x);
    PutBits(out, PackFloat(x[0]), PACKED_FLOAT_BITS);
    PutBits(out, PackFloat(x[1]), PACKED_FLOAT_BITS);
    for (uint32_t band = 0; band < encoder->shape.bandCount; band++) PutBits(out, steps[band], STEP_INDEX_BITS);
    WriteAudioCoefficients(encoder, out, x, steps);
}

} // namespace

AudioEncoder* OpenAudioEncoder(uint32_t sampleRate, uint32_t channels, bool perChannelDct) {
    const AudioShape shape = ShapeOfAudio(sampleRate, channels, perChannelDct);
    const uint32_t n = shape.transformSize;
    AudioEncoder buffers = {};
    buffers.shape = shape;
    EmptyPlan();
    PlanBuffer(&buffers.pcm, shape.blockBytes);
    PlanBuffer(&buffers.coded, CodedBlockBound(&buffers));
    PlanBuffer(&buffers.history, shape.transformCount * 2 * n * uint32_t(sizeof(float)));
    PlanBuffer(&buffers.hearingFloor, n * uint32_t(sizeof(float)));
    PlanBuffer(&buffers.threshold, n * uint32_t(sizeof(float)));
    PlanBuffer(&buffers.tables, TransformTableBytes(n));
    auto* encoder = static_cast<AudioEncoder*>(AllocatePlan(uint32_t(sizeof(AudioEncoder))));
    if (!encoder) return nullptr;
    *encoder = buffers;
    encoder->perChannelDct = perChannelDct;
    encoder->scale = float(1.0 / std::sqrt(double(n)));
    encoder->firstBlock = 1;
    encoder->thresholdQuality = UINT32_MAX;
    FillAudioTables(encoder);
    MakeTransformTables(encoder->tables, n);
    return encoder;
}

AudioArea AudioInputArea(AudioEncoder* encoder) {
    const uint32_t kept = encoder->firstBlock ? 0 : encoder->shape.overlapBytes;
    return {encoder->pcm + kept, encoder->shape.blockBytes - kept};
}

CodedAudio EncodeAudioBlock(AudioEncoder* encoder, uint32_t quality, uint32_t bytes) {
    const AudioShape& shape = encoder->shape;
    encoder->pcmTaken += bytes;
    const uint32_t have = encoder->firstBlock ? bytes : bytes + shape.overlapBytes;
    encoder->firstBlock = 0;
    if (encoder->thresholdQuality != quality) FillThresholds(encoder, quality);

    AudioBits out = {encoder->coded, 0, 0};
    if (encoder->perChannelDct) PutBits(&out, 0, LEAD_BITS);
    for (uint32_t transform = 0; transform < shape.transformCount; transform++)
        WriteTransform(encoder, &out, transform, have, quality);
    PadToWord(&out);

    const uint32_t hop = shape.blockBytes - shape.overlapBytes;
    std::memmove(encoder->pcm, encoder->pcm + hop, shape.overlapBytes);
    const uint32_t unreported = encoder->pcmTaken - encoder->pcmReported;
    const uint32_t accounted = unreported < hop ? unreported : hop;
    encoder->pcmReported += accounted;
    return {encoder->coded, uint32_t(out.next - encoder->coded), accounted};
}

uint32_t CodedBlockBound(const AudioEncoder* encoder) {
    return encoder->shape.blockBytes / 2 * 3;
}

} // namespace vorn
