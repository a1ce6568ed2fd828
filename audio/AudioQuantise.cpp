// AudioQuantise.cpp - from a coded spectrum and its step indices to bits: integers, groups of eight, runs of groups.
#include <bit>
#include <cmath>

#include "audio/AudioInternal.h"

namespace vorn {
namespace {

constexpr uint32_t MAX_GROUPS = MAX_TRANSFORM / GROUP_COEFFICIENTS;

// Nearest whole number of a size of at most 2^31, ties to even.
uint32_t RoundToEven(double size) {
    const double whole = std::floor(size);
    const double rest = size - whole;
    const uint32_t n = uint32_t(whole);
    return rest > 0.5 || (rest == 0.5 && (n & 1)) ? n + 1 : n;
}

// values[i] = coefficient i in steps, nearest, ties away from 0, or 0 if its square is below the threshold.
void Quantise(const AudioEncoder* encoder, const float* __restrict spectrum, const uint8_t* indices,
              int16_t* __restrict values) {
    const float* __restrict threshold = encoder->threshold;
    for (uint32_t band = 0; band < encoder->shape.bandCount; band++) {
        const float inverse = encoder->inverseStep[indices[band]];
        const uint32_t end = 2 * encoder->shape.bandEdges[band + 1];
        for (uint32_t i = 2 * encoder->shape.bandEdges[band]; i < end; i++) {
            const float x = spectrum[i];
            const int32_t steps = RoundedSteps(std::fabs(inverse * x));
            const int32_t value = x < 0 ? -steps : steps;
            values[i] = int16_t(x * x < threshold[i] ? 0 : value);
        }
    }
}

// Significant bits of the largest magnitude of each group.
uint32_t MeasureGroups(const int16_t* values, uint32_t n, uint8_t* widths) {
    uint32_t groups = 0;
    for (uint32_t p = 2; p < n; p += GROUP_COEFFICIENTS) {
        const uint32_t count = n - p < GROUP_COEFFICIENTS ? n - p : GROUP_COEFFICIENTS;
        uint32_t all = 0;
        for (uint32_t i = 0; i < count; i++) all |= uint32_t(std::abs(values[p + i]));
        widths[groups++] = uint8_t(std::bit_width(all));
    }
    return groups;
}

struct GroupRun {
    uint32_t groups;
    int code; // -1: a single group
};

// The longest row of the run table all of whose groups have the first one's width; the last groups may end it early.
GroupRun FindRun(const uint8_t* widths, uint32_t left) {
    uint32_t equal = 1;
    while (equal < left && equal < GROUP_RUNS[RUN_CODES - 1] && widths[equal] == widths[0]) equal++;
    GroupRun run = {1, -1};
    for (uint32_t code = 0; code < RUN_CODES && run.groups < left; code++) {
        const uint32_t end = GROUP_RUNS[code] < left ? GROUP_RUNS[code] : left;
        if (end > equal) break;
        run = {end, int(code)};
    }
    return run;
}

void WriteHeading(AudioBits* out, int code, uint32_t width) {
    if (code < 0)
        PutBits(out, width << 1, 5);
    else
        PutBits(out, 1 | uint32_t(code) << 1 | width << 5, 9);
}

void WriteValues(AudioBits* out, const int16_t* values, uint32_t count, uint32_t width) {
    for (uint32_t i = 0; i < count; i++) {
        const int32_t value = values[i];
        if (value == 0)
            PutBits(out, 0, width);
        else if (value > 0)
            PutBits(out, uint32_t(value), width + 1);
        else
            PutBits(out, uint32_t(-value) | 1u << width, width + 1);
    }
}

} // namespace

uint32_t PackFloat(float value) {
    const double size = std::fabs(double(value));
    const uint32_t exponent = uint32_t(std::bit_width(RoundToEven(size)));
    const uint32_t mantissa = RoundToEven(size * 0x1p23 / double(1u << exponent));
    return exponent | mantissa << 5 | (value < 0 ? 1u << 28 : 0);
}

void WriteAudioCoefficients(const AudioEncoder* encoder, AudioBits* out, const float* spectrum,
                            const uint8_t steps[MAX_BANDS]) {
    const uint32_t n = encoder->shape.transformSize;
    int16_t values[MAX_TRANSFORM];
    uint8_t widths[MAX_GROUPS];
    Quantise(encoder, spectrum, steps, values);
    const uint32_t groups = MeasureGroups(values, n, widths);
    uint32_t p = 2;
    for (uint32_t group = 0; group < groups;) {
        const uint32_t width = widths[group];
        const GroupRun run = FindRun(widths + group, groups - group);
        const uint32_t covered = run.groups * GROUP_COEFFICIENTS;
        const uint32_t count = covered < n - p ? covered : n - p;
        WriteHeading(out, run.code, width);
        if (width > 0) WriteValues(out, values + p, count, width);
        group += run.groups;
        p += count;
    }
}

} // namespace vorn
