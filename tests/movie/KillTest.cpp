// KillTest.cpp - a process that dies while it makes a movie leaves all frames behind that the last head counted.
#if defined(__unix__) || defined(__APPLE__)

#include <csignal>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/movie/Faults.h"

using namespace vorn;

namespace {

// What the dying process leaves to the one that looks on; in memory that both share.
struct Legacy {
    uint32_t heads;       // complete heads
    uint32_t headFrames;  // frames that the last one counts
    uint32_t flushFrames; // frames that a VornMakeFlush which answered 1 has seen
    bool finished;        // the movie came to its end
};
Legacy* legacy;

// In the child, which doesn't survive call `n` of the platform.
[[noreturn]] void MakeMovieAndDie(MoviePlan plan, const std::string& name, uint32_t n) {
    FaultSeam seam;
    seam.table.flushFile = [](FileHandle) { return !FaultSeam::Fails("commit"); }; // only power cuts need the disk
    FaultSeam::die = [] {
        legacy->heads = FaultSeam::heads;
        legacy->headFrames = FaultSeam::headFrames;
        std::raise(SIGKILL);
    };
    fault = {"any", NOTHING_DONE, false, n};
    VornMakeState* state = OpenMovie(&plan, name, nullptr);
    for (uint32_t frame = 0; frame < plan.frames; frame++) {
        PutFrame(state, plan, frame);
        if (frame % 3 == 1 && VornMakeFlush(state) != 0) legacy->flushFrames = state->framesDone;
    }
    VornMakeClose(state, 0);
    legacy->finished = true;
    _exit(0);
}

class Kill : public testing::Test {
protected:
    Workers workers{1};
    TestFolder folder;
    const std::string name = folder / "movie", temp = name + ".tmp";
    uint32_t growing = 0, unnamed = 0, renamed = 0, mostFrames = 0;

    Kill() {
        void* shared = mmap(nullptr, sizeof(Legacy), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(shared, MAP_FAILED);
        legacy = static_cast<Legacy*>(shared);
    }
    ~Kill() override { munmap(legacy, sizeof(Legacy)); }

    // False if the process wasn't killed any more.
    bool DieAt(uint32_t n, const MoviePlan& plan) {
        std::filesystem::remove(temp);
        WriteWholeFile(name, "older");
        *legacy = {};
        const pid_t child = fork();
        if (child == 0) MakeMovieAndDie(plan, name, n);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        if (legacy->finished) return false;
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        return true;
    }
    void JudgeWhatIsLeft(const std::string& whole) {
        const std::string final = Snapshot(name), left = Snapshot(temp);
        EXPECT_GE(legacy->headFrames, legacy->flushFrames);
        if (final == "file: older") {
            growing++;
            if (legacy->heads == 0) return; // nothing but the empty head, if that
            const ReadMovie read = ReadBack(ReadWholeFile(temp), true);
            EXPECT_EQ(read.complaint, "");
            EXPECT_EQ(read.frames.size(), legacy->headFrames);
            mostFrames = std::max(mostFrames, legacy->headFrames);
        } else if (final == "nothing") { // between the deletion of the older file and the new name
            unnamed++;
            EXPECT_TRUE(left == "file: " + whole);
        } else {
            renamed++;
            EXPECT_TRUE(final == "file: " + whole && left == "nothing");
        }
    }
};

} // namespace

// A frame a second, so that a little picture comes with much sound and the file grows past several flushes.
TEST_F(Kill, AtAnyCallLeavesAReadableMovie) {
    MoviePlan first;
    first.width = first.height = 16;
    first.frames = 5;
    first.lookAhead = 3;
    first.rate = 100000;
    first.rateNumerator = 1;
    first.sounds = {{22050, 2, 0, 65536}};
    for (MoviePlan& plan : MoviesToSweep(first)) {
        SCOPED_TRACE(Describe(plan));
        const std::string whole = MakeMovie(&plan, name);
        growing = unnamed = renamed = mostFrames = 0;
        const uint32_t cases = SweepCalls([&](uint32_t n) {
            SCOPED_TRACE("call " + std::to_string(n));
            if (!DieAt(n, plan)) return false;
            JudgeWhatIsLeft(whole);
            return true;
        });
        EXPECT_EQ(mostFrames, plan.frames);
        EXPECT_EQ(unnamed, 1u);
        EXPECT_EQ(renamed, 1u);
        NoteCases("killed at a call of the platform", cases, std::to_string(growing) + " in a growing file");
    }
}

#endif
