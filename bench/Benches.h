// Benches.h - the groups of benchmarks; each registers one benchmark for each level of the processor.
#pragma once

namespace vorn::bench {

void RegisterAnalysis(); // kernels, evaluators and passes of block analysis
void RegisterStages();   // what a frame goes through before and after analysis
void RegisterMovies();   // whole movies
void RegisterFiles();    // sound, and the copying of movies

} // namespace vorn::bench
