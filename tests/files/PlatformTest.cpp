// PlatformTest.cpp - what the system's table promises about real files, threads and clocks.
#include <atomic>
#include <vector>

#include <gtest/gtest.h>

#include "files/SpoolFile.h"
#include "tests/files/TestSeams.h"

#if !defined(_WIN32)
#include <sys/stat.h>
#endif

using namespace vorn;

namespace {

// As a program that knows nothing of this library opens it.
bool CanBeRead(const std::string& name) {
    return std::ifstream(name, std::ios::binary).is_open();
}
bool CanBeWritten(const std::string& name) {
    return std::ofstream(name, std::ios::binary | std::ios::app).is_open();
}

} // namespace

// Windows keeps other programs from a file in use as the share flag says, POSIX systems keep nobody from it.
TEST(PlatformFiles, AFileInUseIsNeitherMadeAgainNorOpenedByAnotherWriter) {
    TestFolder folder;
    const std::string name = folder / "movie";
    WriteWholeFile(name, "older and longer");
    for (const bool shared : {false, true}) {
        SpoolFile* writer = SpoolCreate(16, name.c_str(), shared);
        ASSERT_NE(writer, nullptr);
        EXPECT_EQ(SpoolSize(writer), 0u);
        SpoolWrite(writer, "kept", 4);
        SpoolFlush(writer, true);
        EXPECT_EQ(SpoolCreate(16, name.c_str(), true), nullptr);
        EXPECT_EQ(SpoolOpen(16, name.c_str()), nullptr);
        EXPECT_EQ(CanBeRead(name), shared || !WINDOWS);
        EXPECT_EQ(CanBeWritten(name), !WINDOWS);
        SpoolClose(writer);
    }
    SpoolFile* first = SpoolOpen(16, name.c_str());
    SpoolFile* second = SpoolOpen(16, name.c_str());
    EXPECT_TRUE(first != nullptr && second != nullptr);
    EXPECT_EQ(SpoolCreate(16, name.c_str(), false), nullptr);
    EXPECT_TRUE(CanBeRead(name));
    EXPECT_EQ(CanBeWritten(name), !WINDOWS);
    SpoolClose(first);
    SpoolClose(second);
    EXPECT_TRUE(CanBeWritten(name));
    EXPECT_EQ(ReadWholeFile(name), "kept");
}

TEST(PlatformFiles, FoldersPipesAndMissingNamesAreRefused) {
    TestFolder folder;
    EXPECT_EQ(SpoolOpen(16, (folder / "missing").c_str()), nullptr);
    EXPECT_EQ(SpoolOpen(16, folder.path.string().c_str()), nullptr);
    EXPECT_EQ(SpoolCreate(16, folder.path.string().c_str(), true), nullptr);
    EXPECT_EQ(SpoolCreate(16, (folder / "missing/file").c_str(), true), nullptr);
    EXPECT_EQ(folder.FileCount(), 0u);
#if !defined(_WIN32)
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(SpoolOpen(16, (folder / "pipe").c_str()), nullptr);
#endif
}

// On Windows an open file keeps its name, and only a missing file counts as missing, not a missing folder on the way to it.
// On POSIX systems a name can always go.
TEST(PlatformFiles, DeleteAndRenameTellMissingFromFailed) {
    TestFolder folder;
    const std::string a = folder / "a", b = folder / "b", directory = folder / "c", lost = folder / "missing/file";
    std::filesystem::create_directory(directory);
    EXPECT_EQ(DeleteNamedFile(a.c_str()), NameResult::MISSING);
    EXPECT_EQ(DeleteNamedFile(lost.c_str()), WINDOWS ? NameResult::FAILED : NameResult::MISSING);
    EXPECT_EQ(DeleteNamedFile(directory.c_str()), NameResult::FAILED);
    EXPECT_EQ(RenameNamedFile(b.c_str(), a.c_str()), NameResult::MISSING);
    WriteWholeFile(a, "new");
    WriteWholeFile(b, "old");
    EXPECT_EQ(RenameNamedFile(b.c_str(), a.c_str()), NameResult::FAILED); // never replaces
    EXPECT_EQ(RenameNamedFile(directory.c_str(), a.c_str()), NameResult::FAILED);
    EXPECT_EQ(ReadWholeFile(b), "old");
    EXPECT_EQ(DeleteNamedFile(b.c_str()), NameResult::DONE);
    std::ifstream player(a, std::ios::binary);
    const NameResult whileOpen = RenameNamedFile(b.c_str(), a.c_str());
    EXPECT_EQ(whileOpen, WINDOWS ? NameResult::FAILED : NameResult::DONE);
    player.close();
    if (whileOpen != NameResult::DONE) RenameNamedFile(b.c_str(), a.c_str());
    EXPECT_EQ(ReadWholeFile(b), "new");
    EXPECT_FALSE(std::filesystem::exists(a));
}

// Positions beyond 32 bits reach the system whole; the file is sparse.
TEST(PlatformFiles, PositionsAreWiderThan32Bits) {
    TestFolder folder;
    const std::string name = folder / "long";
    SpoolFile* file = SpoolCreate(16, name.c_str(), true);
    SpoolSeek(file, 0x180000000);
    SpoolWrite(file, "end", 3);
    SpoolClose(file);
    EXPECT_EQ(std::filesystem::file_size(name), 0x180000003u);
    file = SpoolOpen(16, name.c_str());
    EXPECT_EQ(SpoolSize(file), 0x180000003u);
    SpoolSeek(file, 0x180000000);
    char end[3];
    EXPECT_EQ(SpoolRead(file, end, 3), 3u);
    EXPECT_EQ(std::string(end, 3), "end");
    SpoolClose(file);
}

// More threads in all than there are places for starting ones.
TEST(PlatformThreads, EveryThreadRunsOnceWithItsOwnArgument) {
    static std::atomic<uint32_t> visits[25][28];
    for (auto& round : visits) {
        ThreadHandle threads[28];
        for (size_t i = 0; i < 28; i++) {
            const auto visit = [](void* counter) { ++*static_cast<std::atomic<uint32_t>*>(counter); };
            while (!platform->startThread(&threads[i], visit, &round[i])) platform->sleepMilliseconds(1);
        }
        for (const ThreadHandle thread : threads) platform->joinThread(thread);
        for (const auto& visited : round) EXPECT_EQ(visited, 1u);
    }
}

TEST(PlatformClocks, CounterAndTickMoveTogether) {
    const uint64_t counter = platform->counterRead();
    const uint32_t tick = platform->tickMilliseconds();
    platform->sleepMilliseconds(60);
    const double counted = double(platform->counterRead() - counter) * 1000 / double(platform->counterFrequency());
    EXPECT_GE(counted, 60);
    EXPECT_NEAR(platform->tickMilliseconds() - tick, counted, 50);
    EXPECT_GE(platform->processorCount(), 1u);
}
