// Bundles.cpp - which values does a chunk hold, and when is the next one due?
#include "reader/Bundles.h"

namespace vorn::reader {
namespace {

using Elements = std::vector<int16_t>;

struct BundleKind {
    const char* name;
    uint32_t elementsOfBlock; // most that a block can add
    bool halfWidth;           // blocks of 16 samples
};
const BundleKind KINDS[BUNDLES] = {
    {"blockTypes", 1, false}, {"subBlockTypes", 1, true}, {"colours", 64, false},
    {"patterns", 8, false},   {"xOffsets", 1, false},     {"yOffsets", 1, false},
    {"intraDc", 1, false},    {"interDc", 1, false},      {"runs", 48, false},
};

constexpr uint32_t MOST_COUNT_BITS = 15;
constexpr uint32_t FIRST_REPEAT_SYMBOL = 12;
const uint32_t REPEATS[4] = {4, 8, 12, 32}; // of symbols 12 to 15

// The symbols that the encoder sends for `repeats` more of `value`.
void AppendRepeats(uint32_t repeats, uint32_t value, std::vector<uint8_t>* symbols) {
    while (repeats > 0) {
        if (repeats > 4) {
            const uint32_t pick = repeats > 32 ? 3 : repeats > 12 ? 2 : repeats > 8 ? 1 : 0;
            symbols->push_back(uint8_t(FIRST_REPEAT_SYMBOL + pick));
            repeats -= REPEATS[pick];
        } else {
            symbols->push_back(uint8_t(value));
            repeats--;
        }
    }
}

// The symbols that the encoder sends for a whole chunk of nibbles.
std::vector<uint8_t> CanonicalSymbols(const Elements& elements) {
    std::vector<uint8_t> symbols;
    uint32_t previous = 0, repeats = 0;
    for (const int16_t element : elements) {
        if (uint32_t(element) == previous) {
            repeats++;
            continue;
        }
        AppendRepeats(repeats, previous, &symbols);
        repeats = 0;
        previous = uint32_t(element);
        symbols.push_back(uint8_t(element));
    }
    AppendRepeats(repeats, previous, &symbols);
    return symbols;
}

bool AllEqual(const Elements& elements, int16_t value) {
    for (const int16_t element : elements) {
        if (element != value) return false;
    }
    return true;
}

// The nibble that all elements of a chunk have, behind a flag of 1. The encoder has the flag for zeros only.
int16_t TakeFillNibble(BitSource& bits, Reporter& report) {
    const uint32_t fill = bits.Take(4);
    if (fill != 0) report.Habit("A chunk is filled with " + std::to_string(fill) + " by its flag.");
    return int16_t(fill);
}

void ReadRepeatCoded(BitSource& bits, Reporter& report, const CodeTable& code, uint32_t count, Elements* elements) {
    if (bits.TakeFlag()) {
        elements->assign(count, TakeFillNibble(bits, report));
        return;
    }
    std::vector<uint8_t> symbols;
    int16_t previous = 0;
    while (elements->size() < count) {
        const uint32_t symbol = TakeSymbol(bits, code);
        symbols.push_back(uint8_t(symbol));
        if (symbol < 10) {
            previous = int16_t(symbol);
            elements->push_back(previous);
        } else if (symbol < FIRST_REPEAT_SYMBOL) {
            throw StreamFault{"A block mode is " + std::to_string(symbol) + "."};
        } else {
            const uint32_t repeats = REPEATS[symbol - FIRST_REPEAT_SYMBOL];
            if (repeats > count - elements->size()) throw StreamFault{"Repeats reach beyond the chunk's end."};
            elements->insert(elements->end(), repeats, previous);
        }
    }
    if (AllEqual(*elements, 0)) {
        report.Habit("A chunk of zeros is sent without its flag.");
    } else if (symbols != CanonicalSymbols(*elements)) {
        report.Habit("Repeats in a chunk aren't sent as the encoder does.");
    }
}

int16_t TakeColour(BitSource& bits, Bundles* bundles) {
    const uint32_t high = TakeSymbol(bits, bundles->colourHigh[bundles->colourContext]);
    const uint32_t low = TakeSymbol(bits, bundles->colourLow);
    bundles->colourContext = high;
    return int16_t(high << 4 | low);
}

void ReadColours(BitSource& bits, Reporter& report, Bundles* bundles, uint32_t count, Elements* elements) {
    if (bits.TakeFlag()) {
        elements->assign(count, TakeColour(bits, bundles));
        return;
    }
    for (uint32_t i = 0; i < count; i++) elements->push_back(TakeColour(bits, bundles));
    if (AllEqual(*elements, elements->front())) report.Habit("A chunk of one colour is sent without its flag.");
}

void ReadPatterns(BitSource& bits, const CodeTable& code, uint32_t count, Elements* elements) {
    for (uint32_t i = 0; i < count; i++) {
        const uint32_t low = TakeSymbol(bits, code);
        elements->push_back(int16_t(TakeSymbol(bits, code) << 4 | low));
    }
}

// Offsets, with a sign behind each magnitude above 0, and runs, without.
void ReadNibbles(BitSource& bits, Reporter& report, const CodeTable& code, bool withSign, uint32_t count,
                 Elements* elements) {
    if (bits.TakeFlag()) {
        const int16_t fill = TakeFillNibble(bits, report);
        if (withSign && fill != 0) throw StreamFault{"A chunk of offsets is filled with a value other than 0."};
        elements->assign(count, fill);
        return;
    }
    for (uint32_t i = 0; i < count; i++) {
        const int16_t magnitude = int16_t(TakeSymbol(bits, code));
        const bool negative = withSign && magnitude != 0 && bits.TakeFlag();
        elements->push_back(int16_t(negative ? -magnitude : magnitude));
    }
    if (AllEqual(*elements, 0)) report.Habit("A chunk of zeros is sent without its flag.");
}

void ReadDeltaGroups(BitSource& bits, Reporter& report, bool isSigned, uint32_t count, Elements* elements) {
    const int32_t lowest = isSigned ? -1024 : 0;
    const int32_t highest = isSigned ? 1023 : 2047;
    int32_t value = isSigned ? bits.TakeSigned(10) : int32_t(bits.Take(11));
    elements->push_back(int16_t(value));
    while (elements->size() < count) {
        const uint32_t width = bits.Take(4);
        uint32_t widest = 0;
        for (int i = 0; i < 8 && elements->size() < count; i++) {
            const int32_t difference = bits.TakeSigned(width);
            widest |= uint32_t(difference < 0 ? -difference : difference);
            value += difference;
            if (value < lowest || value > highest) {
                throw StreamFault{"A DC value of " + std::to_string(value) + " is out of range."};
            }
            if (isSigned && value == lowest) report.Habit("A DC value is -1024.");
            elements->push_back(int16_t(value));
        }
        if (BitLength(widest) != width) report.Habit("A group of DC differences is wider than its values.");
    }
}

void ReadChunk(BitSource& bits, Reporter& report, Bundles* bundles, int id, uint32_t count) {
    Elements* elements = &bundles->all[id].elements;
    elements->clear();
    switch (id) {
    case BLOCK_TYPES:
        return ReadRepeatCoded(bits, report, bundles->blockTypes, count, elements);
    case SUB_BLOCK_TYPES:
        return ReadRepeatCoded(bits, report, bundles->subBlockTypes, count, elements);
    case COLOURS:
        return ReadColours(bits, report, bundles, count, elements);
    case PATTERNS:
        return ReadPatterns(bits, bundles->patterns, count, elements);
    case X_OFFSETS:
        return ReadNibbles(bits, report, bundles->xOffsets, true, count, elements);
    case Y_OFFSETS:
        return ReadNibbles(bits, report, bundles->yOffsets, true, count, elements);
    case INTRA_DC:
        return ReadDeltaGroups(bits, report, false, count, elements);
    case INTER_DC:
        return ReadDeltaGroups(bits, report, true, count, elements);
    default:
        return ReadNibbles(bits, report, bundles->runs, false, count, elements);
    }
}

} // namespace

void PrepareBundles(uint32_t width, Bundles* bundles) {
    for (int id = 0; id < BUNDLES; id++) {
        const uint32_t blocksOfRow = (KINDS[id].halfWidth ? width >> 1 : width) >> 3;
        const uint32_t length = BitLength(blocksOfRow * KINDS[id].elementsOfBlock + FULL_CHUNK - 1);
        bundles->all[id].countBits = length < MOST_COUNT_BITS ? length : MOST_COUNT_BITS;
    }
}

void ReadTables(BitSource& bits, Bundles* bundles, PlaneStatistics* statistics) {
    int number = 0;
    const auto read = [&](CodeTable* table) {
        ReadCodeTable(bits, table);
        statistics->trees[number++] = table->tree;
    };
    read(&bundles->blockTypes);
    read(&bundles->subBlockTypes);
    for (CodeTable& table : bundles->colourHigh) read(&table);
    for (CodeTable* table : {&bundles->colourLow, &bundles->patterns, &bundles->xOffsets, &bundles->yOffsets})
        read(table);
    read(&bundles->runs);
    statistics->tableBits = uint32_t(bits.Position());
}

void ReadDueChunks(BitSource& bits, Reporter& report, Bundles* bundles, PlaneStatistics* statistics) {
    for (int id = 0; id < BUNDLES; id++) {
        Bundle& bundle = bundles->all[id];
        const std::string name = KINDS[id].name;
        if (bundle.next < bundle.elements.size()) {
            if (bundle.next >= FULL_CHUNK)
                report.Habit("A chunk of " + name + " goes on behind a row at 512 elements.");
            continue;
        }
        if (bundle.ended) continue;
        const uint64_t start = bits.Position();
        const uint32_t count = bits.Take(bundle.countBits);
        if (count == 0) {
            bundle.ended = true;
            continue;
        }
        if (!bundle.elements.empty() && bundle.elements.size() < FULL_CHUNK) {
            report.Habit("A chunk of " + name + " with fewer than 512 elements is followed by another.");
        }
        bundle.next = 0;
        ReadChunk(bits, report, bundles, id, count);
        statistics->chunks[id]++;
        statistics->elements[id] += count;
        statistics->bundleBits[id] += uint32_t(bits.Position() - start);
    }
}

int32_t TakeElement(Bundles* bundles, BundleId id) {
    Bundle& bundle = bundles->all[id];
    if (bundle.next >= bundle.elements.size()) throw StreamFault{std::string(KINDS[id].name) + " ran dry."};
    return bundle.elements[bundle.next++];
}

void CheckBundlesEmpty(Reporter& report, const Bundles& bundles) {
    for (int id = 0; id < BUNDLES; id++) {
        const size_t left = bundles.all[id].elements.size() - bundles.all[id].next;
        if (left != 0) report.Error(std::to_string(left) + " elements of " + KINDS[id].name + " were never used.");
    }
}

} // namespace vorn::reader
