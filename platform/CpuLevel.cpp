// CpuLevel.cpp - the one look at the processor, and the level in force.
#include "platform/CpuLevel.h"

#include <atomic>

namespace vorn {

namespace {

CpuLevel LookAtProcessor() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("sse2")) return CpuLevel::PLAIN;
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("bmi") || !__builtin_cpu_supports("bmi2")) {
        return CpuLevel::SSE2;
    }
    const bool wide = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
                      __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512vbmi");
    return wide ? CpuLevel::AVX512 : CpuLevel::AVX2;
#else
    return CpuLevel::PLAIN;
#endif
}

constexpr int NONE = -1;
constinit std::atomic<int> chosen = NONE; // a CpuLevel, once one was chosen

} // namespace

CpuLevel BestCpuLevel() {
    static const CpuLevel best = LookAtProcessor();
    return best;
}

CpuLevel LevelInForce() {
    const int level = chosen.load(std::memory_order_relaxed);
    return level == NONE ? BestCpuLevel() : static_cast<CpuLevel>(level);
}

void UseLevel(CpuLevel level) {
    chosen.store(static_cast<int>(level), std::memory_order_relaxed);
}

const char* NameOfCpuLevel(CpuLevel level) {
    static const char* const NAMES[CPU_LEVELS] = {"plain", "sse2", "avx2", "avx512"};
    return NAMES[static_cast<int>(level)];
}

} // namespace vorn
