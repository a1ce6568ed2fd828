// PlatformWindowsTest.cpp - where Windows keeps programs apart that POSIX doesn't.
#if defined(_WIN32)

#include <gtest/gtest.h>

#include "files/SpoolFile.h"
#include "tests/files/TestSeams.h"

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

TEST(PlatformWindows, TheShareFlagLetsOthersReadAndNeverWrite) {
    TestFolder folder;
    const std::string name = folder / "movie";
    for (const bool shared : {true, false}) {
        SpoolFile* writer = SpoolCreate(16, name.c_str(), shared);
        ASSERT_NE(writer, nullptr);
        EXPECT_EQ(CanBeRead(name), shared);
        EXPECT_FALSE(CanBeWritten(name));
        SpoolClose(writer);
    }
    SpoolFile* reader = SpoolOpen(16, name.c_str());
    EXPECT_TRUE(CanBeRead(name));
    EXPECT_FALSE(CanBeWritten(name));
    SpoolClose(reader);
    EXPECT_TRUE(CanBeWritten(name));
}

TEST(PlatformWindows, AnOpenFileKeepsItsName) {
    TestFolder folder;
    const std::string name = folder / "movie", other = folder / "other";
    WriteWholeFile(name, "kept");
    {
        const std::ifstream player(name, std::ios::binary);
        EXPECT_EQ(DeleteNamedFile(name.c_str()), NameResult::FAILED);
        EXPECT_EQ(RenameNamedFile(other.c_str(), name.c_str()), NameResult::FAILED);
    }
    EXPECT_EQ(ReadWholeFile(name), "kept");
    EXPECT_EQ(DeleteNamedFile(name.c_str()), NameResult::DONE);
}

// Only a missing file counts as missing, not a missing folder on the way to it.
TEST(PlatformWindows, AMissingFolderIsAFailure) {
    TestFolder folder;
    EXPECT_EQ(DeleteNamedFile((folder / "missing").c_str()), NameResult::MISSING);
    EXPECT_EQ(DeleteNamedFile((folder / "missing\\file").c_str()), NameResult::FAILED);
}

TEST(PlatformWindows, AReadOnlyFileIsNotDeleted) {
    TestFolder folder;
    const std::string name = folder / "movie";
    WriteWholeFile(name, "kept");
    std::filesystem::permissions(name, std::filesystem::perms::owner_read | std::filesystem::perms::group_read);
    EXPECT_EQ(DeleteNamedFile(name.c_str()), NameResult::FAILED);
    EXPECT_EQ(ReadWholeFile(name), "kept");
    std::filesystem::permissions(name, std::filesystem::perms::owner_all);
}

#endif
