// FrameDriver.h - one queued frame becomes its coded planes: prepare, analyse, allocate, merge, encode, measure, learn.
#pragma once

#include <cstdint>

#include "public/vornmake.h"

namespace vorn {

// Y, Cr, Cb, alpha; 0 for a plane that the movie hasn't got.
struct FrameResult {
    uint32_t sizes[4];  // bytes of the plane streams, in packetY to packetAlpha
    uint32_t errors[4]; // sums of absolute differences, source against reconstruction
};

// Compresses the frame in queue slot `slot`; `budget` in bytes covers all planes. Stages are reported; a callback that
// sets `cancel` to 2 ends the frame. False if it failed: the reference isn't flipped then and the result has no meaning.
bool CompressFrame(VornMakeState* state, uint32_t slot, uint32_t budget, FrameResult* result);

// Room of each packet buffer of a luma-sized or chroma-sized plane, bytes.
uint64_t PacketBytes(uint32_t paddedWidth, uint32_t paddedHeight);
// Bytes of the block that CompressFrame takes, at most; wider than 32 bits.
uint64_t FrameScratchBytes(uint32_t lumaWidth, uint32_t lumaHeight, uint32_t chromaWidth, uint32_t chromaHeight);

} // namespace vorn
