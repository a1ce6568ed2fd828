// Benches.h - the groups of benchmarks; each registers one benchmark for each level of the processor.
#pragma once

namespace vorn::bench {

void RegisterAnalysis(); // kernels, evaluators and passes of block analysis
void RegisterMovies();   // whole movies, and the stages around analysis

} // namespace vorn::bench
