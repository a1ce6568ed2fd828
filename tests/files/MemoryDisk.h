// MemoryDisk.h - files in memory and a clock that only moves when somebody sleeps, under the library's platform table, so
// that an input always does the same and takes no time on a disk. One operation may fail.
#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace vorn {

struct MemoryDisk {
    struct OpenFile {
        std::string name;
        uint64_t position;
    };
    std::map<std::string, std::vector<uint8_t>> files;
    std::map<FileHandle, OpenFile> open;
    FileHandle lastHandle = 0;
    uint64_t milliseconds = 0;
    // The write, seek or commit that fails, counted from 1; 0: none.
    uint32_t failingOperation = 0;
    uint32_t operations = 0;
    // Called when a file is about to be closed; may be null.
    void (*beforeClose)() = nullptr;

    bool Fails() { return ++operations == failingOperation; }
    bool Failed() const { return failingOperation != 0 && operations >= failingOperation; }
};

inline MemoryDisk* disk; // in force

inline FileHandle OpenOnDisk(const char* name) {
    if (disk->files.count(name) == 0) return NO_FILE;
    disk->open[++disk->lastHandle] = {name, 0};
    return disk->lastHandle;
}

inline uint32_t ReadOnDisk(FileHandle handle, void* destination, uint32_t bytes) {
    MemoryDisk::OpenFile& file = disk->open.at(handle);
    const std::vector<uint8_t>& content = disk->files.at(file.name);
    const uint64_t left = content.size() - std::min<uint64_t>(file.position, content.size());
    const uint32_t part = static_cast<uint32_t>(std::min<uint64_t>(left, bytes));
    if (part > 0) std::memcpy(destination, content.data() + file.position, part);
    file.position += part;
    return part;
}

inline uint32_t WriteOnDisk(FileHandle handle, const void* source, uint32_t bytes) {
    MemoryDisk::OpenFile& file = disk->open.at(handle);
    std::vector<uint8_t>& content = disk->files.at(file.name);
    if (disk->Fails()) bytes /= 2;
    if (content.size() < file.position + bytes) content.resize(file.position + bytes);
    if (bytes > 0) std::memcpy(content.data() + file.position, source, bytes);
    file.position += bytes;
    return bytes;
}

inline uint64_t SeekOnDisk(FileHandle handle, int64_t offset, SeekOrigin origin) {
    MemoryDisk::OpenFile& file = disk->open.at(handle);
    if (disk->Fails()) return UINT64_MAX;
    int64_t base = 0;
    if (origin == SeekOrigin::CURRENT) base = static_cast<int64_t>(file.position);
    if (origin == SeekOrigin::END) base = static_cast<int64_t>(disk->files.at(file.name).size());
    if (base + offset < 0) return UINT64_MAX;
    return file.position = static_cast<uint64_t>(base + offset);
}

// The table that leads to `disk`.
inline Platform MemoryDiskPlatform() {
    Platform table = SYSTEM_PLATFORM;
    table.createFile = [](const char* name, bool) {
        disk->files[name].clear();
        return OpenOnDisk(name);
    };
    table.openFile = OpenOnDisk;
    table.readFile = ReadOnDisk;
    table.writeFile = WriteOnDisk;
    table.seekFile = SeekOnDisk;
    table.flushFile = [](FileHandle) { return !disk->Fails(); };
    table.closeFile = [](FileHandle handle) {
        if (disk->beforeClose != nullptr) disk->beforeClose();
        disk->open.erase(handle);
    };
    table.deleteFile = [](const char* name) {
        return disk->files.erase(name) != 0 ? NameResult::DONE : NameResult::MISSING;
    };
    table.renameFile = [](const char* newName, const char* oldName) {
        if (disk->files.count(newName) != 0 || disk->files.count(oldName) == 0) return NameResult::FAILED;
        disk->files[newName] = std::move(disk->files[oldName]);
        disk->files.erase(oldName);
        return NameResult::DONE;
    };
    table.syncFolder = [](const char*) {};
    table.counterFrequency = []() -> uint64_t { return 1000; };
    table.counterRead = [] { return disk->milliseconds; };
    table.tickMilliseconds = [] { return static_cast<uint32_t>(disk->milliseconds); };
    table.sleepMilliseconds = [](uint32_t count) { disk->milliseconds += count; };
    return table;
}

// Puts `chosen` in force. Nothing of the library may be at work.
inline void UseMemoryDisk(MemoryDisk* chosen) {
    static const Platform table = MemoryDiskPlatform();
    disk = chosen;
    platform = &table;
}

} // namespace vorn
