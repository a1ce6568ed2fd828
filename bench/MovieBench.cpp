// MovieBench.cpp - whole movies at every level of the processor, by workers and look-ahead, and intake by itself.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "analysis/Kernels.h"
#include "bench/Benches.h"
#include "bench/Clip.h"
#include "movie/Movie.h"
#include "platform/Workers.h"

namespace vorn::bench {

namespace {

std::string MovieName() {
    const char* folder = std::getenv("TMPDIR");
    return std::string(folder != nullptr ? folder : "/tmp") + "/vorn-bench-movie.vrn";
}

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
    const std::string name = MovieName();
    const uint32_t before = ExchangeWorkerCount(workers);
    UseKernelsOf(level);
    for (auto _ : state) MakeMovie(clip, name, lookAhead);
    UseKernelsOf(BestCpuLevel());
    ExchangeWorkerCount(before);
    std::remove(name.c_str());
    state.counters["frames_s"] = benchmark::Counter(clip.frames, benchmark::Counter::kIsIterationInvariantRate);
}

// Against the time of only reading the frame's pixels.
void Conversion(benchmark::State& state) {
    const Clip& clip = TheClip();
    const size_t samples = size_t(clip.width + 8) * (clip.height + 8);
    std::vector<uint8_t> y(samples), cr(samples), cb(samples), alpha(samples);
    uint32_t frame = 0;
    for (auto _ : state) {
        ConvertFrame(y.data(), cr.data(), cb.data(), alpha.data(), clip.Frame(frame), clip.width * 4, clip.width,
                     clip.height);
        benchmark::DoNotOptimize(y.data());
        frame = (frame + 1) % clip.frames;
    }
}

void ReadPixels(benchmark::State& state) {
    const Clip& clip = TheClip();
    uint32_t frame = 0;
    for (auto _ : state) {
        const uint8_t* pixels = clip.Frame(frame);
        uint64_t sum = 0;
        for (size_t i = 0; i < size_t(clip.width) * clip.height * 4; i += 64) sum += pixels[i];
        benchmark::DoNotOptimize(sum);
        frame = (frame + 1) % clip.frames;
    }
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
    for (uint32_t workers : {1u, 2u, 4u}) {
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
    benchmark::RegisterBenchmark("conversion", Conversion)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("conversion/onlyReading", ReadPixels)->Unit(benchmark::kMicrosecond);
}

} // namespace vorn::bench
