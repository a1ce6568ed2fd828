// CostModels.h - estimates of what one element of the bitstream costs, learned over four frames (the record itself is
// public, in vornmake.h). A frame's cycle: refresh all, prepare each plane, analysis reads, the plane encoder notes its
// totals, the colour feedback is taken.
#pragma once

#include <cstdint>

#include "allocation/SampleTables.h"
#include "public/vornmake.h"

namespace vorn {

enum class PlaneKind { LUMA, CHROMA, ALPHA };

void SetCostModelDefaults(CostModel* model, PlaneKind kind);
// Recomputes all estimates but colourBits from the histories and moves these on.
void RefreshCostModel(CostModel* model);
// Sets colourBits from the plane itself; `referencePlane` is null on a key frame. Sizes in samples.
void PrepareCostModel(CostModel* model, const uint8_t* sourcePlane, const uint8_t* referencePlane, uint32_t width,
                      uint32_t height);
// After the plane is coded: what colours really cost becomes the next correction.
void ApplyColourFeedback(CostModel* model);

// The information in the table, in bytes.
uint32_t EstimateEntropyBits(const SampleTable& table);

} // namespace vorn
