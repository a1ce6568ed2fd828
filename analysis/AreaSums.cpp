// AreaSums.cpp - the sums of all 4x4 areas of a plane, which bound the errors of the motion search.
#include <cstring>

#include "analysis/MotionKernels.h"

namespace vorn {

namespace {

constexpr uint32_t AREA_SIDE = 4;

// out[x] = the four samples from x on, as far as the row goes.
void SumAlongRow(uint16_t* out, const uint8_t* row, uint32_t width) {
    for (uint32_t x = 0; x + AREA_SIDE <= width; x++) {
        out[x] = static_cast<uint16_t>(row[x] + row[x + 1] + row[x + 2] + row[x + 3]);
    }
}

} // namespace

// Each row of sums first holds the sums along its own row of samples, until the rows below have been added to it.
void SumAreas(uint16_t* sums, const uint8_t* plane, uint32_t width, uint32_t height) {
    const size_t pitch = width;
    std::memset(sums, 0, (pitch * height + AREA_SLACK) * sizeof *sums);
    for (uint32_t y = 0; y < height; y++) {
        SumAlongRow(sums + y * pitch, plane + y * pitch, width);
        if (y + 1 < AREA_SIDE) continue;
        uint16_t* area = sums + (y + 1 - AREA_SIDE) * pitch;
        for (uint32_t x = 0; x < width; x++) {
            area[x] = static_cast<uint16_t>(area[x] + area[pitch + x] + area[2 * pitch + x] + area[3 * pitch + x]);
        }
    }
}

} // namespace vorn
