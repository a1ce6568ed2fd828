// StageBench.cpp - what a frame goes through before and after analysis; "block" is the time for one 8x8 block of the plane.
#include <benchmark/benchmark.h>

#include <string>

#include "allocation/Allocation.h"
#include "allocation/CostModels.h"
#include "analysis/Analysis.h"
#include "bench/Benches.h"
#include "bench/Clip.h"
#include "bitstream/PlaneEncoder.h"
#include "movie/Movie.h"

namespace vorn::bench {

namespace {

// A luma plane with the lists of its blocks.
struct AnalysedPlane {
    const PlanePair& planes = ThePlanes();
    std::vector<BlockRecord> records;
    std::vector<QueuedUpgrade> queue;
    CostModel costs = {};

    AnalysedPlane() : records(planes.width / 8 * (planes.height / 8)), queue(records.size()) {
        std::vector<uint16_t> scratch(MotionScratchWords(planes.width, planes.height));
        SetCostModelDefaults(&costs, PlaneKind::LUMA);
        RefreshCostModel(&costs);
        PrepareCostModel(&costs, planes.source.data(), planes.reference.data(), planes.width, planes.height);
        AnalysePlane(records.data(), planes.source.data(), planes.reference.data(), planes.width, planes.height, false,
                     &costs, scratch.data());
    }
    // `bytesPerBlock`: 8 is a high rate, 2 a usual one.
    void Allocate(uint32_t bytesPerBlock) {
        const auto count = static_cast<uint32_t>(records.size());
        AllocateBits(records.data(), count, count * bytesPerBlock, queue.data());
    }
};

void Prices(benchmark::State& state) {
    AnalysedPlane plane;
    for (auto _ : state) {
        PrepareCostModel(&plane.costs, plane.planes.source.data(), plane.planes.reference.data(), plane.planes.width,
                         plane.planes.height);
        benchmark::DoNotOptimize(plane.costs);
    }
    TellPerBlock(state, plane.records.size());
}

void Allocation(benchmark::State& state) {
    AnalysedPlane plane;
    for (auto _ : state) plane.Allocate(static_cast<uint32_t>(state.range(0)));
    TellPerBlock(state, plane.records.size());
}

void Encoding(benchmark::State& state, CpuLevel level) {
    AnalysedPlane plane;
    plane.Allocate(static_cast<uint32_t>(state.range(0)));
    const uint32_t width = plane.planes.width, height = plane.planes.height;
    std::vector<uint8_t> shown(size_t(width) * height), stream(PlaneStreamBound(width, height));
    std::vector<uint64_t> arena(PlaneArenaBound(width, height) / 8 + 1);
    const PlaneJob job = {shown.data(),
                          stream.data(),
                          static_cast<uint32_t>(stream.size()),
                          reinterpret_cast<uint8_t*>(arena.data()),
                          arena.size() * 8,
                          plane.records.data(),
                          plane.planes.source.data(),
                          plane.planes.reference.data(),
                          width,
                          height,
                          &plane.costs};
    UseLevel(level);
    for (auto _ : state) benchmark::DoNotOptimize(EncodePlane(job));
    UseLevel(BestCpuLevel());
    TellPerBlock(state, plane.records.size());
}

void Conversion(benchmark::State& state, CpuLevel level) {
    const Clip& clip = TheClip();
    const size_t samples = size_t(clip.width + 8) * (clip.height + 8);
    std::vector<uint8_t> y(samples), cr(samples), cb(samples), alpha(samples);
    uint32_t frame = 0;
    UseLevel(level);
    for (auto _ : state) {
        ConvertFrame(y.data(), cr.data(), cb.data(), alpha.data(), clip.Frame(frame), clip.width * 4, clip.width,
                     clip.height);
        benchmark::DoNotOptimize(y.data());
        frame = (frame + 1) % clip.frames;
    }
    UseLevel(BestCpuLevel());
}

// All bytes of a frame, eight at a time.
void ReadPixels(benchmark::State& state) {
    const Clip& clip = TheClip();
    uint32_t frame = 0;
    for (auto _ : state) {
        const uint8_t* pixels = clip.Frame(frame);
        uint64_t sum = 0;
        for (size_t i = 0; i < size_t(clip.width) * clip.height * 4; i += 8) {
            uint64_t eight;
            __builtin_memcpy(&eight, pixels + i, 8);
            sum += eight;
        }
        benchmark::DoNotOptimize(sum);
        frame = (frame + 1) % clip.frames;
    }
}

} // namespace

void RegisterStages() {
    for (const CpuLevel level : Levels()) {
        const std::string name = NameOfCpuLevel(level);
        benchmark::RegisterBenchmark(("conversion/" + name).c_str(), Conversion, level)->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("planeEncoder/" + name).c_str(), Encoding, level)
            ->Arg(2)
            ->Arg(8)
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::RegisterBenchmark("conversion/onlyReading", ReadPixels)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("prices", Prices)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("allocation", Allocation)->Arg(2)->Arg(8)->Unit(benchmark::kMicrosecond);
}

} // namespace vorn::bench
