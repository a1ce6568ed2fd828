// MotionSearch.cpp - where in the reference does a block match best?
#include <algorithm>

#include "analysis/Evaluators.h"
#include "analysis/Kernels.h"

namespace vorn {

namespace {

constexpr uint32_t NO_MATCH = 0x7ffffff; // above every SAD

// Displacements along one axis that keep the block inside the plane. 0 always is one.
struct Reach {
    int smallest; // -15..0
    int largest;  // 0..15
};

Reach ReachOf(uint32_t position, uint32_t size) {
    const int before = static_cast<int>(position);
    const int behind = static_cast<int>(size - position) - BLOCK_SIDE;
    return {-std::min(before, MOTION_RANGE), std::min(behind, MOTION_RANGE)};
}

// Step number `step` of the visiting order 0, 1, .. largest, smallest, .. -1.
inline int DisplacementAt(Reach reach, int step) {
    return step <= reach.largest ? step : reach.smallest + step - reach.largest - 1;
}

// SAD of two 8x8 areas, given up once it can't fall below `best` any more: then some number from `best` up.
uint32_t SadBelow(const uint8_t* a, const uint8_t* b, ptrdiff_t pitch, uint32_t best) {
    uint32_t sum = 0;
    for (int row = 0; row < BLOCK_SIDE && sum < best; row++) {
        const uint8_t* rowA = a + row * pitch;
        const uint8_t* rowB = b + row * pitch;
        for (int column = 0; column < BLOCK_SIDE; column++) {
            const int difference = rowA[column] - rowB[column];
            sum += static_cast<uint32_t>(difference < 0 ? -difference : difference);
        }
    }
    return sum;
}

} // namespace

// Exhaustive: up to 31 * 31 positions. Those near (0, 0) come early and set a low bar, at which most of the others are
// given up after a row or two. A later position must be strictly better, so nothing can displace a zero.
Displacement SearchMotionPlain(const MotionTask* task) {
    const Reach across = {task->left, task->right};
    const Reach down = {task->up, task->down};
    uint32_t best = NO_MATCH;
    Displacement found = {0, 0};
    for (int stepY = 0; stepY <= down.largest - down.smallest; stepY++) {
        const int dy = DisplacementAt(down, stepY);
        const uint8_t* row = task->reference + static_cast<ptrdiff_t>(dy) * task->pitch;
        for (int stepX = 0; stepX <= across.largest - across.smallest; stepX++) {
            const int dx = DisplacementAt(across, stepX);
            const uint32_t error = SadBelow(task->source, row + dx, task->pitch, best);
            if (error >= best) continue;
            best = error;
            found = {static_cast<int8_t>(dx), static_cast<int8_t>(dy)};
            if (best == 0) return found;
        }
    }
    return found;
}

MotionTask TaskOfBlock(const WorkQueue* queue, uint32_t index) {
    const uint32_t columns = queue->width / BLOCK_SIDE;
    const uint32_t x = index % columns * BLOCK_SIDE;
    const uint32_t y = index / columns * BLOCK_SIDE;
    const size_t at = static_cast<size_t>(y) * queue->width + x;
    const Reach across = ReachOf(x, queue->width);
    const Reach down = ReachOf(y, queue->height);
    MotionTask task;
    task.source = queue->sourcePlane + at;
    task.reference = queue->referencePlane + at;
    task.referenceEnd = queue->referencePlane + static_cast<size_t>(queue->width) * queue->height;
    task.areas = queue->areaSums == nullptr ? nullptr : queue->areaSums + at;
    task.pitch = static_cast<int>(queue->width);
    task.left = across.smallest;
    task.right = across.largest;
    task.up = down.smallest;
    task.down = down.largest;
    return task;
}

void SearchMotion(WorkQueue* queue) {
    // Without the area sums only the plain form can search.
    const SearchMotionKernel search = queue->areaSums == nullptr ? SearchMotionPlain : Kernels().searchMotion;
    for (;;) {
        const uint32_t index = queue->nextIndex.fetch_add(1);
        if (index >= queue->blockCount) return;
        const MotionTask task = TaskOfBlock(queue, index);
        const Displacement found = search(&task);
        queue->records[index].offsetX = found.x;
        queue->records[index].offsetY = found.y;
    }
}

} // namespace vorn
