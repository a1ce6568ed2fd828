// Output.h - where results go: never over an input, never over an older file unless asked to, and under their final name
// only once they are complete.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vorn {

// Whether two names lead to one file, by device and inode. "-" means standard input for `input`.
bool SameFile(const std::string& input, const std::string& output);

// Checks an output before any work is done, and throws a Failure:
//   it is one of `inputs`, unless `inPlace`                    usage
//   something stands there already and `force` isn't given     exists
//   it is no plain file, or its folder is missing or read-only failed
// Returns the name to write to: `name`, or where it leads to if it is a symbolic link, so that the link stays one.
std::string CheckOutput(const std::string& name, const std::vector<std::string>& inputs, bool force, bool inPlace);

// The same for the names beside a movie that are used while it is made. NAME.tmp, in which the library builds it: a killed
// encoder leaves it behind, and it is a movie of its own; another encoder may be writing it. NAME.old: see Replacement.
void CheckTemporary(const std::string& name, const std::vector<std::string>& inputs, bool force);

// Brings a folder's entry of a new file to disk. A file system that can't do this doesn't matter.
void SyncFolder(const std::string& name);

// Checks that the movie `name` is complete: a good head that counts `frames` frames (if not -1) and knows the file's size.
// This is how a full disk at the very end is noticed. Returns how many frames it counts, or throws a Failure.
uint32_t CheckMovie(const std::string& name, int64_t frames);

// Keeps the file that a movie is about to replace, as NAME.old, until the new one is known to be good. On the way out
// without Keep the old file is back in its place; if there was none, nothing is there.
class Replacement {
public:
    explicit Replacement(const std::string& name); // throws a Failure
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    void Keep(); // the new file stays

private:
    std::string name;
    std::string oldName; // "" if there was no file, or the new one stays
    bool kept = false;
};

// A file under construction, or standard output for "-". Its name is NAME.part until Finish.
class OutputFile {
public:
    explicit OutputFile(const std::string& name); // throws a Failure
    ~OutputFile();                                // without Finish: the file is removed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(const void* bytes, size_t count);
    void Finish(); // flushes, syncs and renames

private:
    [[noreturn]] void Fail(const char* what) const;

    std::string name;
    std::string partName; // "" on standard output
    FILE* file = nullptr;
};

} // namespace vorn
