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
