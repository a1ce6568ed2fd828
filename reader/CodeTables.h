// CodeTables.h - the code of one alphabet of 16 symbols, as its table in the stream describes it. Internal to the reader.
#pragma once

#include "reader/BitSource.h"

namespace vorn::reader {

constexpr uint32_t LONGEST_CODE = 7;

struct CodeTable {
    uint8_t tree;
    uint8_t symbols[1 << LONGEST_CODE]; // by the next 7 bits of the stream
    uint8_t lengths[1 << LONGEST_CODE];
};
// Reads a table: tree number, then the order of the symbols. Throws StreamFault.
void ReadCodeTable(BitSource& bits, CodeTable* table);

inline uint32_t TakeSymbol(BitSource& bits, const CodeTable& table) {
    const uint32_t next = bits.Peek(LONGEST_CODE);
    bits.Skip(table.lengths[next]);
    return table.symbols[next];
}

} // namespace vorn::reader
