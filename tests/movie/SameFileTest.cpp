// SameFileTest.cpp - one movie, one set of bytes: whatever the number of workers, the kernels, the compiler, the machine, and
// whoever flushes meanwhile.
#include <atomic>
#include <chrono>
#include <thread>

#include "platform/CpuLevel.h"
#include "tests/movie/Faults.h"

using namespace vorn;

namespace {

class SameFile : public testing::Test {
protected:
    TestFolder folder;
    Workers workers{1};
    ~SameFile() override { UseLevel(BestCpuLevel()); }
    std::string Make(MoviePlan plan) { return MakeMovie(&plan, folder / "movie"); }
};

// One of each content, with all planes, sound, and key frames among the others.
std::vector<MoviePlan> AllKinds() {
    MoviePlan plan = {.width = 70, .height = 50, .frames = 5, .keyInterval = 4, .options = ALPHA, .lookAhead = 3};
    plan.rate = 1500;
    plan.sounds = {{8000, 2, 20}};
    std::vector<MoviePlan> plans(std::size(CONTENTS), plan);
    for (size_t i = 0; i < plans.size(); i++) plans[i].content = CONTENTS[i];
    return plans;
}

MoviePlan Picture(Content content, uint32_t width, uint32_t height, uint32_t options, uint32_t rate,
                  int32_t lookAhead) {
    MoviePlan plan = {.content = content, .width = width, .height = height, .frames = 8, .keyInterval = 5};
    plan.options = options;
    plan.lookAhead = lookAhead;
    plan.rate = rate;
    return plan;
}

MoviePlan Sounding(uint32_t sampleRate, uint32_t channels, uint32_t quality) {
    MoviePlan plan = Picture(Content::FLAT, 16, 16, 0, 3000, 2);
    plan.frames = 40;
    plan.sounds = {{sampleRate, channels, quality}};
    return plan;
}

// Movies with the hashes of their bytes, which are the same with any compiler on any machine. A change here is a change of the
// encoder's decisions or of the format, and needs a reason.
const struct Pinned {
    MoviePlan plan;
    uint64_t hash;
} PINNED[] = {
    {Picture(Content::NOISE, 24, 16, 0, 900, 2), 0x85b99804eda0b08d},
    {Picture(Content::NOISE, 17, 9, ALPHA, 1000000, 3), 0x133e848616bab40f},
    {Picture(Content::FLAT, 40, 24, 0, 100, 4), 0x0766a9ad702df6ee},
    {Picture(Content::FILM, 64, 48, 0, 300, 2), 0xc18211e52ea75002},
    {Picture(Content::FILM, 64, 48, ALPHA, 1200, 64), 0x45e1450ec09d2aed},
    {Picture(Content::FILM, 75, 41, GREY, 700, 8), 0x6cd1f49360d39053},
    {Picture(Content::TEXT, 57, 33, 0, 800, 3), 0xd4165bd8c622e3b2},
    {Picture(Content::TEXT, 57, 33, GREY + ALPHA, 100, 3), 0x99d7279a570d4a68},
    {Picture(Content::STATIC, 48, 48, 0, 250, 16), 0xfa272cacee67e9ad},
    {Sounding(22050, 2, 5), 0x6e165ec8428dc65f},
    {Sounding(22050, 2, 105), 0x0ac320aee4300ef9},
    {Sounding(44100, 1, 12), 0xe5cfce600504a69c},
    {Sounding(11025, 1, 115), 0x4041fa131cf61976},
};

uint64_t HashBytes(const std::string& bytes) { // FNV-1a
    uint64_t hash = 14695981039346656037u;
    for (const char byte : bytes) hash = (hash ^ static_cast<uint8_t>(byte)) * 1099511628211u;
    return hash;
}

// Two sets of memory hooks, each of which must get back what it gave, and nothing else.
template <int SET> struct CountedMemory {
    inline static std::atomic<int32_t> alive = 0;
    static void* VORN_CALL Give(uint32_t bytes) { return alive++, std::malloc(bytes); }
    static void VORN_CALL Take(void* block) { alive--, std::free(block); }
};
using One = CountedMemory<1>;
using Two = CountedMemory<2>;

// Gives a movie other sound and returns the bytes.
std::string Mix(const std::string& from, const std::string& to) {
    Sound sound = {11025, 2, 104};
    TrackDescriptor track = {1, 11025, 16, 2, 104, reinterpret_cast<uintptr_t>(&sound), Sound::Read};
    EXPECT_NE(VornMix(from.c_str(), to.c_str(), 0, 0, 0, 0, 1, &track, nullptr), 0u);
    return ReadWholeFile(to);
}

} // namespace

// Movies and mixes on threads of their own share the worker count, the memory hooks, the clock and the kernels. All of these
// are used, and hooks and count changed, while they run.
TEST_F(SameFile, WithOtherMoviesAndMixesAtOnce) {
    const std::vector<MoviePlan> plans = AllKinds();
    std::vector<std::string> alone;
    for (const MoviePlan& plan : plans) alone.push_back(Make(plan));
    const std::string mixed = Mix(folder / "movie", folder / "mixed");
    for (const size_t movies : {2u, 8u}) {
        std::vector<std::string> files(movies), mixes(movies / 2);
        std::vector<std::thread> threads;
        for (size_t i = 0; i < movies; i++) {
            threads.emplace_back([&, i] {
                MoviePlan plan = plans[i % plans.size()];
                files[i] = MakeMovie(&plan, folder / ("movie" + std::to_string(i)));
            });
        }
        for (size_t i = 0; i < mixes.size(); i++) {
            threads.emplace_back([&, i] { mixes[i] = Mix(folder / "movie", folder / ("mix" + std::to_string(i))); });
        }
        std::atomic<bool> done = false;
        std::thread meddler([&] {
            for (uint32_t i = 0; !done; i++) {
                if (i % 2 != 0) MOKSetMemory(One::Give, One::Take);
                if (i % 2 == 0) MOKSetMemory(Two::Give, Two::Take);
                VornMakeSetMaxCPUs(1 + i % 3);
                MOKTimerRead();
                std::this_thread::yield();
            }
        });
        for (std::thread& thread : threads) thread.join();
        done = true;
        meddler.join();
        MOKSetMemory(nullptr, nullptr);
        EXPECT_EQ(One::alive, 0);
        EXPECT_EQ(Two::alive, 0);
        for (size_t i = 0; i < movies; i++) EXPECT_TRUE(files[i] == alone[i % plans.size()]) << i << " of " << movies;
        for (const std::string& mix : mixes) EXPECT_TRUE(mix == mixed) << movies;
    }
}

// A callback can't begin what would move the queue under a batch, not even while the movie closes.
TEST_F(SameFile, WithACallbackThatCallsBack) {
    MoviePlan plan = {.frames = 3, .capacity = 8, .lookAhead = 8};
    const std::string alone = Make(plan);
    static const std::vector<uint8_t> pixels = DrawFrame(plan.content, plan.width, plan.height, plan.width * 4, 9);
    const ProgressCallback callBack = [](uint32_t, void* record, const char*) {
        VornMakeState* state = static_cast<VornMakeState*>(record);
        for (int i = 0; i < 5; i++) VornMakePutVideo(state, 600, UINT32_MAX, 1, pixels.data());
        EXPECT_EQ(VornMakeClose(state, 1), 0u);
        return 0u;
    };
    EXPECT_TRUE(MakeMovie(&plan, folder / "movie", callBack) == alone);
}

// Three threads flush, one without a pause and two at random.
TEST_F(SameFile, WhileOthersFlush) {
    for (MoviePlan plan : AllKinds()) {
        SCOPED_TRACE(Describe(plan));
        VornMakeSetMaxCPUs(1);
        const std::string alone = Make(plan);
        VornMakeSetMaxCPUs(3);
        VornMakeState* state = OpenMovie(&plan, folder / "movie", nullptr);
        std::atomic<bool> done = false;
        std::atomic<uint32_t> flushes = 0;
        std::vector<std::thread> flushers;
        for (uint32_t pause : {0u, 900u, 5000u}) {
            flushers.emplace_back([&, pause] {
                for (uint32_t i = 0; !done; i++) {
                    flushes += VornMakeFlush(state);
                    std::this_thread::sleep_for(
                        std::chrono::microseconds(pause == 0 ? 0 : Scatter(i, pause, 0) % pause));
                }
            });
        }
        for (uint32_t frame = 0; frame < plan.frames; frame++) PutFrame(state, plan, frame);
        while (flushes == 0) std::this_thread::yield(); // on a busy machine it may not have come to its first yet
        done = true;
        for (std::thread& flusher : flushers) flusher.join();
        VornMakeClose(state, 0);
        EXPECT_TRUE(ReadWholeFile(folder / "movie") == alone);
    }
}

// Each clock has a process of its own, as it is started once in a process: without a counter, or with one that leaps ahead,
// runs backwards, or stands still as the coarse clock does.
TEST(ClockDeathTest, LeavesTheMovieAlone) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    static uint64_t reads;
    const struct {
        uint64_t (*frequency)();
        uint64_t (*counter)();
        uint32_t (*tick)();
    } CLOCKS[] = {
        {[] { return uint64_t{0}; }, [] { return uint64_t{0}; }, SYSTEM_PLATFORM.tickMilliseconds},
        {[] { return uint64_t{1000}; }, [] { return reads++ * 10000; }, SYSTEM_PLATFORM.tickMilliseconds},
        {[] { return uint64_t{1000}; }, [] { return 1000000 - reads++ * 300; }, SYSTEM_PLATFORM.tickMilliseconds},
        {[] { return uint64_t{1000}; }, [] { return uint64_t{5}; }, [] { return 5u; }},
    };
    for (const auto& clock : CLOCKS) {
        const auto make = [&clock] {
            PlatformSeam seam;
            seam.table.counterFrequency = clock.frequency;
            seam.table.counterRead = clock.counter;
            seam.table.tickMilliseconds = clock.tick;
            const TestFolder folder;
            MoviePlan plan = PINNED[4].plan;
            VornMakeState* state = OpenMovie(&plan, folder / "movie", nullptr);
            uint32_t flushes = 0;
            for (uint32_t frame = 0; frame < plan.frames; frame++) {
                PutFrame(state, plan, frame);
                flushes += VornMakeFlush(state);
            }
            VornMakeClose(state, 0);
            std::exit(flushes == plan.frames && HashBytes(ReadWholeFile(folder / "movie")) == PINNED[4].hash ? 0 : 1);
        };
        EXPECT_EXIT(make(), testing::ExitedWithCode(0), "");
    }
}

// Every kernel level alone and beside others, and every number of workers.
TEST_F(SameFile, EverywhereAndForEver) {
    uint32_t made = 0, same = 0;
    for (int level = 0; level <= static_cast<int>(BestCpuLevel()); level++) {
        UseLevel(static_cast<CpuLevel>(level));
        for (const uint32_t workers : {1u, level == 0 ? 32u : 2u + static_cast<uint32_t>(level)}) {
            VornMakeSetMaxCPUs(workers);
            ASSERT_EQ(VornMakeSetMaxCPUs(0), workers);
            for (const Pinned& pinned : PINNED) {
                SCOPED_TRACE(Describe(pinned.plan));
                const uint64_t hash = HashBytes(Make(pinned.plan));
                EXPECT_EQ(hash, pinned.hash)
                    << NameOfCpuLevel(static_cast<CpuLevel>(level)) << ", " << workers << " workers";
                made++;
                same += hash == pinned.hash;
            }
        }
    }
    NoteCases("movies with pinned hashes, up to " + std::string(NameOfCpuLevel(BestCpuLevel())), made,
              std::to_string(same) + " the same");
}
