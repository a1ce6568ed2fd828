// Bench.cpp - `vorn bench`: how fast is a whole movie made, and which stage takes the time?
// The frames are read into memory first, and the movie goes to a temporary file that is removed. The stages are told apart by
// the library's own reports: each lasts until the next one. What lies between a frame's last stage and the next frame's
// first report (conversion, weights, writing) is "around".
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "public/vornmake.h"
#include "tools/Commands.h"
#include "tools/Exit.h"
#include "tools/Interrupt.h"
#include "tools/MovieFile.h"

namespace vorn {

namespace {

using Clock = std::chrono::steady_clock;

struct BenchRun {
    std::map<std::string, double> seconds; // by group of stages
    std::string group = "around";
    Clock::time_point since;
    double total = 0;
    uint64_t bytes = 0;
    uint64_t checksum = 0;
    std::string message; // the library's own words
};

// What the library has asked of the memory service: in use, and at most at once. Its worker threads ask for nothing.
struct MemoryCount {
    uint64_t inUse = 0;
    uint64_t peak = 0;
};
MemoryCount memory;

constexpr size_t COUNT_ROOM = 32; // bytes in front of a block, for its size

void* VORN_CALL CountAllocation(uint32_t bytes) noexcept {
    auto* room = static_cast<char*>(std::malloc(COUNT_ROOM + bytes));
    if (room == nullptr) return reinterpret_cast<void*>(UINTPTR_MAX); // as the library wants to be told
    std::memcpy(room, &bytes, sizeof bytes);
    memory.inUse += bytes;
    memory.peak = std::max(memory.peak, memory.inUse);
    return room + COUNT_ROOM;
}

void VORN_CALL CountRelease(void* block) noexcept {
    char* room = static_cast<char*>(block) - COUNT_ROOM;
    uint32_t bytes;
    std::memcpy(&bytes, room, sizeof bytes);
    memory.inUse -= bytes;
    std::free(room);
}

// The library's callbacks carry no word of the caller's.
BenchRun* measured = nullptr;

std::string GroupOf(const char* stage) {
    if (std::strcmp(stage, "Compressing") == 0) return "around";
    if (std::strstr(stage, "high-plane") != nullptr) return "analysis 16x16";
    if (std::strncmp(stage, "Compressing", 11) == 0) return "analysis 8x8";
    if (std::strncmp(stage, "Encoding", 8) == 0) return "plane encoder";
    return "allocation and merging";
}

void CloseStage(BenchRun* run) {
    const Clock::time_point now = Clock::now();
    run->seconds[run->group] += std::chrono::duration<double>(now - run->since).count();
    run->since = now;
}

uint32_t HearStage(uint32_t code, void*, const char* text) noexcept {
    try {
        if (code != VORN_PROGRESS) {
            measured->message = text;
            return 0;
        }
        CloseStage(measured);
        measured->group = GroupOf(text);
    } catch (...) { // no memory for a name: the stage counts to the one before
    }
    return 0;
}

// A folder for the movie, empty before and gone afterwards, also if a signal ends the program.
class TemporaryMovie {
public:
    TemporaryMovie() {
        const char* place = std::getenv("TMPDIR");
        folder = fmt::format("{}/vorn-bench-XXXXXX", place != nullptr ? place : "/tmp");
        const InterruptsHeld held;
        if (mkdtemp(folder.data()) == nullptr)
            throw Failure{EXIT_FAILED, fmt::format("{}: can't be created ({})", folder, std::strerror(errno))};
        name = folder + "/movie";
        notes[0].Note(name);
        notes[1].Note(name + ".tmp");
        notes[2].Note(folder);
    }
    ~TemporaryMovie() {
        std::remove(name.c_str());
        std::remove((name + ".tmp").c_str());
        rmdir(folder.c_str());
    }
    TemporaryMovie(const TemporaryMovie&) = delete;
    TemporaryMovie& operator=(const TemporaryMovie&) = delete;
    const std::string& Name() const { return name; }

private:
    std::string folder;
    std::string name;
    UnfinishedFile notes[3]; // in the order in which they can be removed
};

// FNV-1a of a file's bytes.
uint64_t ChecksumOf(const std::string& name) {
    ByteInput file(name);
    uint64_t hash = 14695981039346656037u;
    std::vector<uint8_t> bytes(file.Size());
    if (!bytes.empty() && file.Read(bytes.data(), bytes.size()) != ReadResult::DONE)
        throw Failure{EXIT_FAILED, fmt::format("{}: can't be read back", name)};
    for (uint8_t byte : bytes) hash = (hash ^ byte) * 1099511628211u;
    return hash;
}

std::vector<std::vector<uint8_t>> LoadFrames(FrameSource* source, uint32_t most) {
    std::vector<std::vector<uint8_t>> frames;
    while (most == 0 || frames.size() < most) {
        std::vector<uint8_t> bgra(size_t(source->format.width) * source->format.height * 4);
        const ReadResult result = source->Read(bgra.data());
        if (result == ReadResult::CUT) throw Failure{EXIT_DAMAGED, source->problem};
        if (result != ReadResult::DONE) break;
        frames.push_back(std::move(bgra));
    }
    if (frames.empty()) throw Failure{EXIT_DAMAGED, fmt::format("{}: holds no frame", source->name)};
    return frames;
}

BenchRun MakeOnce(const BenchOptions& options, const PictureFormat& format,
                  const std::vector<std::vector<uint8_t>>& frames, uint32_t frameBytes, const std::string& name) {
    BenchRun run;
    measured = &run;
    run.since = Clock::now();
    const Clock::time_point begin = run.since;
    VornMakeState* movie =
        VornMake(name.c_str(), format.width * 4, format.width, format.height, static_cast<uint32_t>(frames.size()), 0,
                 format.grey ? 100 : 0, format.rate.numerator, format.rate.denominator, 0, nullptr,
                 static_cast<int32_t>(options.lookAhead), HearStage);
    if (movie == nullptr) throw Failure{EXIT_FAILED, fmt::format("{}: {}", name, run.message)};
    for (size_t i = 0; i < frames.size(); i++)
        VornMakePutVideo(movie, frameBytes, UINT32_MAX, i == 0, frames[i].data());
    run.bytes = VornMakeClose(movie, 0);
    CloseStage(&run);
    run.total = std::chrono::duration<double>(run.since - begin).count();
    if (!run.message.empty()) throw Failure{EXIT_FAILED, fmt::format("{}: {}", name, run.message)};
    CheckMovie(name, static_cast<int64_t>(frames.size()), name);
    run.checksum = ChecksumOf(name);
    return run;
}

void Print(const BenchRun& run, const PictureFormat& format, size_t frames, uint32_t threads) {
    const double planes = format.grey ? 1 : 1.5;
    const double blocks = planes * ((format.width + 7) / 8) * ((format.height + 7) / 8) * double(frames);
    fmt::print("{} frames of {}x{}, {} threads: {:.3f} s, {:.2f} frames/s, {:.0f} ns a block of 8x8\n", frames,
               format.width, format.height, threads, run.total, double(frames) / run.total, run.total / blocks * 1e9);
    double serial = 0;
    for (const auto& [group, seconds] : run.seconds) {
        fmt::print("  {:24} {:7.3f} ms a frame {:7.0f} ns a block {:5.1f} %\n", group, seconds / double(frames) * 1e3,
                   seconds / blocks * 1e9, seconds / run.total * 100);
        if (group.rfind("analysis", 0) != 0) serial += seconds;
    }
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    fmt::print("  serial part {:.1f} %\n", serial / run.total * 100);
    fmt::print("  peak memory of the library {} KiB; of the program, with all frames of the input, {} KiB\n",
               (memory.peak + 1023) / 1024, usage.ru_maxrss);
    fmt::print("  {} bytes, checksum {:016x}\n", run.bytes, run.checksum);
}

} // namespace

int RunBench(const BenchOptions& options) {
    const std::unique_ptr<FrameSource> source = OpenFrames(options.input);
    const PictureFormat format = source->format;
    const auto frames = LoadFrames(source.get(), options.frames);
    const uint32_t frameBytes =
        options.frameBytes != 0 ? options.frameBytes : std::max(64u, format.width * format.height / 8);
    const TemporaryMovie temporary;
    const uint32_t threads = options.threads != 0 ? options.threads : VornMakeSetMaxCPUs(0);
    VornMakeSetMaxCPUs(threads);
    MOKSetMemory(CountAllocation, CountRelease);
    BenchRun best;
    for (uint32_t round = 0; round < options.rounds; round++) {
        BenchRun run = MakeOnce(options, format, frames, frameBytes, temporary.Name());
        if (round == 0 || run.total < best.total) best = std::move(run);
    }
    Print(best, format, frames.size(), threads);
    return EXIT_DONE;
}

} // namespace vorn
