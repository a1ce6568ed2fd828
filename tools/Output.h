// Output.h - where results go: never over an input, never over an older file unless asked to, and under their final name
// only once they are complete.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tools/Interrupt.h"

namespace vorn {

// Checks an output before any work is done, and throws a Failure:
//   it is one of `inputs`, unless `inPlace`                    usage
//   something stands there already and `force` isn't given     exists
//   it is no plain file, or its folder is missing or read-only failed
// Returns the name to write to: `name`, or where it leads to if it is a symbolic link, so that the link stays one.
std::string CheckOutput(const std::string& name, const std::vector<std::string>& inputs, bool force, bool inPlace);

// A movie that the library is about to make. To the library its name is NAME.part, and NAME.part.tmp while it grows; only a
// complete one gets the name NAME, so that an older file stands there until the very end.
class MoviePart {
public:
    // Throws a Failure if the name is too long, or one of those two names is taken: a killed encoder leaves NAME.part.tmp
    // behind, which is a movie of its own, or another encoder may be writing it. `force` replaces that.
    MoviePart(const std::string& name, const std::vector<std::string>& inputs, bool force);
    ~MoviePart(); // without Publish: NAME.part is removed
    MoviePart(const MoviePart&) = delete;
    MoviePart& operator=(const MoviePart&) = delete;

    const std::string& PartName() const { return partName; }
    // Throws a Failure if another file has appeared under the name meanwhile, unless forced. NAME.part then stays.
    void Publish();

private:
    std::string name;
    std::string partName;
    bool force;
    bool done = false;
};

// A file under construction, or standard output for "-". Its name is NAME.part until Finish.
class OutputFile {
public:
    // Throws a Failure. `force`: Finish may replace a file.
    OutputFile(const std::string& name, bool force);
    ~OutputFile(); // without Publish: the file is removed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(const void* bytes, size_t count);
    // Flushes and syncs: all of it is on disk, as NAME.part.
    void Complete();
    // Gives the complete file its name. If another one has appeared under it meanwhile, NAME.part stays.
    void Publish();
    void Finish() {
        Complete();
        Publish();
    }

private:
    [[noreturn]] void Fail(const char* what) const;

    std::string name;
    std::string partName; // "" on standard output
    bool force;
    FILE* file = nullptr;
    bool published = false;
    UnfinishedFile unfinished;
};

} // namespace vorn
