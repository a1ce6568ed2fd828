// Faults.h - a system whose calls fail one by one, and what has become of the movie that was made on it meanwhile.
#pragma once

#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/movie/MovieMaking.h"

namespace vorn {

// How the struck call goes wrong. Those of the system, below the platform table, are numbers of errno.
constexpr int NOTHING_DONE = 0;
constexpr int HALF_DONE = -1; // of a write; any other call fails

// The n-th call of a kind, and how it goes wrong. Kinds are names of the functions of the platform table, those of the system
// with "()" behind them, and "any" for the former together.
struct Fault {
    std::string call = "none";
    int error = NOTHING_DONE;
    bool forGood = false; // all of the kind after it, too
    uint32_t number = 0;  // from 1; 0: none fails
    uint32_t calls = 0;   // of the kind, so far
    bool Struck() const { return number != 0 && calls >= number; }
};
inline Fault fault;                  // in force
inline std::vector<std::string> log; // all calls of the platform table in their order

inline bool Strikes(const char* call) {
    if (fault.call != call) return false;
    fault.calls++;
    return fault.forGood ? fault.Struck() : fault.calls == fault.number;
}

// Counts what passes through the platform table and lets the fault strike. `die` is called, if it isn't null, instead of a
// failure, for a process that ends there; a larger write is half done by then.
struct FaultSeam : PlatformSeam {
    inline static void (*die)();
    inline static uint64_t position;   // of the file in hand
    inline static uint32_t headFrames; // frames counted by the last head that was complete before the fault
    inline static uint32_t heads;      // heads complete before the fault

    FaultSeam() {
        fault = {};
        die = nullptr;
        Restart();
        table.createFile = [](const char* name, bool shared) {
            return Fails("create") ? NO_FILE : SYSTEM_PLATFORM.createFile(name, shared);
        };
        table.writeFile = Write;
        table.seekFile = [](FileHandle file, int64_t offset, SeekOrigin origin) {
            if (Fails("seek")) return UINT64_MAX;
            return position = SYSTEM_PLATFORM.seekFile(file, offset, origin);
        };
        table.flushFile = [](FileHandle file) { return !Fails("commit") && SYSTEM_PLATFORM.flushFile(file); };
        table.closeFile = [](FileHandle file) {
            Fails("close");
            SYSTEM_PLATFORM.closeFile(file);
        };
        table.deleteFile = [](const char* name) {
            return Fails("delete") ? NameResult::FAILED : SYSTEM_PLATFORM.deleteFile(name);
        };
        table.renameFile = [](const char* newName, const char* oldName) {
            return Fails("rename") ? NameResult::FAILED : SYSTEM_PLATFORM.renameFile(newName, oldName);
        };
        table.syncFolder = [](const char* name) {
            Fails("sync folder");
            SYSTEM_PLATFORM.syncFolder(name);
        };
        table.startThread = [](ThreadHandle* thread, void (*run)(void*), void* argument) {
            return !Fails("thread") && SYSTEM_PLATFORM.startThread(thread, run, argument);
        };
    }
    // Before each movie.
    static void Restart() {
        fault.calls = 0;
        log.clear();
        position = 0;
        headFrames = heads = 0;
    }
    static bool Fails(const char* call) {
        log.push_back(call);
        const bool fails = Strikes(call) || Strikes("any");
        if (fails && die != nullptr) die();
        return fails;
    }
    // The write at byte 4, of file size, frames and largest frame, completes a head.
    static uint32_t Write(FileHandle file, const void* source, uint32_t bytes) {
        const bool rewrite = position == 4 && bytes == 12;
        uint32_t wanted = bytes;
        log.push_back("write");
        if (Strikes("write") || Strikes("any")) {
            wanted = fault.error == HALF_DONE ? bytes / 2 : 0;
            if (die != nullptr && !rewrite) SYSTEM_PLATFORM.writeFile(file, source, bytes / 2);
            if (die != nullptr) die();
        }
        const uint32_t written = SYSTEM_PLATFORM.writeFile(file, source, wanted);
        position += written;
        if (rewrite && !fault.Struck()) {
            const uint8_t* frames = static_cast<const uint8_t*>(source) + 4;
            headFrames = frames[0] | uint32_t{frames[1]} << 8;
            heads++;
        }
        return written;
    }
};

// What a name stands for: nothing, a folder, or a file and its bytes.
inline std::string Snapshot(const std::string& name) {
    if (!std::filesystem::exists(name)) return "nothing";
    return std::filesystem::is_directory(name) ? "folder" : "file: " + ReadWholeFile(name);
}

// A movie with sound, so that the file is sought back and forth in every frame.
inline MoviePlan SmallMovie() {
    MoviePlan plan;
    plan.content = Content::NOISE;
    plan.width = plan.height = 24;
    plan.frames = 6;
    plan.rate = 2000;
    plan.sounds = {{8000, 1, 4}};
    return plan;
}

// Tests that sweep do so with a small movie, and with further ones, larger and drawn at random, as the environment asks.
inline std::vector<MoviePlan> MoviesToSweep(const MoviePlan& first) {
    std::vector<MoviePlan> plans = {first};
    const char* const wanted = std::getenv("VORN_TEST_ROUNDS");
    for (uint32_t round = 1; wanted != nullptr && round < static_cast<uint32_t>(std::atoi(wanted)); round++) {
        MoviePlan& plan = plans.emplace_back(first);
        const auto draw = [round](uint32_t what, uint32_t values) { return Scatter(round, what, 99) % values; };
        plan.content = CONTENTS[draw(0, 5)];
        plan.width = 8 + draw(1, 120);
        plan.height = 8 + draw(2, 90);
        plan.frames = 4 + draw(3, 16);
        plan.capacity = draw(4, 3) == 0 ? 40000 : 0; // an index larger than the file's buffer
        plan.keyInterval = draw(5, 6);
        plan.options = draw(6, 2) * GREY + draw(7, 2) * ALPHA;
        plan.lookAhead = static_cast<int32_t>(2 + draw(8, 7));
        plan.rate = 200 + draw(9, 6000);
        plan.sounds.clear();
        for (uint32_t track = draw(10, 3); track > 0; track--) {
            plan.sounds.push_back({8000 + draw(10 + track, 40000), 1 + draw(20 + track, 2), draw(30 + track, 120)});
        }
    }
    return plans;
}

// Runs with n = 1, 2, 3, .. until `run(n)` says that there was no n-th call any more. Returns how many there were.
template <class Run> uint32_t SweepCalls(Run run) {
    uint32_t n = 1;
    while (run(n) && !testing::Test::HasFatalFailure()) n++;
    EXPECT_GT(n, 1u) << "there was nothing to strike";
    return n - 1;
}

} // namespace vorn
