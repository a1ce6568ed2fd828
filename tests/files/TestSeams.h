// TestSeams.h - stand-ins at the library's two seams, the platform table and the memory hooks, and a folder to write in.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "platform/Platform.h"
#include "public/vornmake.h"

#if defined(_WIN32)
constexpr bool WINDOWS = true;
#else
constexpr bool WINDOWS = false;
#endif

// Puts a copy of the system's table in force, to be changed by the test; the real one comes back at the end.
struct PlatformSeam {
    vorn::Platform table = vorn::SYSTEM_PLATFORM;
    PlatformSeam() { vorn::platform = &table; }
    ~PlatformSeam() { vorn::platform = &vorn::SYSTEM_PLATFORM; }
};

// Counts the blocks of the library's memory service and fails those it is told to.
struct MemorySeam {
    inline static std::map<void*, uint32_t> blocks; // made and not yet released, with their sizes
    inline static uint32_t requests;                // since the seam was set up
    inline static uint32_t failingRequest;          // number of the request that fails, from 1; 0: none
    inline static uint32_t largestBlock;            // larger ones fail

    MemorySeam() {
        blocks.clear();
        requests = 0;
        failingRequest = 0;
        largestBlock = UINT32_MAX;
        MOKSetMemory(Allocate, Release);
    }
    ~MemorySeam() { MOKSetMemory(nullptr, nullptr); }

    static void* VORN_CALL Allocate(uint32_t bytes) {
        requests++;
        if (requests == failingRequest || bytes > largestBlock) return reinterpret_cast<void*>(UINTPTR_MAX);
        void* block = std::malloc(bytes);
        std::memset(block, 0xEE, bytes); // so that what relies on zeros shows
        blocks[block] = bytes;
        return block;
    }
    static void VORN_CALL Release(void* block) {
        if (blocks.erase(block) != 1) std::abort();
        std::free(block);
    }
};

// A new empty folder, removed with all that is in it.
struct TestFolder {
    std::filesystem::path path;
    TestFolder() {
        static int number = 0;
        const std::filesystem::path base = std::filesystem::temp_directory_path();
        do {
            path = base / ("vorn-test-" + std::to_string(std::rand()) + "-" + std::to_string(number++));
        } while (!std::filesystem::create_directory(path));
    }
    ~TestFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string operator/(const std::string& name) const { return (path / name).string(); }
    size_t FileCount() const {
        size_t count = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(path)) count++;
        return count;
    }
};

inline std::string ReadWholeFile(const std::string& name) {
    std::ifstream stream(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline void WriteWholeFile(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary) << bytes;
}

// A line of its own for each kind of fault: how many cases ran, for who wants to read it off.
inline void NoteCases(const std::string& what, size_t cases, const std::string& more = "") {
    std::puts(("[    CASES ] " + what + ": " + std::to_string(cases) + (more.empty() ? "" : "; ") + more).c_str());
}
