// SameFileTest.cpp - one movie, one set of bytes: whatever the number of workers, the kernels, the compiler, the machine, and
// whoever flushes meanwhile.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "analysis/Kernels.h"
#include "tests/movie/MovieMaking.h"

using namespace vorn;

namespace {

class SameFile : public testing::Test {
protected:
    TestFolder folder;
    Workers workers{1};
    ~SameFile() override { UseKernelsOf(BestCpuLevel()); }
    std::string Make(MoviePlan plan) { return MakeMovie(&plan, folder / "movie"); }
};

// One of each content, with all planes, sound, and key frames among the others.
std::vector<MoviePlan> AllKinds() {
    std::vector<MoviePlan> plans;
    for (const Content content : CONTENTS) {
        MoviePlan plan;
        plan.content = content;
        plan.width = 70;
        plan.height = 50;
        plan.frames = 5;
        plan.lookAhead = 3;
        plan.keyInterval = 4;
        plan.options = ALPHA;
        plan.rate = 1500;
        plan.sounds = {{8000, 2, 20}};
        plans.push_back(plan);
    }
    return plans;
}

uint64_t HashBytes(const std::string& bytes) { // FNV-1a
    uint64_t hash = 14695981039346656037u;
    for (const char byte : bytes) hash = (hash ^ static_cast<uint8_t>(byte)) * 1099511628211u;
    return hash;
}

} // namespace

TEST_F(SameFile, ForAnyNumberOfWorkers) {
    for (const MoviePlan& plan : AllKinds()) {
        SCOPED_TRACE(Describe(plan));
        VornMakeSetMaxCPUs(1);
        const std::string alone = Make(plan);
        ASSERT_GT(alone.size(), 500u);
        for (const uint32_t workers : {2u, 7u, 32u}) {
            VornMakeSetMaxCPUs(workers);
            ASSERT_EQ(VornMakeSetMaxCPUs(0), workers);
            EXPECT_TRUE(Make(plan) == alone) << workers << " workers";
        }
    }
}

TEST_F(SameFile, ForEveryLevelOfTheProcessor) {
    for (const MoviePlan& plan : AllKinds()) {
        SCOPED_TRACE(Describe(plan));
        UseKernelsOf(CpuLevel::PLAIN);
        const std::string plain = Make(plan);
        for (int level = 1; level <= static_cast<int>(BestCpuLevel()); level++) {
            UseKernelsOf(static_cast<CpuLevel>(level));
            EXPECT_TRUE(Make(plan) == plain) << NameOfCpuLevel(static_cast<CpuLevel>(level));
        }
    }
}

// Movies on threads of their own share the worker count, the memory hooks, the clock and the kernels, and nothing else.
TEST_F(SameFile, WithOtherMoviesAtOnce) {
    const std::vector<MoviePlan> plans = AllKinds();
    std::vector<std::string> alone;
    for (const MoviePlan& plan : plans) alone.push_back(Make(plan));
    VornMakeSetMaxCPUs(2);
    for (const size_t movies : {2u, 8u}) {
        std::vector<std::string> files(movies);
        std::vector<std::thread> threads;
        for (size_t i = 0; i < movies; i++) {
            threads.emplace_back([&, i] {
                MoviePlan plan = plans[i % plans.size()];
                files[i] = MakeMovie(&plan, folder / ("movie" + std::to_string(i)));
            });
        }
        for (std::thread& thread : threads) thread.join();
        for (size_t i = 0; i < movies; i++) EXPECT_TRUE(files[i] == alone[i % plans.size()]) << i << " of " << movies;
    }
}

TEST_F(SameFile, WhileAnotherThreadFlushesWithoutAPause) {
    for (MoviePlan plan : AllKinds()) {
        SCOPED_TRACE(Describe(plan));
        VornMakeSetMaxCPUs(1);
        const std::string alone = Make(plan);
        VornMakeSetMaxCPUs(3);
        VornMakeState* state = OpenMovie(&plan, folder / "movie", nullptr);
        ASSERT_NE(state, nullptr);
        std::atomic<bool> done = false;
        std::atomic<uint32_t> flushes = 0;
        std::thread flusher([&] {
            while (!done) flushes += VornMakeFlush(state);
        });
        for (uint32_t frame = 0; frame < plan.frames; frame++) PutFrame(state, plan, frame);
        while (flushes == 0) std::this_thread::yield(); // on a busy machine it may not have come to its first yet
        done = true;
        flusher.join();
        VornMakeClose(state, 0);
        EXPECT_TRUE(ReadWholeFile(folder / "movie") == alone);
    }
}

// The bytes of these movies are the same with any compiler on any machine. A change here is a change of the encoder's
// decisions or of the format, and needs a reason.
TEST_F(SameFile, EverywhereAndForEver) {
    struct Pinned {
        MoviePlan plan;
        uint64_t hash;
    };
    const auto picture = [](Content content, uint32_t width, uint32_t height, uint32_t options, uint32_t rate,
                            int32_t lookAhead) {
        MoviePlan plan;
        plan.content = content;
        plan.width = width;
        plan.height = height;
        plan.frames = 8;
        plan.options = options;
        plan.rate = rate;
        plan.lookAhead = lookAhead;
        plan.keyInterval = 5;
        return plan;
    };
    const auto sounding = [&](uint32_t sampleRate, uint32_t channels, uint32_t quality) {
        MoviePlan plan = picture(Content::FLAT, 16, 16, 0, 3000, 2);
        plan.frames = 40;
        plan.sounds = {{sampleRate, channels, quality}};
        return plan;
    };
    const Pinned table[] = {
        {picture(Content::NOISE, 24, 16, 0, 900, 2), 0x85b99804eda0b08d},
        {picture(Content::NOISE, 17, 9, ALPHA, 1000000, 3), 0x133e848616bab40f},
        {picture(Content::FLAT, 40, 24, 0, 100, 4), 0x0766a9ad702df6ee},
        {picture(Content::FILM, 64, 48, 0, 300, 2), 0xc18211e52ea75002},
        {picture(Content::FILM, 64, 48, ALPHA, 1200, 64), 0x45e1450ec09d2aed},
        {picture(Content::FILM, 75, 41, GREY, 700, 8), 0x6cd1f49360d39053},
        {picture(Content::TEXT, 57, 33, 0, 800, 3), 0xd4165bd8c622e3b2},
        {picture(Content::TEXT, 57, 33, GREY + ALPHA, 100, 3), 0x99d7279a570d4a68},
        {picture(Content::STATIC, 48, 48, 0, 250, 16), 0xfa272cacee67e9ad},
        {sounding(22050, 2, 5), 0x6e165ec8428dc65f},
        {sounding(22050, 2, 105), 0x0ac320aee4300ef9},
        {sounding(44100, 1, 12), 0xe5cfce600504a69c},
        {sounding(11025, 1, 115), 0x4041fa131cf61976},
    };
    for (const Pinned& pinned : table) {
        SCOPED_TRACE(Describe(pinned.plan));
        EXPECT_EQ(HashBytes(Make(pinned.plan)), pinned.hash);
    }
}
