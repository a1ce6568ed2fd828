// AnalysisBench.cpp - the kernels and passes of block analysis on every block of a luma plane; plain beside fast.
// Times are for the whole plane; "block" is the time for one of its 8x8 blocks.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "allocation/CostModels.h"
#include "analysis/Analysis.h"
#include "analysis/Evaluators.h"
#include "analysis/Kernels.h"
#include "bench/Benches.h"
#include "bench/Clip.h"
#include "blocks/PixelOps.h"
#include "platform/Workers.h"

namespace vorn::bench {

namespace {

uint32_t BlocksOf(const PlanePair& planes) {
    return planes.width / 8 * (planes.height / 8);
}

// A plane with everything that its blocks' evaluators are given.
struct Bench {
    std::vector<uint16_t> scratch;
    std::vector<BlockRecord> records;
    CostModel costs = {};
    WorkQueue queue = {};

    Bench() {
        const PlanePair& planes = ThePlanes();
        scratch.resize(MotionScratchWords(planes.width, planes.height));
        records.resize(BlocksOf(planes));
        SumAreas(scratch.data(), planes.reference.data(), planes.width, planes.height);
        SetCostModelDefaults(&costs, PlaneKind::LUMA);
        RefreshCostModel(&costs);
        PrepareCostModel(&costs, planes.source.data(), planes.reference.data(), planes.width, planes.height);
        queue.blockCount = BlocksOf(planes);
        queue.sourcePlane = planes.source.data();
        queue.referencePlane = planes.reference.data();
        queue.areaSums = scratch.data();
        queue.width = planes.width;
        queue.height = planes.height;
        queue.records = records.data();
        queue.costModel = &costs;
    }
};

struct BlockSamples {
    uint8_t src[64];
    uint8_t moved[64];
    int8_t residual[64];
};

// Every block of the plane against the reference that motion finds for it.
std::vector<BlockSamples> AllBlocks() {
    Bench bench;
    SearchMotion(&bench.queue);
    const PlanePair& planes = ThePlanes();
    std::vector<BlockSamples> blocks(bench.records.size());
    for (uint32_t i = 0; i < blocks.size(); i++) {
        const MotionTask task = TaskOfBlock(&bench.queue, i);
        const BlockRecord& record = bench.records[i];
        LoadBlock(blocks[i].src, task.source, static_cast<int>(planes.width));
        LoadBlock(blocks[i].moved, task.reference + record.offsetY * task.pitch + record.offsetX, task.pitch);
        DiffBlock(reinterpret_cast<uint8_t*>(blocks[i].residual), blocks[i].src, blocks[i].moved, 8, 8);
    }
    return blocks;
}

void Motion(benchmark::State& state, CpuLevel level) {
    Bench bench;
    const SearchMotionKernel search = AnalysisKernelsOf(level).searchMotion;
    for (auto _ : state) {
        for (uint32_t i = 0; i < bench.queue.blockCount; i++) {
            const MotionTask task = TaskOfBlock(&bench.queue, i);
            benchmark::DoNotOptimize(search(&task));
        }
    }
    TellPerBlock(state, bench.queue.blockCount);
}

void Dct(benchmark::State& state, CpuLevel level) {
    const std::vector<BlockSamples> blocks = AllBlocks();
    const AnalysisKernels& kernels = AnalysisKernelsOf(level);
    DctTrial trials[QUANTISERS];
    for (auto _ : state) {
        for (const BlockSamples& block : blocks) {
            benchmark::DoNotOptimize(kernels.tryIntra(trials, block.src, nullptr));
            benchmark::DoNotOptimize(kernels.tryInter(trials, block.src, block.residual, block.moved));
        }
    }
    TellPerBlock(state, blocks.size());
}

// One evaluator on every block, with the kernels of a level.
template <class Evaluate> void Evaluator(benchmark::State& state, CpuLevel level, Evaluate evaluate) {
    const std::vector<BlockSamples> blocks = AllBlocks();
    const Bench bench;
    BlockCandidate list[SCRATCH_CANDIDATES];
    UseLevel(level);
    for (auto _ : state) {
        for (const BlockSamples& block : blocks) benchmark::DoNotOptimize(evaluate(list, block, bench.costs));
    }
    UseLevel(BestCpuLevel());
    TellPerBlock(state, blocks.size());
}

void Pass(benchmark::State& state, CpuLevel level, bool high) {
    Bench bench;
    const PlanePair& planes = ThePlanes();
    const uint32_t before = ExchangeWorkerCount(1);
    UseLevel(level);
    for (auto _ : state) {
        if (high) {
            AnalyseHighPlane(bench.records.data(), planes.source.data(), planes.reference.data(), planes.width,
                             planes.height, false, &bench.costs);
        } else {
            AnalysePlane(bench.records.data(), planes.source.data(), planes.reference.data(), planes.width,
                         planes.height, false, &bench.costs, bench.scratch.data());
        }
    }
    UseLevel(BestCpuLevel());
    ExchangeWorkerCount(before);
    TellPerBlock(state, bench.queue.blockCount);
}

template <class Function> void Register(const char* name, Function function) {
    for (const CpuLevel level : Levels()) {
        const std::string full = std::string(name) + "/" + NameOfCpuLevel(level);
        benchmark::RegisterBenchmark(full.c_str(), [=](benchmark::State& state) {
            function(state, level);
        })->Unit(benchmark::kMillisecond);
    }
}

} // namespace

void RegisterAnalysis() {
    Register("motion", Motion);
    Register("dct", Dct);
    Register("runs", [](benchmark::State& state, CpuLevel level) {
        Evaluator(state, level, [](BlockCandidate* list, const BlockSamples& block, const CostModel& costs) {
            return RunCandidates(list, block.src, costs.colourBits, costs.runBits);
        });
    });
    Register("residue", [](benchmark::State& state, CpuLevel level) {
        Evaluator(state, level, [](BlockCandidate* list, const BlockSamples& block, const CostModel& costs) {
            return ResidueCandidates(list, block.src, block.residual, block.moved, costs.motionBits);
        });
    });
    Register("pattern", [](benchmark::State& state, CpuLevel level) {
        Evaluator(state, level, [](BlockCandidate* list, const BlockSamples& block, const CostModel& costs) {
            uint8_t sorted[64];
            for (int i = 0; i < 64; i++) sorted[i] = block.src[i];
            SortBytes(sorted, 64);
            return PatternCandidates(list, sorted, block.src, costs.colourBits, costs.patternBits);
        });
    });
    Register("pass8x8", [](benchmark::State& state, CpuLevel level) { Pass(state, level, false); });
    Register("pass16x16", [](benchmark::State& state, CpuLevel level) { Pass(state, level, true); });
}

} // namespace vorn::bench
