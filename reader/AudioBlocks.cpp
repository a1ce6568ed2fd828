// AudioBlocks.cpp - which numbers does a coded block of sound hold?
#include <algorithm>
#include <cmath>

#include "format/AudioFormat.h"
#include "reader/BitSource.h"

namespace vorn::reader {
namespace {

constexpr int MANTISSA_BITS = 23;

// Bit length of mantissa / 2^shift, rounded with ties to even. `shift` is at least 1.
int BitsOfRounded(uint32_t mantissa, int shift) {
    const uint32_t whole = mantissa >> shift, part = mantissa - (whole << shift), half = 1u << (shift - 1);
    const bool up = part > half || (part == half && (whole & 1) != 0);
    return int(BitLength(whole + (up ? 1 : 0)));
}

// Exponent, mantissa, sign: m * 2^(e - 23). The exponent is the bit length of the rounded value, give or take what the
// mantissa's own rounding hides.
double TakePackedFloat(BitSource& bits, Reporter& report) {
    const int exponent = int(bits.Take(5));
    const uint32_t mantissa = bits.Take(MANTISSA_BITS);
    const bool negative = bits.TakeFlag();
    if (exponent > MANTISSA_BITS - 1) {
        report.Habit("A packed value is larger than any sound makes it.");
    } else {
        const int shift = MANTISSA_BITS - exponent;
        const int least = BitsOfRounded(mantissa > 0 ? mantissa - 1 : 0, shift);
        const int most = BitsOfRounded(mantissa + 1, shift);
        if (exponent < least || exponent > most) report.Habit("A packed value's exponent isn't the encoder's.");
    }
    const double value = std::ldexp(double(mantissa), exponent - MANTISSA_BITS);
    return negative ? -value : value;
}

// A stretch of coefficient groups under one heading.
struct Heading {
    uint32_t groups; // of 8, the last of a transform may be shorter
    uint32_t width;
};

// How many groups the encoder takes under one heading from group `first` on: as many as a run code covers, or as are left.
uint32_t CanonicalRun(const std::vector<uint8_t>& widths, size_t first) {
    const uint32_t left = uint32_t(widths.size() - first);
    uint32_t taken = 1;
    for (uint32_t code = 0; left > 1 && code < RUN_CODES && taken < left; code++) {
        const uint32_t end = std::min<uint32_t>(GROUP_RUNS[code], left);
        for (uint32_t i = taken; i < end; i++) {
            if (widths[first + i] != widths[first]) return taken;
        }
        taken = end;
    }
    return taken;
}

// Each group's width is that of its largest coefficient, and headings cover as many groups as they can.
void CheckHeadings(Reporter& report, const std::vector<Heading>& headings, const std::vector<int32_t>& coefficients) {
    std::vector<uint8_t> widths;
    for (size_t p = 2; p < coefficients.size(); p += GROUP_COEFFICIENTS) {
        uint32_t widest = 0;
        const size_t end = std::min<size_t>(p + GROUP_COEFFICIENTS, coefficients.size());
        for (size_t i = p; i < end; i++) widest |= uint32_t(std::abs(coefficients[i]));
        widths.push_back(uint8_t(BitLength(widest)));
    }
    size_t group = 0;
    for (const Heading& heading : headings) {
        for (uint32_t i = 0; i < heading.groups; i++) {
            if (widths[group + i] != heading.width)
                return report.Habit("A group of coefficients is wider than its values.");
        }
        if (CanonicalRun(widths, group) != heading.groups) {
            return report.Habit("Groups of coefficients aren't gathered as the encoder does.");
        }
        group += heading.groups;
    }
}

void ReadCoefficientGroups(BitSource& bits, Reporter& report, std::vector<int32_t>* coefficients) {
    const size_t size = coefficients->size();
    std::vector<Heading> headings;
    for (size_t p = 2; p < size;) {
        uint32_t groups = 1;
        if (bits.TakeFlag()) groups = GROUP_RUNS[bits.Take(4)];
        const uint32_t width = bits.Take(4);
        const size_t count = std::min<size_t>(size_t(groups) * GROUP_COEFFICIENTS, size - p);
        for (size_t i = 0; i < count && width > 0; i++) (*coefficients)[p + i] = bits.TakeSigned(width);
        headings.push_back({uint32_t((count + GROUP_COEFFICIENTS - 1) / GROUP_COEFFICIENTS), width});
        p += count;
    }
    CheckHeadings(report, headings, *coefficients);
}

void ReadBlock(const AudioKind& kind, BitSource& bits, Reporter& report, CodedAudioBlock* block) {
    const AudioShape shape = ShapeOfAudio(kind.sampleRate, kind.channels, kind.perChannelDct);
    if (kind.perChannelDct && bits.Take(2) != 0) report.Error("The two lead bits of an audio block aren't 0.");
    for (uint32_t t = 0; t < shape.transformCount; t++) {
        CodedSpectrum spectrum;
        for (double& value : spectrum.values) value = TakePackedFloat(bits, report);
        for (uint32_t b = 0; b < shape.bandCount; b++) spectrum.steps.push_back(uint8_t(bits.Take(STEP_INDEX_BITS)));
        spectrum.coefficients.assign(shape.transformSize, 0);
        ReadCoefficientGroups(bits, report, &spectrum.coefficients);
        block->spectra.push_back(std::move(spectrum));
    }
    TakePadding(bits, report);
}

} // namespace

bool ReadAudioBlock(const AudioKind& kind, Bytes coded, const Violation& place, CodedAudioBlock* block,
                    Violations* violations) {
    *block = CodedAudioBlock();
    BitSource bits(coded);
    Reporter report = {violations, place, &bits, std::max<int64_t>(place.bit, 0)};
    try {
        ReadBlock(kind, bits, report, block);
    } catch (const StreamFault& fault) {
        report.Error(fault.text);
        return false;
    }
    block->bytes = size_t(bits.Position() / 8);
    return true;
}

} // namespace vorn::reader
