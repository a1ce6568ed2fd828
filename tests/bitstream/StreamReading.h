// StreamReading.h - a plain reader of what the bitstream folder writes: bit by bit, with no code of the writers.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "bitstream/BitWriter.h"
#include "format/CodeTrees.h"

namespace vorn {

// A stream in the tests' hands: room, a writer on it, and the bits once written.
struct TestStream {
    std::vector<uint8_t> room;
    BitWriter writer;
    uint32_t at = 0; // next bit to be read

    explicit TestStream(size_t bytes = 1 << 16) : room(bytes) {
        StartWriter(&writer, room.data(), static_cast<uint32_t>(bytes));
    }
    uint32_t Take(uint32_t bits) {
        uint32_t value = 0;
        for (uint32_t i = 0; i < bits; i++, at++) value |= static_cast<uint32_t>(room.at(at / 8) >> at % 8 & 1) << i;
        return value;
    }
    // A magnitude and, if it isn't 0, a sign bit.
    int TakeSigned(uint32_t bits) {
        const int magnitude = static_cast<int>(Take(bits));
        return magnitude != 0 && Take(1) != 0 ? -magnitude : magnitude;
    }
};

// One alphabet as its table gives it.
struct TestCode {
    uint32_t lengths[16];
    uint32_t words[16];
    bool listed;
    uint32_t tree;
};

inline std::vector<int> ReadMergedOrder(TestStream* stream) {
    std::vector<int> list;
    for (int i = 0; i < 16; i++) list.push_back(i);
    const uint32_t passes = stream->Take(2) + 1;
    for (uint32_t pass = 0; pass < passes; pass++) {
        const size_t run = size_t{1} << pass;
        std::vector<int> merged;
        for (size_t start = 0; start < 16; start += 2 * run) {
            size_t left = start;
            size_t right = start + run;
            while (left < start + run && right < start + 2 * run)
                merged.push_back(stream->Take(1) ? list[right++] : list[left++]);
            while (left < start + run) merged.push_back(list[left++]);
            while (right < start + 2 * run) merged.push_back(list[right++]);
        }
        list = merged;
    }
    return list;
}

inline std::vector<int> ReadListedOrder(TestStream* stream) {
    const uint32_t count = stream->Take(3) + 1;
    std::vector<int> list;
    bool taken[16] = {};
    for (uint32_t i = 0; i < count; i++) {
        list.push_back(static_cast<int>(stream->Take(4)));
        taken[list.back()] = true;
    }
    for (int symbol = 0; symbol < 16; symbol++)
        if (!taken[symbol]) list.push_back(symbol);
    return list;
}

inline TestCode ReadTable(TestStream* stream) {
    TestCode code = {};
    code.tree = stream->Take(4);
    code.listed = code.tree != 0 && stream->Take(1) != 0;
    std::vector<int> order;
    if (code.tree == 0)
        for (int i = 0; i < 16; i++) order.push_back(i);
    else
        order = code.listed ? ReadListedOrder(stream) : ReadMergedOrder(stream);
    for (size_t i = 0; i < 16; i++) {
        code.lengths[order[i]] = TREE_LENGTHS[code.tree][i];
        code.words[order[i]] = TREE_WORDS[code.tree][i];
    }
    return code;
}

inline uint32_t ReadSymbol(TestStream* stream, const TestCode& code) {
    uint32_t word = 0;
    for (uint32_t length = 1; length <= 7; length++) {
        word |= stream->Take(1) << (length - 1);
        for (uint32_t symbol = 0; symbol < 16; symbol++)
            if (code.lengths[symbol] == length && code.words[symbol] == word) return symbol;
    }
    std::abort();
}

inline int RandomInt(std::mt19937* random, int low, int high) {
    return low + static_cast<int>((*random)() % static_cast<uint32_t>(high - low + 1));
}

} // namespace vorn
