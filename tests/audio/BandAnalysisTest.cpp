// BandAnalysisTest.cpp - steps chosen against the rules in plain double arithmetic; groups and runs read back.
#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

#include <gtest/gtest.h>

#include "audio/AudioEncoder.h"
#include "tests/audio/CodedBlockReader.h"

namespace {

using namespace vorn;
using namespace testaudio;

OwnedEncoder Open(uint32_t rate) {
    return OwnedEncoder(OpenAudioEncoder(rate, 1, true));
}

double Floor(double hertz) {
    const double k = hertz * 0.001;
    return 3.64 * std::pow(k, -0.8) - 6.5 * std::exp(-0.6 * (k - 3.3) * (k - 3.3)) + 0.001 * k * k * k * k + 28;
}

double SquaredError(const std::vector<float>& y, uint32_t first, uint32_t end, int index) {
    const double step = std::pow(10.0, 0.0664 * index);
    double error = 0;
    for (uint32_t i = first; i < end; i++) {
        const double whole = std::clamp(std::round(y[i] / step), -32767.0, 32767.0);
        error += (whole * step - y[i]) * (whole * step - y[i]);
    }
    return error;
}

// The search as it is told, in double. 256 stands behind the last index.
int Bisect(const std::vector<float>& y, uint32_t first, uint32_t end, double allowed) {
    int low = 0, high = 256, trial = 128, index = 0;
    double best = 0;
    for (int last = -1; trial != last; last = std::exchange(trial, (low + high) / 2)) {
        const double error = SquaredError(y, first, end, trial);
        if (error > allowed) {
            high = trial;
        } else {
            low = trial;
            if (error >= best) best = error, index = trial;
        }
    }
    return index;
}

// A first block counts as noise altogether: every line's tonality is -0.43 ln 0.5 - 0.29.
std::vector<int> StepsOfNoise(const AudioEncoder& encoder, std::vector<float> y, uint32_t quality) {
    const double spread[11] = {0.0000038, 0.0010497, 0.13477009, 1.0,       0.07875,  0.0146941,
                               0.0052495, 0.0005273, 0.0000507,  0.0000048, 0.0000004};
    const AudioShape& shape = encoder.shape;
    const uint32_t bands = shape.bandCount;
    y[0] = 1;
    y[1] = 0;
    std::vector<double> energy(bands);
    for (uint32_t b = 0; b < bands; b++)
        for (uint32_t i = 2 * shape.bandEdges[b]; i < 2 * shape.bandEdges[b + 1]; i++) energy[b] += double(y[i]) * y[i];
    const double tonality = -0.43 * std::log(0.5) - 0.29;
    std::vector<int> steps;
    for (uint32_t b = 0; b < bands; b++) {
        double spreadEnergy = 0, norm = 0, floor = 1000;
        for (uint32_t i = 0; i < bands; i++)
            if (b + 3 >= i && b + 3 - i <= 10) {
                spreadEnergy += energy[i] * spread[b + 3 - i];
                norm += spread[b + 3 - i];
            }
        const double ratio = (b + 14.5) * tonality + 5.5 * (1 - tonality) + 12 - std::min(quality, 12u);
        const double level = 10 * std::log10(spreadEnergy);
        const double allowed = level < ratio ? 0 : std::pow(10, (level - ratio) / 10) / norm;
        const uint32_t first = 2 * shape.bandEdges[b], end = 2 * shape.bandEdges[b + 1];
        int index = Bisect(y, first, end, allowed);
        for (uint32_t i = std::max(first, 1u); i < end; i++)
            floor = std::min(floor, Floor(double(uint64_t(i) * shape.half / shape.transformSize)) - 14);
        if (index < 255 && quality + floor > 0.664 * index)
            index = std::min(255, int(std::lround((quality + floor + 0.3319) * 1.5060241)));
        steps.push_back(index);
    }
    return steps;
}

std::vector<float> NoiseSpectrum(uint32_t n, float size) {
    std::mt19937 engine(5);
    std::vector<float> y(n);
    for (float& value : y) value = size * (float(engine() % 20001) - 10000) / 10000;
    return y;
}

TEST(BandSteps, OfNoiseFollowTheRules) {
    for (uint32_t rate : {8000u, 22050u, 44100u})
        for (uint32_t quality : {0u, 5u, 12u, 40u}) {
            const OwnedEncoder encoder = Open(rate);
            // Every fifth band is louder, in turn by as much as leaves its next and its second neighbours a step to find.
            std::vector<float> y = NoiseSpectrum(encoder->shape.transformSize, 20000);
            for (uint32_t b = 0; b < encoder->shape.bandCount; b += 5)
                for (uint32_t i = 2 * encoder->shape.bandEdges[b]; i < 2 * encoder->shape.bandEdges[b + 1]; i++)
                    y[i] *= b % 2 ? 30.0f : 8.0f;
            const std::vector<int> expected = StepsOfNoise(*encoder, y, quality);
            uint8_t steps[MAX_BANDS];
            ChooseBandSteps(encoder.get(), y.data(), encoder->history, quality, steps);
            for (uint32_t b = 0; b < encoder->shape.bandCount; b++)
                EXPECT_EQ(int(steps[b]), expected[b]) << rate << " q " << quality << " band " << b;
        }
}

// The step of a tone's band in its third block, by the amplitude of the two blocks before.
int StepOfTone(float before) {
    const OwnedEncoder encoder = Open(44100);
    const uint32_t line = 300; // band 20, lines 297 to 356
    uint8_t steps[MAX_BANDS] = {};
    for (int block = 0; block < 3; block++) {
        std::vector<float> y = NoiseSpectrum(2048, 2);
        const float amplitude = block < 2 ? before : 300000;
        const float phase = 0.5f + 0.6f * float(block);
        y[2 * line] = amplitude * std::cos(phase);
        y[2 * line + 1] = -amplitude * std::sin(phase);
        ChooseBandSteps(encoder.get(), y.data(), encoder->history, 0, steps);
    }
    // The history holds this block and the one before, in its four arrays.
    EXPECT_NEAR(encoder->history[line], 300000, 1);
    EXPECT_NEAR(encoder->history[1024 + line], 1.7, 1e-5);
    EXPECT_NEAR(encoder->history[2048 + line], before, 1);
    EXPECT_NEAR(encoder->history[3072 + line], 1.1, 1e-5);
    return int(steps[20]);
}

// A tone that is predicted well is tonal and gets a finer step; one predicted too well counts as noise like one
// predicted badly.
TEST(BandSteps, PredictableTonesAreCodedFiner) {
    const int noise = StepOfTone(50000);               // off by 0.71 of the amplitudes' sum
    EXPECT_EQ(StepOfTone(300000), noise);              // by nothing
    EXPECT_LT(StepOfTone(250000), noise);              // by 0.09
    EXPECT_LT(StepOfTone(250000), StepOfTone(180000)); // by 0.25: less tonal
}

TEST(BandSteps, SilenceIsLiftedOnlyInBand0) {
    const OwnedEncoder encoder = Open(22050);
    std::vector<float> y(1024, 0.0f);
    uint8_t steps[MAX_BANDS];
    ChooseBandSteps(encoder.get(), y.data(), encoder->history, 50, steps);
    double floor = 1000; // of coefficients 1 to 7 with frequencies cut to whole hertz
    for (uint32_t i = 1; i < 2 * encoder->shape.bandEdges[1]; i++)
        floor = std::min(floor, Floor(double(i * 11025 / 1024)) - 14);
    EXPECT_EQ(int(steps[0]), int(std::lround((50 + floor + 0.3319) * 1.5060241)));
    for (uint32_t b = 1; b < 23; b++) EXPECT_EQ(steps[b], 255u);
}

// Writes a spectrum with step 1 and these thresholds, and reads it back, in groups as the reader wants them.
std::vector<int32_t> WriteAndRead(const std::vector<float>& spectrum, float evenThreshold = 0, float oddThreshold = 0) {
    const OwnedEncoder encoder = Open(8000);
    for (uint32_t i = 0; i < 512; i++) encoder->threshold[i] = i % 2 ? oddThreshold : evenThreshold;
    const uint8_t steps[MAX_BANDS] = {};
    AudioBits out = {encoder->coded, 0, 0};
    const uint32_t headBits = 2 + 2 * PACKED_FLOAT_BITS + encoder->shape.bandCount * STEP_INDEX_BITS; // all 0
    for (uint32_t i = 0; i < headBits; i++) PutBits(&out, 0, 1);
    WriteAudioCoefficients(encoder.get(), &out, spectrum.data(), steps);
    PadToWord(&out);
    return ReadBlock({8000, 1, true}, encoder->coded, size_t(out.next - encoder->coded)).spectra.at(0).coefficients;
}

TEST(CoefficientGroups, RoundAndClip) {
    const float values[] = {0.49999997f, 0.5f,     -0.5f, 1.4999999f, 1.5f,     -2.5f,
                            32766.5f,    32767.5f, 1e9f,  -1e9f,      -32766.4f};
    const int expected[] = {0, 1, -1, 1, 2, -3, 32767, 32767, 32767, -32767, -32766};
    std::vector<float> x(512, 0.0f);
    std::copy(std::begin(values), std::end(values), x.begin() + 2);
    const std::vector<int32_t> read = WriteAndRead(x);
    for (size_t i = 0; i < std::size(expected); i++) EXPECT_EQ(read[2 + i], expected[i]) << values[i];
}

TEST(CoefficientGroups, HearingThresholdIsStrict) {
    const std::vector<int32_t> read = WriteAndRead(std::vector<float>(512, 3.0f), std::nextafter(9.0f, 10.0f), 9.0f);
    for (uint32_t i = 2; i < 512; i++) ASSERT_EQ(read[i], i % 2 ? 3 : 0);
}

TEST(CoefficientGroups, ThresholdsRiseWithQuality) {
    const OwnedEncoder encoder = Open(44100);
    for (uint32_t quality : {0u, 30u}) {
        FillThresholds(encoder.get(), quality);
        for (uint32_t i : {1u, 7u, 100u, 500u, 2047u}) {
            const double expected = std::pow(10.0, (Floor(double(i * 22050 / 2048)) + 2 * quality) * 0.1);
            if (expected < 3e38)
                EXPECT_NEAR(encoder->threshold[i] / expected, 1, 1e-5) << i;
            else
                EXPECT_EQ(encoder->threshold[i], INFINITY);
        }
        EXPECT_EQ(encoder->threshold[0], INFINITY);
    }
}

// Rows of groups of one width, the last group of 6 coefficients: how they are gathered is the reader's to judge.
TEST(CoefficientGroups, ComeInAnyWidths) {
    const std::vector<std::pair<int, int>> spectra[] = {
        {{64, 0}}, {{63, 0}, {1, 4}}, {{7, 2}, {1, 3}, {1, 5}, {48, 3}, {7, 1}}};
    for (const auto& spectrum : spectra) {
        std::vector<float> x(512, 0.0f);
        int group = 0;
        for (const auto& [groups, width] : spectrum)
            for (const int end = group + groups; group < end; group++)
                if (width > 0) x[size_t(std::min(2 + 8 * group + group % 8, 511))] = float(1 << (width - 1));
        EXPECT_EQ(group, 64);
        const std::vector<int32_t> read = WriteAndRead(x);
        for (size_t i = 2; i < 512; i++) EXPECT_EQ(float(read[i]), x[i]) << i;
    }
}

} // namespace
