// TransformPasses.h - the passes of the transforms on eight vectors, lane by lane as the plain forms have them; for files built for
// one instruction set. Lanes is that file's vector of 32-bit numbers. Its sums and low products wrap; Scale multiplies by
// factor / 2048 and rounds down.
#pragma once

namespace vorn {
namespace {

template <class Lanes> static inline void ForwardPass(typename Lanes::Vector* x) {
    using Vector = typename Lanes::Vector;
    const auto add = [](Vector a, Vector b) { return Lanes::Add(a, b); };
    const auto sub = [](Vector a, Vector b) { return Lanes::Sub(a, b); };
    const Vector t0 = add(x[0], x[7]), t7 = sub(x[0], x[7]);
    const Vector t1 = add(x[1], x[6]), t6 = sub(x[1], x[6]);
    const Vector t2 = add(x[2], x[5]), t5 = sub(x[2], x[5]);
    const Vector t3 = add(x[3], x[4]), t4 = sub(x[3], x[4]);
    const Vector e0 = add(t0, t3), e3 = sub(t0, t3), e1 = add(t1, t2), e2 = sub(t1, t2);
    const Vector z1 = Lanes::Scale(add(e2, e3), 1448);
    x[0] = add(e0, e1);
    x[4] = sub(e0, e1);
    x[2] = add(e3, z1);
    x[6] = sub(e3, z1);
    const Vector o0 = add(t4, t5), o1 = add(t5, t6), o2 = add(t6, t7);
    const Vector z5 = Lanes::Scale(sub(o0, o2), 784);
    const Vector z2 = add(Lanes::Scale(o0, 1108), z5), z4 = add(Lanes::Scale(o2, 2676), z5);
    const Vector z3 = Lanes::Scale(o1, 1448);
    const Vector u = add(t7, z3), v = sub(t7, z3);
    x[5] = add(v, z2);
    x[3] = sub(v, z2);
    x[1] = add(u, z4);
    x[7] = sub(u, z4);
}

// HALF: the last four vectors are 0 and not read.
template <class Lanes, bool HALF> static inline void InversePass(typename Lanes::Vector* x) {
    using Vector = typename Lanes::Vector;
    const auto add = [](Vector a, Vector b) { return Lanes::Add(a, b); };
    const auto sub = [](Vector a, Vector b) { return Lanes::Sub(a, b); };
    const Vector p = HALF ? x[0] : add(x[0], x[4]), m = HALF ? x[0] : sub(x[0], x[4]);
    const Vector s = HALF ? x[2] : add(x[2], x[6]);
    const Vector d = sub(Lanes::Scale(HALF ? x[2] : sub(x[2], x[6]), 2896), s);
    const Vector a = HALF ? x[1] : add(x[1], x[7]), b = HALF ? x[1] : sub(x[1], x[7]);
    const Vector c = HALF ? x[3] : add(x[3], x[5]), e = sub(HALF ? Lanes::Zero() : x[5], x[3]);
    const Vector g = add(a, c);
    const Vector h = Lanes::Scale(add(b, e), 3784);
    const Vector k = add(sub(Lanes::Scale(e, -5352), g), h);
    const Vector l = sub(Lanes::Scale(sub(a, c), 2896), k);
    const Vector n = add(sub(Lanes::Scale(b, 2217), h), l);
    const Vector ps = add(p, s), pd = sub(p, s), md = add(m, d), me = sub(m, d);
    x[0] = add(ps, g);
    x[7] = sub(ps, g);
    x[1] = add(md, k);
    x[6] = sub(md, k);
    x[2] = add(me, l);
    x[5] = sub(me, l);
    x[3] = sub(pd, n);
    x[4] = add(pd, n);
}

} // namespace
} // namespace vorn
