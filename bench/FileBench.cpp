// FileBench.cpp - sound beside real time, and a movie mixed anew beside the plain copying of its file.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/Benches.h"
#include "platform/Platform.h"
#include "platform/Workers.h"
#include "public/vornmake.h"

namespace vorn::bench {

namespace {

constexpr uint32_t SECONDS = 4;
constexpr uint32_t SAMPLE_RATE = 44100;
constexpr uint32_t FRAME_RATE = 25;

// Stereo samples and how many of their bytes have been handed out.
struct Sound {
    std::vector<int16_t> samples;
    uint32_t at = 0;
};

uint32_t VORN_CALL ReadSound(void*, uintptr_t user, void* buffer, uint32_t bytes) {
    Sound* sound = reinterpret_cast<Sound*>(user);
    const uint32_t left = static_cast<uint32_t>(sound->samples.size() * 2) - sound->at;
    const uint32_t given = bytes < left ? bytes : left;
    std::memcpy(buffer, reinterpret_cast<const char*>(sound->samples.data()) + sound->at, given);
    sound->at += given;
    return given;
}

// Noise, which is the hardest, or eight harmonics of a tone that swells.
Sound MakeSound(bool noise) {
    Sound sound;
    uint32_t random = 1;
    for (uint32_t i = 0; i < SECONDS * SAMPLE_RATE * 2; i++) {
        random = random * 1664525u + 1013904223u;
        const double time = i / 2 / double(SAMPLE_RATE);
        double tone = 0;
        for (int harmonic = 1; harmonic < 9; harmonic++) {
            tone += std::sin(691.15 * harmonic * time * (1 + i % 2 * 0.003)) / harmonic;
        }
        const double level =
            noise ? static_cast<int16_t>(random >> 16) / 2 : 9000 * tone * (0.6 + 0.4 * std::sin(5 * time));
        sound.samples.push_back(static_cast<int16_t>(level));
    }
    return sound;
}

void MakeMovie(const std::string& name, uint32_t width, uint32_t height, uint32_t frames, uint32_t rate, Sound* sound,
               uint32_t quality) {
    TrackDescriptor track = {0, SAMPLE_RATE, 16, 2, quality, reinterpret_cast<uintptr_t>(sound), ReadSound};
    sound->at = 0;
    VornMakeState* movie =
        VornMake(name.c_str(), width * 4, width, height, frames, 0, 0, FRAME_RATE, 1, 1, &track, 2, nullptr);
    if (movie == nullptr) std::abort();
    std::vector<uint8_t> pixels(size_t(width) * height * 4);
    uint32_t random = 1;
    for (uint32_t frame = 0; frame < frames; frame++) {
        for (uint8_t& byte : pixels) {
            random = random * 1664525u + 1013904223u;
            byte = width > 8 ? static_cast<uint8_t>(random >> 24) : 0;
        }
        VornMakePutVideo(movie, rate, UINT32_MAX, frame == 0, pixels.data());
    }
    VornMakeClose(movie, 0);
}

void SoundTrack(benchmark::State& state, bool noise, uint32_t quality) {
    Sound sound = MakeSound(noise);
    const std::string name = TemporaryName("sound.vrn");
    const uint32_t before = ExchangeWorkerCount(1);
    for (auto _ : state) MakeMovie(name, 8, 8, SECONDS * FRAME_RATE, 100, &sound, quality);
    ExchangeWorkerCount(before);
    std::remove(name.c_str());
    state.counters["realTime"] = benchmark::Counter(SECONDS, benchmark::Counter::kIsIterationInvariantRate);
}

// A movie of noise in lossless pictures, 400 KB a frame; removed when the program ends.
struct LargeMovie {
    const std::string name = TemporaryName("large.vrn");
    LargeMovie() {
        Sound sound = MakeSound(true);
        MakeMovie(name, 640, 480, 60, 4000000, &sound, 4);
    }
    ~LargeMovie() { std::remove(name.c_str()); }
};
const std::string& TheLargeMovie() {
    static const LargeMovie movie;
    return movie.name;
}

void Mix(benchmark::State& state) {
    const std::string in = TheLargeMovie();
    const std::string out = TemporaryName("mixed.vrn");
    for (auto _ : state) {
        TrackDescriptor other = {}; // drops a track that isn't there: all are kept
        other.id = 99;
        if (VornMix(in.c_str(), out.c_str(), 0, 0, 0, 0, 1, &other, nullptr) == 0) std::abort();
    }
    std::remove(out.c_str());
}

void Copy(benchmark::State& state) {
    const std::string in = TheLargeMovie();
    const std::string out = TemporaryName("copied.vrn");
    std::vector<uint8_t> bytes(0x40000);
    for (auto _ : state) {
        const FileHandle from = platform->openFile(in.c_str());
        const FileHandle to = platform->createFile(out.c_str(), false);
        while (const uint32_t read = platform->readFile(from, bytes.data(), static_cast<uint32_t>(bytes.size()))) {
            if (platform->writeFile(to, bytes.data(), read) != read) std::abort();
        }
        platform->flushFile(to);
        platform->closeFile(to);
        platform->closeFile(from);
        platform->deleteFile(out.c_str());
    }
}

} // namespace

void RegisterFiles() {
    for (const bool noise : {true, false}) {
        for (const uint32_t quality : {4u, 104u}) {
            const std::string name =
                std::string("sound/") + (noise ? "noise" : "tones") + "/quality:" + std::to_string(quality);
            benchmark::RegisterBenchmark(name.c_str(), SoundTrack, noise, quality)->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::RegisterBenchmark("mix/allKept", Mix)->Unit(benchmark::kMillisecond)->UseRealTime();
    benchmark::RegisterBenchmark("mix/readAndWrite", Copy)->Unit(benchmark::kMillisecond)->UseRealTime();
}

} // namespace vorn::bench
