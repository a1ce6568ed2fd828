// AudioEncoderTest.cpp - coded blocks read back: their numbers, their sound, their accounting.
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
    const reader::AudioKind kind;

    Encoder(uint32_t rate, uint32_t channels, bool dct)
        : encoder(OpenAudioEncoder(rate, channels, dct)), kind{rate, channels, dct} {}

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
    reader::CodedAudioBlock Read(const CodedAudio& coded) const { return ReadBlock(kind, coded.data, coded.bytes); }
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
    for (const reader::CodedSpectrum& spectrum : stereo.Read(coded).spectra) {
        EXPECT_EQ(spectrum.values[0], 0);
        EXPECT_EQ(spectrum.values[1], 0);
        EXPECT_EQ(spectrum.steps[0], 65u);
        for (size_t band = 1; band < 25; band++) EXPECT_EQ(spectrum.steps[band], 255u);
        EXPECT_EQ(spectrum.coefficients, std::vector<int32_t>(2048, 0));
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
            const int16_t* source = &sound[at - encoder.encoder->shape.overlapBytes / 2];
            double signal = 0, noise = 0;
            for (const double sample :
                 RestoreAudioBlock(encoder.kind, encoder.Read(encoder.Code(sound, &at, quality)))) {
                signal += double(*source) * *source;
                noise += (sample - *source) * (sample - *source);
                source++;
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
