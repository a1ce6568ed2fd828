// Container.cpp - how does the head of a movie become bytes, and bytes a head?
#include "files/Container.h"

namespace vorn {

namespace {

// The fields of a header in the order of the file.
constexpr uint32_t VornFileHeader::*HEADER_FIELDS[] = {
    &VornFileHeader::magic,        &VornFileHeader::fileSize,      &VornFileHeader::frames,
    &VornFileHeader::largestFrame, &VornFileHeader::indexCapacity, &VornFileHeader::width,
    &VornFileHeader::height,       &VornFileHeader::rateNumerator, &VornFileHeader::rateDenominator,
    &VornFileHeader::flags,        &VornFileHeader::trackCount,
};
static_assert(sizeof HEADER_FIELDS / sizeof HEADER_FIELDS[0] * 4 == HEADER_BYTES);

} // namespace

void WriteFileHeader(SpoolFile* file, const VornFileHeader& header) {
    for (const auto field : HEADER_FIELDS) SpoolWriteWord(file, header.*field);
}

void WriteZeroWords(SpoolFile* file, uint64_t count) {
    for (uint64_t i = 0; i < count; i++) SpoolWriteWord(file, 0);
}

bool ReadFileHeader(SpoolFile* file, VornFileHeader* header) {
    uint8_t bytes[HEADER_BYTES];
    if (SpoolRead(file, bytes, HEADER_BYTES) != HEADER_BYTES) return false;
    const uint8_t* next = bytes;
    for (const auto field : HEADER_FIELDS) {
        header->*field = next[0] | uint32_t(next[1]) << 8 | uint32_t(next[2]) << 16 | uint32_t(next[3]) << 24;
        next += 4;
    }
    return true;
}

} // namespace vorn
