// PlatformPosix.cpp - the Platform table for POSIX systems.
// Files: a file being written is locked exclusively, one being read is locked for sharing. The locks are advisory: they keep
// this library's own writers and readers apart, in any process, and nobody else.

// Before any include: 64-bit file positions in 32-bit builds too.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include "platform/Platform.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/StartSlots.h"

namespace vorn {

namespace {

static_assert(sizeof(off_t) == 8, "movies outgrow 32-bit file positions");
static_assert(sizeof(pthread_t) <= sizeof(ThreadHandle));

constexpr uint32_t LARGEST_TRANSFER = 0x40000000; // bytes of one system call; some systems refuse more than 2^31 - 1

// Repeats a call that a signal interrupted.
template <class Call> auto Uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

// False only if someone else holds a lock that stands against this one; a file system without locks doesn't matter.
bool LockFile(int file, int kind) {
    return Uninterrupted([=] { return flock(file, kind | LOCK_NB); }) == 0 || errno != EWOULDBLOCK;
}

// Whether `file` is still what `name` names: between opening and locking, the writer before may have renamed it.
bool StillNamed(int file, const char* name) {
    struct stat opened, named;
    return fstat(file, &opened) == 0 && stat(name, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

bool EmptyFile(int file) {
    struct stat information;
    if (fstat(file, &information) == 0 && information.st_size == 0) return true;
    return Uninterrupted([=] { return ftruncate(file, 0); }) == 0;
}

void ExpectSequentialUse([[maybe_unused]] int file) {
#ifdef POSIX_FADV_SEQUENTIAL
    posix_fadvise(file, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
}

FileHandle CreateLockedFile(const char* name, bool) {
    for (int attempt = 0; attempt < 8; attempt++) {
        const int file = Uninterrupted([=] { return open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0666); });
        if (file < 0) return NO_FILE;
        if (!LockFile(file, LOCK_EX)) {
            close(file);
            return NO_FILE;
        }
        // Emptied only now that it is certain that nobody writes it under this name, nor under a new one.
        if (StillNamed(file, name)) {
            if (EmptyFile(file)) {
                ExpectSequentialUse(file);
                return file;
            }
            close(file);
            return NO_FILE;
        }
        close(file);
    }
    return NO_FILE;
}

// Only what can be sought: no folder, no pipe. The opening of a pipe isn't to wait for somebody who writes to it.
FileHandle OpenLockedFile(const char* name) {
    const int file = Uninterrupted([=] { return open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK); });
    if (file < 0) return NO_FILE;
    struct stat information;
    if (fstat(file, &information) != 0 || !S_ISREG(information.st_mode) || !LockFile(file, LOCK_SH)) {
        close(file);
        return NO_FILE;
    }
    ExpectSequentialUse(file);
    return file;
}

// Repeats a transfer until all is done, the file ends or the system fails. `transfer` takes a distance and a byte count.
template <class Transfer> uint32_t TransferAll(uint32_t bytes, Transfer transfer) {
    uint32_t done = 0;
    while (done < bytes) {
        const uint32_t left = bytes - done;
        const size_t part = left < LARGEST_TRANSFER ? left : LARGEST_TRANSFER;
        const ssize_t moved = Uninterrupted([=] { return transfer(done, part); });
        if (moved <= 0) break;
        done += static_cast<uint32_t>(moved);
    }
    return done;
}

uint32_t ReadBytes(FileHandle file, void* destination, uint32_t bytes) {
    return TransferAll(bytes, [=](uint32_t done, size_t part) {
        return read(static_cast<int>(file), static_cast<uint8_t*>(destination) + done, part);
    });
}

uint32_t WriteBytes(FileHandle file, const void* source, uint32_t bytes) {
    return TransferAll(bytes, [=](uint32_t done, size_t part) {
        return write(static_cast<int>(file), static_cast<const uint8_t*>(source) + done, part);
    });
}

uint64_t MovePointer(FileHandle file, int64_t offset, SeekOrigin origin) {
    const int whence = origin == SeekOrigin::START ? SEEK_SET : origin == SeekOrigin::CURRENT ? SEEK_CUR : SEEK_END;
    return static_cast<uint64_t>(lseek(static_cast<int>(file), offset, whence));
}

// A file system that knows no commit has nothing to fail at.
bool CommitFile(FileHandle file) {
    if (Uninterrupted([=] { return fsync(static_cast<int>(file)); }) == 0) return true;
    return errno == EINVAL || errno == EROFS || errno == ENOTSUP;
}

void SyncFolder(const char* name) {
    char folder[512];
    const char* const slash = std::strrchr(name, '/');
    const size_t length = slash == nullptr ? 1 : slash == name ? 1 : static_cast<size_t>(slash - name);
    if (length >= sizeof folder) return;
    std::memcpy(folder, slash == nullptr ? "." : name, length);
    folder[length] = 0;
    const int opened = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0) return;
    Uninterrupted([=] { return fsync(opened); });
    close(opened);
}

// Not repeated when interrupted: the descriptor is gone by then.
void CloseFile(FileHandle file) {
    close(static_cast<int>(file));
}

NameResult ResultOf(int status) {
    if (status == 0) return NameResult::DONE;
    return errno == ENOENT ? NameResult::MISSING : NameResult::FAILED;
}

NameResult DeleteFile(const char* name) {
    return ResultOf(unlink(name));
}

NameResult RenameFile(const char* newName, const char* oldName) {
#if defined(__linux__) && defined(RENAME_NOREPLACE)
    const int status = renameat2(AT_FDCWD, oldName, AT_FDCWD, newName, RENAME_NOREPLACE);
    if (status == 0 || (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)) return ResultOf(status);
#endif
    // The kernel or the file system can't refuse to replace; a file that appears between the two calls is replaced.
    struct stat information;
    if (lstat(newName, &information) == 0) return NameResult::FAILED;
    if (errno != ENOENT) return NameResult::FAILED;
    return ResultOf(rename(oldName, newName));
}

void* ThreadMain(void* slot) {
    RunStartSlot(static_cast<StartSlot*>(slot));
    return nullptr;
}

bool StartThread(ThreadHandle* thread, void (*run)(void*), void* argument) {
    StartSlot* slot = TakeStartSlot(run, argument);
    if (slot == nullptr) return false;
    pthread_t started;
    if (pthread_create(&started, nullptr, ThreadMain, slot) != 0) {
        FreeStartSlot(slot);
        return false;
    }
    *thread = (ThreadHandle)started; // an integer or a pointer, as the system likes
    return true;
}

// Workers run out of blocks together, so a thread that is joined is mostly about to end. To look for that for a few microseconds
// takes less time than to be put to sleep and woken: measured 5 instead of 20 microseconds, nine times a frame.
void JoinThread(ThreadHandle thread) {
#if defined(__GLIBC__) && (defined(__x86_64__) || defined(__i386__))
    constexpr int LOOKS = 1000; // some 20 microseconds
    for (int i = 0; i < LOOKS; i++) {
        if (pthread_tryjoin_np((pthread_t)thread, nullptr) == 0) return;
        __builtin_ia32_pause();
    }
#endif
    pthread_join((pthread_t)thread, nullptr);
}

uint64_t ReadClock(clockid_t clock, uint64_t unitsPerSecond) {
    timespec time;
    if (clock_gettime(clock, &time) != 0) return 0;
    return static_cast<uint64_t>(time.tv_sec) * unitsPerSecond +
           static_cast<uint64_t>(time.tv_nsec) / (1000000000 / unitsPerSecond);
}

uint64_t CounterFrequency() {
    return 1000000000;
}

uint64_t CounterRead() {
    return ReadClock(CLOCK_MONOTONIC, 1000000000);
}

uint32_t TickMilliseconds() {
#ifdef CLOCK_MONOTONIC_COARSE
    return static_cast<uint32_t>(ReadClock(CLOCK_MONOTONIC_COARSE, 1000));
#else
    return static_cast<uint32_t>(ReadClock(CLOCK_MONOTONIC, 1000));
#endif
}

void SleepMilliseconds(uint32_t milliseconds) {
    timespec left;
    left.tv_sec = static_cast<time_t>(milliseconds / 1000);
    left.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    Uninterrupted([&left] { return nanosleep(&left, &left); });
}

uint32_t ProcessorCount() {
    const long processors = sysconf(_SC_NPROCESSORS_ONLN);
    return processors > 0 ? static_cast<uint32_t>(processors) : 0;
}

} // namespace

const Platform SYSTEM_PLATFORM = {
    CreateLockedFile, OpenLockedFile,   ReadBytes,         WriteBytes,     MovePointer, CommitFile,
    CloseFile,        DeleteFile,       RenameFile,        StartThread,    JoinThread,  CounterFrequency,
    CounterRead,      TickMilliseconds, SleepMilliseconds, ProcessorCount, SyncFolder,
};

} // namespace vorn
