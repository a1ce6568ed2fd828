// Output.cpp - may this be written, and how does a complete file get its name?
#include "tools/Output.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/Exit.h"
#include "tools/FileName.h"
#include "tools/Text.h"

namespace vorn {

namespace {

constexpr size_t LONGEST_NAME = 118; // bytes: the library takes 123, with ".part"

std::string FolderOf(const std::string& name) {
    const size_t slash = name.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : name.substr(0, slash);
}

void RefuseInputs(const std::string& name, const std::vector<std::string>& inputs) {
    for (const std::string& input : inputs)
        if (SameFile(input, name))
            throw Failure{EXIT_USAGE, fmt::format("{}: is the input {} itself; name another output", name, input)};
}

// Follows a symbolic link to the file that it names.
std::string FollowLink(const std::string& name) {
    struct stat info = {};
    if (lstat(name.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return name;
    char resolved[PATH_MAX];
    if (realpath(name.c_str(), resolved) == nullptr)
        throw Failure{EXIT_FAILED,
                      fmt::format("{}: a symbolic link that leads nowhere ({})", name, std::strerror(errno))};
    return resolved;
}

// Brings a folder's entry of a new file to disk. A file system that can't do this doesn't matter.
void SyncFolder(const std::string& name) {
    const int folder = open(FolderOf(name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return;
    fsync(folder);
    close(folder);
}

// False with EEXIST if something stands under the new name.
bool RenameWithoutReplacing(const std::string& from, const std::string& to) {
#ifdef RENAME_NOREPLACE
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return false;
#endif
    // Not every file system can do that, nor has every one links.
    if (link(from.c_str(), to.c_str()) == 0) {
        unlink(from.c_str());
        return true;
    }
    if (errno == EEXIST) return false;
    if (FileStands(to)) {
        errno = EEXIST;
        return false;
    }
    return std::rename(from.c_str(), to.c_str()) == 0;
}

// Gives a complete file its final name.
void GiveName(const std::string& partName, const std::string& name, bool force) {
    const bool done = force ? std::rename(partName.c_str(), name.c_str()) == 0 : RenameWithoutReplacing(partName, name);
    if (!done && errno == EEXIST)
        throw Failure{EXIT_EXISTS, fmt::format("{}: has appeared meanwhile; the new file is complete and stays as {}",
                                               name, partName)};
    if (!done)
        throw Failure{EXIT_FAILED, fmt::format("{}: can't get its name ({}); the new file is complete and stays as {}",
                                               name, std::strerror(errno), partName)};
    SyncFolder(name);
}

} // namespace

std::string CheckOutput(const std::string& name, const std::vector<std::string>& inputs, bool force, bool inPlace) {
    if (name.empty()) throw Failure{EXIT_USAGE, "-o: the output's name is empty"};
    const std::string target = FollowLink(name);
    struct stat info = {};
    if (stat(target.c_str(), &info) == 0) {
        if (!inPlace) RefuseInputs(name, inputs);
        if (S_ISDIR(info.st_mode)) throw Failure{EXIT_FAILED, fmt::format("{}: is a folder; name a file in it", name)};
        if (!S_ISREG(info.st_mode))
            throw Failure{EXIT_FAILED, fmt::format("{}: is a device or a pipe, not a file; name a plain file", name)};
        if (!force) throw Failure{EXIT_EXISTS, fmt::format("{}: exists already; --force replaces it", name)};
    } else if (errno != ENOENT) {
        throw Failure{EXIT_FAILED, fmt::format("{}: {}", name, std::strerror(errno))};
    }
    const std::string folder = FolderOf(target);
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        throw Failure{EXIT_FAILED,
                      fmt::format("{}: can't write into the folder {} ({})", name, folder, std::strerror(errno))};
    return target;
}

MoviePart::MoviePart(const std::string& finalName, const std::vector<std::string>& inputs, bool replace)
    : name(finalName), partName(finalName + ".part"), force(replace) {
    if (name.size() > LONGEST_NAME)
        throw Failure{EXIT_FAILED, fmt::format("{}: the name has {} bytes; a movie's may have {}, folders included",
                                               name, name.size(), LONGEST_NAME)};
    if (FileStands(partName)) throw Failure{EXIT_EXISTS, fmt::format("{}: exists already; remove it first", partName)};
    const std::string temporary = partName + ".tmp";
    struct stat info = {};
    if (lstat(temporary.c_str(), &info) != 0) return;
    RefuseInputs(temporary, inputs);
    if (!S_ISREG(info.st_mode))
        throw Failure{EXIT_FAILED, fmt::format("{}: must not be there, and is no plain file", temporary)};
    if (!force)
        throw Failure{EXIT_EXISTS,
                      fmt::format("{}: exists already: another vorn writes it, or one that was killed left it; "
                                  "--force replaces it",
                                  temporary)};
}

MoviePart::~MoviePart() {
    if (!done) std::remove(partName.c_str());
}

void MoviePart::Publish() {
    done = true;
    GiveName(partName, name, force);
}

OutputFile::OutputFile(const std::string& finalName, bool replace) : name(finalName), force(replace) {
    if (name == "-") {
        file = stdout;
        return;
    }
    partName = name + ".part";
    const InterruptsHeld held;
    file = std::fopen(partName.c_str(), "wbx");
    if (file == nullptr && errno == EEXIST)
        throw Failure{EXIT_EXISTS,
                      fmt::format("{}: exists already: left behind by a vorn that was killed, or another one "
                                  "writes it; remove it first",
                                  partName)};
    if (file == nullptr)
        throw Failure{EXIT_FAILED, fmt::format("{}: can't be created ({})", partName, std::strerror(errno))};
    unfinished.Note(partName);
}

OutputFile::~OutputFile() {
    if (partName.empty()) return;
    if (file != nullptr) std::fclose(file);
    if (!published) std::remove(partName.c_str());
}

void OutputFile::Fail(const char* what) const {
    throw Failure{EXIT_FAILED, fmt::format("{}: can't {} ({})", name == "-" ? "standard output" : name.c_str(), what,
                                           std::strerror(errno))};
}

void OutputFile::Write(const void* bytes, size_t count) {
    if (count != 0 && std::fwrite(bytes, 1, count, file) != count) Fail("be written");
}

void OutputFile::Complete() {
    if (std::fflush(file) != 0) Fail("be written");
    if (partName.empty()) return;
    if (fsync(fileno(file)) != 0 && errno != EINVAL) Fail("be brought to disk");
    FILE* closing = file;
    file = nullptr;
    if (std::fclose(closing) != 0) Fail("be finished");
}

void OutputFile::Publish() {
    if (partName.empty()) return;
    // It is complete: a signal must not remove it any more.
    unfinished.Forget();
    published = true;
    GiveName(partName, name, force);
}

} // namespace vorn
