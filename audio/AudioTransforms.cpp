// AudioTransforms.cpp - the real DFT as one complex transform of half the points and a pass that separates what belongs
// to the even and the odd samples; the DCT as a real DFT of the samples in another order and a rotation of each pair of
// results.
//
// The complex transform is a self-sorting radix-4 one. It works on real and imaginary parts in arrays of their own and
// goes from one pair of arrays to another at each stage, so that its inner loops run over neighbours. Every result is a
// fixed tree of single-precision operations: how wide a machine computes them doesn't show.
#include "audio/AudioTransforms.h"

#include "format/AudioFormat.h"
#include "numeric/PortableMath.h"

namespace vorn {

// All angles in the tables are positive: w(t) stands for e^(+i t). Each array is followed by the next without a gap.
struct TransformTables {
    uint32_t n;      // points of the real transform
    uint32_t points; // n / 2, points of the complex one
    uint32_t unused[2]; // so that the floats behind lie at a multiple of 16 bytes
    // stages  for each radix-4 stage of `size` points, from size = points down to 8: six arrays of size / 4 floats,
    //         cosine and sine of p, 2p and 3p times 2 pi / size. A stage of 4 points needs none
    // split   two arrays of points / 2: (1 - sin) / 2 and cos / 2 of 2 pi k / n
    // rotate  two arrays of points: cosine and sine of pi k / 2n
};

namespace {

constexpr uint32_t MAX_POINTS = MAX_TRANSFORM / 2;
constexpr float SQRT_HALF = 0.70710678f;

uint32_t StageFloats(uint32_t points) {
    uint32_t floats = 0;
    for (uint32_t size = points; size > 4; size /= 4) floats += size / 4 * 6;
    return floats;
}

const float* StageTable(const TransformTables* tables) {
    return reinterpret_cast<const float*>(tables + 1);
}
const float* SplitTable(const TransformTables* tables) {
    return StageTable(tables) + StageFloats(tables->points);
}
const float* RotateTable(const TransformTables* tables) {
    return SplitTable(tables) + tables->points;
}

// Complex numbers in two arrays.
struct Parts {
    float* re;
    float* im;
};

// Storage of two sets of them, for one call.
struct Workspace {
    alignas(32) float a[2][MAX_POINTS];
    alignas(32) float b[2][MAX_POINTS];
};

// One butterfly of four: out[k] = w(k p) * sum over j of in[j] * i^(jk), for in[j] = x[j * step] and out[k] = y[k *
// gap].
inline void Butterfly(const float* xr, const float* xi, uint32_t step, float* yr, float* yi, uint32_t gap,
                      const float* twiddle, uint32_t quarter) {
    const float sumR = xr[0] + xr[2 * step], sumI = xi[0] + xi[2 * step];
    const float difR = xr[0] - xr[2 * step], difI = xi[0] - xi[2 * step];
    const float oddR = xr[step] + xr[3 * step], oddI = xi[step] + xi[3 * step];
    const float turnR = xi[3 * step] - xi[step], turnI = xr[step] - xr[3 * step]; // i times the odd difference
    const float aR = difR + turnR, aI = difI + turnI;
    const float bR = sumR - oddR, bI = sumI - oddI;
    const float cR = difR - turnR, cI = difI - turnI;
    yr[0] = sumR + oddR;
    yi[0] = sumI + oddI;
    yr[gap] = aR * twiddle[0] - aI * twiddle[quarter];
    yi[gap] = aR * twiddle[quarter] + aI * twiddle[0];
    yr[2 * gap] = bR * twiddle[2 * quarter] - bI * twiddle[3 * quarter];
    yi[2 * gap] = bR * twiddle[3 * quarter] + bI * twiddle[2 * quarter];
    yr[3 * gap] = cR * twiddle[4 * quarter] - cI * twiddle[5 * quarter];
    yi[3 * gap] = cR * twiddle[5 * quarter] + cI * twiddle[4 * quarter];
}

// The first stage: neighbours in p are neighbours in x.
void FirstStage(const Parts& x, const Parts& y, uint32_t quarter, const float* twiddle) {
    const float* __restrict xr = x.re, * __restrict xi = x.im;
    float* __restrict yr = y.re, * __restrict yi = y.im;
    for (uint32_t p = 0; p < quarter; p++)
        Butterfly(xr + p, xi + p, quarter, yr + 4 * p, yi + 4 * p, 1, twiddle + p, quarter);
}

// A later stage: `gap`, a power of four, transforms stand interleaved and share their twiddles.
void MiddleStage(const Parts& x, const Parts& y, uint32_t quarter, uint32_t gap, const float* twiddle) {
    for (uint32_t p = 0; p < quarter; p++) {
        const float* __restrict xr = x.re + gap * p, * __restrict xi = x.im + gap * p;
        float* __restrict yr = y.re + 4 * gap * p, * __restrict yi = y.im + 4 * gap * p;
        for (uint32_t q = 0; q < gap; q += 4)
            for (uint32_t lane = 0; lane < 4; lane++)
                Butterfly(xr + q + lane, xi + q + lane, quarter * gap, yr + q + lane, yi + q + lane, gap, twiddle + p,
                          quarter);
    }
}

// The last stage of 4 points, which needs no twiddles.
void LastStageOf4(const Parts& x, const Parts& y, uint32_t gap) {
    const float* __restrict xr = x.re, * __restrict xi = x.im;
    float* __restrict yr = y.re, * __restrict yi = y.im;
    for (uint32_t q = 0; q < gap; q++) {
        const float sumR = xr[q] + xr[q + 2 * gap], sumI = xi[q] + xi[q + 2 * gap];
        const float difR = xr[q] - xr[q + 2 * gap], difI = xi[q] - xi[q + 2 * gap];
        const float oddR = xr[q + gap] + xr[q + 3 * gap], oddI = xi[q + gap] + xi[q + 3 * gap];
        const float turnR = xi[q + 3 * gap] - xi[q + gap], turnI = xr[q + gap] - xr[q + 3 * gap];
        yr[q] = sumR + oddR;
        yi[q] = sumI + oddI;
        yr[q + gap] = difR + turnR;
        yi[q + gap] = difI + turnI;
        yr[q + 2 * gap] = sumR - oddR;
        yi[q + 2 * gap] = sumI - oddI;
        yr[q + 3 * gap] = difR - turnR;
        yi[q + 3 * gap] = difI - turnI;
    }
}

// The last stage of 2 points.
void LastStageOf2(const Parts& x, const Parts& y, uint32_t gap) {
    const float* __restrict xr = x.re, * __restrict xi = x.im;
    float* __restrict yr = y.re, * __restrict yi = y.im;
    for (uint32_t q = 0; q < gap; q++) {
        yr[q] = xr[q] + xr[q + gap];
        yi[q] = xi[q] + xi[q + gap];
        yr[q + gap] = xr[q] - xr[q + gap];
        yi[q + gap] = xi[q] - xi[q + gap];
    }
}

// z[k] = sum over j of x[j] * e^(+2 pi i jk / points). Both sets are overwritten; the one returned holds the result.
// With real and imaginary parts exchanged, before and after, it is the transform with the other sign.
Parts ComplexTransform(Parts x, Parts y, const TransformTables* tables) {
    const float* twiddle = StageTable(tables);
    uint32_t gap = 1;
    uint32_t size = tables->points;
    for (; size > 4; size /= 4, gap *= 4) {
        const uint32_t quarter = size / 4;
        if (gap == 1)
            FirstStage(x, y, quarter, twiddle);
        else
            MiddleStage(x, y, quarter, gap, twiddle);
        twiddle += 6 * quarter;
        const Parts done = y;
        y = x;
        x = done;
    }
    if (size == 4)
        LastStageOf4(x, y, gap);
    else
        LastStageOf2(x, y, gap);
    return y;
}

Parts Exchanged(Parts z) {
    return {z.im, z.re};
}

// From the complex transform z of the samples taken in pairs to R and I. With e = z[k] - conj z[m - k] and
// u = (1 + i w(2 pi k / n)) / 2, the sum R[k] + i I[k] is z[k] - u e, and that of m - k is z[m - k] + conj(u e).
// The sum of all samples and the alternating sum come apart from the rest.
void SeparateSpectrum(const Parts& z, const TransformTables* tables, float* __restrict a) {
    const uint32_t points = tables->points;
    const float* __restrict uR = SplitTable(tables);
    const float* __restrict uI = uR + points / 2;
    const float* __restrict zr = z.re, * __restrict zi = z.im;
    a[0] = zr[0] + zi[0];
    a[1] = zr[0] - zi[0];
    for (uint32_t k = 1; k < points / 2; k++) {
        const uint32_t other = points - k;
        const float eR = zr[k] - zr[other];
        const float eI = zi[k] + zi[other];
        const float partR = uR[k] * eR - uI[k] * eI;
        const float partI = uR[k] * eI + uI[k] * eR;
        a[2 * k] = zr[k] - partR;
        a[2 * k + 1] = zi[k] - partI;
        a[2 * other] = zr[other] + partR;
        a[2 * other + 1] = zi[other] - partI;
    }
    a[points] = zr[points / 2];
    a[points + 1] = zi[points / 2];
}

// The way back: the same with the conjugate of u.
void JoinSpectrum(const float* __restrict a, const TransformTables* tables, const Parts& z) {
    const uint32_t points = tables->points;
    const float* __restrict uR = SplitTable(tables);
    const float* __restrict uI = uR + points / 2;
    float* __restrict zr = z.re, * __restrict zi = z.im;
    zr[0] = 0.5f * (a[0] + a[1]);
    zi[0] = 0.5f * (a[0] - a[1]);
    for (uint32_t k = 1; k < points / 2; k++) {
        const uint32_t other = points - k;
        const float eR = a[2 * k] - a[2 * other];
        const float eI = a[2 * k + 1] + a[2 * other + 1];
        const float partR = uR[k] * eR + uI[k] * eI;
        const float partI = uR[k] * eI - uI[k] * eR;
        zr[k] = a[2 * k] - partR;
        zi[k] = a[2 * k + 1] - partI;
        zr[other] = a[2 * other] + partR;
        zi[other] = a[2 * other + 1] - partI;
    }
    zr[points / 2] = a[points];
    zi[points / 2] = a[points + 1];
}

float* AddCirclePair(float* out, uint32_t count, double step) {
    for (uint32_t k = 0; k < count; k++) {
        out[k] = float(CosPi(step * k));
        out[count + k] = float(SinPi(step * k));
    }
    return out + 2 * count;
}

} // namespace

uint32_t TransformTableBytes(uint32_t n) {
    const uint32_t points = n / 2;
    return uint32_t(sizeof(TransformTables)) + (StageFloats(points) + 3 * points) * uint32_t(sizeof(float));
}

void MakeTransformTables(TransformTables* tables, uint32_t n) {
    tables->n = n;
    tables->points = n / 2;
    float* out = reinterpret_cast<float*>(tables + 1);
    for (uint32_t size = tables->points; size > 4; size /= 4)
        for (uint32_t k = 1; k <= 3; k++) out = AddCirclePair(out, size / 4, 2.0 * k / size);
    const uint32_t half = tables->points / 2;
    for (uint32_t k = 0; k < half; k++) {
        out[k] = float(0.5 - 0.5 * SinPi(2.0 * k / n));
        out[half + k] = float(0.5 * CosPi(2.0 * k / n));
    }
    AddCirclePair(out + 2 * half, tables->points, 0.5 / n);
}

void RealDftForward(float* a, const TransformTables* tables) {
    Workspace work;
    const Parts x = {work.a[0], work.a[1]};
    for (uint32_t m = 0; m < tables->points; m++) {
        x.re[m] = a[2 * m];
        x.im[m] = a[2 * m + 1];
    }
    SeparateSpectrum(ComplexTransform(x, {work.b[0], work.b[1]}, tables), tables, a);
}

void RealDftInverse(float* a, const TransformTables* tables) {
    Workspace work;
    const Parts x = {work.a[0], work.a[1]};
    JoinSpectrum(a, tables, x);
    const Parts z = Exchanged(ComplexTransform(Exchanged(x), {work.b[0], work.b[1]}, tables));
    for (uint32_t m = 0; m < tables->points; m++) {
        a[2 * m] = z.re[m];
        a[2 * m + 1] = z.im[m];
    }
}

// The samples at even places, then those at odd places backwards, have the real DFT V. Then D[k] and D[n - k] are the
// real and the negative imaginary part of V[k] turned back by pi k / 2n.
void DctForward(float* a, const TransformTables* tables) {
    const uint32_t n = tables->n;
    const uint32_t points = tables->points;
    Workspace work;
    const Parts x = {work.a[0], work.a[1]};
    for (uint32_t m = 0; m < points / 2; m++) {
        x.re[m] = a[4 * m];
        x.im[m] = a[4 * m + 2];
        x.re[points - 1 - m] = a[4 * m + 3];
        x.im[points - 1 - m] = a[4 * m + 1];
    }
    alignas(32) float v[MAX_TRANSFORM];
    SeparateSpectrum(ComplexTransform(x, {work.b[0], work.b[1]}, tables), tables, v);
    const float* cosine = RotateTable(tables);
    const float* sine = cosine + points;
    a[0] = v[0];
    for (uint32_t k = 1; k < points; k++) {
        a[k] = v[2 * k] * cosine[k] - v[2 * k + 1] * sine[k];
        a[n - k] = v[2 * k] * sine[k] + v[2 * k + 1] * cosine[k];
    }
    a[points] = v[1] * SQRT_HALF;
}

void DctInverse(float* a, const TransformTables* tables) {
    const uint32_t n = tables->n;
    const uint32_t points = tables->points;
    const float* cosine = RotateTable(tables);
    const float* sine = cosine + points;
    alignas(32) float v[MAX_TRANSFORM];
    v[0] = 2.0f * a[0];
    v[1] = a[points] / SQRT_HALF;
    for (uint32_t k = 1; k < points; k++) {
        v[2 * k] = a[k] * cosine[k] + a[n - k] * sine[k];
        v[2 * k + 1] = a[n - k] * cosine[k] - a[k] * sine[k];
    }
    Workspace work;
    const Parts x = {work.a[0], work.a[1]};
    JoinSpectrum(v, tables, x);
    const Parts z = Exchanged(ComplexTransform(Exchanged(x), {work.b[0], work.b[1]}, tables));
    for (uint32_t m = 0; m < points / 2; m++) {
        a[4 * m] = z.re[m];
        a[4 * m + 2] = z.im[m];
        a[4 * m + 3] = z.re[points - 1 - m];
        a[4 * m + 1] = z.im[points - 1 - m];
    }
}

} // namespace vorn
