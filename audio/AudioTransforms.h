// AudioTransforms.h - the real DFT and the DCT of the sound coder, in place, single precision, unscaled, and their
// inverses. Sizes are powers of two from 4 to 4096. Tables come first (MakeTransformTables); no trigonometry after
// that.
#pragma once

#include <cstdint>

namespace vorn {

struct TransformTables;
// Bytes of tables for transforms of n points, and filling them.
uint32_t TransformTableBytes(uint32_t n);
void MakeTransformTables(TransformTables* tables, uint32_t n);

// Forward: a[0] = R[0], a[1] = R[n/2], a[2k] = R[k], a[2k + 1] = I[k] with R[k] = sum a[j] cos(2 pi j k / n) and
// I[k] = sum a[j] sin(2 pi j k / n). Inverse: gives the input times n/2.
void RealDftForward(float* a, const TransformTables* tables);
void RealDftInverse(float* a, const TransformTables* tables);
// Forward: a[k] = sum a[j] cos(pi (j + 1/2) k / n). Inverse: a[k] = sum a[j] cos(pi j (k + 1/2) / n); with a[0] halved
// between the two it gives the input times n/2.
void DctForward(float* a, const TransformTables* tables);
void DctInverse(float* a, const TransformTables* tables);

} // namespace vorn
