// AudioEncoderTest.cpp - coded blocks read back: their layout, their sound, their accounting.
#include <cmath>
#include <cstring>
#include <random>

#include <gtest/gtest.h>

#include "audio/AudioEncoder.h"
#include "audio/AudioInternal.h"
#include "public/vornmake.h"
#include "tests/audio/CodedBlockReader.h"

namespace {

using namespace vorn;
using namespace testaudio;

struct Encoder {
    Encoder(uint32_t rate, uint32_t channelCount, bool dct)
        : channels(channelCount), shape(ShapeOfAudio(rate, channelCount, dct)),
          encoder(OpenAudioEncoder(rate, channelCount, dct)) {}
    ~Encoder() { mokfree(encoder); }
    Encoder(const Encoder&) = delete;

    // Codes a block whose new samples come from `sound`, in its order; the first `bytes` bytes or all that fit.
    CodedAudio Code(const std::vector<int16_t>& sound, size_t* at, uint32_t quality, uint32_t bytes = UINT32_MAX) {
        const AudioArea area = AudioInputArea(encoder);
        bytes = std::min(bytes, area.bytes);
        for (uint32_t i = 0; i < bytes / 2; i++) {
            const uint16_t sample = uint16_t(sound.at((*at)++));
            area.address[2 * i] = uint8_t(sample);
            area.address[2 * i + 1] = uint8_t(sample >> 8);
        }
        return EncodeAudioBlock(encoder, quality, bytes);
    }
    std::vector<CodedTransform> Read(const CodedAudio& coded) const {
        BitReader in = {coded.data, coded.bytes * size_t(8)};
        if (encoder->perChannelDct) {
            EXPECT_EQ(in.Get(2), 0u);
        }
        std::vector<CodedTransform> out;
        for (uint32_t c = 0; c < shape.transformCount; c++)
            out.push_back(ReadTransform(&in, shape.transformSize, shape.bandCount));
        EXPECT_LT(in.bits - in.at, 32u);
        while (in.at < in.bits) EXPECT_EQ(in.Get(1), 0u);
        return out;
    }
    uint32_t channels;
    AudioShape shape;
    AudioEncoder* encoder;
};

std::vector<int16_t> Silence(size_t samples) {
    return std::vector<int16_t>(samples, 0);
}

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

// Samples of one transform, by the plain sum of the inverse.
std::vector<double> DecodeTransform(const CodedTransform& coded, const AudioShape& shape, bool dct) {
    const uint32_t n = shape.transformSize;
    std::vector<double> y(n), out(n);
    y[0] = coded.value[0];
    y[1] = coded.value[1];
    for (uint32_t band = 0; band < shape.bandCount; band++)
        for (uint32_t i = 2 * shape.bandEdges[band]; i < 2 * shape.bandEdges[band + 1]; i++)
            if (i >= 2) y[i] = coded.coefficients[i] * std::pow(10.0, 0.0664 * coded.steps[band]);
    for (uint32_t k = 0; k < n; k++) {
        double sum = dct ? 0 : (y[0] + (k % 2 ? -y[1] : y[1])) / 2;
        for (uint32_t j = 0; dct && j < n; j++) sum += y[j] == 0 ? 0 : y[j] * std::cos(M_PI * j * (k + 0.5) / n);
        for (uint32_t j = 1; !dct && j < n / 2; j++)
            if (y[2 * j] != 0 || y[2 * j + 1] != 0)
                sum += y[2 * j] * std::cos(2 * M_PI * j * k / n) + y[2 * j + 1] * std::sin(2 * M_PI * j * k / n);
        out[k] = sum * 2 / std::sqrt(double(n));
    }
    return out;
}

TEST(AudioShapes, BandsFollowFromTheRate) {
    EXPECT_EQ(ShapeOfAudio(44100, 1, true).bandCount, 25u);
    EXPECT_EQ(ShapeOfAudio(22050, 1, false).bandCount, 23u);
    EXPECT_EQ(ShapeOfAudio(11025, 2, true).bandCount, 20u);
    EXPECT_EQ(ShapeOfAudio(8000, 1, true).bandCount, 18u);
    EXPECT_EQ(ShapeOfAudio(8000, 1, true).bandEdges[17], 236u);
    EXPECT_EQ(ShapeOfAudio(8000, 1, true).bandEdges[18], 256u);
    const uint32_t edges[26] = {0,  4,   9,   13,  18,  23,  29,  35,  42,  50,  58,  68,  79,
                                92, 107, 125, 146, 171, 204, 246, 297, 357, 441, 557, 719, 1024};
    for (const AudioShape& shape : {ShapeOfAudio(44100, 2, true), ShapeOfAudio(22050, 2, false)})
        for (int i = 0; i < 26; i++) EXPECT_EQ(shape.bandEdges[i], edges[i]) << i;
}

TEST(AudioShapes, SizesStepAt22050And44100) {
    const struct {
        uint32_t rate, channels;
        bool dct;
        uint32_t size, transforms, block, overlap;
    } rows[] = {
        {44100, 2, true, 2048, 2, 8192, 512},  {44100, 2, false, 4096, 1, 8192, 512},
        {44099, 1, true, 1024, 1, 2048, 128},  {22050, 1, false, 1024, 1, 2048, 128},
        {22049, 2, false, 1024, 1, 2048, 128}, {11025, 1, true, 512, 1, 1024, 64},
    };
    for (const auto& row : rows) {
        const AudioShape shape = ShapeOfAudio(row.rate, row.channels, row.dct);
        EXPECT_EQ(shape.transformSize, row.size);
        EXPECT_EQ(shape.transformCount, row.transforms);
        EXPECT_EQ(shape.blockBytes, row.block);
        EXPECT_EQ(shape.overlapBytes, row.overlap);
    }
}

TEST(AudioEncoder, PackedFloats) {
    EXPECT_EQ(PackFloat(0.0f), 0u);
    EXPECT_EQ(PackFloat(-0.0f), 0u);
    EXPECT_EQ(PackFloat(1.0f), 1u | 0x400000u << 5);
    EXPECT_EQ(PackFloat(-1.0f), 1u | 0x400000u << 5 | 1u << 28);
    EXPECT_EQ(PackFloat(0.5f), 0u | 0x400000u << 5); // rounds to the even 0
    EXPECT_EQ(PackFloat(1.5f), 2u | 0x300000u << 5); // to the even 2
    EXPECT_EQ(PackFloat(2.5f), 2u | 0x500000u << 5); // to the even 2
    EXPECT_EQ(PackFloat(3.5f), 3u | 0x380000u << 5); // to 4
    EXPECT_EQ(PackFloat(2097152.0f), 22u | 0x400000u << 5);
    std::mt19937 engine(3);
    for (int i = 0; i < 100000; i++) {
        const float value = std::ldexp(float(int(engine() % 65536) - 32768) + 0.37f, int(engine() % 24) - 17);
        const double size = std::fabs(double(value));
        ASSERT_NEAR(UnpackFloat(PackFloat(value)), value, std::max(size * 0x1p-22, 0x1p-24)) << value;
    }
}

TEST(AudioEncoder, ABlockOfSilence) {
    Encoder stereo(44100, 2, true);
    size_t at = 0;
    const CodedAudio coded = stereo.Code(Silence(4096), &at, 0);
    EXPECT_EQ(coded.bytes, 76u); // 590 bits
    for (const CodedTransform& transform : stereo.Read(coded)) {
        EXPECT_EQ(transform.value[0], 0);
        EXPECT_EQ(transform.value[1], 0);
        EXPECT_EQ(transform.steps[0], 65u);
        for (size_t band = 1; band < 25; band++) EXPECT_EQ(transform.steps[band], 255u);
        ASSERT_EQ(transform.headings.size(), 4u);
        for (const Heading& heading : transform.headings) EXPECT_EQ(heading.code, 15);
        for (const Heading& heading : transform.headings) EXPECT_EQ(heading.width, 0u);
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
                const std::vector<double> samples = DecodeTransform(coded[c], encoder.shape, dct);
                for (size_t i = 0; i < samples.size(); i++) {
                    const double source = sound[first + i * channels + c];
                    signal += source * source;
                    noise += (samples[i] - source) * (samples[i] - source);
                }
            }
            EXPECT_GT(10 * std::log10(signal / noise), 16.0 - quality) << dct << " " << quality;
        }
}

// Nothing above 15500 Hz is coded at any quality, however loud.
TEST(AudioEncoder, NothingInTheHighestBand) {
    std::vector<int16_t> sound(2048);
    for (size_t i = 0; i < sound.size(); i++)
        sound[i] = int16_t(32767 * std::sin(2 * M_PI * 16000 * double(i) / 44100));
    Encoder encoder(44100, 1, true);
    size_t at = 0;
    const CodedTransform coded = encoder.Read(encoder.Code(sound, &at, 0)).at(0);
    EXPECT_GE(coded.steps[24], 108u);
    for (uint32_t i = 2 * 719; i < 2048; i++) EXPECT_EQ(coded.coefficients[i], 0);
}

TEST(AudioEncoder, AccountingLagsOneOverlapBehind) {
    Encoder encoder(11025, 1, true);
    const std::vector<int16_t> sound = Chord(2000, 11025, 1);
    size_t at = 0;
    EXPECT_EQ(AudioInputArea(encoder.encoder).bytes, 1024u);
    EXPECT_EQ(encoder.Code(sound, &at, 4).pcmBytes, 960u);
    EXPECT_EQ(AudioInputArea(encoder.encoder).bytes, 960u);
    EXPECT_EQ(encoder.Code(sound, &at, 4).pcmBytes, 960u);
    EXPECT_EQ(encoder.Code(sound, &at, 4, 100).pcmBytes, 164u);

    Encoder nearlyFull(11025, 1, true);
    at = 0;
    EXPECT_EQ(nearlyFull.Code(sound, &at, 4, 1000).pcmBytes, 960u);
    EXPECT_EQ(nearlyFull.Code(sound, &at, 4, 2).pcmBytes, 42u);
}

// A short block equals a full one in which the last sample of each channel is held.
TEST(AudioEncoder, TheLastSampleIsHeld) {
    for (bool dct : {true, false}) {
        Encoder shorter(8000, 2, dct), full(8000, 2, dct);
        const std::vector<int16_t> sound = Chord(2000, 8000, 2);
        size_t at = 0;
        full.Code(sound, &at, 1);
        at = 0;
        shorter.Code(sound, &at, 1);
        const std::vector<int16_t> start(sound.begin() + long(at), sound.begin() + long(at) + 10);
        std::vector<int16_t> held(start);
        while (held.size() < 1024) held.push_back(held[held.size() - (dct ? 2 : 1)]);
        size_t inHeld = 0, inStart = 0;
        const CodedAudio a = full.Code(held, &inHeld, 1);
        const CodedAudio b = shorter.Code(start, &inStart, 1, 21); // half a sample is cut off
        EXPECT_EQ(std::vector<uint8_t>(a.data, a.data + a.bytes), std::vector<uint8_t>(b.data, b.data + b.bytes));
    }
}

TEST(AudioEncoder, NoMemory) {
    MOKSetMemory([](uint32_t) -> void* { return reinterpret_cast<void*>(UINTPTR_MAX); }, [](void*) {});
    EXPECT_EQ(OpenAudioEncoder(44100, 2, true), nullptr);
    MOKSetMemory(nullptr, nullptr);
}

// The loudest noise at the finest quality stays within the bound.
TEST(AudioEncoder, TheBoundHolds) {
    std::mt19937 engine(11);
    for (uint32_t rate : {8000u, 22050u, 44100u, 65535u})
        for (bool dct : {true, false}) {
            Encoder encoder(rate, 2, dct);
            std::vector<int16_t> sound(20000);
            for (int16_t& sample : sound) sample = engine() % 2 ? 32767 : -32768;
            size_t at = 0;
            for (int block = 0; block < 2; block++) {
                const CodedAudio coded = encoder.Code(sound, &at, 0);
                EXPECT_LE(coded.bytes, CodedBlockBound(encoder.encoder));
                encoder.Read(coded);
            }
        }
}

} // namespace
