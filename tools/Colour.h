// Colour.h - between pictures of red, green, blue and planes of luma and chroma.
// Planes are BT.601 in studio range: Y from 16 to 235, Cb and Cr from 16 to 240 with 128 for no colour.
#pragma once

#include <cstdint>
#include <vector>

namespace vorn {

// Where a chroma sample lies along one axis, when there is one for every two pixels.
enum class Siting {
    FULL,   // one for every pixel
    MIDDLE, // sample i between the pixels 2i and 2i + 1
    FIRST,  // sample i on pixel 2i
    SECOND, // sample i on pixel 2i + 1
};

struct ChromaLayout {
    Siting across = Siting::MIDDLE;
    Siting downCb = Siting::MIDDLE;
    Siting downCr = Siting::MIDDLE;
};

// A picture in planes. Rows of `pitch` bytes; the planes belong to somebody else.
struct PlanarPicture {
    uint32_t width = 0; // pixels
    uint32_t height = 0;
    const uint8_t* y = nullptr;
    uint32_t pitch = 0;
    const uint8_t* cb = nullptr; // null: no colour
    const uint8_t* cr = nullptr;
    uint32_t chromaPitch = 0;
    ChromaLayout layout;
    const uint8_t* alpha = nullptr; // null: 255 everywhere; rows of `pitch` bytes
};

// Chroma is interpolated linearly between its samples; beyond the picture's edge the last sample holds.
// bgra: height rows of width pixels, 4 bytes each. Integer arithmetic, the same on every machine.
void PlanesToBgra(const PlanarPicture& picture, uint8_t* bgra);

// Planes of a picture without padding: Y and alpha width x height, chroma (width + 1) / 2 x (height + 1) / 2.
struct MoviePlanes {
    std::vector<uint8_t> y, cr, cb, alpha;
};
// What the encoder makes of a picture before it codes it: its own weights and its own rounding, so that a decoded movie is
// compared with what it was asked to show.
void BgraToMoviePlanes(const uint8_t* bgra, uint32_t width, uint32_t height, MoviePlanes* planes);

} // namespace vorn
