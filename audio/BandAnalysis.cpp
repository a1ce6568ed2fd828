// BandAnalysis.cpp - how much noise each band of a spectrum can take, and the coarsest step that makes no more.
//
// A band's road: energy and tonality of its lines, spread over its neighbours; the signal-to-noise ratio that this
// demands; a bisection over the step indices that measures each trial's error on the spectrum itself; a lift to the
// threshold of hearing.
//
// Sums are single precision in rising order, one rounding an addition, whatever the width of the machine. What goes
// through a logarithm, a power or an angle is computed in double by portable functions and rounded once.
#include <cfloat>
#include <cmath>
#include <limits>

#include "audio/AudioInternal.h"
#include "numeric/PortableMath.h"

#ifdef __FAST_MATH__
#error "Movies are the same on every machine only without -ffast-math."
#endif
static_assert(FLT_EVAL_METHOD == 0, "Sums must not keep more digits than their type: use -msse2 -mfpmath=sse.");

namespace vorn {
namespace {

constexpr float QUIET_POWER = 0.0005f; // floor under the power of a line
constexpr float LEAST_MEAN = 2.5f;     // amplitudes below count as noise
constexpr float MOST_UNPREDICTABLE = 0.5f;
constexpr float LEAST_UNPREDICTABLE = 0.05f;

// How much of a band's energy reaches the band d places higher.
constexpr int SPREAD_FIRST = -3;
constexpr int SPREAD_LAST = 7;
constexpr float SPREAD[SPREAD_LAST - SPREAD_FIRST + 1] = {
    0.0000038f, 0.0010497f, 0.13477009f, 1.0f,       0.07875f,   0.0146941f,
    0.0052495f, 0.0005273f, 0.0000507f,  0.0000048f, 0.0000004f,
};

float SpreadTo(int distance) {
    return distance < SPREAD_FIRST || distance > SPREAD_LAST ? 0.0f : SPREAD[distance - SPREAD_FIRST];
}

float ToFloat(double x) {
    return x > double(std::numeric_limits<float>::max()) ? std::numeric_limits<float>::infinity() : float(x);
}

// dB at a frequency of `hertz`, raised by 28. Infinite at 0.
double HearingFloor(uint32_t hertz) {
    const double kilohertz = hertz * 0.001;
    const double square = kilohertz * kilohertz;
    const double dip = kilohertz - 3.3;
    return 3.64 * Power(kilohertz, -0.8) - 6.5 * Exp(-0.6 * dip * dip) + 0.001 * square * square + 28.0;
}

struct BandEnergies {
    float all[MAX_BANDS];
    float tonal[MAX_BANDS];
};

// Power, amplitude and phase of each line.
struct Lines {
    float power[MAX_LINES];
    float amplitude[MAX_LINES];
    float phase[MAX_LINES];
};

void MeasureLines(const float* __restrict spectrum, uint32_t count, Lines* __restrict lines) {
    lines->power[0] = 1.0f;
    lines->phase[0] = 0.0f;
    for (uint32_t k = 1; k < count; k++) {
        const float x = spectrum[2 * k];
        const float y = spectrum[2 * k + 1];
        const float power = x * x + y * y;
        lines->power[k] = power > QUIET_POWER ? power : QUIET_POWER;
        lines->phase[k] = power > QUIET_POWER ? float(Atan2(-y, x)) : 0.0f;
    }
    for (uint32_t k = 0; k < count; k++) lines->amplitude[k] = std::sqrt(lines->power[k]);
}

// How badly the two blocks before predict the lines, 0.05 to 0.5; lines too well predicted count as badly predicted
// ones. `history` moves on by a block.
void PredictLines(const Lines& lines, uint32_t count, float* history, float* __restrict unpredictable) {
    float* __restrict amplitude1 = history;
    float* __restrict phase1 = history + count;
    float* __restrict amplitude2 = history + 2 * count;
    float* __restrict phase2 = history + 3 * count;
    for (uint32_t k = 0; k < count; k++) {
        const float amplitude = lines.amplitude[k];
        const float phase = lines.phase[k];
        const float predicted = 2.0f * amplitude1[k] - amplitude2[k];
        const float d1 = predicted - amplitude;
        const float d2 = (2.0f * phase1[k] - phase2[k]) - phase;
        const float weight = amplitude + std::fabs(predicted);
        const float c = std::sqrt(d1 * d1 + d2 * d2) / weight;
        const bool usable = (weight >= LEAST_MEAN) & (c <= MOST_UNPREDICTABLE) & (c >= LEAST_UNPREDICTABLE);
        unpredictable[k] = usable ? c : MOST_UNPREDICTABLE;
        amplitude2[k] = amplitude1[k];
        phase2[k] = phase1[k];
        amplitude1[k] = amplitude;
        phase1[k] = phase;
    }
}

// From about 0.008, noise, to about 1.0, a tone.
float LineTonality(float unpredictable) {
    return float(-0.43 * Ln(unpredictable) - 0.29);
}

// The mean of the lines' tonality, weighted by amplitude; 0 for a band that is nearly silent.
float BandTonality(const float* amplitude, const float* unpredictable, uint32_t count) {
    const float ofNoise = LineTonality(MOST_UNPREDICTABLE);
    float sum = 0;
    float weighted = 0;
    for (uint32_t k = 0; k < count; k++) {
        const float c = unpredictable[k];
        const float tonality = c < MOST_UNPREDICTABLE ? LineTonality(c) : ofNoise;
        weighted += tonality * amplitude[k];
        sum += amplitude[k];
    }
    return sum < LEAST_MEAN * float(count) ? 0.0f : weighted / sum;
}

void MeasureBands(const AudioShape& shape, const float* spectrum, float* history, BandEnergies* energies) {
    const uint32_t count = shape.transformSize / 2;
    Lines lines;
    float unpredictable[MAX_LINES];
    MeasureLines(spectrum, count, &lines);
    PredictLines(lines, count, history, unpredictable);
    for (uint32_t band = 0; band < shape.bandCount; band++) {
        const uint32_t first = shape.bandEdges[band];
        const uint32_t end = shape.bandEdges[band + 1];
        float power = 0;
        for (uint32_t k = first; k < end; k++) power += lines.power[k];
        energies->all[band] = power;
        energies->tonal[band] = power * BandTonality(lines.amplitude + first, unpredictable + first, end - first);
    }
}

void SpreadBands(const float* from, uint32_t count, float* to) {
    for (uint32_t j = 0; j < count; j++) {
        float sum = 0;
        for (uint32_t i = 0; i < count; i++) sum += from[i] * SpreadTo(int(j) - int(i));
        to[j] = sum;
    }
}

// The noise that each band can take, as the sum of its squared errors.
void AllowNoise(const AudioEncoder* encoder, const BandEnergies& energies, uint32_t quality, float* allowed) {
    const uint32_t count = encoder->shape.bandCount;
    BandEnergies spread;
    SpreadBands(energies.all, count, spread.all);
    SpreadBands(energies.tonal, count, spread.tonal);
    const float raised = 12.0f - float(quality < 12 ? quality : 12);
    for (uint32_t band = 0; band < count; band++) {
        const float energy = spread.all[band];
        float tonality = energy > QUIET_POWER ? spread.tonal[band] / energy : 0.0f;
        tonality = tonality < 0.0f ? 0.0f : tonality > 1.0f ? 1.0f : tonality;
        const float demanded = (float(band) + 14.5f) * tonality + 5.5f * (1.0f - tonality) + raised;
        const double level = 10.0 * Log10(energy);
        allowed[band] = level < demanded ? 0.0f : float(encoder->spreadNorm[band] * Pow10((level - demanded) / 10.0));
    }
}

// One band in the search: the sizes of its coefficients.
struct SearchBand {
    const float* sizes;
    uint32_t count;
    float largest;
    float whole; // sum of their squares: the error of any step that is too coarse for all of them
};

// Sum of the squared errors of one step; ends early with a partial sum once it is above the limit.
float TrialError(const SearchBand& band, float step, float inverse, float limit) {
    constexpr uint32_t BATCH = 16;
    if (band.largest * inverse < 0.5f) return band.whole;
    float sum = 0;
    for (uint32_t i = 0; i < band.count && sum <= limit; i += BATCH) {
        // The sizes are followed by room, so a whole batch can always be computed.
        const float* __restrict sizes = band.sizes + i;
        float squares[BATCH];
        for (uint32_t k = 0; k < BATCH; k++) {
            const float whole = float(RoundedSteps(sizes[k] * inverse));
            const float error = whole * step - sizes[k];
            squares[k] = error * error;
        }
        const uint32_t end = band.count - i < BATCH ? band.count - i : BATCH;
        for (uint32_t k = 0; k < end; k++) sum += squares[k];
    }
    return sum;
}

// The accepted trial with the largest error; of equal ones the last.
uint32_t SearchStep(const AudioEncoder* encoder, const SearchBand& band, float allowed) {
    uint32_t low = 0;
    uint32_t high = STEP_INDICES;
    uint32_t trial = STEP_INDICES / 2;
    uint32_t index = 0;
    float best = 0;
    for (;;) {
        const float error = TrialError(band, encoder->step[trial], encoder->inverseStep[trial], allowed);
        if (error > allowed) {
            high = trial;
        } else {
            low = trial;
            if (error >= best) {
                best = error;
                index = trial;
            }
        }
        const uint32_t next = (low + high) / 2;
        if (next == trial) return index;
        trial = next;
    }
}

// Steps below the threshold of hearing are wasted.
uint32_t LiftToHearing(uint32_t index, float floor) {
    if (index >= STEP_INDICES - 1 || !(double(floor) > 0.664 * index)) return index;
    const double lifted = std::floor((double(floor) + 0.3319) * 1.5060241 + 0.5);
    return lifted < STEP_INDICES - 1 ? uint32_t(lifted) : STEP_INDICES - 1;
}

} // namespace

void FillAudioTables(AudioEncoder* encoder) {
    const AudioShape& shape = encoder->shape;
    const uint32_t n = shape.transformSize;
    for (uint32_t index = 0; index < STEP_INDICES; index++) {
        encoder->step[index] = float(Pow10(STEP_EXPONENT * index));
        encoder->inverseStep[index] = 1.0f / encoder->step[index];
    }
    for (uint32_t j = 0; j < shape.bandCount; j++) {
        float sum = 0;
        for (uint32_t i = 0; i < shape.bandCount; i++) sum += SpreadTo(int(j) - int(i));
        encoder->spreadNorm[j] = 1.0f / sum;
    }
    for (uint32_t i = 0; i < n; i++)
        encoder->hearingFloor[i] = ToFloat(HearingFloor(uint32_t(uint64_t(i) * shape.half / n)));
    for (uint32_t band = 0; band < shape.bandCount; band++) {
        float floor = 1000.0f;
        for (uint32_t i = 2 * shape.bandEdges[band]; i < 2 * shape.bandEdges[band + 1]; i++)
            if (encoder->hearingFloor[i] - 14.0f < floor) floor = encoder->hearingFloor[i] - 14.0f;
        encoder->bandFloor[band] = floor;
    }
    for (uint32_t i = 0; i < shape.transformCount * 2 * n; i++) encoder->history[i] = 0.0f;
}

void FillThresholds(AudioEncoder* encoder, uint32_t quality) {
    for (uint32_t i = 0; i < encoder->shape.transformSize; i++)
        encoder->threshold[i] = ToFloat(Pow10((double(encoder->hearingFloor[i]) + 2.0 * quality) * 0.1));
    encoder->thresholdQuality = quality;
}

void ChooseBandSteps(const AudioEncoder* encoder, float* spectrum, float* history, uint32_t quality,
                     uint8_t steps[MAX_BANDS]) {
    const AudioShape& shape = encoder->shape;
    spectrum[0] = 1.0f;
    spectrum[1] = 0.0f;
    BandEnergies energies;
    float allowed[MAX_BANDS];
    MeasureBands(shape, spectrum, history, &energies);
    AllowNoise(encoder, energies, quality, allowed);

    float sizes[MAX_TRANSFORM + 16] = {};
    for (uint32_t i = 0; i < shape.transformSize; i++) sizes[i] = std::fabs(spectrum[i]);
    for (uint32_t index = 0; index < shape.bandCount; index++) {
        const uint32_t first = 2 * shape.bandEdges[index];
        SearchBand band = {sizes + first, 2 * shape.bandEdges[index + 1] - first, 0.0f, 0.0f};
        for (uint32_t i = 0; i < band.count; i++) {
            band.largest = band.sizes[i] > band.largest ? band.sizes[i] : band.largest;
            band.whole += band.sizes[i] * band.sizes[i];
        }
        const uint32_t step = SearchStep(encoder, band, allowed[index]);
        steps[index] = uint8_t(LiftToHearing(step, float(quality) + encoder->bandFloor[index]));
    }
}

} // namespace vorn
