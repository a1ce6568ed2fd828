// AudioEncoderTest.cpp - coded blocks read back: their layout, their sound, their accounting.
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "audio/AudioEncoder.h"
#include "tests/audio/CodedBlockReader.h"

namespace {

using namespace vorn;
using namespace testaudio;

struct Encoder {
    OwnedEncoder encoder;
    const AudioShape& shape;

    Encoder(uint32_t rate, uint32_t channels, bool dct)
        : encoder(OpenAudioEncoder(rate, channels, dct)), shape(encoder->shape) {}

    // Codes a block whose new samples come from `sound`, in its order; the first `bytes` bytes or all that fit.
    CodedAudio Code(const std::vector<int16_t>& sound, size_t* at, uint32_t quality, uint32_t bytes = UINT32_MAX) {
        const AudioArea area = AudioInputArea(encoder.get());
        bytes = std::min(bytes, area.bytes);
        for (uint32_t i = 0; i < bytes / 2; i++) {
            const uint16_t sample = uint16_t(sound.at((*at)++));
            area.address[2 * i] = uint8_t(sample);
            area.address[2 * i + 1] = uint8_t(sample >> 8);
        }
        return EncodeAudioBlock(encoder.get(), quality, bytes);
    }
    std::vector<CodedTransform> Read(const CodedAudio& coded) const {
        BitReader in = {coded.data, coded.bytes * size_t(8)};
        if (encoder->perChannelDct) {
            EXPECT_EQ(in.Get(2), 0u);
        }
        std::vector<CodedTransform> out(shape.transformCount);
        for (CodedTransform& transform : out) {
            for (double& value : transform.value) value = UnpackFloat(in.Get(29));
            for (uint32_t band = 0; band < shape.bandCount; band++) transform.steps.push_back(in.Get(8));
            ReadGroups(&in, shape.transformSize, &transform);
        }
        EXPECT_LT(in.bits - in.at, 32u);
        while (in.at < in.bits) EXPECT_EQ(in.Get(1), 0u);
        return out;
    }
    // The samples of one transform.
    std::vector<float> Decode(const CodedTransform& coded) const {
        std::vector<float> x(coded.value, coded.value + 2);
        for (uint32_t band = 0; band < shape.bandCount; band++)
            for (uint32_t i = std::max(2u, 2 * shape.bandEdges[band]); i < 2 * shape.bandEdges[band + 1]; i++)
                x.push_back(float(coded.coefficients[i] * std::pow(10.0, 0.0664 * coded.steps[band])));
        (encoder->perChannelDct ? DctInverse : RealDftInverse)(x.data(), encoder->tables);
        for (float& sample : x) sample *= 2 / std::sqrt(float(shape.transformSize));
        return x;
    }
};

// Three tones and a little noise on a constant, the same in all channels but for the phase.
std::vector<int16_t> Chord(size_t samples, uint32_t rate, uint32_t channels) {
    std::mt19937 engine(7);
    std::vector<int16_t> sound(samples * channels);
    for (size_t i = 0; i < sound.size(); i++) {
        const double t = 2 * M_PI * double(i / channels) / rate + 0.3 * double(i % channels);
        const double noise = double(engine() % 201) - 100;
        sound[i] =
            int16_t(9000 + 6000 * std::sin(440 * t) + 4000 * std::sin(1234 * t) + 3000 * std::sin(2345 * t) + noise);
    }
    return sound;
}

// Two channels in one transform are samples at twice the rate.
TEST(AudioShapes, SizesStepAt22050And44100) {
    const struct {
        uint32_t rate, channels;
        bool dct;
        uint32_t size, transforms, block, overlap, bands;
    } rows[] = {
        {44100, 2, true, 2048, 2, 8192, 512, 25},  {44100, 2, false, 4096, 1, 8192, 512, 25},
        {44099, 1, true, 1024, 1, 2048, 128, 25},  {22050, 1, false, 1024, 1, 2048, 128, 23},
        {22049, 2, false, 1024, 1, 2048, 128, 25}, {11025, 1, true, 512, 1, 1024, 64, 20},
    };
    for (const auto& row : rows) {
        const AudioShape shape = ShapeOfAudio(row.rate, row.channels, row.dct);
        EXPECT_EQ(shape.transformSize, row.size);
        EXPECT_EQ(shape.transformCount, row.transforms);
        EXPECT_EQ(shape.blockBytes, row.block);
        EXPECT_EQ(shape.overlapBytes, row.overlap);
        EXPECT_EQ(shape.bandCount, row.bands) << row.rate;
    }
    EXPECT_EQ(ShapeOfAudio(8000, 1, true).bandEdges[17], 236u);
    EXPECT_EQ(ShapeOfAudio(8000, 1, true).bandEdges[18], 256u);
    const uint32_t edges[26] = {0,  4,   9,   13,  18,  23,  29,  35,  42,  50,  58,  68,  79,
                                92, 107, 125, 146, 171, 204, 246, 297, 357, 441, 557, 719, 1024};
    for (int i = 0; i < 26; i++) EXPECT_EQ(ShapeOfAudio(44100, 2, true).bandEdges[i], edges[i]) << i;
}

TEST(AudioEncoder, PackedFloats) {
    const struct {
        float value;
        uint32_t exponent, mantissa; // the exponent is that of the value rounded, ties to even
    } rows[] = {{0, 0, 0},           {-0.0f, 0, 0},       {1, 1, 0x400000},    {0.5f, 0, 0x400000},
                {1.5f, 2, 0x300000}, {2.5f, 2, 0x500000}, {3.5f, 3, 0x380000}, {2097152, 22, 0x400000}};
    for (const auto& row : rows) EXPECT_EQ(PackFloat(row.value), row.exponent | row.mantissa << 5) << row.value;
    EXPECT_EQ(PackFloat(-1.0f), 1u | 0x400000u << 5 | 1u << 28);
}

TEST(AudioEncoder, ABlockOfSilence) {
    Encoder stereo(44100, 2, true);
    size_t at = 0;
    const CodedAudio coded = stereo.Code(std::vector<int16_t>(4096), &at, 0);
    EXPECT_EQ(coded.bytes, 76u); // 590 bits
    for (const CodedTransform& transform : stereo.Read(coded)) {
        EXPECT_EQ(transform.value[0], 0);
        EXPECT_EQ(transform.value[1], 0);
        EXPECT_EQ(transform.steps[0], 65u);
        for (size_t band = 1; band < 25; band++) EXPECT_EQ(transform.steps[band], 255u);
        EXPECT_EQ(transform.headings, (std::vector<Heading>{{15, 0, 512}, {15, 0, 512}, {15, 0, 512}, {15, 0, 510}}));
    }
}

// A block decodes to its source. The model demands 17.5 dB of noise at quality 0, 1 less for each step, and more of
// tones; 1.5 dB are allowed for the lift to the threshold of hearing and for steps that were chosen on another
// transform.
TEST(AudioEncoder, DecodesToItsSource) {
    for (bool dct : {true, false})
        for (uint32_t quality : {0u, 4u, 12u}) {
            const uint32_t channels = dct ? 2 : 1;
            Encoder encoder(16000, channels, dct);
            const std::vector<int16_t> sound = Chord(4000, 16000, channels);
            size_t at = 0;
            for (int block = 0; block < 3; block++) encoder.Code(sound, &at, quality);
            const size_t first = at - encoder.shape.overlapBytes / 2;
            const std::vector<CodedTransform> coded = encoder.Read(encoder.Code(sound, &at, quality));
            double signal = 0, noise = 0;
            for (uint32_t c = 0; c < coded.size(); c++) {
                const std::vector<float> samples = encoder.Decode(coded[c]);
                for (size_t i = 0; i < samples.size(); i++) {
                    const double source = sound[first + i * channels + c];
                    signal += source * source;
                    noise += (samples[i] - source) * (samples[i] - source);
                }
            }
            EXPECT_GT(10 * std::log10(signal / noise), 16.0 - quality) << dct << " " << quality;
        }
}

TEST(AudioEncoder, AccountingLagsOneOverlapBehind) {
    Encoder encoder(11025, 1, true), nearlyFull(11025, 1, true);
    const std::vector<int16_t> sound = Chord(2000, 11025, 1);
    size_t at = 0;
    EXPECT_EQ(AudioInputArea(encoder.encoder.get()).bytes, 1024u);
    EXPECT_EQ(encoder.Code(sound, &at, 4).pcmBytes, 960u);
    EXPECT_EQ(AudioInputArea(encoder.encoder.get()).bytes, 960u);
    EXPECT_EQ(encoder.Code(sound, &at, 4).pcmBytes, 960u);
    EXPECT_EQ(encoder.Code(sound, &at, 4, 100).pcmBytes, 164u);
    EXPECT_EQ(nearlyFull.Code(sound, &at, 4, 1000).pcmBytes, 960u);
    EXPECT_EQ(nearlyFull.Code(sound, &at, 4, 2).pcmBytes, 42u);
}

// A short block equals a full one in which the last sample of each channel is held.
TEST(AudioEncoder, TheLastSampleIsHeld) {
    for (bool dct : {true, false}) {
        Encoder shorter(8000, 2, dct), full(8000, 2, dct);
        const std::vector<int16_t> sound = Chord(2000, 8000, 2);
        size_t at = 0, inHeld = 0, inStart = 0;
        shorter.Code(sound, &inStart, 1);
        full.Code(sound, &at, 1);
        std::vector<int16_t> held(sound.begin() + long(at), sound.begin() + long(at) + 10);
        while (held.size() < 1024) held.push_back(held[held.size() - (dct ? 2 : 1)]);
        const CodedAudio a = full.Code(held, &inHeld, 1);
        const CodedAudio b = shorter.Code(sound, &inStart, 1, 21); // half a sample is cut off
        EXPECT_EQ(std::vector<uint8_t>(a.data, a.data + a.bytes), std::vector<uint8_t>(b.data, b.data + b.bytes));
    }
}

// The loudest noise at the finest quality stays within the bound.
TEST(AudioEncoder, TheBoundHolds) {
    std::mt19937 engine(11);
    std::vector<int16_t> sound(20000);
    for (int16_t& sample : sound) sample = engine() % 2 ? 32767 : -32768;
    for (uint32_t rate : {8000u, 22050u, 44100u, 65535u})
        for (bool dct : {true, false}) {
            Encoder encoder(rate, 2, dct);
            size_t at = 0;
            for (int block = 0; block < 2; block++) {
                const CodedAudio coded = encoder.Code(sound, &at, 0);
                EXPECT_LE(coded.bytes, CodedBlockBound(encoder.encoder.get()));
                encoder.Read(coded);
            }
        }
}

} // namespace
