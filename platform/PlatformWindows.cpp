// PlatformWindows.cpp - the Platform table for Windows.
// Names are in the code page of the process, as the caller's other file calls of that kind take them; a program whose manifest
// makes that UTF-8 hands in UTF-8.
// Files: the share modes keep other programs out too. A file being written may be opened by a reader that in turn lets others
// write.
#include "platform/Platform.h"

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <mmsystem.h> // after windows.h

#include "platform/StartSlots.h"

namespace vorn {

namespace {

static_assert(sizeof(HANDLE) == sizeof(FileHandle) && sizeof(HANDLE) == sizeof(ThreadHandle));

constexpr DWORD LARGEST_TRANSFER = 0x1000000; // bytes of one system call; network drives refuse calls of 64 MiB
constexpr DWORD FILE_FLAGS = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN;

HANDLE SystemHandle(FileHandle file) {
    return reinterpret_cast<HANDLE>(file);
}

// INVALID_HANDLE_VALUE becomes NO_FILE: both are all ones.
FileHandle OpenedFile(HANDLE file) {
    return reinterpret_cast<FileHandle>(file);
}

FileHandle CreateSharedFile(const char* name, bool shared) {
    return OpenedFile(CreateFileA(name, GENERIC_READ | GENERIC_WRITE, shared ? FILE_SHARE_READ : 0, nullptr,
                                  CREATE_ALWAYS, FILE_FLAGS, nullptr));
}

FileHandle OpenSharedFile(const char* name) {
    return OpenedFile(CreateFileA(name, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAGS, nullptr));
}

// Repeats a transfer until all is done, the file ends or the system fails. `transfer` takes a distance, a byte count and where
// to put the bytes moved; false if it failed.
template <class Transfer> uint32_t TransferAll(uint32_t bytes, Transfer transfer) {
    uint32_t done = 0;
    while (done < bytes) {
        const DWORD left = bytes - done;
        const DWORD part = left < LARGEST_TRANSFER ? left : LARGEST_TRANSFER;
        DWORD moved = 0;
        const bool worked = transfer(done, part, &moved);
        done += moved;
        if (!worked || moved == 0) break;
    }
    return done;
}

uint32_t ReadBytes(FileHandle file, void* destination, uint32_t bytes) {
    return TransferAll(bytes, [=](uint32_t done, DWORD part, DWORD* moved) {
        return ReadFile(SystemHandle(file), static_cast<uint8_t*>(destination) + done, part, moved, nullptr) != 0;
    });
}

uint32_t WriteBytes(FileHandle file, const void* source, uint32_t bytes) {
    return TransferAll(bytes, [=](uint32_t done, DWORD part, DWORD* moved) {
        return WriteFile(SystemHandle(file), static_cast<const uint8_t*>(source) + done, part, moved, nullptr) != 0;
    });
}

// The low half of a position may well be the failure value; then only the error tells.
uint64_t MovePointer(FileHandle file, int64_t offset, SeekOrigin origin) {
    const DWORD method = origin == SeekOrigin::START     ? FILE_BEGIN
                         : origin == SeekOrigin::CURRENT ? FILE_CURRENT
                                                         : FILE_END;
    LONG high = static_cast<LONG>(offset >> 32);
    SetLastError(NO_ERROR);
    const DWORD low = SetFilePointer(SystemHandle(file), static_cast<LONG>(offset), &high, method);
    if (low == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR) return UINT64_MAX;
    return uint64_t{static_cast<DWORD>(high)} << 32 | low;
}

bool CommitFile(FileHandle file) {
    return FlushFileBuffers(SystemHandle(file)) != 0;
}

void CloseFile(FileHandle file) {
    CloseHandle(SystemHandle(file));
}

NameResult ResultOf(BOOL done) {
    if (done != 0) return NameResult::DONE;
    return GetLastError() == ERROR_FILE_NOT_FOUND ? NameResult::MISSING : NameResult::FAILED;
}

NameResult DeleteNamed(const char* name) {
    return ResultOf(DeleteFileA(name));
}

NameResult RenameNamed(const char* newName, const char* oldName) {
    return ResultOf(MoveFileA(oldName, newName));
}

DWORD WINAPI ThreadMain(void* slot) {
    RunStartSlot(static_cast<StartSlot*>(slot));
    return 0;
}

bool StartThread(ThreadHandle* thread, void (*run)(void*), void* argument) {
    StartSlot* slot = TakeStartSlot(run, argument);
    if (slot == nullptr) return false;
    const HANDLE started = CreateThread(nullptr, 0, ThreadMain, slot, 0, nullptr);
    if (started == nullptr) {
        FreeStartSlot(slot);
        return false;
    }
    *thread = reinterpret_cast<ThreadHandle>(started);
    return true;
}

void JoinThread(ThreadHandle thread) {
    const HANDLE handle = reinterpret_cast<HANDLE>(thread);
    WaitForSingleObject(handle, INFINITE);
    CloseHandle(handle);
}

uint64_t CounterFrequency() {
    LARGE_INTEGER frequency;
    return QueryPerformanceFrequency(&frequency) != 0 ? static_cast<uint64_t>(frequency.QuadPart) : 0;
}

uint64_t CounterRead() {
    LARGE_INTEGER counter;
    return QueryPerformanceCounter(&counter) != 0 ? static_cast<uint64_t>(counter.QuadPart) : 0;
}

uint32_t TickMilliseconds() {
    return timeGetTime();
}

void SleepMilliseconds(uint32_t milliseconds) {
    Sleep(milliseconds);
}

uint32_t ProcessorCount() {
    SYSTEM_INFO information;
    GetSystemInfo(&information);
    return information.dwNumberOfProcessors;
}

// MoveFileA returns with the entry in the journal of the file system; there is no call that commits a folder.
void SyncFolder(const char*) {}

} // namespace

const Platform SYSTEM_PLATFORM = {
    CreateSharedFile, OpenSharedFile,   ReadBytes,         WriteBytes,     MovePointer, CommitFile,
    CloseFile,        DeleteNamed,      RenameNamed,       StartThread,    JoinThread,  CounterFrequency,
    CounterRead,      TickMilliseconds, SleepMilliseconds, ProcessorCount, SyncFolder,
};

} // namespace vorn
