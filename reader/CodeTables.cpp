// CodeTables.cpp - which code does a table in the stream describe?
#include "reader/CodeTables.h"

#include "format/CodeTrees.h"

namespace vorn::reader {
namespace {

constexpr uint32_t SYMBOLS = 16;

// 1 to 8 symbols by name, then all others in rising order.
void ReadListedOrder(BitSource& bits, uint8_t order[SYMBOLS]) {
    bool listed[SYMBOLS] = {};
    const uint32_t count = bits.Take(3) + 1;
    for (uint32_t i = 0; i < count; i++) {
        const uint32_t symbol = bits.Take(4);
        if (listed[symbol]) throw StreamFault{"A code table lists symbol " + std::to_string(symbol) + " twice."};
        listed[symbol] = true;
        order[i] = uint8_t(symbol);
    }
    uint32_t next = count;
    for (uint32_t symbol = 0; symbol < SYMBOLS; symbol++) {
        if (!listed[symbol]) order[next++] = uint8_t(symbol);
    }
}

// Merges neighbouring runs of `run` symbols, a bit for each comparison: 1 takes the right run's front.
void MergeRuns(BitSource& bits, uint8_t order[SYMBOLS], uint32_t run) {
    uint8_t merged[SYMBOLS];
    for (uint32_t start = 0; start < SYMBOLS; start += 2 * run) {
        uint32_t left = start, right = start + run, out = start;
        const uint32_t leftEnd = start + run, rightEnd = start + 2 * run;
        while (left < leftEnd && right < rightEnd) merged[out++] = order[bits.TakeFlag() ? right++ : left++];
        while (left < leftEnd) merged[out++] = order[left++];
        while (right < rightEnd) merged[out++] = order[right++];
    }
    for (uint32_t i = 0; i < SYMBOLS; i++) order[i] = merged[i];
}

} // namespace

void ReadCodeTable(BitSource& bits, CodeTable* table) {
    table->tree = uint8_t(bits.Take(4));
    uint8_t order[SYMBOLS];
    for (uint32_t i = 0; i < SYMBOLS; i++) order[i] = uint8_t(i);
    if (table->tree != 0) {
        if (bits.TakeFlag()) {
            ReadListedOrder(bits, order);
        } else {
            const uint32_t depth = bits.Take(2);
            for (uint32_t pass = 0; pass <= depth; pass++) MergeRuns(bits, order, 1u << pass);
        }
    }
    for (uint32_t i = 0; i < SYMBOLS; i++) {
        const uint32_t length = TREE_LENGTHS[table->tree][i];
        for (uint32_t word = TREE_WORDS[table->tree][i]; word < 1u << LONGEST_CODE; word += 1u << length) {
            table->symbols[word] = order[i];
            table->lengths[word] = uint8_t(length);
        }
    }
}

} // namespace vorn::reader
