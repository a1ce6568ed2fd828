// CodedBlockReader.h - sound encoders that release themselves, and their blocks read back.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "audio/AudioInternal.h"
#include "public/vornmake.h"
#include "reader/Reader.h"

namespace testaudio {

struct FreeBlock {
    void operator()(void* block) const { mokfree(block); }
};
using OwnedEncoder = std::unique_ptr<vorn::AudioEncoder, FreeBlock>;

// Reads a block of so many bytes, in which the reader must find nothing to complain of.
inline vorn::reader::CodedAudioBlock ReadBlock(const vorn::reader::AudioKind& kind, const uint8_t* data, size_t bytes) {
    vorn::reader::CodedAudioBlock block;
    vorn::reader::Violations violations;
    EXPECT_TRUE(vorn::reader::ReadAudioBlock(kind, {data, bytes}, {}, &block, &violations));
    for (const vorn::reader::Violation& violation : violations.list) ADD_FAILURE() << violation.text;
    EXPECT_EQ(block.bytes, bytes);
    return block;
}

} // namespace testaudio
