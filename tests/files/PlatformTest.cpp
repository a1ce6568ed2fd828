// PlatformTest.cpp - what the system's table promises about real files, threads and clocks.
#include <atomic>
#include <vector>

#include <gtest/gtest.h>

#include "files/SpoolFile.h"
#include "tests/files/TestSeams.h"

using namespace vorn;

TEST(PlatformFiles, AFileBeingWrittenIsNeitherMadeAgainNorOpened) {
    TestFolder folder;
    const std::string name = folder / "movie";
    WriteWholeFile(name, "older and longer");
    SpoolFile* writer = SpoolCreate(16, name.c_str(), true);
    ASSERT_NE(writer, nullptr);
    EXPECT_EQ(SpoolSize(writer), 0u);
    SpoolWrite(writer, "kept", 4);
    SpoolFlush(writer, true);
    EXPECT_EQ(SpoolCreate(16, name.c_str(), true), nullptr);
    EXPECT_EQ(SpoolOpen(16, name.c_str()), nullptr);
    EXPECT_EQ(ReadWholeFile(name), "kept");
    SpoolClose(writer);

    SpoolFile* first = SpoolOpen(16, name.c_str());
    SpoolFile* second = SpoolOpen(16, name.c_str());
    EXPECT_TRUE(first != nullptr && second != nullptr);
    EXPECT_EQ(SpoolCreate(16, name.c_str(), false), nullptr);
    SpoolClose(first);
    SpoolClose(second);
    EXPECT_EQ(ReadWholeFile(name), "kept");
}

TEST(PlatformFiles, FoldersAndMissingNamesAreRefused) {
    TestFolder folder;
    EXPECT_EQ(SpoolOpen(16, (folder / "missing").c_str()), nullptr);
    EXPECT_EQ(SpoolOpen(16, folder.path.string().c_str()), nullptr);
    EXPECT_EQ(SpoolCreate(16, folder.path.string().c_str(), true), nullptr);
    EXPECT_EQ(SpoolCreate(16, (folder / "missing/file").c_str(), true), nullptr);
    EXPECT_EQ(folder.FileCount(), 0u);
}

TEST(PlatformFiles, DeleteAndRenameTellMissingFromFailed) {
    TestFolder folder;
    const std::string a = folder / "a", b = folder / "b", directory = folder / "c";
    std::filesystem::create_directory(directory);
    EXPECT_EQ(DeleteNamedFile(a.c_str()), NameResult::MISSING);
    EXPECT_EQ(DeleteNamedFile(directory.c_str()), NameResult::FAILED);
    EXPECT_EQ(RenameNamedFile(b.c_str(), a.c_str()), NameResult::MISSING);
    WriteWholeFile(a, "new");
    WriteWholeFile(b, "old");
    EXPECT_EQ(RenameNamedFile(b.c_str(), a.c_str()), NameResult::FAILED); // never replaces
    EXPECT_EQ(RenameNamedFile(directory.c_str(), a.c_str()), NameResult::FAILED);
    EXPECT_EQ(ReadWholeFile(b), "old");
    EXPECT_EQ(DeleteNamedFile(b.c_str()), NameResult::DONE);
    EXPECT_EQ(RenameNamedFile(b.c_str(), a.c_str()), NameResult::DONE);
    EXPECT_EQ(ReadWholeFile(b), "new");
    EXPECT_FALSE(std::filesystem::exists(a));
}

namespace {

#if defined(_WIN32)
constexpr bool WINDOWS = true;
#else
constexpr bool WINDOWS = false;
#endif

// As a program that knows nothing of this library opens it.
bool CanBeRead(const std::string& name) {
    return std::ifstream(name, std::ios::binary).is_open();
}
bool CanBeWritten(const std::string& name) {
    return std::ofstream(name, std::ios::binary | std::ios::app).is_open();
}

} // namespace

// Windows keeps other programs from a file in use as the share flag says, POSIX systems keep nobody from it.
TEST(PlatformFiles, TheShareFlagLetsOthersReadAndNeverWrite) {
    TestFolder folder;
    const std::string name = folder / "movie";
    for (const bool shared : {true, false}) {
        SpoolFile* writer = SpoolCreate(16, name.c_str(), shared);
        ASSERT_NE(writer, nullptr);
        EXPECT_EQ(CanBeRead(name), shared || !WINDOWS);
        EXPECT_EQ(CanBeWritten(name), !WINDOWS);
        SpoolClose(writer);
    }
    SpoolFile* reader = SpoolOpen(16, name.c_str());
    EXPECT_TRUE(CanBeRead(name));
    EXPECT_EQ(CanBeWritten(name), !WINDOWS);
    SpoolClose(reader);
    EXPECT_TRUE(CanBeWritten(name));
}

// On Windows an open file keeps its name, a read-only one isn't deleted, and only a missing file counts as missing, not a
// missing folder on the way to it. On POSIX systems a name can always go.
TEST(PlatformFiles, NamesOfFilesInUse) {
    TestFolder folder;
    const std::string name = folder / "movie", other = folder / "other";
    const NameResult blocked = WINDOWS ? NameResult::FAILED : NameResult::DONE;
    for (const bool open : {true, false}) {
        WriteWholeFile(name, "kept");
        std::ifstream player;
        if (open) player.open(name, std::ios::binary);
        if (!open) std::filesystem::permissions(name, std::filesystem::perms::owner_read);
        if (open) {
            EXPECT_EQ(RenameNamedFile(other.c_str(), name.c_str()), blocked);
        }
        EXPECT_EQ(DeleteNamedFile(WINDOWS || !open ? name.c_str() : other.c_str()), blocked);
        EXPECT_EQ(ReadWholeFile(name), WINDOWS ? "kept" : "");
        player.close();
        if (WINDOWS) std::filesystem::permissions(name, std::filesystem::perms::owner_all);
    }
    EXPECT_EQ(DeleteNamedFile((folder / "missing").c_str()), NameResult::MISSING);
    EXPECT_EQ(DeleteNamedFile((folder / "missing/file").c_str()), WINDOWS ? NameResult::FAILED : NameResult::MISSING);
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

TEST(PlatformThreads, EveryThreadRunsOnceWithItsOwnArgument) {
    static std::atomic<uint32_t> visits[700];
    std::vector<ThreadHandle> threads;
    for (uint32_t i = 0; i < 700; i++) {
        ThreadHandle thread;
        while (!platform->startThread(
            &thread, [](void* visit) { ++*static_cast<std::atomic<uint32_t>*>(visit); }, &visits[i]))
            platform->sleepMilliseconds(1);
        threads.push_back(thread);
        if (threads.size() < 31) continue;
        for (const ThreadHandle started : threads) platform->joinThread(started);
        threads.clear();
    }
    for (const ThreadHandle started : threads) platform->joinThread(started);
    for (const auto& visit : visits) EXPECT_EQ(visit, 1u);
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
