// Kernels.cpp - which twins belong to which level of the processor.
#include "analysis/Kernels.h"

namespace vorn {

namespace {

constexpr AnalysisKernels PLAIN = {false, SearchMotionPlain, TryIntraPlain, TryInterPlain, ListRunsPlain, FindHull};

#if defined(__x86_64__) || defined(__i386__)
// A level takes over what it has no better twin for.
constexpr AnalysisKernels WithSse2(AnalysisKernels kernels) {
    kernels.wantsAreaSums = true;
    kernels.searchMotion = SearchMotionSse2;
    kernels.tryIntra = TryIntraSse2;
    kernels.tryInter = TryInterSse2;
    kernels.listRuns = ListRunsSse2;
    return kernels;
}
constexpr AnalysisKernels WithAvx2(AnalysisKernels kernels) {
    kernels.searchMotion = SearchMotionAvx2;
    kernels.tryIntra = TryIntraAvx2;
    kernels.tryInter = TryInterAvx2;
    kernels.listRuns = ListRunsAvx2;
    kernels.findHull = FindHullAvx2;
    return kernels;
}
constexpr AnalysisKernels WithAvx512(AnalysisKernels kernels) {
    kernels.searchMotion = SearchMotionAvx512;
    kernels.tryIntra = TryIntraAvx512;
    kernels.tryInter = TryInterAvx512;
    kernels.listRuns = ListRunsAvx512;
    kernels.findHull = FindHullAvx512;
    return kernels;
}
constexpr AnalysisKernels TABLES[CPU_LEVELS] = {PLAIN, WithSse2(PLAIN), WithAvx2(WithSse2(PLAIN)),
                                                WithAvx512(WithAvx2(WithSse2(PLAIN)))};
#else
constexpr AnalysisKernels TABLES[CPU_LEVELS] = {PLAIN, PLAIN, PLAIN, PLAIN};
#endif

} // namespace

const AnalysisKernels& AnalysisKernelsOf(CpuLevel level) {
    return TABLES[static_cast<int>(level)];
}

const AnalysisKernels& Kernels() {
    return AnalysisKernelsOf(LevelInForce());
}

} // namespace vorn
