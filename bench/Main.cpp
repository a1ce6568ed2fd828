// Main.cpp - the program bench_vorn: `bench_vorn --benchmark_filter=motion` measures only what matches.
#include <benchmark/benchmark.h>

#include "bench/Benches.h"

int main(int count, char** arguments) {
    vorn::bench::RegisterAnalysis();
    vorn::bench::RegisterStages();
    vorn::bench::RegisterMovies();
    vorn::bench::RegisterFiles();
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
