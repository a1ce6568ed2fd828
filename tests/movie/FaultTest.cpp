// FaultTest.cpp - every write, seek and commit of a short movie fails in turn: an older movie under the final name is never
// lost to one that isn't whole, and something readable is left or nothing at all.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reader/Reader.h"
#include "tests/files/TestSeams.h"

namespace vorn {
namespace {

constexpr uint32_t SIDE = 24;
constexpr uint32_t FRAMES = 6;
const std::string OLD = "the movie that was here before";

// Which call fails, from 1; and from there on all of its kind if `forGood`.
struct Fault {
    uint32_t call = 0;
    bool forGood = false;
    uint32_t calls = 0;
    bool Strikes() {
        calls++;
        return forGood ? call != 0 && calls >= call : calls == call;
    }
};
Fault writeFault, seekFault, commitFault;
std::vector<std::string> log;
std::vector<std::string> messages;

uint32_t WriteOrFail(FileHandle file, const void* source, uint32_t bytes) {
    return SYSTEM_PLATFORM.writeFile(file, source, writeFault.Strikes() ? bytes / 2 : bytes);
}
uint64_t SeekOrFail(FileHandle file, int64_t offset, SeekOrigin origin) {
    return seekFault.Strikes() ? UINT64_MAX : SYSTEM_PLATFORM.seekFile(file, offset, origin);
}
bool CommitOrFail(FileHandle file) {
    log.push_back("commit file");
    return !commitFault.Strikes() && SYSTEM_PLATFORM.flushFile(file);
}

uint32_t Hear(uint32_t code, void*, const char* text) {
    if (code == VORN_MESSAGE) messages.push_back(text);
    return 0;
}

// Sound makes the writer seek back and forth in every frame.
uint32_t ReadRamp(void*, uintptr_t, void* buffer, uint32_t bytes) {
    for (uint32_t i = 0; i < bytes; i++) static_cast<uint8_t*>(buffer)[i] = static_cast<uint8_t>(i * i / 7);
    return bytes;
}

// Makes a movie over OLD; returns the record's `failed` before the close.
bool MakeMovie(const std::string& name) {
    messages.clear();
    WriteWholeFile(name, OLD);
    const TrackDescriptor track = {3, 8000, 16, 1, 4, 0, ReadRamp};
    VornMakeState* movie = VornMake(name.c_str(), SIDE * 4, SIDE, SIDE, FRAMES, 0, 0, 25, 1, 1, &track, 2, Hear);
    std::vector<uint32_t> pixels(SIDE * SIDE);
    for (uint32_t frame = 0; frame < FRAMES; frame++) {
        for (uint32_t i = 0; i < pixels.size(); i++) pixels[i] = (i * 2654435761u >> (frame + 3)) & 0xffffff;
        VornMakePutVideo(movie, 2000, UINT32_MAX, frame == 0, pixels.data());
    }
    const bool failed = movie->failed != 0;
    VornMakeClose(movie, 0);
    return failed;
}

bool IsWholeMovie(const std::string& name) {
    reader::Violations violations;
    reader::Movie movie;
    if (!reader::OpenMovie(name, {}, &movie, &violations)) return false;
    return reader::VerifyMovie(movie, {}, &violations) && violations.errors == 0 && movie.header.frames == FRAMES;
}

// What may be there after a fault: the new movie whole under its name; or the old file untouched, with the new one under its
// temporary name and a message, or gone.
void ExpectNothingLost(const TestFolder& folder, const std::string& name, const std::string& what) {
    SCOPED_TRACE(what);
    const bool oldStands = ReadWholeFile(name) == OLD;
    const bool kept = std::filesystem::exists(name + ".tmp");
    if (oldStands) {
        EXPECT_EQ(kept, !messages.empty());
    } else {
        EXPECT_TRUE(IsWholeMovie(name));
        EXPECT_FALSE(kept);
    }
    EXPECT_LE(folder.FileCount(), 2u);
    std::filesystem::remove(name + ".tmp");
}

class FaultyMovie : public ::testing::Test {
protected:
    FaultyMovie() {
        writeFault = seekFault = commitFault = {};
        seam.table.writeFile = WriteOrFail;
        seam.table.seekFile = SeekOrFail;
        seam.table.flushFile = CommitOrFail;
        seam.table.syncFolder = [](const char*) { log.push_back("commit folder"); };
    }
    // Strikes at call 1, 2, 3, .. until the movie comes through without meeting the fault.
    void Sweep(Fault* fault, const std::string& what) {
        for (bool forGood : {false, true}) {
            bool struck = true;
            uint32_t call = 1;
            for (; struck; call++) {
                *fault = {call, forGood, 0};
                MakeMovie(name);
                struck = fault->calls >= call;
                ExpectNothingLost(folder, name, what + " " + std::to_string(call) + (forGood ? " and on" : ""));
            }
            EXPECT_GT(call, 2u); // there was something to strike
            *fault = {};
        }
    }
    PlatformSeam seam;
    TestFolder folder;
    std::string name = folder / "movie.vrn";
};

TEST_F(FaultyMovie, EveryShortWrite) {
    Sweep(&writeFault, "write");
}

TEST_F(FaultyMovie, EverySeek) {
    Sweep(&seekFault, "seek");
}

TEST_F(FaultyMovie, EveryCommit) {
    Sweep(&commitFault, "commit");
}

// The file's bytes, then its name: a power cut between the two leaves the old movie or the new one.
TEST_F(FaultyMovie, FileThenFolderAreCommitted) {
    log.clear();
    EXPECT_FALSE(MakeMovie(name));
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[log.size() - 2], "commit file");
    EXPECT_EQ(log[log.size() - 1], "commit folder");
    EXPECT_TRUE(IsWholeMovie(name));
}

} // namespace
} // namespace vorn
