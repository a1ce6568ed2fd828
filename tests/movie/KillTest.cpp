// KillTest.cpp - a process that dies while it makes a movie leaves all frames behind that the last head counted.
#if defined(__unix__) || defined(__APPLE__)

#include <csignal>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/movie/MovieMaking.h"

using namespace vorn;

namespace {

// What the dying process leaves to the one that looks on; in memory that both share.
struct Legacy {
    uint32_t writes;      // write calls begun
    uint32_t headFrames;  // frames that the last head written counts
    uint32_t flushFrames; // frames that a VornMakeFlush which answered 1 has seen
    uint32_t counts;      // heads whose counts were patched
    bool finished;        // the movie came to its end
};
Legacy* legacy;
uint32_t fatalWrite; // number of the write call, from 1, that the process doesn't survive

// Where the write lands that brings file size, frames and largest frame of the head up to date, the last one of a flush.
constexpr uint64_t COUNTS_POSITION = 4;
uint64_t filePosition;

uint64_t Seek(FileHandle file, int64_t offset, SeekOrigin origin) {
    return filePosition = SYSTEM_PLATFORM.seekFile(file, offset, origin);
}

uint32_t WriteOrDie(FileHandle file, const void* source, uint32_t bytes) {
    if (++legacy->writes == fatalWrite) std::raise(SIGKILL);
    const uint32_t written = SYSTEM_PLATFORM.writeFile(file, source, bytes);
    if (filePosition == COUNTS_POSITION) {
        legacy->headFrames = static_cast<const uint8_t*>(source)[4]; // fewer than 256
        legacy->counts++;
    }
    filePosition += written;
    return written;
}

// In the child. A frame a second, so that a little picture comes with much sound and the file grows past several flushes.
[[noreturn]] void MakeMovieAndDie(const std::string& name) {
    Platform table = SYSTEM_PLATFORM;
    table.seekFile = Seek;
    table.writeFile = WriteOrDie;
    platform = &table;
    MoviePlan plan;
    plan.width = plan.height = 16;
    plan.frames = 8;
    plan.lookAhead = 3;
    plan.rate = 100000;
    plan.rateNumerator = 1;
    plan.sounds = {{22050, 2, 0, 65536}};
    VornMakeSetMaxCPUs(1);
    VornMakeState* state = OpenMovie(&plan, name, nullptr);
    for (uint32_t frame = 0; frame < plan.frames; frame++) {
        PutFrame(state, plan, frame);
        if (frame % 3 == 1 && VornMakeFlush(state) != 0) legacy->flushFrames = state->framesDone;
    }
    VornMakeClose(state, 0);
    legacy->finished = true;
    _exit(0);
}

} // namespace

TEST(Kill, AtAnyWriteLeavesAReadableMovie) {
    void* shared = mmap(nullptr, sizeof(Legacy), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    legacy = static_cast<Legacy*>(shared);
    uint32_t readable = 0;
    uint32_t mostFrames = 0;
    for (fatalWrite = 1;; fatalWrite++) {
        ASSERT_LT(fatalWrite, 200u);
        SCOPED_TRACE("write " + std::to_string(fatalWrite));
        TestFolder folder;
        const std::string name = folder / "movie";
        *legacy = {};
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) MakeMovieAndDie(name);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        if (legacy->finished) break;
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        EXPECT_FALSE(std::filesystem::exists(name));
        EXPECT_GE(legacy->headFrames, legacy->flushFrames);
        if (legacy->counts == 0) continue; // nothing but the empty head, if that
        const ReadMovie read = ReadBack(ReadWholeFile(name + ".tmp"), true);
        EXPECT_EQ(read.complaint, "");
        EXPECT_EQ(read.frames.size(), legacy->headFrames);
        readable++;
        mostFrames = legacy->headFrames > mostFrames ? legacy->headFrames : mostFrames;
    }
    munmap(shared, sizeof(Legacy));
    EXPECT_GE(readable, 10u);
    EXPECT_EQ(mostFrames, 8u);
}

#endif
