// Output.cpp - see Output.h.
#include "tools/Output.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "format/MovieLayout.h"
#include "tools/Exit.h"
#include "tools/Text.h"

namespace vorn {

bool SameFile(const std::string& input, const std::string& output) {
    struct stat a = {};
    struct stat b = {};
    const int found = input == "-" ? fstat(STDIN_FILENO, &a) : stat(input.c_str(), &a);
    return found == 0 && stat(output.c_str(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

static std::string FolderOf(const std::string& name) {
    const size_t slash = name.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : name.substr(0, slash);
}

static void RefuseInputs(const std::string& name, const std::vector<std::string>& inputs) {
    for (const std::string& input : inputs)
        if (SameFile(input, name))
            throw Failure{EXIT_USAGE, fmt::format("{}: is the input {} itself; name another output", name, input)};
}

// Follows a symbolic link to the file that it names.
static std::string FollowLink(const std::string& name) {
    struct stat info = {};
    if (lstat(name.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return name;
    char resolved[PATH_MAX];
    if (realpath(name.c_str(), resolved) == nullptr)
        throw Failure{EXIT_FAILED,
                      fmt::format("{}: a symbolic link that leads nowhere ({})", name, std::strerror(errno))};
    return resolved;
}

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

void CheckTemporary(const std::string& name, const std::vector<std::string>& inputs, bool force) {
    const std::string old = name + ".old";
    const std::string temporary = name + ".tmp";
    struct stat info = {};
    if (lstat(name.c_str(), &info) == 0 && lstat(old.c_str(), &info) == 0)
        throw Failure{EXIT_EXISTS, fmt::format("{}: is in the way; {} is kept there while it is replaced", old, name)};
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

void SyncFolder(const std::string& name) {
    const int folder = open(FolderOf(name).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return;
    fsync(folder);
    close(folder);
}

uint32_t CheckMovie(const std::string& name, int64_t frames) {
    uint8_t head[HEADER_BYTES] = {};
    struct stat info = {};
    FILE* file = std::fopen(name.c_str(), "rb");
    const bool read =
        file != nullptr && std::fread(head, 1, sizeof head, file) == sizeof head && fstat(fileno(file), &info) == 0;
    if (file != nullptr) std::fclose(file);
    const auto word = [&](size_t i) {
        return uint32_t(head[i]) | uint32_t(head[i + 1]) << 8 | uint32_t(head[i + 2]) << 16 |
               uint32_t(head[i + 3]) << 24;
    };
    const bool good = read && IsMovieMagic(word(0)) && uint64_t(word(4)) + 8 == static_cast<uint64_t>(info.st_size) &&
                      (frames < 0 || word(8) == static_cast<uint64_t>(frames));
    if (!good) throw Failure{EXIT_FAILED, fmt::format("{}: could not be written completely (disk full?)", name)};
    return word(8);
}

Replacement::Replacement(const std::string& finalName) : name(finalName) {
    struct stat info = {};
    if (lstat(name.c_str(), &info) != 0) return;
    const std::string old = name + ".old";
    if (lstat(old.c_str(), &info) == 0)
        throw Failure{EXIT_EXISTS, fmt::format("{}: is in the way; {} is kept there while it is replaced", old, name)};
    // Not every file system has links; without them the old file is away until the new one is there.
    if (link(name.c_str(), old.c_str()) != 0 && std::rename(name.c_str(), old.c_str()) != 0)
        throw Failure{EXIT_FAILED, fmt::format("{}: can't be replaced ({})", name, std::strerror(errno))};
    oldName = old;
}

Replacement::~Replacement() {
    if (!kept && oldName.empty()) std::remove(name.c_str());
    if (!kept && !oldName.empty()) std::rename(oldName.c_str(), name.c_str());
    // Also after the rename: between two links of one file it does nothing.
    if (!oldName.empty()) std::remove(oldName.c_str());
}

void Replacement::Keep() {
    kept = true;
}

OutputFile::OutputFile(const std::string& finalName) : name(finalName) {
    if (name == "-") {
        file = stdout;
        return;
    }
    partName = name + ".part";
    file = std::fopen(partName.c_str(), "wbx");
    if (file == nullptr && errno == EEXIST)
        throw Failure{EXIT_EXISTS,
                      fmt::format("{}: exists already: left behind by a vorn that was killed, or another one "
                                  "writes it; remove it first",
                                  partName)};
    if (file == nullptr)
        throw Failure{EXIT_FAILED, fmt::format("{}: can't be created ({})", partName, std::strerror(errno))};
}

OutputFile::~OutputFile() {
    if (file == nullptr || partName.empty()) return;
    std::fclose(file);
    std::remove(partName.c_str());
}

void OutputFile::Fail(const char* what) const {
    throw Failure{EXIT_FAILED, fmt::format("{}: can't {} ({})", name == "-" ? "standard output" : name.c_str(), what,
                                           std::strerror(errno))};
}

void OutputFile::Write(const void* bytes, size_t count) {
    if (count != 0 && std::fwrite(bytes, 1, count, file) != count) Fail("be written");
}

void OutputFile::Finish() {
    if (std::fflush(file) != 0) Fail("be written");
    if (partName.empty()) return;
    if (fsync(fileno(file)) != 0 && errno != EINVAL) Fail("be brought to disk");
    FILE* closing = file;
    file = nullptr;
    const bool closed = std::fclose(closing) == 0;
    if (!closed || std::rename(partName.c_str(), name.c_str()) != 0) {
        const int reason = errno;
        std::remove(partName.c_str());
        errno = reason;
        Fail("be finished");
    }
    SyncFolder(name);
}

} // namespace vorn
