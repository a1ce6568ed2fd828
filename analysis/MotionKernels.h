// MotionKernels.h - the full search of one block, plain and fast. This file is included by files that are built for one
// instruction set, so it holds no inline function.
#pragma once

#include <stdint.h>

namespace vorn {

// One block to be searched for. The displacements keep the block inside the plane; (0, 0) is always one of them.
struct MotionTask {
    const uint8_t* source;       // the block's first sample in its plane
    const uint8_t* reference;    // the same place in the reference
    const uint8_t* referenceEnd; // behind the reference plane's last sample
    const uint16_t* areas;       // the same place among the sums of the reference's 4x4 areas; the plain form has none
    int pitch;                   // samples from one row to the next, in planes and sums
    int left, right;             // smallest and largest dx: -15..0, 0..15
    int up, down;                // smallest and largest dy
};

struct Displacement {
    int8_t x;
    int8_t y;
};

// All of them: the displacement with the smallest SAD, the first of the visiting order among equals.
using SearchMotionKernel = Displacement (*)(const MotionTask* task);
Displacement SearchMotionPlain(const MotionTask* task);
Displacement SearchMotionSse2(const MotionTask* task);
Displacement SearchMotionAvx2(const MotionTask* task);
Displacement SearchMotionAvx512(const MotionTask* task);

// Sums of the 4x4 areas whose first samples stand at each place of a plane: sums[y * width + x]. Places less than 4 from
// the right or lower edge have none, and their sums have no meaning. `sums` has room for AREA_SLACK more.
constexpr int AREA_SLACK = 128;
void SumAreas(uint16_t* sums, const uint8_t* plane, uint32_t width, uint32_t height);

} // namespace vorn
