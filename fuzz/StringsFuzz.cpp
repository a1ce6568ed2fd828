// StringsFuzz.cpp - bit strings of DCT and residue blocks: what the encoder writes is what the reader reads, at its count
// of bits, and of invented bits the encoder's reader and the other one make the same.
#include <cstring>

#include "bitstream/CoefficientCoder.h"
#include "fuzz/Fuzz.h"
#include "reader/BlockPayloads.h"

using namespace vorn;

namespace {

// Bits for the reader, and whether it found anything to complain of.
struct Reading {
    reader::Violations violations;
    reader::BitSource bits;
    reader::Reporter report;
    Reading(const uint8_t* data, size_t size) : bits({data, size}), report{&violations, {}, &bits} {}
    bool Clean() const { return violations.errors + violations.habits == 0; }
};

// Values of all sizes: a byte picks the width of the value in the next two.
void TakeValues(Choices* choices, int16_t values[BLOCK_SAMPLES], uint32_t widest) {
    const uint32_t most = choices->Byte() % widest + 1;
    for (int i = 0; i < BLOCK_SAMPLES && choices->left > 0; i++) {
        const uint32_t head = choices->Byte();
        if (head < 96) continue;
        const uint32_t width = std::min(head % widest + 1, most);
        const int32_t magnitude = static_cast<int32_t>((choices->Byte() | choices->Byte() << 8) & BitMask(width));
        values[i] = static_cast<int16_t>(head & 128 ? -magnitude : magnitude);
    }
}

// The only bit string of a list, padded to a word.
std::vector<uint8_t> TakeString(BlockDataList* list, uint32_t* bits) {
    std::vector<uint8_t> room(PAYLOAD_ROOM_BYTES);
    BitWriter writer;
    StartWriter(&writer, room.data(), PAYLOAD_ROOM_BYTES);
    CopyNextBitString(&writer, list);
    *bits = BitsWritten(&writer);
    PadToWord(&writer);
    Require(!writer.overflow, "a string has room");
    room.resize(static_cast<size_t>(writer.position - writer.start));
    return room;
}

void CheckCoefficients(Choices choices) {
    const uint32_t quantiser = choices.Byte() & 15;
    int16_t values[BLOCK_SAMPLES] = {};
    TakeValues(&choices, values, 15);
    alignas(8) uint8_t room[2048];
    Arena arena = MakeArena(room, sizeof room);
    BlockDataList list;
    StartBlockDataList(&list, &arena);
    WriteDctPayload(&list, static_cast<int>(quantiser), values);
    uint32_t bits = 0;
    const std::vector<uint8_t> string = TakeString(&list, &bits);
    Require(CountCoefficientBits(values) + QUANTISER_BITS == bits, "coefficients are counted right");
    Reading reading(string.data(), string.size());
    int16_t read[BLOCK_SAMPLES] = {values[0]};
    Require(reader::ReadCoefficients(reading.bits, reading.report, read) == quantiser, "the quantiser comes back");
    Require(std::memcmp(read, values, sizeof read) == 0, "coefficients come back");
    Require(reading.bits.Position() == bits && reading.Clean(), "a DCT string is read to its end without complaint");
}

void CheckResidue(Choices choices) {
    const uint32_t truncation = choices.Byte() & 127;
    int16_t values[BLOCK_SAMPLES] = {};
    TakeValues(&choices, values, 8);
    int8_t residual[BLOCK_SAMPLES];
    bool empty = true, least = false;
    for (int i = 0; i < BLOCK_SAMPLES; i++) {
        residual[i] = static_cast<int8_t>(values[i]);
        empty = empty && residual[i] == 0;
        least = least || residual[i] == -128;
    }
    alignas(8) uint8_t room[2048];
    Arena arena = MakeArena(room, sizeof room);
    BlockDataList list;
    StartBlockDataList(&list, &arena);
    int8_t shown[BLOCK_SAMPLES];
    WriteResiduePayload(&list, residual, truncation, shown);
    uint32_t bits = 0;
    const std::vector<uint8_t> string = TakeString(&list, &bits);
    Reading reading(string.data(), string.size());
    int8_t read[BLOCK_SAMPLES];
    Require(reader::ReadResidue(reading.bits, reading.report, read) == truncation, "the truncation point comes back");
    Require(std::memcmp(read, shown, sizeof read) == 0, "a reader sees the residual that the encoder foresees");
    Require(reading.bits.Position() == bits && reading.violations.errors == 0, "a residue string is read to its end");
    // A truncation point behind the last event only happens to those who choose it so.
    if (truncation < 127 || least || empty) return;
    uint32_t events = 0;
    ResidueReader whole;
    BitReader source;
    StartReader(&source, string.data(), static_cast<uint32_t>(string.size()));
    ReadBits(&source, RESIDUE_HEAD_BITS);
    StartResidueReader(&whole, source);
    while (NextResidueEvent(&whole)) events++;
    if (events <= truncation) Require(std::memcmp(residual, shown, sizeof read) == 0, "an uncut residual is exact");
}

// The encoder's own residue reader against the other one; zeros behind the end for both.
void CompareReaders(const uint8_t* data, size_t size) {
    std::vector<uint8_t> string(data, data + std::min<size_t>(size, PAYLOAD_ROOM_BYTES));
    string.resize(string.size() / 4 * 4 + PAYLOAD_ROOM_BYTES);
    Reading reading(string.data(), string.size());
    int8_t read[BLOCK_SAMPLES];
    const uint32_t limit = reader::ReadResidue(reading.bits, reading.report, read);
    BitReader source;
    StartReader(&source, string.data(), static_cast<uint32_t>(string.size()));
    Require(ReadBits(&source, RESIDUE_HEAD_BITS) == limit, "both read one truncation point");
    int8_t own[BLOCK_SAMPLES];
    vorn::ReadResidue(own, &source, limit);
    Require(std::memcmp(own, read, sizeof own) == 0, "both readers see one residual");
    Require(source.consumed == reading.bits.Position(), "both readers stop at one bit");
}

// Invented bits, and too few of them: a StreamFault or values, never more than that.
void ReadInvented(const uint8_t* data, size_t size) {
    int8_t residual[BLOCK_SAMPLES];
    Reading residue(data, size);
    try {
        Require(reader::ReadResidue(residue.bits, residue.report, residual) < 128, "a truncation point has seven bits");
    } catch (const reader::StreamFault&) {
    }
    int16_t coefficients[BLOCK_SAMPLES] = {};
    Reading dct(data, size);
    try {
        Require(reader::ReadCoefficients(dct.bits, dct.report, coefficients) < 16, "a quantiser has four bits");
    } catch (const reader::StreamFault&) {
        return;
    }
    // A string that the reader doesn't complain of is the one that the encoder would write.
    if (dct.Clean())
        Require(CountCoefficientBits(coefficients) + QUANTISER_BITS == dct.bits.Position(), "there is one string only");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint8_t empty = 0;
    if (size == 0) data = &empty; // never null
    CheckCoefficients({data, size});
    CheckResidue({data, size});
    CompareReaders(data, size);
    ReadInvented(data, size);
    return 0;
}
