// Benches.h - the groups of benchmarks; each registers one benchmark for each level of the processor.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <string>

#include <benchmark/benchmark.h>

namespace vorn::bench {

void RegisterAnalysis(); // kernels, evaluators and passes of block analysis
void RegisterStages();   // what a frame goes through before and after analysis
void RegisterMovies();   // whole movies
void RegisterFiles();    // sound, and the copying of movies

// Tells the time of one of the blocks that a round goes through.
inline void TellPerBlock(benchmark::State& state, size_t blocks) {
    state.counters["block"] = benchmark::Counter(
        static_cast<double>(blocks), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The name of a file that is removed in the end.
inline std::string TemporaryName(const char* name) {
    const char* folder = std::getenv("TMPDIR");
    return std::string(folder != nullptr ? folder : "/tmp") + "/vorn-bench-" + name;
}

} // namespace vorn::bench
