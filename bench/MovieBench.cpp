// MovieBench.cpp - whole movies at every level of the processor, by workers and by look-ahead.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/Benches.h"
#include "bench/Clip.h"
#include "movie/Movie.h"
#include "platform/Workers.h"

namespace vorn::bench {

namespace {

void MakeMovie(const Clip& clip, const std::string& name, int32_t lookAhead) {
    VornMakeState* movie = VornMake(name.c_str(), clip.width * 4, clip.width, clip.height, clip.frames, 0, 0, 25, 1, 0,
                                    nullptr, lookAhead, nullptr);
    if (movie == nullptr) std::abort();
    for (uint32_t i = 0; i < clip.frames; i++)
        VornMakePutVideo(movie, clip.width * clip.height / 8, UINT32_MAX, i == 0, clip.Frame(i));
    VornMakeClose(movie, 0);
}

void Movie(benchmark::State& state, CpuLevel level, uint32_t workers, int32_t lookAhead) {
    const Clip& clip = TheClip();
    const std::string name = TemporaryName("movie.vrn");
    const uint32_t before = ExchangeWorkerCount(workers);
    UseLevel(level);
    for (auto _ : state) MakeMovie(clip, name, lookAhead);
    UseLevel(BestCpuLevel());
    ExchangeWorkerCount(before);
    std::remove(name.c_str());
    state.counters["frames_s"] = benchmark::Counter(clip.frames, benchmark::Counter::kIsIterationInvariantRate);
}

} // namespace

void RegisterMovies() {
    for (const CpuLevel level : Levels()) {
        const std::string name = std::string("movie/") + NameOfCpuLevel(level);
        benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
            Movie(state, level, 1, 16);
        })->Unit(benchmark::kMillisecond);
    }
    const CpuLevel best = Levels().back();
    for (uint32_t workers : {1u, 2u, 3u, 4u, 8u}) {
        const std::string name = "movie/workers:" + std::to_string(workers);
        benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { Movie(state, best, workers, 16); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    for (int32_t lookAhead : {2, 16, 64}) {
        const std::string name = "movie/lookAhead:" + std::to_string(lookAhead);
        benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
            Movie(state, best, 1, lookAhead);
        })->Unit(benchmark::kMillisecond);
    }
}

} // namespace vorn::bench
