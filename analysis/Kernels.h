// Kernels.h - the hot operations of analysis as one table of function pointers, one table a level of the processor.
// The plain form of each is its definition (of findHull it is PruneHullPlain); the twins give the same results, bit for bit.
#pragma once

#include "analysis/DctKernels.h"
#include "analysis/MotionKernels.h"
#include "analysis/RunKernels.h"
#include "blocks/HullKernels.h"
#include "platform/CpuLevel.h"

namespace vorn {

struct AnalysisKernels {
    bool wantsAreaSums; // searchMotion reads MotionTask.areas
    SearchMotionKernel searchMotion;
    TryIntraKernel tryIntra;
    TryInterKernel tryInter;
    ListRunsKernel listRuns;
    FindHullKernel findHull;
};

// The table of a level; the machine must be able to run it.
const AnalysisKernels& AnalysisKernelsOf(CpuLevel level);

// That of the level in force.
const AnalysisKernels& Kernels();

} // namespace vorn
