// SampleTables.cpp - counting sample values.
// A plane is taken in stretches of 64 samples. First each sample gets a mark, 1 if it counts, else 0; the loops that do it
// have no branch, so that a compiler makes them work on many samples at once. Then the marks are added to the counts, 8
// samples at a time unless none of them counts. Equal neighbours go to different sub-tables and needn't wait for each other.
#include "allocation/SampleTables.h"

#include <cstring>

namespace vorn {

namespace {

constexpr uint64_t STRETCH = 64; // samples
constexpr int SUB_TABLES = 4;

using SubTables = uint32_t[SUB_TABLES][256];

void AddTables(SampleTable* table, const SubTables& parts) {
    table->total = 0;
    for (int i = 0; i < 256; i++) {
        table->counts[i] = parts[0][i] + parts[1][i] + parts[2][i] + parts[3][i];
        table->total += table->counts[i];
    }
}

inline uint8_t Distance(uint8_t a, uint8_t b) {
    return static_cast<uint8_t>(a > b ? a - b : b - a);
}

void AddMarked(SubTables& parts, const uint8_t* samples, const uint8_t* marks) {
    for (uint64_t i = 0; i < STRETCH; i += 8) {
        uint64_t eight;
        std::memcpy(&eight, marks + i, sizeof eight);
        if (eight == 0) continue;
        for (uint64_t k = i; k < i + 8; k++) parts[k % SUB_TABLES][samples[k]] += marks[k];
    }
}

// `before` is the sample in front of the first one.
void MarkUnlike(uint8_t* marks, const uint8_t* samples, uint8_t before) {
    marks[0] = samples[0] != before;
    for (uint64_t i = 1; i < STRETCH; i++) marks[i] = samples[i] != samples[i - 1];
}

} // namespace

void CountAll(SampleTable* table, const uint8_t* plane, uint64_t samples) {
    SubTables parts = {};
    for (uint64_t i = 0; i < samples; i += SUB_TABLES) {
        for (uint64_t k = 0; k < SUB_TABLES; k++) parts[k][plane[i + k]]++;
    }
    AddTables(table, parts);
}

void CountChanged(SampleTable* table, const uint8_t* plane, const uint8_t* before, uint64_t samples) {
    SubTables parts = {};
    uint8_t marks[STRETCH];
    for (uint64_t at = 0; at < samples; at += STRETCH) {
        for (uint64_t i = 0; i < STRETCH; i++) marks[i] = Distance(plane[at + i], before[at + i]) > 2;
        AddMarked(parts, plane + at, marks);
    }
    AddTables(table, parts);
}

void CountColours(SampleTable* table, const uint8_t* plane, const uint8_t* reference, uint64_t samples) {
    SubTables parts = {};
    uint8_t marks[STRETCH];
    uint8_t last = static_cast<uint8_t>(plane[0] - 1);
    for (uint64_t at = 0; at < samples; at += STRETCH) {
        MarkUnlike(marks, plane + at, last);
        if (reference != nullptr) {
            for (uint64_t i = 0; i < STRETCH; i++) marks[i] &= Distance(plane[at + i], reference[at + i]) > 1;
        }
        AddMarked(parts, plane + at, marks);
        last = plane[at + STRETCH - 1];
    }
    AddTables(table, parts);
}

} // namespace vorn
