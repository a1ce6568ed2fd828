// CpuLevel.h - which instruction sets the machine has. Every kernel has a plain form, which is its definition; the twins
// of a level give the same bytes.
#pragma once

namespace vorn {

enum class CpuLevel {
    PLAIN,
    SSE2,
    AVX2,  // with BMI 1 and 2
    AVX512 // with F, BW, VL, DQ, CD and VBMI
};
constexpr int CPU_LEVELS = 4;

// The highest level that this machine can run; it is asked once.
CpuLevel BestCpuLevel();
// The level whose twins are used: the best, unless a test or a benchmark chose another while nothing else ran.
CpuLevel LevelInForce();
void UseLevel(CpuLevel level); // the machine must be able to run it
const char* NameOfCpuLevel(CpuLevel level); // "plain", "sse2", "avx2", "avx512"

} // namespace vorn
