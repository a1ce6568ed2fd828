// BitSource.h - bits out of a byte range, lowest bit of each byte first, which is how 32-bit little-endian words filled
// from the low end lie in memory. And what the decoders of one stream share for their reports.
// Internal to the reader. A StreamFault never leaves it: DecodePlane and ReadAudioBlock catch it.
#pragma once

#include <string>

#include "reader/Reader.h"

namespace vorn::reader {

// Thrown when a stream can't be read on. The catcher knows the place.
struct StreamFault {
    std::string text;
};

class BitSource {
public:
    explicit BitSource(Bytes bytes) : bytes_(bytes), end_(uint64_t(bytes.size) * 8) {}

    uint64_t Position() const { return position_; } // bits
    uint64_t Left() const { return end_ - position_; }

    // The next `count` bits, 0 to 32, without taking them; zeros behind the end.
    uint32_t Peek(uint32_t count) const {
        const size_t first = size_t(position_ >> 3);
        uint64_t window = 0;
        for (size_t i = 0; i < 5 && first + i < bytes_.size; i++) window |= uint64_t(bytes_.data[first + i]) << 8 * i;
        return uint32_t(window >> (position_ & 7) & ((uint64_t(1) << count) - 1));
    }
    void Skip(uint32_t count) {
        if (count > Left()) throw StreamFault{"The stream is too short."};
        position_ += count;
    }
    uint32_t Take(uint32_t count) {
        const uint32_t value = Peek(count);
        Skip(count);
        return value;
    }
    bool TakeFlag() { return Take(1) != 0; }
    // A magnitude of `count` bits and, if it isn't 0, a sign bit, 1 for negative.
    int32_t TakeSigned(uint32_t count) {
        const int32_t magnitude = int32_t(Take(count));
        return magnitude != 0 && TakeFlag() ? -magnitude : magnitude;
    }

private:
    Bytes bytes_;
    uint64_t end_;
    uint64_t position_ = 0;
};

// Notes violations at the place that the decoder stands at.
struct Reporter {
    Violations* violations;
    Violation place; // frame, plane, track, column, row are kept up to date by the decoder
    const BitSource* source;
    int64_t firstBit = 0; // where `source` begins in what `place` counts bits of

    void Note(Severity severity, const std::string& text) {
        place.severity = severity;
        place.bit = firstBit + int64_t(source->Position());
        place.text = text;
        AddViolation(violations, place);
    }
    void Error(const std::string& text) { Note(SEVERITY_ERROR, text); }
    void Habit(const std::string& text) { Note(SEVERITY_HABIT, text); }
};

// Bits that a number needs: 0 for 0, 8 for 128 to 255.
constexpr uint32_t BitLength(uint32_t number) {
    uint32_t length = 0;
    for (; number != 0; number >>= 1) length++;
    return length;
}

// Zero bits up to the next 32-bit boundary of the stream. Returns how many there were.
inline uint32_t TakePadding(BitSource& bits, Reporter& report) {
    const uint32_t count = uint32_t(-bits.Position() & 31);
    if (bits.Take(count) != 0) report.Error("The padding behind the last bit isn't zero.");
    return count;
}

} // namespace vorn::reader
