// AudioEncoder.h - the transform coder of one track: PCM blocks that overlap by 1/16 become coded blocks.
// One thread at a time; the order is AudioInputArea, fill, EncodeAudioBlock, over and over. Released with mokfree.
#pragma once

#include <cstdint>

namespace vorn {

struct AudioEncoder;

// Null if there is no memory. `perChannelDct` chooses the variant.
AudioEncoder* OpenAudioEncoder(uint32_t sampleRate, uint32_t channels, bool perChannelDct);

struct AudioArea {
    uint8_t* address;
    uint32_t bytes;
};
// Where the next PCM goes and how much is wanted.
AudioArea AudioInputArea(AudioEncoder* encoder);

struct CodedAudio {
    const uint8_t* data;  // valid until the next block is coded
    uint32_t bytes;       // whole words
    uint32_t pcmBytes;    // PCM bytes that it accounts for
};
// Codes a block of which `bytes` bytes of the input area hold data. `quality` 0 finest to 99.
CodedAudio EncodeAudioBlock(AudioEncoder* encoder, uint32_t quality, uint32_t bytes);

// Most bytes that one coded block can have.
uint32_t CodedBlockBound(const AudioEncoder* encoder);

} // namespace vorn
