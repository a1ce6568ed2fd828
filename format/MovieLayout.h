// MovieLayout.h - the layout of a movie file around its coded data. All numbers are 32-bit little-endian words.
//
//   offset             bytes        content
//   0                  44           VornFileHeader
//   44                 4 * T        trackLargestPcm: most PCM bytes that one packet of the track stands for
//   44 + 4 * T         4 * T        trackFormat: samples per second plus the TRACK_FLAG bits
//   44 + 8 * T         4 * T        trackId: the caller's number
//   44 + 12 * T        4 * (K + 1)  frameIndex: offset of each frame's packet, bit 0 set for a key frame; the word
//                                   behind the last frame is the end of its packet, the rest are 0
//   48 + 12 * T + 4K   to the end   the packets: T audio packets, then the video packet, no gaps
//
// T is `trackCount`, K is `indexCapacity`. The head is reserved when a movie opens and patched as it grows.
#pragma once

#include <cstdint>

namespace vorn {

constexpr uint32_t HEADER_BYTES = 44;
constexpr uint32_t KEY_FRAME_BIT = 1;                 // in a word of frameIndex
constexpr uint32_t HEADER_MODE_SHIFT = 28;            // of the header mode's low four bits in `flags`

constexpr uint32_t TRACK_FLAG_VARIANT_LOW = 1u << 28; // per-channel DCT
constexpr uint32_t TRACK_FLAG_STEREO = 1u << 29;
constexpr uint32_t TRACK_FLAG_16BIT = 1u << 30;
constexpr uint32_t TRACK_FLAG_VARIANT_HIGH = 1u << 31; // interleaved DFT

// The first 44 bytes, in this order, a word a field.
struct VornFileHeader {
    uint32_t magic;           // "VRN" and a version byte, low byte first
    uint32_t fileSize;        // bytes of the file less 8
    uint32_t frames;          // complete frames
    uint32_t largestFrame;    // bytes of the largest packet, sound included
    uint32_t indexCapacity;   // most frames that the movie could have held
    uint32_t width;           // pixels, not rounded
    uint32_t height;
    uint32_t rateNumerator;   // frames per second, in lowest terms as VornMake writes it
    uint32_t rateDenominator;
    uint32_t flags;           // FLAG_GREY, FLAG_ALPHA, header mode
    uint32_t trackCount;
};
static_assert(sizeof(VornFileHeader) == HEADER_BYTES);

// A magic word with the given version byte: 'f' to 'i' are known, 'i' is written.
constexpr uint32_t MovieMagic(char version) {
    return 'V' | uint32_t('R') << 8 | uint32_t('N') << 16 | uint32_t(static_cast<unsigned char>(version)) << 24;
}
constexpr bool IsMovieMagic(uint32_t magic) {
    return magic == MovieMagic('f') || magic == MovieMagic('g') || magic == MovieMagic('h') || magic == MovieMagic('i');
}

} // namespace vorn
