// SoundFuzz.cpp - invented sound through the coder: the reader finds nothing amiss with the blocks, and what they restore
// is as near to the source as their steps allow. And invented blocks into the reader.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "audio/AudioEncoder.h"
#include "audio/AudioInternal.h"
#include "fuzz/Fuzz.h"
#include "public/vornmake.h"
#include "reader/Reader.h"

using namespace vorn;

namespace {

constexpr uint32_t BLOCKS = 3;

// Samples by a rule that the data picks for each stretch, so that few bytes make much sound.
struct Source {
    Choices choices;
    uint32_t rule = 0, left = 0, word = 1;
    int32_t last = 0;

    int16_t Next() {
        if (left == 0) {
            rule = choices.Byte();
            left = 1 + choices.Byte() * 16;
        }
        left--;
        word = word * 1664525 + 1013904223;
        switch (rule % 8) {
        case 0: // holds
            break;
        case 1:
            last = static_cast<int16_t>(word >> 16);
            break;
        case 2:
            last = word & 0x80000000 ? 32767 : -32768;
            break;
        case 3: // faint noise
            last = static_cast<int32_t>(word >> 24) % 7 - 3;
            break;
        case 4: // a saw whose steepness is the rule's
            last = static_cast<int16_t>(last + static_cast<int32_t>(rule) * 40);
            break;
        case 5: // a square
            last =
                left / (1 + rule / 8) % 2 != 0 ? static_cast<int32_t>(rule) * 127 : -static_cast<int32_t>(rule) * 127;
            break;
        case 6:
            last = static_cast<int8_t>(choices.Byte()) * 256;
            break;
        default: // a click in silence
            last = left == 1 ? 32767 : 0;
            break;
        }
        return static_cast<int16_t>(last);
    }
};

// Largest error of the restored samples, as a root of the sum of squares, that steps and thresholds explain. What is dropped
// can't have been more than all there was. Negative if a coefficient is at its limit, and nothing can be said.
double Allowed(const AudioEncoder* encoder, const reader::CodedSpectrum& spectrum, double energy) {
    double rounded = 0, dropped = 0;
    for (uint32_t band = 0; band < encoder->shape.bandCount; band++) {
        const double half = std::pow(10.0, 0.0664 * spectrum.steps[band]) / 2;
        for (uint32_t i = 2 * encoder->shape.bandEdges[band]; i < 2 * encoder->shape.bandEdges[band + 1]; i++) {
            if (i < 2) continue;
            if (std::abs(spectrum.coefficients[i]) == 32767) return -1;
            if (spectrum.coefficients[i] == 0)
                dropped += std::max<double>(half * half, encoder->threshold[i]);
            else
                rounded += half * half;
        }
    }
    return std::sqrt(2 * rounded + std::min(2 * dropped, energy));
}

void CompareTransform(const AudioEncoder* encoder, const reader::CodedAudioBlock& block, uint32_t transform,
                      const std::vector<double>& restored, const std::vector<int16_t>& pcm) {
    const uint32_t n = encoder->shape.transformSize, stride = encoder->shape.transformCount;
    double error = 0, energy = 0, held = 0;
    for (size_t i = 0; i < n; i++) {
        const size_t at = i * stride + transform;
        if (at < pcm.size() / stride * stride) held = pcm[at];
        error += (restored[at] - held) * (restored[at] - held);
        energy += held * held;
    }
    const double allowed = Allowed(encoder, block.spectra[transform], energy);
    if (allowed < 0) return;
    const double rounding =
        1e-5 * std::sqrt(energy) + 0.01 * std::sqrt(double(n)); // the coder works in single precision
    Require(std::sqrt(error) <= 1.001 * allowed + rounding,
            "an error of " + std::to_string(std::sqrt(error)) + " where " + std::to_string(allowed) + " is allowed");
}

void CheckBlock(AudioEncoder* encoder, const CodedAudio& coded, const reader::AudioKind& kind,
                const std::vector<int16_t>& pcm) {
    Require(coded.bytes % 4 == 0 && coded.bytes <= CodedBlockBound(encoder), "a block keeps to its bound");
    reader::Violations violations;
    reader::CodedAudioBlock block;
    Require(reader::ReadAudioBlock(kind, {coded.data, coded.bytes}, {}, &block, &violations), "a block is whole");
    for (const reader::Violation& violation : violations.list) Require(false, reader::DescribeViolation(violation));
    Require(block.bytes == coded.bytes, "a block is read to its end");
    const std::vector<double> restored = reader::RestoreAudioBlock(kind, block);
    for (uint32_t t = 0; t < encoder->shape.transformCount; t++) CompareTransform(encoder, block, t, restored, pcm);
}

void Encode(Choices choices, const reader::AudioKind& kind, uint32_t quality) {
    AudioEncoder* encoder = OpenAudioEncoder(kind.sampleRate, kind.channels, kind.perChannelDct);
    if (encoder == nullptr) return;
    uint32_t lastBytes = choices.Word(); // the last block may be short
    Source source = {choices};
    std::vector<int16_t> pcm; // of the block, overlap included
    uint64_t taken = 0, told = 0;
    for (uint32_t i = 0; i < BLOCKS; i++) {
        const AudioArea area = AudioInputArea(encoder);
        const uint32_t bytes = i + 1 < BLOCKS ? area.bytes : lastBytes % (area.bytes + 1);
        for (uint32_t k = 0; k + 1 < bytes; k += 2) {
            pcm.push_back(source.Next());
            std::memcpy(area.address + k, &pcm.back(), 2);
        }
        const CodedAudio coded = EncodeAudioBlock(encoder, quality, bytes);
        taken += bytes;
        told += coded.pcmBytes;
        Require(told <= taken, "no more sound is accounted for than came");
        CheckBlock(encoder, coded, kind, pcm);
        pcm.erase(pcm.begin(), pcm.end() - std::min<std::ptrdiff_t>(encoder->shape.overlapBytes / 2, std::ssize(pcm)));
    }
    mokfree(encoder);
}

// Blocks out of nothing.
void ReadInvented(const Choices& choices, const reader::AudioKind& kind) {
    const AudioShape shape = ShapeOfAudio(kind.sampleRate, kind.channels, kind.perChannelDct);
    reader::Bytes rest = {choices.next, choices.left};
    for (uint32_t i = 0; i < BLOCKS; i++) {
        reader::Violations violations;
        reader::CodedAudioBlock block;
        if (!reader::ReadAudioBlock(kind, rest, {}, &block, &violations)) {
            Require(violations.errors > 0, "a block that breaks off has an error");
            return;
        }
        Require(block.bytes <= rest.size && block.bytes % 4 == 0, "a block takes what there is");
        const std::vector<double> restored = reader::RestoreAudioBlock(kind, block);
        Require(restored.size() == size_t{shape.transformSize} * shape.transformCount, "a block has its samples");
        for (const double sample : restored) Require(std::isfinite(sample), "samples are numbers");
        rest = {rest.data + block.bytes, rest.size - block.bytes};
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices = {data, size};
    // Mostly such that have small blocks, which are quick.
    const uint32_t rates[] = {8000, 1,     100,  4000,  11025, 16000, 22049, 200,
                              300,  12000, 6000, 22050, 44099, 44100, 65535};
    const uint32_t kindByte = choices.Byte();
    const reader::AudioKind kind = {choices.Of(rates), 1 + kindByte % 2, kindByte / 2 % 2 == 0};
    const uint32_t quality = choices.Byte() % 100;
    if (kindByte / 4 % 2 == 0) {
        Encode(choices, kind, quality);
    } else {
        ReadInvented(choices, kind);
    }
    return 0;
}
