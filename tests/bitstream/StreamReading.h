// StreamReading.h - rooms for what the bitstream folder writes, and the reader on them.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "bitstream/BitWriter.h"
#include "reader/BitSource.h"

namespace vorn {

// A stream in the tests' hands: room, a writer on it, and all of it for the reader.
struct TestStream {
    std::vector<uint8_t> room;
    BitWriter writer;

    explicit TestStream(size_t bytes) : room(bytes) { StartWriter(&writer, room.data(), static_cast<uint32_t>(bytes)); }
    reader::BitSource Bits() const { return reader::BitSource({room.data(), room.size()}); }
};

inline int RandomInt(std::mt19937* random, int low, int high) {
    return low + static_cast<int>((*random)() % static_cast<uint32_t>(high - low + 1));
}

} // namespace vorn
